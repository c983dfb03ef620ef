#pragma once

class CComposeDocument;
class CSelectionDocument;
class CToolBar;
class IUiServices;
class QMainWindow;
class QWidget;

// Selection mode in the main frame: the way in from the large button, its menu, and the way back through the
// result dialog.
namespace selmode {

// Enters selection mode (inner-outer method: outer, inner and result polygons) or, when in it, leaves it.
void Toggle(CToolBar& bar, IUiServices& services);

// Asks what to do with the result: apply it to the layer, separate it to a new layer, keep it as the selection,
// or go back to selection mode. Brings the result back and answers true for the first three.
bool RunResultDialog(QWidget* parent, CSelectionDocument& selection, CComposeDocument& document);

// The menu bar of selection mode: Selection (confirm and return, discard and return, undo, redo) and View
// (background choices).
void BuildMenus(QMainWindow& frame, CToolBar& bar, IUiServices& services);

} // namespace selmode
