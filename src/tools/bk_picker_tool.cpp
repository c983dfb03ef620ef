#include "tools/bk_picker_tool.h"

#include <algorithm>

#include "commands/history_log.h"
#include "commands/history_sink.h"
#include "document/compose_document.h"
#include "document/selection_document.h"

namespace {

// The selection log's step that stores every plane: the key replaces the working image and the mask at once.
constexpr int32_t kStepAllPlanes = 255;

} // namespace

CBkPickerTool::CBkPickerTool(CToolContext* context) : CToolBase(context, "pickbkcolor", "pickbkhelp", 179)
{
    m_pOptionPanel = &m_panel;
    m_panel.onApply = [this] { ApplyPanel(); };
}

int CBkPickerTool::OnActivate()
{
    if (m_pPage) m_pPage->ShowPage(true);
    return 1;
}

int CBkPickerTool::OnDeactivate()
{
    // The page stays while it holds colours of its own (a batch) or the chroma method is on; the frame decides.
    if (m_pContext && m_pContext->updateBars && HasResult()) m_pContext->updateBars();
    return 1;
}

bool CBkPickerTool::HasResult() const
{
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    return s && !s->GetResultMask()->IsNull();
}

CPixel CBkPickerTool::PickColour(const COLImage& image, int x, int y)
{
    const int w = int(image.GetWidth()), h = int(image.GetHeight());
    if (w <= 0 || h <= 0 || image.IsNull()) return CPixel{0, 0, 0, 0};
    auto at = [&](int px, int py) {
        return image.GetPixel2(uint32_t(std::clamp(px, 0, w - 1)), uint32_t(std::clamp(py, 0, h - 1)));
    };
    const CPixel first = at(x, y);
    const CPixel others[3] = {at(x - 1, y - 1), at(x + 1, y + 1), at(x - 1, y + 1)};
    uint32_t b = first.blue, g = first.green, r = first.red;
    for (const CPixel& c : others) {
        b += c.blue;
        g += c.green;
        r += c.red;
    }
    return CPixel{uint8_t(b / 4), uint8_t(g / 4), uint8_t(r / 4), first.alpha};
}

int CBkPickerTool::OnLButtonDown(uint32_t, int x, int y)
{
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    if (!s || !s->IsActive()) return 0;
    if (m_pPage) m_pPage->WaitIdle();
    if (Logic().colours.empty()) {
        // A click while a result stands takes it away and picks nothing. A colour whose result was undone
        // no longer stands: the click picks.
        if (!m_picked.empty() && HasResult()) {
            Reset();
            s->RefreshPreview();
            return 0;
        }
    } else if (!s->GetResultMask()->IsAllZero()) {
        Reset();
        s->RefreshPreview();
        return 0;
    }
    const CViewPoint p = ToImage(x, y);
    const COLImage& working = *s->GetWorkingImage();
    if (p.x < 0 || p.y < 0 || p.x >= int(working.GetWidth()) || p.y >= int(working.GetHeight())) return 0;
    m_picked.assign(1, PickColour(working, p.x, p.y).Word());
    m_beforeKey.Free();
    Start();
    return 0;
}

int CBkPickerTool::OnSetCursor(int, int, int, int, int, int)
{
    // The picker's cursor while a click picks; the arrow while a click would take the result away.
    SetCursorRole(m_picked.empty() ? kCursorPicker : kCursorDefault);
    return 1;
}

ChromaKeySettings CBkPickerTool::CurrentSettings()
{
    ChromaKeySettings settings;
    CBlueMattingLogic& logic = Logic();
    settings.params = *logic.GetParams();
    if (!m_picked.empty()) settings.params.backdrop = CPixel::FromWord(m_picked.front());
    settings.lumaStrength = m_lumaStrength;
    settings.refine = m_pPage && m_pPage->IsRefined() ? 1 : 0;
    return settings;
}

bool CBkPickerTool::Start()
{
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    if (!s || !s->IsActive() || m_picked.empty()) return false;
    // Every run keys the picture as it was before the key, so a run again never keys its own result.
    if (m_beforeKey.IsNull()) {
        if (!m_beforeKey.DuplicateFrom(s->GetWorkingImage())) {
            m_pContext->Message("except");
            return false;
        }
    }
    const CPixel backdrop = CPixel::FromWord(m_picked.front());
    Logic().ApplyFirstPickRule(backdrop);
    if (m_pPage) m_pPage->OnPicked();
    CImageProcess& process = m_process.Prepare(CurrentSettings());
    m_result.Free();
    process.SetImages(&m_beforeKey, &m_result);
    process.TestAndClearCancel();
    bool cancelled = false;
    long rc;
    if (m_pPage) {
        rc = m_pPage->RunKey(process, m_process.GetParams(), cancelled);
    } else {
        process.SetProgressCallback({});
        process.SetProgressRange(0, 100);
        rc = process.Process(m_process.GetParams());
    }
    const bool ok = !cancelled && rc == kOk && !m_result.IsNull() && TakeResult(m_result, true);
    m_result.Free();
    if (!ok) {
        // Nothing changed: the next click picks again.
        m_picked.clear();
        if (!cancelled) m_pContext->Message("except");
    }
    return ok;
}

bool CBkPickerTool::TakeResult(const COLImage& result, bool record)
{
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    if (!s || result.IsNull()) return false;
    COLChannel mask;
    COLImage working;
    if (!mask.ExtractFrom(&result, 3) || !working.DuplicateFrom(&result)) return false;
    mask.Square();
    *s->GetResultMask() = std::move(mask);
    *s->GetWorkingImage() = std::move(working);
    s->RefreshPreview();
    if (m_pContext->updateBars) m_pContext->updateBars();
    if (record && m_pContext->selectionHistory)
        m_pContext->selectionHistory->AddStep(s, kStepAllPlanes, 0, "His_bkpicker");
    if (m_pPage) m_pPage->OnResult();
    return true;
}

void CBkPickerTool::Reset()
{
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    CComposeDocument* d = m_pContext ? m_pContext->document : nullptr;
    if (s && d && s->IsActive()) {
        // The working image is the layer's picture again and the mask goes; the background choices stay.
        s->Begin(*d);
    }
    m_picked.clear();
    m_beforeKey.Free();
    if (m_pPage) m_pPage->OnReset();
    if (m_pContext && m_pContext->updateBars) m_pContext->updateBars();
}

void CBkPickerTool::ResetForEntry()
{
    if (HasResult()) Reset();
    m_picked.clear();
    m_beforeKey.Free();
    m_panel.SetSlider(0);
    Logic().Reset();
}

void CBkPickerTool::Forget()
{
    m_picked.clear();
    m_beforeKey.Free();
}

void CBkPickerTool::ApplyPanel()
{
    m_lumaStrength = m_panel.GetSlider();
    Rerun();
}

bool CBkPickerTool::Rerun()
{
    if (m_picked.empty()) return false;
    if (m_pPage) m_pPage->WaitIdle();
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    // The run keys the picture before the key: the working image goes back to it first.
    if (s && !m_beforeKey.IsNull()) s->GetWorkingImage()->DuplicateFrom(&m_beforeKey);
    return Start();
}
