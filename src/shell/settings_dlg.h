#pragma once

class CAppGlobals;
class QWidget;

// The four switches of the help pages and wizards, kept in the profile. Changes are written on OK only.
void RunSettingsDialog(QWidget* parent, CAppGlobals& app);
