#pragma once

#include <string>

class CAppGlobals;
class IUiServices;
class QWidget;

enum class ECompanionOutcome {
    kApplied,     // the editor's colours are in the current layer, with a history step "Ombra Lens"
    kNoResult,    // the editor left no picture: nothing changed
    kSizeChanged, // the editor changed the size: its work was dropped ("olwarning")
    kWriteFailed, // the exchange file could not be written ("saveerr"); nothing started
    kStartFailed, // the program could not be started ("olfailed")
    kNothingToEdit,
};

// The round trip through the companion photo editor `program`: the document goes to a project file in the
// temporary folder, the editor is started with "-i" and that file while the main window is hidden, and when it
// ends its result ("<exchange file>.bmp") comes back into the current layer, only where selected if there is a
// selection. The document stays in memory all the while, so an editor that crashes or leaves a damaged exchange
// file costs nothing. Both temporary files are deleted. Messages go through services.
ECompanionOutcome RunCompanionRoundTrip(CAppGlobals& app, const std::string& program, QWidget* mainWindow,
                                        IUiServices& services);
