#pragma once

#include <cstdint>

#include "shell/image_size_dlg.h"

// The canvas size dialog, two ways to say the new canvas:
// - by margins (the default): up, left, down and right, -10000..10000, negative ones crop; "Symmetric" (ticked
//   when it opens) makes right and down follow left and up. OK sends
//   "Doc_ExtendCanvas('left','up','right','down','RRGGBB')"; the size is forced to 1..20000.
// - by size: width and height 1..20000 and where the old picture sits, one of nine anchors (centre when it
//   opens). OK sends "Doc_ResizeCanvas('w','h','hAnchor','vAnchor','RRGGBB')".
// Uncovered canvas takes the fill colour, the current colour when the dialog opens ("Set colour..." changes it for
// this edit only). Both record "His_CavasSize". The new size is shown as the fields change. Object names:
// "bymargins", "bysize", "up", "left", "down", "right", "symmetric", "width", "height", "anchor0".."anchor8"
// (row by row), "newsize". True when the command ran and succeeded.
bool RunCanvasSizeDialog(QWidget* parent, const CLayerStack& document, uint32_t currentColour, IUiServices& services,
                         const CommandRunner& run);
