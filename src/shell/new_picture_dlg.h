#pragma once

class QWidget;

// Asks for the size of a new picture (each side 1 to 20000, 800 x 600 offered). False when cancelled.
bool AskNewPictureSize(QWidget* parent, int& width, int& height);
