#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "shell/wizards.h"

class CComposeDocument;
class CSelectionDocument;
class COLImage;
class CToolBar;
class IUiServices;
class QWidget;

// Selection mode in the main frame: the way in from the large button, the way back through the result dialog
// or without a result, saving and closing while in it, and the backgrounds behind the cut-out.
namespace selmode {

using ::BringBackChoice;
using ::EBringBack;

// The result wizard ("What to do with the cut-out"). Tests put a scripted stand-in in its place; null restores
// the real dialog.
void SetBringBackChooser(std::function<BringBackChoice(QWidget* parent)> chooser);

// The method question before selection mode ("Choose how to cut out"): a selection method, CMethodDlg::kBatch,
// or 0 when cancelled. Tests put a stand-in in its place; null restores the real dialog.
void SetMethodChooser(std::function<uint32_t(QWidget* parent)> chooser);
uint32_t AskMethod(QWidget* parent);

// The cut-out becomes the layer's alpha: a layer that has transparency already cannot be cut out ("cantsel" is
// shown). True when selection mode may be entered on the current layer.
bool CanEnter(CToolBar& bar, IUiServices& services);

// Something was drawn or computed in selection mode that leaving without a result would drop.
bool HasWork(CSelectionDocument& selection);

// The large button and "Confirm and return". In compose mode: enters selection mode on the current layer with
// `method`, unless the layer has transparency ("cantsel"). In selection mode: with a result, the result wizard
// brings it back and the mode is left, or stays when the wizard is closed; a result that keeps every pixel has
// nothing to decide and leaves at once. Without a result, the user is asked before the contours are dropped.
// True when the mode changed.
bool Toggle(QWidget* parent, CToolBar& bar, IUiServices& services, uint32_t method = 2);

// "Cancel and return": leaves without bringing anything back and records nothing; asks first when work would
// be lost. True when the mode was left.
bool CancelReturn(CToolBar& bar, IUiServices& services);

// Save in selection mode. Without a result mask: the "backtocompose" question, and Yes runs leave (the window's
// "confirm and return": the result dialog, or for a host the end of its visit). With one: saveCutout runs (the
// save dialog whose layer exports write the cut-out: working colours, the result mask as alpha), and the mode
// stays.
void Save(CToolBar& bar, IUiServices& services, const std::function<void()>& saveCutout,
          const std::function<void()>& leave);

// Closing the window in selection mode: with work in the mode, Yes/No/Cancel on "backtocompose" (Yes brings the
// result back first, No drops it). True when the window may go on closing (the document's own question follows).
bool AllowClose(QWidget* parent, CToolBar& bar, IUiServices& services);

// A background item of selection mode (the command numbers of menu_table.h): sets the display mode, asking for
// the colour or picture where the item needs one. False when the user cancelled or the picture did not read.
bool ChooseBackground(QWidget* parent, CToolBar& bar, IUiServices& services, int id);

} // namespace selmode
