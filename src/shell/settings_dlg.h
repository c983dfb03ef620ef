#pragma once

class CAppGlobals;
class QWidget;

// The four switches of the help pages and wizards and the companion photo editor's program, kept in the profile.
// Changes are written on OK only.
void RunSettingsDialog(QWidget* parent, CAppGlobals& app);
