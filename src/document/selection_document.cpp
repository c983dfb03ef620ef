#include "document/selection_document.h"

#include <algorithm>
#include <cstring>

#include "document/layer.h"
#include "document/layer_stack.h"
#include "document/render_scale.h"
#include "filters/resample.h"

namespace {

inline bool Inside(const COLChannel& plane, int x, int y)
{
    return !plane.IsNull() && x >= 0 && y >= 0 && uint32_t(x) < plane.GetWidth() && uint32_t(y) < plane.GetHeight();
}

} // namespace

bool CSelectionDocument::Begin(CLayerStack& stack)
{
    Clear();
    CLayer* layer = stack.GetCurrentLayer();
    if (!layer || layer->m_image.IsNull()) return false;
    m_pSource = &layer->m_image;
    return m_working.DuplicateFrom(m_pSource) != 0;
}

void CSelectionDocument::Clear()
{
    m_resultMask.Free();
    m_innerPlane.Free();
    m_outerPlane.Free();
    m_working.Free();
}

int CSelectionDocument::SetView(ICanvasView* view)
{
    m_pView = view;
    return 0;
}

void CSelectionDocument::GetSize(int& width, int& height)
{
    width = m_working.IsNull() ? 0 : int(m_working.GetWidth());
    height = m_working.IsNull() ? 0 : int(m_working.GetHeight());
}

int CSelectionDocument::RenderWhole(COLImage* target, int width, int height)
{
    if (!target || m_working.IsNull()) return 0;
    return ResampleImage(&m_working, target, width, height);
}

int CSelectionDocument::GetOutlinePlanes(OutlinePlane* planes, int max)
{
    int n = 0;
    auto add = [&](const COLChannel& plane, int style) {
        if (!plane.IsNull() && n < max) planes[n++] = {&plane, style};
    };
    if (m_showOuter) add(m_outerPlane, kOutlineOuter);
    if (m_showInner) add(m_innerPlane, kOutlineInner);
    add(m_resultMask, kOutlineResult);
    return n;
}

void CSelectionDocument::RefreshPreview()
{
    ++m_refreshCount;
    if (m_pView) m_pView->Redraw();
}

int CSelectionDocument::Render(COLImage* target)
{
    if (!target || target->IsNull() || m_working.IsNull()) return 0;
    CViewPoint origin;
    double zoom = 1.0;
    if (m_pView) {
        origin = m_pView->GetOrigin();
        zoom = m_pView->GetZoom();
    }
    if (!(zoom > 0)) zoom = 1.0;
    const int w = int(m_working.GetWidth()), h = int(m_working.GetHeight());
    const int x0 = std::clamp(origin.x, 0, w - 1), y0 = std::clamp(origin.y, 0, h - 1);
    const int x1 = int(std::min<long long>(x0 + static_cast<long long>(target->GetWidth() / zoom), w));
    const int y1 = int(std::min<long long>(y0 + static_cast<long long>(target->GetHeight() / zoom), h));
    // A zoom so large that less than one pixel is shown still shows that pixel.
    const CRect rect{x0, y0, std::max(x1, x0 + 1), std::max(y1, y0 + 1)};
    const int tw = int(target->GetWidth()), th = int(target->GetHeight());

    if (m_displayMode == kShowSource) {
        const COLImage* source = m_pSource && !m_pSource->IsNull() ? m_pSource : &m_working;
        const int sw = std::min(rect.Width(), int(source->GetWidth()) - rect.left);
        const int sh = std::min(rect.Height(), int(source->GetHeight()) - rect.top);
        if (sw <= 0 || sh <= 0) return 0;
        return ScaleForRender(source, target, tw, th, rect.left, rect.top, sw, sh);
    }
    COLImage temp;
    if (temp.Create(uint32_t(rect.Width()), uint32_t(rect.Height())) != kOk) return 0;
    FillBackground(temp, rect);
    DrawWorking(temp, rect);
    if (m_resultMask.IsNull()) DrawContours(temp, rect);
    return ScaleForRender(&temp, target, tw, th, 0, 0, -1, -1);
}

int CSelectionDocument::FillBackground(COLImage& image, CRect rect) const
{
    const int rw = int(image.GetWidth()), rh = int(image.GetHeight());
    switch (m_displayMode) {
    case kShowColour: {
        const CPixel c = CPixel::FromWord(m_background);
        for (int j = 0; j < rh; ++j) std::fill_n(image.GetBuffer(0, uint32_t(j)), rw, c);
        return 1;
    }
    case kShowChecker: {
        const CPixel light = CPixel::FromWord(m_checkerStyle ? 0xFFC0C0C0 : 0xFFFFFFFF);
        const CPixel dark = CPixel::FromWord(m_checkerStyle ? 0xFF606060 : 0xFF000000);
        for (int j = 0; j < rh; ++j) {
            CPixel* row = image.GetBuffer(0, uint32_t(j));
            const int y = rect.top + j;
            for (int i = 0; i < rw; ++i) {
                const int x = rect.left + i;
                row[i] = (((x >> 4) + (y >> 4)) & 1) == 0 ? light : dark;
            }
        }
        return 1;
    }
    case kShowMask: std::memset(image.GetBuffer(), 0, image.GetAreaByteSize()); return 1;
    case kShowPicture: break;
    default: return 0;
    }
    if (m_backgroundPicture.IsNull() || m_working.IsNull()) return 0;
    const int w = int(m_working.GetWidth()), h = int(m_working.GetHeight());
    const int bw = int(m_backgroundPicture.GetWidth()), bh = int(m_backgroundPicture.GetHeight());
    const double s = std::max(double(w) / bw, double(float(h) / float(bh)));
    if (s > 1) {
        // The picture is smaller than the working image in some direction: a part of it is stretched.
        const int pw = std::max(1, int(rect.Width() / s)), ph = std::max(1, int(rect.Height() / s));
        const int px = std::clamp(int((bw - w / s) * 0.5 + rect.left / s), 0, bw - 1);
        const int py = std::clamp(int((bh - h / s) * 0.5 + rect.top / s), 0, bh - 1);
        COLImage part;
        if (!ResampleImage(&m_backgroundPicture, &part, rw, rh, px, py, std::min(pw, bw - px),
                           std::min(ph, bh - py)))
            return 0;
        std::memcpy(image.GetBuffer(), part.GetBuffer(), image.GetAreaByteSize());
        return 1;
    }
    // Not scaled, centred.
    const int px = (bw - w) / 2 + rect.left, py = (bh - h) / 2 + rect.top;
    for (int j = 0; j < rh; ++j) {
        const int y = py + j;
        if (y < 0 || y >= bh) continue;
        const int from = std::max(0, -px), to = std::min(rw, bw - px);
        if (from < to)
            std::memcpy(image.GetBuffer(uint32_t(from), uint32_t(j)),
                        m_backgroundPicture.GetBuffer(uint32_t(px + from), uint32_t(y)), size_t(to - from) * 4);
    }
    return 1;
}

void CSelectionDocument::DrawWorking(COLImage& image, CRect rect) const
{
    if (m_working.IsNull()) return;
    const int rw = std::min(int(image.GetWidth()), int(m_working.GetWidth()) - rect.left);
    const int rh = std::min(int(image.GetHeight()), int(m_working.GetHeight()) - rect.top);
    const bool withMask = !m_resultMask.IsNull();
    const bool grayMask = m_displayMode == kShowMask;
    for (int j = 0; j < rh; ++j) {
        const int y = rect.top + j;
        const CPixel* src = m_working.GetBuffer(uint32_t(rect.left), uint32_t(y));
        CPixel* dst = image.GetBuffer(0, uint32_t(j));
        for (int i = 0; i < rw; ++i) {
            const CPixel s = src[i];
            CPixel& d = dst[i];
            if (!withMask) {
                if (s.alpha) {
                    const uint32_t a = s.alpha;
                    d.red = uint8_t(((255 - a) * d.red + s.red * a) / 255);
                    d.green = uint8_t(((255 - a) * d.green + s.green * a) / 255);
                    d.blue = uint8_t(((255 - a) * d.blue + s.blue * a) / 255);
                }
            } else {
                const int x = rect.left + i;
                const uint32_t m = Inside(m_resultMask, x, y) ? m_resultMask.GetValue(uint32_t(x), uint32_t(y)) : 0;
                if (m) {
                    if (grayMask) {
                        d.red = d.green = d.blue = uint8_t(m);
                    } else {
                        const uint32_t a = std::min<uint32_t>(s.alpha, m);
                        d.red = uint8_t((s.red * a + d.red * (255 - a)) / 255);
                        d.green = uint8_t((s.green * a + d.green * (255 - a)) / 255);
                        d.blue = uint8_t((s.blue * a + d.blue * (255 - a)) / 255);
                    }
                }
            }
            d.alpha = 0;
        }
    }
}

void CSelectionDocument::DrawContours(COLImage& image, CRect rect) const
{
    const bool outer = !m_outerPlane.IsNull() && m_showOuter;
    const bool inner = !m_innerPlane.IsNull() && m_showInner;
    const int rw = int(image.GetWidth()), rh = int(image.GetHeight());
    for (int j = 0; j < rh; ++j) {
        CPixel* dst = image.GetBuffer(0, uint32_t(j));
        const int y = rect.top + j;
        for (int i = 0; i < rw; ++i) {
            const int x = rect.left + i;
            uint8_t a = 0;
            if (outer) {
                a = Inside(m_outerPlane, x, y) ? m_outerPlane.GetValue(uint32_t(x), uint32_t(y)) : 0;
                if (inner && Inside(m_innerPlane, x, y)) {
                    const uint8_t v = m_innerPlane.GetValue(uint32_t(x), uint32_t(y));
                    if (v) a ^= v;
                }
            } else if (inner) {
                a = Inside(m_innerPlane, x, y) ? m_innerPlane.GetValue(uint32_t(x), uint32_t(y)) : 0;
            }
            dst[i].alpha = a;
        }
    }
}

int CSelectionDocument::ApplyToLayer(CLayerStack& stack)
{
    if (stack.IndexOfImage(m_pSource) <= 0) return kBringBackIsBase;
    if (m_resultMask.IsNull()) return kBringBackFailed;
    CStackLock lock(stack);
    return m_pSource->ChannelFrom(&m_resultMask, 3) ? kBringBackDone : kBringBackFailed;
}

int CSelectionDocument::SeparateToLayer(CLayerStack& stack)
{
    if (stack.IndexOfImage(m_pSource) <= 0) return kBringBackIsBase;
    // The cut-out goes on a copy above; the layer itself keeps the rest.
    const int copied = CopyToLayer(stack, false);
    if (copied != kBringBackDone) return copied;
    CStackLock lock(stack);
    return m_pSource->ChannelFrom(&m_resultMask, 3) ? kBringBackDone : kBringBackFailed;
}

int CSelectionDocument::CopyToLayer(CLayerStack& stack, bool offset)
{
    const int index = stack.IndexOfImage(m_pSource);
    if (index < 0 || m_resultMask.IsNull() || m_working.IsNull()) return kBringBackFailed;
    if (!stack.DuplicateLayer(index)) return kBringBackFailed;
    CLayer* upper = stack.GetLayer(index + 1);
    CStackLock lock(stack);
    COLImage& image = upper->m_image;
    if (image.GetWidth() != m_working.GetWidth() || image.GetHeight() != m_working.GetHeight() ||
        m_resultMask.GetWidth() != m_working.GetWidth() || m_resultMask.GetHeight() != m_working.GetHeight())
        return kBringBackFailed;
    const size_t n = image.GetPixelCount();
    const CPixel* src = m_working.GetBuffer();
    const uint8_t* mask = m_resultMask.GetBuffer();
    CPixel* dst = image.GetBuffer();
    for (size_t i = 0; i < n; ++i) {
        dst[i] = src[i];
        dst[i].alpha = mask[i];
    }
    if (offset) {
        upper->m_x += 10;
        upper->m_y += 10;
    }
    stack.SetCurrentIndex(index + 1);
    return kBringBackDone;
}

int CSelectionDocument::ChangeBackground(CLayerStack& stack, const COLImage& picture, uint32_t fill)
{
    if (picture.IsNull()) return kBringBackFailed;
    const int copied = CopyToLayer(stack, true);
    if (copied != kBringBackDone) return copied;
    // The canvas takes the picture's size around the middle, so that the subject keeps its place over it.
    if (!stack.ResizeCanvas(int(picture.GetWidth()), int(picture.GetHeight()), fill, 1, 1)) return kBringBackFailed;
    CLayer* base = stack.GetLayer(0);
    if (!base) return kBringBackFailed;
    {
        CStackLock lock(stack);
        if (!base->m_image.DuplicateFrom(&picture)) return kBringBackFailed;
    }
    stack.Refresh();
    return kBringBackDone;
}

int CSelectionDocument::KeepAsSelection(CLayerStack& stack)
{
    const CLayer* layer = stack.GetLayer(stack.IndexOfImage(m_pSource));
    if (!layer || m_resultMask.IsNull() || stack.GetWidth() <= 0 || stack.GetHeight() <= 0) return kBringBackFailed;
    {
        CStackLock lock(stack);
        COLChannel& mask = stack.GetSelectionMask();
        if (mask.Create(uint32_t(stack.GetWidth()), uint32_t(stack.GetHeight())) != kOk) return kBringBackFailed;
        for (int y = 0; y < stack.GetHeight(); ++y) {
            uint8_t* row = mask.GetBuffer(0, uint32_t(y));
            for (int x = 0; x < stack.GetWidth(); ++x) {
                const int mx = x - layer->m_x, my = y - layer->m_y;
                row[x] = Inside(m_resultMask, mx, my) ? m_resultMask.GetValue(uint32_t(mx), uint32_t(my)) : 0;
            }
        }
    }
    stack.Refresh();
    return kBringBackDone;
}
