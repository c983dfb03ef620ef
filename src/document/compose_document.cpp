#include "document/compose_document.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "document/compositor.h"
#include "document/layer.h"
#include "document/render_scale.h"

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
        if (!m_composite.IsNull())
            for (int y = rect.top; y < bottom; ++y) {
                const int sy = std::min((y - rect.top) / step, th - 1);
                CPixel* out = m_composite.GetBuffer(0, static_cast<uint32_t>(y));
                for (int x = rect.left; x < right; ++x) {
                    const CPixel p = preview.GetPixel2(static_cast<uint32_t>(std::min((x - rect.left) / step, tw - 1)),
                                                       static_cast<uint32_t>(sy));
                    out[x].red = p.red; // alpha holds the selection and stays
                    out[x].green = p.green;
                    out[x].blue = p.blue;
                }
            }
    }
    if (m_pView) m_pView->Redraw();
    return 1;
}
