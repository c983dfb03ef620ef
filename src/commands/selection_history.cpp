#include <cstring>

#include "commands/history_log.h"
#include "commands/history_payload.h"
#include "commands/stream_io.h"
#include "imaging/channel.h"
#include "imaging/image.h"
#include "imaging/result.h"

namespace {

// Reads one mask block into `plane`. `width` and `height` are the picture size stored with the step.
bool ReadMaskBlock(FILE* stream, COLChannel& plane, uint32_t width, uint32_t height)
{
    CChangeRect rect;
    if (!vmhist::ReadRect(stream, rect)) return false;
    if (vmhist::RectIsEmpty(rect)) {
        if (rect.left == -1) plane.Free();
        return true;
    }
    if (!vmhist::PlausibleRect(rect, 1, stream)) return false;
    // A plane stored whole at the picture's size replaces one of another size.
    const bool whole = rect == vmhist::WholeRect(width, height);
    if (plane.IsNull() || (whole && (plane.GetWidth() != width || plane.GetHeight() != height))) {
        if (plane.Create(uint32_t(rect.right - rect.left), uint32_t(rect.bottom - rect.top)) != kOk) return false;
    }
    if (!vmhist::RectInside(rect, plane.GetWidth(), plane.GetHeight())) return false;
    return vmhist::ReadRows(stream, plane, rect);
}

} // namespace

void CSelectionHistory::RebuildTrackers()
{
    for (CRegionTracker& t : m_trackers) t.Drop();
    if (!m_pDocument) return;
    if (COLChannel* p = m_pDocument->GetResultMask(); p && !p->IsNull()) BuildTracker(m_trackers[kTrackResult], *p);
    if (COLChannel* p = m_pDocument->GetInnerPlane(); p && !p->IsNull()) BuildTracker(m_trackers[kTrackInner], *p);
    if (COLChannel* p = m_pDocument->GetOuterPlane(); p && !p->IsNull()) BuildTracker(m_trackers[kTrackOuter], *p);
    if (COLImage* p = m_pDocument->GetWorkingImage(); p && !p->IsNull())
        BuildTracker(m_trackers[kTrackWorking], *p);
}

void CSelectionHistory::OnPayloadFailed()
{
    for (CRegionTracker& t : m_trackers) t.Drop();
}

int CSelectionHistory::AddStep(ISelectionHistorySource* document, int32_t kind, int32_t arg, const char* label)
{
    if (document != m_pDocument) {
        m_pDocument = document;
        RebuildTrackers();
        kind = kStepWholeDocument;
    }
    if (!m_pDocument) return -1;
    return AppendStep(kind, arg, label, [this, arg](FILE* stream, int32_t storedKind) {
        uint32_t planes = 0;
        if (storedKind == kStepWholeDocument) {
            planes = kPlaneAll;
            // A snapshot must stand on its own: every plane is stored whole, not as its change since the
            // previous step, so the trackers are forgotten first and rebuilt by the capture.
            for (CRegionTracker& t : m_trackers) t.Drop();
        } else if (storedKind == kStepLayerRegion) {
            planes = kPlaneWorking;
        } else if (storedKind == kStepChannel) {
            planes = static_cast<uint32_t>(arg);
        }
        return WritePayload(stream, planes);
    });
}

bool CSelectionHistory::WriteMaskBlock(FILE* stream, COLChannel* plane, CRegionTracker& tracker)
{
    if (!plane || plane->IsNull()) {
        tracker.Drop();
        return vmhist::WriteRect(stream, {-1, -1, -1, -1});
    }
    CChangeRect rect = vmhist::WholeRect(plane->GetWidth(), plane->GetHeight());
    if (!tracker.IsValid()) {
        BuildTracker(tracker, *plane);
    } else {
        const CChangeRect changed = TrackChanges(tracker, *plane);
        if (!changed.IsSizeChange()) rect = changed;
    }
    return vmhist::WriteRect(stream, rect) && vmhist::WriteRows(stream, *plane, rect);
}

bool CSelectionHistory::WritePayload(FILE* stream, uint32_t planes)
{
    COLImage* working = m_pDocument->GetWorkingImage();
    uint32_t width = 0, height = 0;
    if (working && !working->IsNull()) working->GetSize(width, height);
    uint8_t head[12];
    vmio::PutU32(head, planes);
    vmio::PutU32(head + 4, width);
    vmio::PutU32(head + 8, height);
    if (!vmio::WriteBytes(stream, head, sizeof head)) return false;
    if ((planes & kPlaneInner) && !WriteMaskBlock(stream, m_pDocument->GetInnerPlane(), m_trackers[kTrackInner]))
        return false;
    if ((planes & kPlaneOuter) && !WriteMaskBlock(stream, m_pDocument->GetOuterPlane(), m_trackers[kTrackOuter]))
        return false;
    if ((planes & kPlaneResult) &&
        !WriteMaskBlock(stream, m_pDocument->GetResultMask(), m_trackers[kTrackResult]))
        return false;
    if (planes & kPlaneWorking) {
        // The working image is always stored whole; its tracker is kept up to date all the same.
        if (!working || working->IsNull()) return false;
        if (!m_trackers[kTrackWorking].IsValid()) BuildTracker(m_trackers[kTrackWorking], *working);
        else TrackChanges(m_trackers[kTrackWorking], *working);
        const CChangeRect rect = vmhist::WholeRect(width, height);
        if (!vmhist::WriteRect(stream, rect) || !vmhist::WriteRows(stream, *working, rect)) return false;
    }
    return true;
}

int CSelectionHistory::ApplyRecord(CHistoryRecord /*record*/, FILE* stream)
{
    if (!m_pDocument || !stream) return 0;
    uint8_t head[12];
    if (!vmio::ReadBytes(stream, head, sizeof head)) return 0;
    const uint32_t planes = vmio::GetU32(head), width = vmio::GetU32(head + 4), height = vmio::GetU32(head + 8);

    struct {
        uint32_t bit;
        COLChannel* plane;
    } const masks[3] = {{kPlaneInner, m_pDocument->GetInnerPlane()},
                        {kPlaneOuter, m_pDocument->GetOuterPlane()},
                        {kPlaneResult, m_pDocument->GetResultMask()}};
    for (const auto& m : masks) {
        if (!(planes & m.bit)) continue;
        if (!m.plane || !ReadMaskBlock(stream, *m.plane, width, height)) return 0;
    }

    COLImage* working = m_pDocument->GetWorkingImage();
    if (planes & kPlaneWorking) {
        CChangeRect rect;
        if (!working || !vmhist::ReadRect(stream, rect)) return 0;
        if (vmhist::RectIsEmpty(rect)) return 1;
        if (!vmhist::PlausibleRect(rect, 4, stream)) return 0;
        const bool whole = rect.left == 0 && rect.top == 0;
        if (working->IsNull() || whole) {
            // Create keeps the pixels when the size is unchanged.
            if (working->Create(uint32_t(rect.right), uint32_t(rect.bottom)) != kOk) return 0;
        }
        if (!vmhist::RectInside(rect, working->GetWidth(), working->GetHeight())) return 0;
        if (!vmhist::ReadRows(stream, *working, rect)) return 0;
    }
    // The result mask is the working image's alpha wherever both exist.
    COLChannel* result = m_pDocument->GetResultMask();
    if (working && !working->IsNull() && result && !result->IsNull()) working->ChannelFrom(result, 3);
    return 1;
}
