#pragma once

class CAppGlobals;
class CDocumentSession;
class CSelectionDocument;
class IUiServices;
class QWidget;

// What the save dialog is opened for.
enum class ESaveDialogUse {
    kDocument, // Save: every choice; the layer exports only above the background
    kLayer,    // the layer menu's export: only the current layer's two exports, on any layer
    kCutout,   // Save in selection mode with a result: only the two layer exports, and they write the cut-out
};

// Opens the save dialog for a use and writes what the user chooses through CSavePaths. For the cut-out the picture
// is built when an export is chosen (the working image's colours, the result mask as alpha); if that cannot be
// done, "except" is shown and the dialog stays. selection is needed for kCutout only. Returns true when a file
// was written.
bool RunSaveDialog(QWidget* parent, CAppGlobals& app, CDocumentSession& session, IUiServices& services,
                   ESaveDialogUse use, CSelectionDocument* selection = nullptr);
