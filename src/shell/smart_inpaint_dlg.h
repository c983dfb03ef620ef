#pragma once

class CAppGlobals;
class IStatusProgress;
class IUiServices;
class QWidget;

// The smart inpaint dialog: the choice of the structure-aware fill ("inpaintrefine", off: block quilting), the
// feather check box (block quilting only) and the note, then the run on the worker behind the wait dialog. Refuses with "onlybaselayer" unless the base layer is current; a failed run shows "inpainterr" and
// leaves the layer as it was. True when the layer now holds the result (one history step "inpaint").
bool RunSmartInpaintDialog(QWidget* parent, CAppGlobals& app, IUiServices& services, IStatusProgress* status);
