#include "document/compose_document.h"

#include <algorithm>
#include <cmath>

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
    const long long x0 = std::clamp<long long>(origin.x, 0, cw - 1), y0 = std::clamp<long long>(origin.y, 0, ch - 1);
    const long long sw = static_cast<long long>(target->GetWidth() / zoom);
    const long long sh = static_cast<long long>(target->GetHeight() / zoom);
    const long long x1 = std::min(x0 + sw, cw), y1 = std::min(y0 + sh, ch);
    // A zoom so large that less than one pixel is shown still shows that pixel.
    const int w = static_cast<int>(std::max(1LL, x1 - x0)), h = static_cast<int>(std::max(1LL, y1 - y0));
    ScaleForRender(&m_composite, target, static_cast<int>(target->GetWidth()), static_cast<int>(target->GetHeight()),
                   static_cast<int>(x0), static_cast<int>(y0), w, h);
    return 0;
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
    return ScaleForRender(&m_composite, target, width, height, 0, 0, -1, -1);
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
