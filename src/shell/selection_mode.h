#pragma once

#include <functional>
#include <string>

class CComposeDocument;
class CSelectionDocument;
class COLImage;
class CToolBar;
class IUiServices;
class QWidget;

// Selection mode in the main frame: the way in from the large button, the way back through the result dialog
// or without a result, saving and closing while in it, and the backgrounds behind the cut-out.
namespace selmode {

// What the user chose in the result dialog.
// kBlurBackground: the cut-out goes on a copy above the layer and the lens blur dialog blurs the layer under it.
enum class EBringBack { kCancel, kApply, kSeparate, kKeep, kBlurBackground };

// The dialog that asks what becomes of the result. Tests put a scripted stand-in in its place; null restores
// the real dialog.
void SetBringBackChooser(std::function<EBringBack(QWidget* parent)> chooser);

// Something was drawn or computed in selection mode that leaving without a result would drop.
bool HasWork(CSelectionDocument& selection);

// The large button and "Confirm and return". In compose mode: enters selection mode on the current layer
// (inner-outer method), unless the layer has transparency ("cantsel"). In selection mode: with a result, the
// result dialog brings it back and the mode is left, or stays on Cancel; without one, the user is asked before
// the contours are dropped. True when the mode changed.
bool Toggle(QWidget* parent, CToolBar& bar, IUiServices& services);

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
