#include "tools/paint_tool.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <new>
#include <thread>

#include "commands/history_sink.h"
#include "document/compose_document.h"
#include "document/selection_document.h"
#include "matting/gaussian.h"
#include "tools/stamp_kernel.h"

// --- Stamp ------------------------------------------------------------------------------------------------------

long BuildBrushStamp(int size, int soft, int planeSide, COLChannel& stamp)
{
    size = std::clamp(size, kBrushSizeMin, kBrushSizeMax);
    soft = std::clamp(soft, 0, kBrushPercentMax);
    if (planeSide < 1) return kFail;
    COLChannel plane;
    if (plane.Create(uint32_t(planeSide), uint32_t(planeSide)) != kOk) return kFail;
    const int centre = planeSide / 2;
    const double half = size * 0.5;
    for (int y = 0; y < planeSide; ++y) {
        uint8_t* row = plane.GetBuffer(0, uint32_t(y));
        const int dy = y - centre;
        for (int x = 0; x < planeSide; ++x) {
            const int dx = x - centre;
            const int r = int(std::sqrt(double(dx * dx + dy * dy)));
            if (r < size - 1) {
                row[x] = 255;
            } else if (r > size + 1) {
                row[x] = 0;
            } else {
                // The band between: 4 x 4 samples against half the size. For all but the smallest brushes no
                // sample lies that close, and the band stays 0.
                int count = 0;
                for (int i = -2; i <= 1; ++i)
                    for (int j = -2; j <= 1; ++j) {
                        const double sx = dx + 0.25 * i + 0.125, sy = dy + 0.25 * j + 0.125;
                        if (std::sqrt(sx * sx + sy * sy) < half) ++count;
                    }
                row[x] = uint8_t(std::min(16 * count, 255));
            }
        }
    }
    double sigma = soft * 0.01 * (size / 3);
    COLChannel blurred;
    CGaussianProcess blur;
    blur.SetChannels(&plane, &blurred);
    if (blur.ProcessChannel(&sigma) != kOk || blurred.IsNull()) return kFail;

    int left = planeSide, top = planeSide, right = -1, bottom = -1, peak = 0;
    for (int y = 0; y < planeSide; ++y) {
        const uint8_t* row = blurred.GetBuffer(0, uint32_t(y));
        for (int x = 0; x < planeSide; ++x) {
            if (!row[x]) continue;
            left = std::min(left, x);
            right = std::max(right, x);
            top = std::min(top, y);
            bottom = std::max(bottom, y);
            peak = std::max(peak, int(row[x]));
        }
    }
    if (peak == 0) return kFail;
    COLChannel cropped;
    if (cropped.Create(uint32_t(right - left + 1), uint32_t(bottom - top + 1)) != kOk) return kFail;
    for (int y = top; y <= bottom; ++y) {
        const uint8_t* src = blurred.GetBuffer(uint32_t(left), uint32_t(y));
        uint8_t* dst = cropped.GetBuffer(0, uint32_t(y - top));
        for (int x = 0; x <= right - left; ++x) dst[x] = uint8_t(src[x] * 255 / peak);
    }
    stamp = std::move(cropped);
    return kOk;
}

int StampRadius(const COLChannel& stamp)
{
    if (stamp.IsNull()) return 0;
    const int w = int(stamp.GetWidth()), h = int(stamp.GetHeight()), cx = w / 2, cy = h / 2;
    int radius = 0;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            if (stamp.GetValue(uint32_t(x), uint32_t(y)) <= 128) continue;
            const int d = int(std::sqrt(double((x - cx) * (x - cx) + (y - cy) * (y - cy))));
            radius = std::max(radius, d);
        }
    return radius;
}

int BrushSliderToSize(int p)
{
    p = std::clamp(p, 0, 100);
    if (p < 19) return p / 2 + 1;
    if (p < 59) return p - 8;
    return 50 + 205 * (p - 58) / 42;
}

int BrushSizeToSlider(int s)
{
    s = std::clamp(s, kBrushSizeMin, kBrushSizeMax);
    if (s < 11) return 2 * s - 2;
    if (s < 51) return s + 8;
    return (42 * s - 2100) / 205 + 58;
}

const BrushPreset* BrushPresets(int& count)
{
    static const BrushPreset presets[] = {
        {1, 100},  {1, 50},  {1, 0},  {2, 100},  {2, 50},  {2, 0},  {3, 100},  {3, 50},  {3, 0},
        {5, 100},  {5, 50},  {5, 0},  {9, 100},  {9, 50},  {9, 0},  {12, 100}, {12, 50}, {12, 0},
        {15, 100}, {15, 50}, {15, 0}, {20, 100}, {20, 50}, {20, 0}, {25, 100}, {25, 50}, {25, 0},
        {32, 100}, {32, 50}, {32, 0}, {40, 100}, {40, 50}, {40, 0}, {64, 100}, {64, 50}, {64, 0},
        {80, 100}, {80, 50}, {80, 0}, {100, 100}, {100, 50}, {100, 0},
    };
    count = int(sizeof(presets) / sizeof(presets[0]));
    return presets;
}

// --- CNullProperty ----------------------------------------------------------------------------------------------

CNullProperty::CNullProperty(const char* settingsName) : m_settingsName(settingsName ? settingsName : "") {}

void CNullProperty::LoadSettings(const std::function<int(const std::string&, int)>& profileInt)
{
    if (profileInt) {
        // A value typed into the profile by hand can be anything; the brush takes the nearest it can draw.
        m_size = std::clamp(profileInt(m_settingsName + "_BrushSize", 9), kBrushSizeMin, kBrushSizeMax);
        m_soft = std::clamp(profileInt(m_settingsName + "_BrushSoft", 50), 0, kBrushPercentMax);
        m_alphaPercent = std::clamp(profileInt(m_settingsName + "_BrushAlpha", 100), 0, kBrushPercentMax);
    }
    RebuildStamp();
}

void CNullProperty::Attach(CPaintTool* owner, COLChannel* stamp, uint8_t* alpha)
{
    m_pOwner = owner;
    m_pStamp = stamp;
    m_pAlpha = alpha;
}

bool CNullProperty::SetValues(int size, int soft, int alphaPercent)
{
    m_size = std::clamp(size, kBrushSizeMin, kBrushSizeMax);
    m_soft = std::clamp(soft, 0, kBrushPercentMax);
    m_alphaPercent = std::clamp(alphaPercent, 0, kBrushPercentMax);
    return RebuildStamp() != 0;
}

int CNullProperty::RebuildStamp()
{
    if (!m_pStamp) return 0;
    if (BuildBrushStamp(m_size, m_soft, 512, *m_pStamp) != kOk) return 0;
    if (m_pAlpha) *m_pAlpha = uint8_t(m_alphaPercent * 255 / 100);
    if (m_pOwner) m_pOwner->RecomputeRadius();
    Changed();
    return 1;
}

// --- CPaintTool -------------------------------------------------------------------------------------------------

CPaintTool::CPaintTool(CToolContext* context, const char* tipKey, const char* helpKey, uint32_t iconId,
                       const char* settingsName)
    : CToolBase(context, tipKey, helpKey, iconId), m_brush(settingsName)
{
    m_pOptionPanel = &m_brush;
    m_brush.Attach(this, &m_stamp, &m_alpha);
    m_brush.RebuildStamp();
}

bool CPaintTool::GetCanvasSize(int& width, int& height)
{
    width = height = 0;
    if (m_pView && m_pView->GetSource()) {
        m_pView->GetSource()->GetSize(width, height);
    } else if (m_pContext) {
        if (IsSelectionModeTool()) {
            if (m_pContext->selection) m_pContext->selection->GetSize(width, height);
        } else if (m_pContext->document) {
            width = m_pContext->document->GetWidth();
            height = m_pContext->document->GetHeight();
        }
    }
    return width > 0 && height > 0;
}

int CPaintTool::OnActivate()
{
    int width = 0, height = 0;
    if (!GetCanvasSize(width, height)) return 0;
    RecomputeRadius();
    m_pBrush->Attach(this, &m_stamp, &m_alpha);
    bool rows = true;
    try {
        m_raisedLeft.assign(size_t(height), 0);
        m_raisedRight.assign(size_t(height), 0);
    } catch (const std::bad_alloc&) {
        rows = false;
    }
    if (!rows || m_stroke.Create(uint32_t(width), uint32_t(height)) != kOk ||
        m_strokeCopy.Create(uint32_t(width), uint32_t(height)) != kOk) {
        m_stroke.Free();
        m_strokeCopy.Free();
        m_raisedLeft.clear();
        m_raisedRight.clear();
        return 0;
    }
    // Fresh planes hold anything; later strokes clear only what the stroke before wrote.
    std::memset(m_stroke.GetBuffer(), 0, m_stroke.GetAreaByteSize());
    std::memset(m_strokeCopy.GetBuffer(), 0, m_strokeCopy.GetAreaByteSize());
    ClearStroke();
    for (int i = 0; i < 100; ++i) {
        const double d = i * 0.01;
        m_falloff[i] = uint8_t(int((1 - d * d * d) * 255));
    }
    m_painting = 0;
    return 1;
}

int CPaintTool::OnDeactivate()
{
    m_stroke.Free();
    m_strokeCopy.Free();
    m_painting = 0;
    m_hasPointer = false;
    return 1;
}

void CPaintTool::ClearStroke()
{
    // Only stamping writes the stroke, and only inside the stroke's box; the copy is never written after the
    // activation cleared it. So clearing the box zeroes both planes without a pass over the canvas.
    if (!m_stroke.IsNull() && !m_strokeBox.IsEmpty()) {
        const CRect r = StrokeBounds();
        for (int y = r.top; y < r.bottom; ++y)
            std::memset(m_stroke.GetBuffer(uint32_t(r.left), uint32_t(y)), 0, size_t(std::max(r.Width(), 0)));
    }
    m_strokeBox = CRect{};
    m_dirty = CRect{};
    m_hasLastStamp = false;
}

void CPaintTool::MeasureFootprint()
{
    const int sw = int(m_stamp.GetWidth()), sh = int(m_stamp.GetHeight());
    m_footFirst.assign(size_t(sh), 0);
    m_footEnd.assign(size_t(sh), 0);
    for (int j = 0; j < sh; ++j) {
        const uint8_t* row = m_stamp.GetBuffer(0, uint32_t(j));
        int first = 0, end = sw;
        while (first < end && !row[first])
            ++first;
        while (end > first && !row[end - 1])
            --end;
        m_footFirst[size_t(j)] = first;
        m_footEnd[size_t(j)] = end;
    }
    for (auto& v : m_stepFirst)
        v.clear();
    for (auto& v : m_stepEnd)
        v.clear();
}

void CPaintTool::MeasureStepFootprint(int dir)
{
    // The last stamp's centre is the new one's less (dx, dy), so new column i of row j meets its column i + dx
    // of row j + dy (0 beyond its edge).
    const int dx = dir % 3 - 1, dy = dir / 3 - 1;
    const int sw = int(m_stamp.GetWidth()), sh = int(m_stamp.GetHeight());
    std::vector<int32_t>& first = m_stepFirst[dir];
    std::vector<int32_t>& end = m_stepEnd[dir];
    first.assign(size_t(sh), 0);
    end.assign(size_t(sh), 0);
    for (int j = 0; j < sh; ++j) {
        const uint8_t* row = m_stamp.GetBuffer(0, uint32_t(j));
        const uint8_t* old = j + dy >= 0 && j + dy < sh ? m_stamp.GetBuffer(0, uint32_t(j + dy)) : nullptr;
        int lo = sw, hi = 0;
        for (int i = m_footFirst[size_t(j)]; i < m_footEnd[size_t(j)]; ++i) {
            const int o = old && i + dx >= 0 && i + dx < sw ? old[i + dx] : 0;
            if (row[i] <= o) continue;
            lo = std::min(lo, i);
            hi = i + 1;
        }
        if (lo < hi) {
            first[size_t(j)] = lo;
            end[size_t(j)] = hi;
        }
    }
}

void CPaintTool::StampSegment(int x1, int y1, int x2, int y2)
{
    if (m_stroke.IsNull() || m_stamp.IsNull()) return;
    // Measured at the press; a stamp of another height (a script that stamps without pressing) is measured here.
    if (m_footFirst.size() != m_stamp.GetHeight()) MeasureFootprint();
    const CViewPoint p = ToImage(x1, y1), q = ToImage(x2, y2);
    const int a = p.x, b = p.y, c = q.x, d = q.y;
    const int sw = int(m_stamp.GetWidth()), sh = int(m_stamp.GetHeight());
    const int hw = sw / 2, hh = sh / 2;
    double A, B, C;
    if (a == c) {
        A = 1;
        B = 0;
        C = -a;
    } else if (b == d) {
        A = 0;
        B = 1;
        C = -b;
    } else {
        A = double(d - b) / double(c - a);
        B = -1;
        C = b - a * A;
    }
    const double N = std::sqrt(A * A + B * B);
    const int minX = std::min(a, c), maxX = std::max(a, c), minY = std::min(b, d), maxY = std::max(b, d);
    const int canvasW = int(m_stroke.GetWidth()), canvasH = int(m_stroke.GetHeight());
    // Every stamp of this segment lands inside the new dirty rectangle: its rows start with nothing raised.
    const int rowTop = std::max(minY - hh - 1, 0), rowBottom = std::min(sh - hh + maxY + 2, canvasH);
    for (int y = rowTop; y < rowBottom; ++y)
        m_raisedLeft[size_t(y)] = m_raisedRight[size_t(y)] = 0;
    for (int py = minY; py <= maxY; ++py) {
        for (int px = minX; px <= maxX; ++px) {
            const double dist = std::fabs(A * px + B * py + C) / N;
            if (dist >= 1.0) continue;
            const uint32_t w = uint32_t(m_falloff[int(dist * 100)]) * m_alpha / 255;
            // The stroke keeps the greatest coverage per pixel, so the stamp just placed at the same point with
            // the same weight (the end of the last segment is the start of this one) would change nothing.
            if (m_hasLastStamp && px == m_lastStampX && py == m_lastStampY && w <= m_lastStampWeight) continue;
            // Next to the last stamp and no stronger, a stamp can raise only the pixels where its value exceeds
            // what the last one laid there: the columns of that direction's footprint.
            const int32_t* first = m_footFirst.data();
            const int32_t* end = m_footEnd.data();
            if (m_hasLastStamp && w <= m_lastStampWeight && std::abs(px - m_lastStampX) <= 1 &&
                std::abs(py - m_lastStampY) <= 1) {
                const int dir = (py - m_lastStampY + 1) * 3 + (px - m_lastStampX + 1);
                if (!m_stepFirst[dir].size()) MeasureStepFootprint(dir);
                first = m_stepFirst[dir].data();
                end = m_stepEnd[dir].data();
            }
            m_hasLastStamp = true;
            m_lastStampX = px;
            m_lastStampY = py;
            m_lastStampWeight = w;
            if (w == 0) continue;
            // Rows and columns of the stamp that land inside the canvas.
            const int i0 = std::max(0, hw - px), i1 = std::min(sw, canvasW - px + hw);
            const int j0 = std::max(0, hh - py), j1 = std::min(sh, canvasH - py + hh);
            if (i0 >= i1 || j0 >= j1) continue;
            for (int j = j0; j < j1; ++j) {
                // Zero stamp bytes raise nothing: only the row's non-zero columns are laid.
                const int from = std::max(i0, first[j]), to = std::min(i1, end[j]);
                if (from >= to) continue;
                const int y = py + j - hh, x0 = px + from - hw;
                const CStampSpan span =
                    StampRowMax(m_stroke.GetBuffer(uint32_t(x0), uint32_t(y)),
                                m_stamp.GetBuffer(uint32_t(from), uint32_t(j)), size_t(to - from), w);
                if (span.IsEmpty()) continue;
                int32_t& left = m_raisedLeft[size_t(y)];
                int32_t& right = m_raisedRight[size_t(y)];
                if (left == right) {
                    left = x0 + span.first;
                    right = x0 + span.last + 1;
                } else {
                    left = std::min(left, x0 + span.first);
                    right = std::max(right, x0 + span.last + 1);
                }
            }
        }
    }
    m_dirty = CRect{minX - hw - 1, minY - hh - 1, sw - hw + maxX + 1 + 1, sh - hh + maxY + 1 + 1};
    if (m_strokeBox.IsEmpty()) {
        m_strokeBox = m_dirty;
    } else {
        m_strokeBox.left = std::min(m_strokeBox.left, m_dirty.left);
        m_strokeBox.top = std::min(m_strokeBox.top, m_dirty.top);
        m_strokeBox.right = std::max(m_strokeBox.right, m_dirty.right);
        m_strokeBox.bottom = std::max(m_strokeBox.bottom, m_dirty.bottom);
    }
}

bool CPaintTool::GetRaisedSpan(int y, int& left, int& right) const
{
    const CRect r = m_dirty;
    if (y < std::max(r.top, 0) || y >= std::min(r.bottom, int(m_raisedLeft.size()))) return false;
    left = m_raisedLeft[size_t(y)];
    right = m_raisedRight[size_t(y)];
    return left < right;
}

CRect CPaintTool::StrokeBounds() const
{
    CRect r = m_strokeBox;
    r.left = std::max(r.left, 0);
    r.top = std::max(r.top, 0);
    r.right = std::min(r.right, int(m_stroke.GetWidth()));
    r.bottom = std::min(r.bottom, int(m_stroke.GetHeight()));
    return r;
}

int CPaintTool::OnLButtonDown(uint32_t, int x, int y)
{
    if (m_stroke.IsNull()) return 0;
    m_painting = 1;
    m_lastX = x;
    m_lastY = y;
    OnStrokeBegin();
    MeasureFootprint();
    StampSegment(x, y, x, y);
    OnStrokeUpdate();
    if (m_pView) m_pView->Refresh();
    return 0;
}

int CPaintTool::OnMouseMove(uint32_t, int x, int y)
{
    m_pointerX = x;
    m_pointerY = y;
    m_hasPointer = true;
    if (!m_painting) {
        if (m_pView) m_pView->DrawOverlayNow();
        return 0;
    }
    const auto start = std::chrono::steady_clock::now();
    StampSegment(m_lastX, m_lastY, x, y);
    m_lastX = x;
    m_lastY = y;
    OnStrokeUpdate();
    OnFrameDone();
    // The picture changed under the view: it is rendered again, not only repainted.
    if (m_pView) m_pView->Refresh();
    // The pause caps a stroke at 20 frames a second; the pointer events that arrive meanwhile are what spaces
    // the stamps.
    if (m_frameMs > 0) {
        const auto frame = std::chrono::milliseconds(m_frameMs);
        const auto spent = std::chrono::steady_clock::now() - start;
        if (spent < frame) std::this_thread::sleep_for(frame - spent);
    }
    return 0;
}

int CPaintTool::OnLButtonUp(uint32_t, int, int)
{
    if (!m_painting) return 0;
    m_painting = 0;
    OnStrokeEnd();
    return 0;
}

int CPaintTool::OnSetCursor(int, int, int, int, int, int)
{
    SetCursorRole(kCursorBrush);
    return 1;
}

int CPaintTool::DrawOverlay(IOverlayDC& dc, bool repainted)
{
    CToolBase::DrawOverlay(dc, repainted);
    EraseOverlay(dc);
    if (!m_hasPointer || !m_pView) return 0;
    const double r = m_pView->GetZoom() * m_radius;
    if (r < 1) return 0;
    const int n = std::min(int(r * 4), 32);
    const double step = 6.28318530718 / n;
    auto at = [&](int k, int& px, int& py) {
        px = int(m_pointerX + r * std::cos(k * step) + 0.5);
        py = int(m_pointerY + r * std::sin(k * step) + 0.5);
    };
    for (int k = 0; k < n; ++k) {
        int x0, y0, x1, y1;
        at(k, x0, y0);
        at(k + 1, x1, y1);
        AddOverlayLine(dc, x0, y0, x1, y1);
    }
    return 0;
}

void CPaintTool::RecordStroke()
{
    if (IsSelectionModeTool() || !m_pContext || !m_pContext->composeHistory || !m_pContext->document) return;
    m_pContext->composeHistory->AddStep(m_pContext->document, kStepLayerHeaderRegion,
                                        m_pContext->document->GetCurrentIndex(), m_tipKey);
}

void CPaintTool::UseBrush(CNullProperty* brush)
{
    if (!brush || brush == m_pBrush) return;
    m_pBrush->Attach(nullptr, nullptr, nullptr);
    m_pBrush = brush;
    m_pOptionPanel = brush;
    brush->Attach(this, &m_stamp, &m_alpha);
    brush->RebuildStamp();
}

void CPaintTool::MergeDirty()
{
    if (IsSelectionModeTool() || !m_pContext || !m_pContext->document) return;
    m_pContext->document->MergeRect(m_dirty.left, m_dirty.top, m_dirty.right, m_dirty.bottom, 2);
}
