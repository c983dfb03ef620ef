#pragma once

#include <string>

#include "matting/process_thread.h"

class CAppGlobals;
class CSelectionDocument;
class CToolBar;
class QWidget;

// The cut-out of selection mode's inner-outer method: the band between the outer contour (sure background) and
// the inner contour (sure subject) is solved into alpha on the worker, with the wait dialog up.
namespace selmode {

// Which solver turns the band into alpha.
enum class ESolver {
    kClassic, // grown colours on both sides, fast and exact
    kRefined, // colour-line model, for hair and soft edges; writes the subject's estimated colours in the band
};

enum class EBuildOutcome {
    kDone,      // the result mask and the working image hold the cut-out; one selection step was recorded
    kNotReady,  // not in the inner-outer method, a result already exists, or a contour is empty
    kCancelled, // Esc in the wait dialog: nothing changed
    kFailed,    // the engine refused or ran out of memory: nothing changed
};

// Both contour planes hold a pixel and no result exists yet: the build may run.
bool CanBuildFromContours(CSelectionDocument& selection);

// Runs the solver on the selection document's working image and contour planes. On success the result mask takes
// the squared alpha of the solve, the working image takes the solved picture, the step "His_inout" (every plane)
// goes to the selection log and the current tool is put down. The contour planes are left as drawn, so that
// undo brings back exactly what the user had. status may be null.
EBuildOutcome BuildFromContours(QWidget* parent, CAppGlobals& app, CToolBar& bar, ESolver solver,
                                IStatusProgress* status);

} // namespace selmode
