#pragma once

#include "effects/selection_modifiers.h"
#include "effects/selection_paint.h"

class QWidget;

// The dialogs of the selection modifiers, fill and stroke. Their limits and defaults are the core's settings
// records; the dialogs only show them. Each answers true when the user pressed OK, with the settings chosen.
// Widgets carry object names ("amount", "value", "slider", "radius", "keepDetail", "shrinkFirst", "opacity",
// "width", "colour") so that tests can set them.

// Expand or shrink (settings.expand chooses the caption): amount 1..32.
bool AskExpand(QWidget* parent, ExpandSettings& settings);
// The feather of composition: a three-digit field 1..999 and a slider that shows 0..256.
bool AskFeather(QWidget* parent, FeatherSettings& settings);
// The feather of selection mode: radius 0..8 and the two check boxes.
bool AskSelFeather(QWidget* parent, FeatherRecord& record);
// Fill: colour and opacity 0..100 with its "%d%%" text.
bool AskFill(QWidget* parent, FillSettings& settings);
// Stroke: width 1..16, opacity 1..100, colour.
bool AskStroke(QWidget* parent, StrokeSettings& settings);
