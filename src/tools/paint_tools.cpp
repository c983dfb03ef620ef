#include "tools/paint_tools.h"

#include <algorithm>
#include <cstring>

#include "commands/history_log.h"
#include "commands/history_sink.h"
#include "document/compose_document.h"
#include "document/layer.h"
#include "document/selection_document.h"
#include "runtime/simd_level.h"
#include "tools/stamp_kernel.h"

#if VM_SIMD_X86
#include <immintrin.h>
#endif

namespace {

CRect Clip(CRect r, int width, int height)
{
    r.left = std::max(r.left, 0);
    r.top = std::max(r.top, 0);
    r.right = std::min(r.right, width);
    r.bottom = std::min(r.bottom, height);
    return r;
}

// Where a layer's pixel (0, 0) lies on the canvas. The base is drawn at the origin whatever its position says.
CViewPoint LayerOrigin(const CLayerStack& stack, const CLayer* layer)
{
    if (!layer || stack.IndexOfLayer(layer) == 0) return {0, 0};
    return {layer->m_x, layer->m_y};
}

// The document's selection counts when it has pixels and covers the canvas.
bool SelectionLimits(const CLayerStack& stack, const COLChannel& stroke)
{
    const COLChannel& mask = stack.GetSelectionMask();
    return !mask.IsNull() && mask.GetWidth() == stroke.GetWidth() && mask.GetHeight() == stroke.GetHeight() &&
           !mask.IsAllZero();
}

bool SameSize(const COLChannel& a, const COLImage& b)
{
    return a.GetWidth() == b.GetWidth() && a.GetHeight() == b.GetHeight();
}

} // namespace

// --- Erasing the result mask --------------------------------------------------------------------------------------

CEraseSelTool::CEraseSelTool(CToolContext* context, const char* tipKey, const char* helpKey, uint32_t iconId)
    : CPaintTool(context, tipKey, helpKey, iconId, "SelEraseTool")
{
}

void CEraseSelTool::OnStrokeBegin()
{
    ClearStroke();
    m_maskSnapshot.Free();
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    COLChannel* mask = s ? s->GetResultMask() : nullptr;
    if (mask && !mask->IsNull() && mask->GetWidth() == m_stroke.GetWidth() &&
        mask->GetHeight() == m_stroke.GetHeight())
        m_maskSnapshot.DuplicateFrom(mask);
}

void CEraseSelTool::OnStrokeUpdate()
{
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    COLChannel* mask = s ? s->GetResultMask() : nullptr;
    if (!mask || mask->IsNull() || m_maskSnapshot.IsNull()) return;
    // Outside the dirty rectangle the stroke has not changed since the last frame, and the result is a function
    // of the snapshot and the stroke alone.
    const CRect r = Clip(m_dirty, int(mask->GetWidth()), int(mask->GetHeight()));
    for (int y = r.top; y < r.bottom; ++y) {
        const uint8_t* st = m_stroke.GetBuffer(uint32_t(r.left), uint32_t(y));
        const uint8_t* sn = m_maskSnapshot.GetBuffer(uint32_t(r.left), uint32_t(y));
        uint8_t* m = mask->GetBuffer(uint32_t(r.left), uint32_t(y));
        for (int x = 0; x < r.Width(); ++x) m[x] = uint8_t((255 - st[x]) * sn[x] / 255);
    }
    s->RefreshPreview();
}

void CEraseSelTool::OnStrokeEnd()
{
    const bool changed = !m_maskSnapshot.IsNull();
    m_maskSnapshot.Free();
    // Without a mask nothing was erased, and an empty step would only clutter the history.
    if (changed && m_pContext && m_pContext->selection && m_pContext->selectionHistory)
        m_pContext->selectionHistory->AddStep(m_pContext->selection, kStepChannel, kPlaneResult, m_tipKey);
    RecordStroke();
}

// --- Erasing a layer ----------------------------------------------------------------------------------------------

CEraseLayerTool::CEraseLayerTool(CToolContext* context) : CEraseSelTool(context, "erase", "erasehelp", 162) {}

int CEraseLayerTool::OnActivate()
{
    if (!CEraseSelTool::OnActivate()) return 0;
    CComposeDocument* doc = m_pContext ? m_pContext->document : nullptr;
    m_pTarget = doc ? doc->GetCurrentLayer() : nullptr;
    if (m_pTarget && !m_pTarget->m_visible) {
        m_pContext->Message("erasewar");
        CPaintTool::OnDeactivate();
        return 0;
    }
    return 1;
}

void CEraseLayerTool::OnStrokeBegin()
{
    ClearStroke();
    m_baseDone = false;
    CComposeDocument* doc = m_pContext ? m_pContext->document : nullptr;
    if (!doc) return;
    // A hidden current layer keeps the former target, if that is still in the document.
    CLayer* current = doc->GetCurrentLayer();
    if (current && current->m_visible)
        m_pTarget = current;
    else if (doc->IndexOfLayer(m_pTarget) < 0)
        m_pTarget = nullptr;
    m_snapshot.End();
    if (m_pTarget && !m_snapshot.Begin(m_pTarget->m_image)) m_pTarget = nullptr;
    m_useMask = SelectionLimits(*doc, m_stroke);
}

namespace {

// An upper layer's pixels of one row under the stroke: the colours of the press, alpha lowered by the stroke.
// Pixels outside the selection (mask 0) keep the press's pixel, which is what they hold.
void EraseAlphaRowPlain(CPixel* out, const CPixel* snapshot, const uint8_t* stroke, const uint8_t* mask, int i,
                        int count)
{
    for (; i < count; ++i) {
        const uint32_t s = mask && !mask[i] ? 0 : stroke[i];
        CPixel p = snapshot[i];
        p.alpha = uint8_t(Div255((255 - s) * p.alpha));
        out[i] = p;
    }
}

#if VM_SIMD_X86
// Eight pixels at a time in 32-bit lanes: alpha = Div255((255 - s) x alpha), the colour bytes copied.
VM_TARGET_AVX2 void EraseAlphaRowAvx2(CPixel* out, const CPixel* snapshot, const uint8_t* stroke, const uint8_t* mask,
                                      int count)
{
    const __m256i c255 = _mm256_set1_epi32(255), one = _mm256_set1_epi32(1);
    const __m256i colours = _mm256_set1_epi32(0x00FFFFFF);
    int i = 0;
    for (; i + 8 <= count; i += 8) {
        __m256i s = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(stroke + i)));
        if (mask) {
            const __m256i m = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(mask + i)));
            s = _mm256_andnot_si256(_mm256_cmpeq_epi32(m, _mm256_setzero_si256()), s);
        }
        const __m256i p = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(snapshot + i));
        const __m256i x = _mm256_mullo_epi32(_mm256_sub_epi32(c255, s), _mm256_srli_epi32(p, 24));
        const __m256i a = _mm256_srli_epi32(_mm256_add_epi32(_mm256_add_epi32(x, one), _mm256_srli_epi32(x, 8)), 8);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i),
                            _mm256_or_si256(_mm256_and_si256(p, colours), _mm256_slli_epi32(a, 24)));
    }
    EraseAlphaRowPlain(out, snapshot, stroke, mask, i, count);
}
#endif

void EraseAlphaRow(CPixel* out, const CPixel* snapshot, const uint8_t* stroke, const uint8_t* mask, int count)
{
#if VM_SIMD_X86
    if (vmsimd::CurrentLevel() >= vmsimd::kAvx2) {
        EraseAlphaRowAvx2(out, snapshot, stroke, mask, count);
        return;
    }
#endif
    EraseAlphaRowPlain(out, snapshot, stroke, mask, 0, count);
}

// The base's pixels of one row: the colours move to the foreground by the masked stroke value, alpha 255.
void EraseBaseRowPlain(CPixel* out, const CPixel* snapshot, const uint8_t* stroke, const uint8_t* mask, int i,
                       int count, CPixel fg)
{
    for (; i < count; ++i) {
        if (mask && !mask[i]) continue;
        const uint32_t sm = mask ? stroke[i] * mask[i] / 255 : stroke[i];
        const CPixel p = snapshot[i];
        out[i].blue = uint8_t((fg.blue * sm + p.blue * (255 - sm)) / 255);
        out[i].green = uint8_t((fg.green * sm + p.green * (255 - sm)) / 255);
        out[i].red = uint8_t((fg.red * sm + p.red * (255 - sm)) / 255);
        out[i].alpha = 255;
    }
}

#if VM_SIMD_X86
VM_TARGET_AVX2 inline __m256i Div255x16(__m256i x)
{
    return _mm256_srli_epi16(_mm256_add_epi16(_mm256_add_epi16(x, _mm256_set1_epi16(1)), _mm256_srli_epi16(x, 8)), 8);
}

// Eight pixels at a time: the masked value in 32-bit lanes, the blend in 16-bit lanes, where
// fg x sm + c x (255 - sm) stays below 65536 and (x + 1 + (x >> 8)) >> 8 is the exact division by 255.
VM_TARGET_AVX2 void EraseBaseRowAvx2(CPixel* out, const CPixel* snapshot, const uint8_t* stroke, const uint8_t* mask,
                                     int count, CPixel fg)
{
    const __m256i one32 = _mm256_set1_epi32(1), c255 = _mm256_set1_epi16(255);
    const __m256i z = _mm256_setzero_si256(), opaque = _mm256_set1_epi32(static_cast<int>(0xFF000000u));
    const __m256i f = _mm256_setr_epi16(fg.blue, fg.green, fg.red, 0, fg.blue, fg.green, fg.red, 0, fg.blue, fg.green,
                                        fg.red, 0, fg.blue, fg.green, fg.red, 0);
    int i = 0;
    for (; i + 8 <= count; i += 8) {
        __m256i sm = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(stroke + i)));
        __m256i keep = z;
        if (mask) {
            const __m256i m = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(mask + i)));
            keep = _mm256_cmpeq_epi32(m, z);
            const __m256i x = _mm256_mullo_epi32(sm, m);
            sm = _mm256_srli_epi32(_mm256_add_epi32(_mm256_add_epi32(x, one32), _mm256_srli_epi32(x, 8)), 8);
        }
        const __m256i s16 = _mm256_or_si256(sm, _mm256_slli_epi32(sm, 16));
        const __m256i sl = _mm256_unpacklo_epi32(s16, s16), sh = _mm256_unpackhi_epi32(s16, s16);
        const __m256i p = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(snapshot + i));
        const __m256i pl = _mm256_unpacklo_epi8(p, z), ph = _mm256_unpackhi_epi8(p, z);
        const __m256i rl =
            Div255x16(_mm256_add_epi16(_mm256_mullo_epi16(f, sl), _mm256_mullo_epi16(pl, _mm256_sub_epi16(c255, sl))));
        const __m256i rh =
            Div255x16(_mm256_add_epi16(_mm256_mullo_epi16(f, sh), _mm256_mullo_epi16(ph, _mm256_sub_epi16(c255, sh))));
        const __m256i result = _mm256_or_si256(_mm256_packus_epi16(rl, rh), opaque);
        __m256i* o = reinterpret_cast<__m256i*>(out + i);
        _mm256_storeu_si256(o, _mm256_blendv_epi8(result, _mm256_loadu_si256(o), keep));
    }
    EraseBaseRowPlain(out, snapshot, stroke, mask, i, count, fg);
}
#endif

void EraseBaseRow(CPixel* out, const CPixel* snapshot, const uint8_t* stroke, const uint8_t* mask, int count, CPixel fg)
{
#if VM_SIMD_X86
    if (vmsimd::CurrentLevel() >= vmsimd::kAvx2) {
        EraseBaseRowAvx2(out, snapshot, stroke, mask, count, fg);
        return;
    }
#endif
    EraseBaseRowPlain(out, snapshot, stroke, mask, 0, count, fg);
}

} // namespace

void CEraseLayerTool::OnStrokeUpdate()
{
    CComposeDocument* doc = m_pContext ? m_pContext->document : nullptr;
    if (!doc || !m_pTarget || m_snapshot.IsNull()) return;
    const bool base = doc->IndexOfLayer(m_pTarget) == 0;
    const CViewPoint o = LayerOrigin(*doc, m_pTarget);
    COLImage& image = m_pTarget->m_image;
    const int canvasW = int(m_stroke.GetWidth()), canvasH = int(m_stroke.GetHeight());
    const int imageW = int(image.GetWidth()), imageH = int(image.GetHeight());
    const COLChannel& mask = doc->GetSelectionMask();
    // The base has no transparency: every pixel of it that the selection lets through is opaque from the first
    // frame on, also where the stroke never comes. Where the stroke is 0 the colours stay, so only alpha moves.
    if (base && !m_baseDone) {
        m_baseDone = true;
        const int w = std::min(canvasW, imageW), h = std::min(canvasH, imageH);
        for (int y = 0; y < h; ++y) {
            CPixel* out = image.GetBuffer(0, uint32_t(y));
            const uint8_t* mk = m_useMask ? mask.GetBuffer(0, uint32_t(y)) : nullptr;
            for (int x = 0; x < w; ++x)
                if (!mk || mk[x]) out[x].alpha = 255;
        }
    }
    // Only the pixels whose stroke value rose can change: the others hold what the stroke made of them before.
    CRect r = Clip(m_dirty, canvasW, canvasH);
    r = Clip(CRect{r.left - o.x, r.top - o.y, r.right - o.x, r.bottom - o.y}, imageW, imageH);
    m_snapshot.Ensure(r);
    const CPixel fg = m_pContext->Foreground();
    for (int ly = r.top; ly < r.bottom; ++ly) {
        const int y = ly + o.y;
        int left = 0, right = 0;
        if (!GetRaisedSpan(y, left, right)) continue;
        left = std::max(left - o.x, r.left);
        right = std::min(right - o.x, r.right);
        if (left >= right) continue;
        const uint8_t* st = m_stroke.GetBuffer(uint32_t(left + o.x), uint32_t(y));
        const uint8_t* mk = m_useMask ? mask.GetBuffer(uint32_t(left + o.x), uint32_t(y)) : nullptr;
        const CPixel* sn = m_snapshot.Row(ly) + left;
        CPixel* out = image.GetBuffer(uint32_t(left), uint32_t(ly));
        if (base)
            EraseBaseRow(out, sn, st, mk, right - left, fg);
        else
            EraseAlphaRow(out, sn, st, mk, right - left);
    }
    MergeDirty();
}

int CEraseLayerTool::OnDeactivate()
{
    m_snapshot.Free();
    return CEraseSelTool::OnDeactivate();
}

void CEraseLayerTool::OnStrokeEnd()
{
    m_snapshot.End();
    if (m_pContext && m_pContext->document) m_pContext->document->Refresh();
    RecordStroke();
}

// --- Restoring the picture in selection mode ----------------------------------------------------------------------

CForePaintTool::CForePaintTool(CToolContext* context)
    : CPaintTool(context, "forepainttip", "forepainthelp", 180, "FreeForePaintTool")
{
}

void CForePaintTool::OnStrokeBegin()
{
    ClearStroke();
    m_maskSnapshot.Free();
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    COLChannel* mask = s ? s->GetResultMask() : nullptr;
    if (mask && !mask->IsNull() && mask->GetWidth() == m_stroke.GetWidth() &&
        mask->GetHeight() == m_stroke.GetHeight())
        m_maskSnapshot.DuplicateFrom(mask);
}

void CForePaintTool::OnStrokeUpdate()
{
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    if (!s || m_maskSnapshot.IsNull()) return;
    COLChannel* mask = s->GetResultMask();
    COLImage* working = s->GetWorkingImage();
    const COLImage* picture = s->GetSourceImage();
    if (mask->IsNull() || !SameSize(*mask, *working)) return;
    const bool withPicture = picture && !picture->IsNull() && SameSize(*mask, *picture);
    // The colours move towards the picture again at every frame, wherever the stroke is: the whole stroke so
    // far is walked, which is all there is of it (elsewhere s is 0).
    const CRect r = Clip(StrokeBounds(), int(mask->GetWidth()), int(mask->GetHeight()));
    for (int y = r.top; y < r.bottom; ++y) {
        const uint8_t* st = m_stroke.GetBuffer(0, uint32_t(y));
        const uint8_t* sn = m_maskSnapshot.GetBuffer(0, uint32_t(y));
        uint8_t* m = mask->GetBuffer(0, uint32_t(y));
        CPixel* w = working->GetBuffer(0, uint32_t(y));
        const CPixel* p = withPicture ? picture->GetBuffer(0, uint32_t(y)) : nullptr;
        for (int x = r.left; x < r.right; ++x) {
            const uint32_t v = st[x];
            if (!v) continue;
            if (p) {
                w[x].blue = uint8_t((p[x].blue * v + w[x].blue * (255 - v)) / 255);
                w[x].green = uint8_t((p[x].green * v + w[x].green * (255 - v)) / 255);
                w[x].red = uint8_t((p[x].red * v + w[x].red * (255 - v)) / 255);
            }
            const uint8_t a = uint8_t((sn[x] * (255 - v) + v * 255) / 255);
            w[x].alpha = a;
            m[x] = a;
        }
    }
    s->RefreshPreview();
}

void CForePaintTool::OnStrokeEnd()
{
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    const bool changed = !m_maskSnapshot.IsNull();
    if (s && changed && m_pContext->selectionHistory)
        m_pContext->selectionHistory->AddStep(s, kStepChannel, kPlaneResult | kPlaneWorking, m_tipKey);
    if (s) s->RefreshPreview();
    m_maskSnapshot.Free();
    RecordStroke();
}

// --- Paint ----------------------------------------------------------------------------------------------------------

CFreePaintTool::CFreePaintTool(CToolContext* context, const char* tipKey, const char* helpKey, uint32_t iconId,
                               const char* settingsName)
    : CPaintTool(context, tipKey, helpKey, iconId, settingsName)
{
}

void CFreePaintTool::OnStrokeBegin()
{
    ClearStroke();
    m_pPaintLayer = nullptr;
    CComposeDocument* doc = m_pContext ? m_pContext->document : nullptr;
    if (!doc || doc->GetLayerCount() == 0) return;
    m_pPaintLayer = doc->AddLayer(doc->GetCurrentIndex(), 0);
    m_useMask = SelectionLimits(*doc, m_stroke);
}

CPixel CFreePaintTool::PaintPixel(uint32_t value, int, int)
{
    CPixel p = m_pContext->Foreground();
    p.alpha = uint8_t(value);
    return p;
}

void CFreePaintTool::OnStrokeUpdate()
{
    CComposeDocument* doc = m_pContext ? m_pContext->document : nullptr;
    if (!doc || !m_pPaintLayer || doc->IndexOfLayer(m_pPaintLayer) < 0) return;
    COLImage& image = m_pPaintLayer->m_image;
    const int w = std::min(int(image.GetWidth()), int(m_stroke.GetWidth()));
    const int h = std::min(int(image.GetHeight()), int(m_stroke.GetHeight()));
    const CRect r = Clip(m_dirty, w, h);
    const COLChannel& mask = doc->GetSelectionMask();
    for (int y = r.top; y < r.bottom; ++y) {
        const uint8_t* st = m_stroke.GetBuffer(0, uint32_t(y));
        const uint8_t* mk = m_useMask ? mask.GetBuffer(0, uint32_t(y)) : nullptr;
        CPixel* out = image.GetBuffer(0, uint32_t(y));
        for (int x = r.left; x < r.right; ++x) {
            uint32_t v = st[x];
            if (mk) v = mk[x] ? v * mk[x] / 255 : 0;
            out[x] = v ? PaintPixel(v, x, y) : CPixel{0, 0, 0, 0};
        }
    }
    MergeDirty();
}

void CFreePaintTool::OnStrokeEnd()
{
    CComposeDocument* doc = m_pContext ? m_pContext->document : nullptr;
    if (!doc || !m_pPaintLayer) return;
    const int index = doc->IndexOfLayer(m_pPaintLayer);
    m_pPaintLayer = nullptr;
    if (index < 0) return;
    if (!doc->MergeDown(index)) {
        // Out of memory: the paint cannot join the layer below, and it must not stay as a layer of its own.
        doc->RemoveLayer(index);
        doc->Refresh();
        m_pContext->Message("except");
        return;
    }
    doc->Refresh();
    RecordStroke();
}

// --- Clone ------------------------------------------------------------------------------------------------------

CCameraTool::CCameraTool(CToolContext* context)
    : CFreePaintTool(context, "cameratooltip", "cameratoolhelp", 231, "CameraTool")
{
}

int CCameraTool::OnActivate()
{
    m_sampling = 1;
    return CFreePaintTool::OnActivate();
}

int CCameraTool::OnLButtonDown(uint32_t flags, int x, int y)
{
    if (m_sampling || (flags & (kMkAlt | kMkControl))) {
        m_sampling = 0;
        m_sample = ToImage(x, y);
        m_offset = {0, 0};
        return 0;
    }
    if (m_offset.x == 0 && m_offset.y == 0) {
        const CViewPoint p = ToImage(x, y);
        m_offset = {p.x - m_sample.x, p.y - m_sample.y};
    }
    return CFreePaintTool::OnLButtonDown(flags, x, y);
}

int CCameraTool::OnRButtonDown(uint32_t, int, int)
{
    if (!m_sampling && !m_painting) {
        m_sampling = 1;
        m_offset = {0, 0};
    }
    return 0;
}

int CCameraTool::OnLButtonUp(uint32_t flags, int x, int y)
{
    // A stroke under way always ends here, also one begun on the source point itself.
    if (!m_painting) return 0;
    return CFreePaintTool::OnLButtonUp(flags, x, y);
}

int CCameraTool::OnSetCursor(int, int, int, int, int, int)
{
    SetCursorRole(m_sampling ? kCursorCloneSource : kCursorCross);
    return 1;
}

void CCameraTool::OnStrokeBegin()
{
    CComposeDocument* doc = m_pContext ? m_pContext->document : nullptr;
    m_pSource = doc ? doc->GetCurrentLayer() : nullptr;
    if (m_pSource) {
        const CViewPoint o = LayerOrigin(*doc, m_pSource);
        m_sourceX = o.x;
        m_sourceY = o.y;
    }
    CFreePaintTool::OnStrokeBegin();
}

CPixel CCameraTool::PaintPixel(uint32_t value, int x, int y)
{
    if (!m_pSource) return CPixel{0, 0, 0, 0};
    const int sx = x - m_sourceX - m_offset.x, sy = y - m_sourceY - m_offset.y;
    const COLImage& src = m_pSource->m_image;
    if (sx < 0 || sy < 0 || sx >= int(src.GetWidth()) || sy >= int(src.GetHeight())) return CPixel{0, 0, 0, 0};
    CPixel p = src.GetPixel2(uint32_t(sx), uint32_t(sy));
    p.alpha = uint8_t(p.alpha * value / 255);
    return p;
}

// --- Desaturate -------------------------------------------------------------------------------------------------

CDesatTool::CDesatTool(CToolContext* context) : CPaintTool(context, "desattip", "helpdesat", 265, "DesatTool") {}

void CDesatTool::OnStrokeBegin()
{
    ClearStroke();
    CComposeDocument* doc = m_pContext ? m_pContext->document : nullptr;
    m_pTarget = doc ? doc->GetCurrentLayer() : nullptr;
    m_snapshot.End();
    if (m_pTarget && !m_snapshot.Begin(m_pTarget->m_image)) m_pTarget = nullptr;
    if (doc) m_useMask = SelectionLimits(*doc, m_stroke);
}

void CDesatTool::OnStrokeUpdate()
{
    CComposeDocument* doc = m_pContext ? m_pContext->document : nullptr;
    if (!doc || !m_pTarget || m_snapshot.IsNull() || doc->IndexOfLayer(m_pTarget) < 0) return;
    const CViewPoint o = LayerOrigin(*doc, m_pTarget);
    COLImage& image = m_pTarget->m_image;
    CRect r = Clip(m_dirty, int(m_stroke.GetWidth()), int(m_stroke.GetHeight()));
    r = Clip(CRect{r.left - o.x, r.top - o.y, r.right - o.x, r.bottom - o.y}, int(image.GetWidth()),
             int(image.GetHeight()));
    const COLChannel& mask = doc->GetSelectionMask();
    m_snapshot.Ensure(r);
    for (int ly = r.top; ly < r.bottom; ++ly) {
        const int y = ly + o.y;
        // Where the stroke did not rise the pixel already holds its result (0 leaves the press's pixel).
        int left = 0, right = 0;
        if (!GetRaisedSpan(y, left, right)) continue;
        left = std::max(left - o.x, r.left);
        right = std::min(right - o.x, r.right);
        const uint8_t* st = m_stroke.GetBuffer(0, uint32_t(y));
        const uint8_t* mk = m_useMask ? mask.GetBuffer(0, uint32_t(y)) : nullptr;
        const CPixel* sn = m_snapshot.Row(ly);
        CPixel* out = image.GetBuffer(0, uint32_t(ly));
        for (int lx = left; lx < right; ++lx) {
            const int x = lx + o.x;
            if (mk && mk[x] == 0) continue;
            const uint32_t s = mk ? st[x] * mk[x] / 255 : st[x];
            const CPixel p = sn[lx];
            const uint32_t grey = (p.blue + 3 * p.red + 6 * p.green) / 10;
            out[lx].blue = uint8_t((grey * s + p.blue * (255 - s)) / 255);
            out[lx].green = uint8_t((grey * s + p.green * (255 - s)) / 255);
            out[lx].red = uint8_t((grey * s + p.red * (255 - s)) / 255);
            out[lx].alpha = p.alpha;
        }
    }
    MergeDirty();
}

int CDesatTool::OnDeactivate()
{
    m_snapshot.Free();
    return CPaintTool::OnDeactivate();
}

void CDesatTool::OnStrokeEnd()
{
    m_snapshot.End();
    if (m_pContext && m_pContext->document) m_pContext->document->Refresh();
    RecordStroke();
}

// --- Contour plane brushes ----------------------------------------------------------------------------------------

CPlaneBrushTool::CPlaneBrushTool(CToolContext* context, const char* tipKey, const char* helpKey, uint32_t iconId,
                                 uint32_t planeBit)
    : CPaintTool(context, tipKey, helpKey, iconId, "FreeForePaintTool"), m_planeBit(planeBit)
{
}

COLChannel* CPlaneBrushTool::GetPlane()
{
    CSelectionDocument* s = m_pContext ? m_pContext->selection : nullptr;
    if (!s) return nullptr;
    return m_planeBit == kPlaneOuter ? s->GetOuterPlane() : s->GetInnerPlane();
}

int CPlaneBrushTool::OnLButtonDown(uint32_t flags, int x, int y)
{
    m_erasing = (flags & kMkControl) != 0;
    return CPaintTool::OnLButtonDown(flags, x, y);
}

void CPlaneBrushTool::OnStrokeBegin()
{
    ClearStroke();
    m_ready = false;
    COLChannel* plane = GetPlane();
    if (!plane) return;
    // A contour plane is empty until a polygon or a brush marks it: painting starts it at the canvas size.
    if (plane->IsNull() || plane->GetWidth() != m_stroke.GetWidth() || plane->GetHeight() != m_stroke.GetHeight()) {
        if (m_erasing) return;
        if (plane->Create(m_stroke.GetWidth(), m_stroke.GetHeight()) != kOk) return;
        std::memset(plane->GetBuffer(), 0, plane->GetAreaByteSize());
    }
    m_ready = m_snapshot.DuplicateFrom(plane) != 0;
}

void CPlaneBrushTool::OnStrokeUpdate()
{
    COLChannel* plane = GetPlane();
    if (!m_ready || !plane || plane->IsNull()) return;
    const CRect r = Clip(m_dirty, int(plane->GetWidth()), int(plane->GetHeight()));
    for (int y = r.top; y < r.bottom; ++y) {
        const uint8_t* st = m_stroke.GetBuffer(uint32_t(r.left), uint32_t(y));
        const uint8_t* sn = m_snapshot.GetBuffer(uint32_t(r.left), uint32_t(y));
        uint8_t* out = plane->GetBuffer(uint32_t(r.left), uint32_t(y));
        for (int x = 0; x < r.Width(); ++x) {
            const uint32_t s = st[x];
            out[x] = m_erasing ? uint8_t((255 - s) * sn[x] / 255) : uint8_t((sn[x] * (255 - s) + 255 * s) / 255);
        }
    }
    m_pContext->selection->RefreshPreview();
}

void CPlaneBrushTool::OnStrokeEnd()
{
    m_snapshot.Free();
    if (!m_ready) return;
    m_ready = false;
    CSelectionDocument* s = m_pContext->selection;
    s->RefreshPreview();
    if (m_pContext->selectionHistory)
        m_pContext->selectionHistory->AddStep(s, kStepChannel, int32_t(m_planeBit), m_tipKey);
    if (m_pContext->updateBars) m_pContext->updateBars();
}

// --- Colour picker ------------------------------------------------------------------------------------------------

CPickerTool::CPickerTool(CToolContext* context) : CToolBase(context, "pickertip", "pickerhelp", 179)
{
    m_pOptionPanel = &m_panel;
}

int CPickerTool::OnLButtonDown(uint32_t, int x, int y)
{
    CComposeDocument* doc = m_pContext ? m_pContext->document : nullptr;
    if (!doc || !m_pContext->setForeground) return 0;
    const CViewPoint p = ToImage(x, y);
    CPixel result{0, 0, 0, 255};
    // A document without a merge thread (a script) merges on demand.
    if (!doc->IsThreaded()) doc->MergeNow();
    {
        CStackLock lock(*doc);
        const COLImage* composite = doc->GetComposite();
        if (!composite || composite->IsNull()) return 0;
        const int w = int(composite->GetWidth()), h = int(composite->GetHeight());
        const int points[4][2] = {{p.x, p.y}, {p.x - 1, p.y - 1}, {p.x + 1, p.y + 1}, {p.x - 1, p.y + 1}};
        uint32_t sum[3] = {0, 0, 0};
        for (const auto& q : points) {
            // Points beyond the edge read the nearest edge pixel.
            const CPixel c = composite->GetPixel2(uint32_t(std::clamp(q[0], 0, w - 1)),
                                                  uint32_t(std::clamp(q[1], 0, h - 1)));
            sum[0] += c.blue;
            sum[1] += c.green;
            sum[2] += c.red;
        }
        result = CPixel{uint8_t(sum[0] / 4), uint8_t(sum[1] / 4), uint8_t(sum[2] / 4), 255};
    }
    m_pContext->setForeground(result);
    return 0;
}

int CPickerTool::OnSetCursor(int, int, int, int, int, int)
{
    SetCursorRole(kCursorPicker);
    return 1;
}
