#pragma once

#include <QCursor>

// The cursors of the tools over the picture, drawn by the program: a small crosshair for the rectangle and the
// ellipse, a lasso, a polygon, a polygon ring where a click closes it, a magic wand; each with a + or - badge in
// Add and Subtract mode. role is a ToolCursor (tools/tool_base.h); unknown roles and the default give the arrow.
QCursor ToolCursorFor(int role);
