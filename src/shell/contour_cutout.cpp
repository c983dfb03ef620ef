#include "shell/contour_cutout.h"

#include "commands/history_log.h"
#include "document/selection_document.h"
#include "matting/contour_matting.h"
#include "matting/refined_matte.h"
#include "shell/app_globals.h"
#include "shell/tool_bar.h"
#include "shell/wait_dialog.h"

namespace selmode {

namespace {

// The selection log's step that stores every plane: the result replaces the working image and the mask at once.
constexpr int32_t kStepAllPlanes = 255;

bool SameSize(const COLChannel& plane, const COLImage& image)
{
    return plane.GetWidth() == image.GetWidth() && plane.GetHeight() == image.GetHeight();
}

// The classic solve inverts the outer plane it is given, and a run that fails or is cancelled must leave the
// document as it was: it works on copies of both planes. The doubt plane starts as the inner plane.
long RunClassic(CProcessThread& worker, QWidget* parent, IStatusProgress* status, CSelectionDocument& selection,
                COLImage& result, bool& cancelled)
{
    COLChannel inner, outer, doubt;
    if (!inner.DuplicateFrom(selection.GetInnerPlane()) || !outer.DuplicateFrom(selection.GetOuterPlane()) ||
        !doubt.DuplicateFrom(selection.GetInnerPlane()))
        return kFail;
    CContourMattingProcess process;
    process.SetImages(selection.GetWorkingImage(), &result);
    process.AddChannel(&doubt);
    ContourMattingParams params;
    params.innerPlane = &inner;
    params.outerPlane = &outer;
    return RunProcessWithWait(worker, process, &params, parent, status, &cancelled);
}

// The refined solve reads a trimap: 255 inside the inner contour, 128 in the band, 0 outside the outer one.
long RunRefined(CProcessThread& worker, QWidget* parent, IStatusProgress* status, CSelectionDocument& selection,
                COLImage& result, bool& cancelled)
{
    const COLChannel& inner = *selection.GetInnerPlane();
    const COLChannel& outer = *selection.GetOuterPlane();
    COLChannel trimap;
    if (trimap.Create(inner.GetWidth(), inner.GetHeight()) != kOk) return kFail;
    const size_t count = size_t(inner.GetWidth()) * inner.GetHeight();
    for (size_t i = 0; i < count; ++i)
        trimap.GetBuffer()[i] = inner.GetBuffer()[i] != 0 ? 255 : (outer.GetBuffer()[i] != 0 ? 128 : 0);
    CRefinedMatteProcess process;
    process.SetImages(selection.GetWorkingImage(), &result);
    RefinedMatteParams params;
    params.trimap = &trimap;
    return RunProcessWithWait(worker, process, &params, parent, status, &cancelled);
}

} // namespace

bool CanBuildFromContours(CSelectionDocument& selection)
{
    const COLImage* working = selection.GetWorkingImage();
    const COLChannel* inner = selection.GetInnerPlane();
    const COLChannel* outer = selection.GetOuterPlane();
    return selection.IsActive() && selection.GetResultMask()->IsNull() && SameSize(*inner, *working) &&
           SameSize(*outer, *working) && !inner->IsAllZero() && !outer->IsAllZero();
}

EBuildOutcome BuildFromContours(QWidget* parent, CAppGlobals& app, CToolBar& bar, ESolver solver,
                                IStatusProgress* status)
{
    CSelectionDocument& selection = bar.Selection();
    CToolManager& manager = bar.Manager();
    if (!manager.IsSelectionMode() || manager.GetMethod() != kMethodInOut || !CanBuildFromContours(selection))
        return EBuildOutcome::kNotReady;
    CProcessThread* worker = app.Worker();
    if (!worker) return EBuildOutcome::kFailed;

    COLImage result;
    bool cancelled = false;
    const long rc = solver == ESolver::kRefined ? RunRefined(*worker, parent, status, selection, result, cancelled)
                                                : RunClassic(*worker, parent, status, selection, result, cancelled);
    if (cancelled) return EBuildOutcome::kCancelled;
    if (rc != kOk || result.IsNull() || result.GetWidth() != selection.GetWorkingImage()->GetWidth() ||
        result.GetHeight() != selection.GetWorkingImage()->GetHeight())
        return EBuildOutcome::kFailed;

    // The mask is the solved alpha squared: soft edges lean towards the background, which hides the grown
    // colours' fringe where the band meets it.
    COLChannel mask;
    if (!mask.ExtractFrom(&result, 3)) return EBuildOutcome::kFailed;
    mask.Square();
    *selection.GetResultMask() = std::move(mask);
    *selection.GetWorkingImage() = std::move(result);
    if (CSelectionHistory* log = bar.SelectionLog()) log->AddStep(&selection, kStepAllPlanes, 0, "His_inout");
    // The contour tools are done with: none stays current, and the bar disables them.
    manager.SetCurrentTool(nullptr);
    selection.RefreshPreview();
    manager.UpdateBars();
    return EBuildOutcome::kDone;
}

} // namespace selmode
