#include "document/compose_document.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "document/compositor.h"
#include "document/layer.h"
#include "document/render_scale.h"
#include "runtime/simd_level.h"

#if VM_SIMD_X86
#include <immintrin.h>
#endif

namespace {

// The colours of each preview pixel over `step` pixels of out; out's alpha holds the selection and stays.
void StretchColoursPlain(CPixel* out, const CPixel* preview, int count, int columns, int step, int x, int i)
{
    for (; x < count; ++i) {
        const CPixel p = preview[std::min(i, columns - 1)];
        for (const int end = std::min(count, x + step); x < end; ++x) {
            out[x].red = p.red;
            out[x].green = p.green;
            out[x].blue = p.blue;
        }
    }
}

#if VM_SIMD_X86
// The coarse update of a brush dab uses step 2: four preview pixels become eight, merged under the alpha bytes.
VM_TARGET_AVX2 void StretchColoursStep2Avx2(CPixel* out, const CPixel* preview, int count, int columns)
{
    const __m256i pairs = _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3);
    const __m256i alpha = _mm256_set1_epi32(static_cast<int>(0xFF000000u));
    int x = 0, i = 0;
    for (; i + 4 <= columns && x + 8 <= count; i += 4, x += 8) {
        const __m256i p = _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(preview + i)));
        __m256i* o = reinterpret_cast<__m256i*>(out + x);
        _mm256_storeu_si256(o, _mm256_blendv_epi8(_mm256_permutevar8x32_epi32(p, pairs), _mm256_loadu_si256(o), alpha));
    }
    StretchColoursPlain(out, preview, count, columns, 2, x, i);
}
#endif

void StretchColoursRow(CPixel* out, const CPixel* preview, int count, int columns, int step)
{
#if VM_SIMD_X86
    if (step == 2 && vmsimd::CurrentLevel() >= vmsimd::kAvx2) {
        StretchColoursStep2Avx2(out, preview, count, columns);
        return;
    }
#endif
    StretchColoursPlain(out, preview, count, columns, step, 0, 0);
}

} // namespace

CComposeDocument::CComposeDocument(int threaded) : m_threaded(threaded)
{
    if (m_threaded) m_mergeThread.Start();
}

CComposeDocument::~CComposeDocument()
{
    // The thread reads this document: it must end before any member goes.
    m_mergeThread.Stop();
}

int CComposeDocument::SetView(ICanvasView* view)
{
    m_pView = view;
    if (!m_threaded) return 0;
    m_mergeThread.Handover(this, &m_composite, view);
    if (view) m_mergeThread.Request();
    return 0;
}

int CComposeDocument::Refresh()
{
    if (m_threaded && m_pView) {
        m_mergeThread.Handover(this, &m_composite, m_pView);
        m_mergeThread.Request();
    }
    return CLayerStack::Refresh();
}

void CComposeDocument::Lock(int enter)
{
    if (!m_threaded) return;
    if (enter)
        m_mergeThread.EnterLock();
    else
        m_mergeThread.LeaveLock();
}

int CComposeDocument::MergeNow()
{
    CStackLock lock(*this);
    return MergeLayers(this, &m_composite, 1);
}

void CComposeDocument::GetSize(int& width, int& height)
{
    width = m_width;
    height = m_height;
}

int CComposeDocument::Render(COLImage* target)
{
    if (!target || target->IsNull()) return 0;
    CStackLock lock(*this);
    if (m_composite.IsNull()) {
        if (m_composite.Create(1, 1) != kOk) return 0;
        m_composite.PutPixel(0, 0, CPixel::FromWord(0xFFFFFFFF));
    }
    CViewPoint origin;
    double zoom = 1.0;
    if (m_pView) {
        origin = m_pView->GetOrigin();
        zoom = m_pView->GetZoom();
    }
    if (!(zoom > 0)) zoom = 1.0;
    const long long cw = m_composite.GetWidth(), ch = m_composite.GetHeight();
    const double x0 = static_cast<double>(std::clamp<long long>(origin.x, 0, cw - 1));
    const double y0 = static_cast<double>(std::clamp<long long>(origin.y, 0, ch - 1));
    const int tw = static_cast<int>(target->GetWidth()), th = static_cast<int>(target->GetHeight());
    if (!ScaleForScreen(&m_composite, target, tw, th, x0, y0, 1.0 / zoom, 1.0 / zoom)) return 0;
    ShowTransparency(target, x0, y0, 1.0 / zoom, 1.0 / zoom);
    return 0;
}

void CComposeDocument::ShowTransparency(COLImage* target, double x0, double y0, double stepX, double stepY) const
{
    // The composite holds the layers' colours on the base's colours; its alpha byte is the selection, so where
    // the picture itself is see-through is worked out here, at the point each screen pixel shows: the base's
    // alpha, then every visible layer above laid over it. Most photos have an opaque base, and then the first
    // test ends the work for every pixel.
    const CLayer* base = GetLayer(0);
    if (!base || base->m_image.IsNull()) return;
    const int bw = static_cast<int>(base->m_image.GetWidth()), bh = static_cast<int>(base->m_image.GetHeight());
    const int tw = static_cast<int>(target->GetWidth()), th = static_cast<int>(target->GetHeight());
    std::vector<int> columns(static_cast<size_t>(tw));
    for (int dx = 0; dx < tw; ++dx)
        columns[static_cast<size_t>(dx)] = std::clamp(static_cast<int>(std::floor(x0 + (dx + 0.5) * stepX)), 0, bw - 1);
    for (int dy = 0; dy < th; ++dy) {
        const int y = std::clamp(static_cast<int>(std::floor(y0 + (dy + 0.5) * stepY)), 0, bh - 1);
        const CPixel* baseRow = base->m_image.GetBuffer(0, static_cast<uint32_t>(y));
        CPixel* out = target->GetBuffer(0, static_cast<uint32_t>(dy));
        for (int dx = 0; dx < tw; ++dx) {
            const int x = columns[static_cast<size_t>(dx)];
            uint32_t cover = baseRow[x].alpha;
            if (cover == 255) continue;
            for (int i = 1; i < GetLayerCount() && cover < 255; ++i) {
                const CLayer* layer = GetLayer(i);
                if (!layer->m_visible || layer->m_image.IsNull()) continue;
                const int lx = x - layer->m_x, ly = y - layer->m_y;
                if (lx < 0 || ly < 0 || lx >= static_cast<int>(layer->m_image.GetWidth()) ||
                    ly >= static_cast<int>(layer->m_image.GetHeight()))
                    continue;
                const uint32_t a =
                    layer->m_image.GetPixel2(static_cast<uint32_t>(lx), static_cast<uint32_t>(ly)).alpha *
                    layer->m_opacity / 255;
                cover += a * (255 - cover) / 255;
            }
            if (cover >= 255) continue;
            // The checkerboard of the layer thumbnails: 8-pixel cells of light gray and white, fixed on screen.
            const uint32_t check = ((dx / 8 + dy / 8) & 1) ? 0xCC : 0xFF;
            const uint32_t keep = 255 - cover;
            CPixel& p = out[dx];
            p.blue = static_cast<uint8_t>((p.blue * cover + check * keep + 127) / 255);
            p.green = static_cast<uint8_t>((p.green * cover + check * keep + 127) / 255);
            p.red = static_cast<uint8_t>((p.red * cover + check * keep + 127) / 255);
        }
    }
}

int CComposeDocument::RenderWhole(COLImage* target, int width, int height)
{
    if (!target) return 0;
    // Under the lock, unlike the canvas's thumbnails of old: the merge thread may be replacing the composite.
    CStackLock lock(*this);
    if (m_composite.IsNull()) {
        if (target->Create(1, 1) != kOk) return 0;
        target->PutPixel(0, 0, CPixel::FromWord(0xFFFFFFFF));
        return 1;
    }
    if (!ScaleForRender(&m_composite, target, width, height, 0, 0, -1, -1)) return 0;
    ShowTransparency(target, 0, 0, double(m_composite.GetWidth()) / width, double(m_composite.GetHeight()) / height);
    return 1;
}

int CComposeDocument::MergeFast(COLImage* destination, CRect rect, int step) const
{
    return ::MergeFast(this, destination, rect, step);
}

int CComposeDocument::MergeRect(int left, int top, int right, int bottom, int step)
{
    if (step < 1) return 0;
    CRect rect{left, top, right, bottom};
    rect.Normalize();
    rect.left = std::max(rect.left, 0);
    rect.top = std::max(rect.top, 0);
    rect.right = std::min(rect.right, m_width);
    rect.bottom = std::min(rect.bottom, m_height);
    COLImage preview;
    if (!::MergeFast(this, &preview, rect, step)) return 0;
    if (!preview.IsNull()) {
        // Under the lock so that a merge that is still running cannot reallocate the composite underneath.
        CStackLock lock(*this);
        const int tw = static_cast<int>(preview.GetWidth()), th = static_cast<int>(preview.GetHeight());
        const int right = std::min(rect.right, static_cast<int>(m_composite.GetWidth()));
        const int bottom = std::min(rect.bottom, static_cast<int>(m_composite.GetHeight()));
        if (!m_composite.IsNull() && right > rect.left)
            for (int y = rect.top; y < bottom; ++y) {
                const int sy = std::min((y - rect.top) / step, th - 1);
                // Pixel x takes the preview's column (x - left) / step, the last one past its edge.
                StretchColoursRow(m_composite.GetBuffer(static_cast<uint32_t>(rect.left), static_cast<uint32_t>(y)),
                                  preview.GetBuffer(0, static_cast<uint32_t>(sy)), right - rect.left, tw, step);
            }
    }
    if (m_pView) m_pView->Redraw();
    return 1;
}
