#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

#include "document/compose_document.h"
#include "document/layer.h"
#include "fake_view.h"
#include "reference_merge.h"
#include "support/test_support.h"

using namespace std::chrono_literals;

namespace {

// Waits (bounded) until the thread has taken a request and is merging.
bool WaitMerging(CMergeThread& thread)
{
    for (int i = 0; i < 2000 && !thread.IsMerging(); ++i)
        std::this_thread::sleep_for(1ms);
    return thread.IsMerging();
}

// Once the thread is idle, the composite must be the plain merge of the document as it now stands.
void ExpectCompositeIsTheMerge(CComposeDocument& doc)
{
    ASSERT_TRUE(doc.GetMergeThread().WaitIdle(10s));
    COLImage expected;
    reftest::Merge(doc, expected, 1);
    CStackLock lock(doc);
    EXPECT_TRUE(vmtest::SamePixels(*doc.GetComposite(), expected));
}

} // namespace

TEST(MergeThread, RefreshMergesIntoTheCompositeAndTellsTheView)
{
    CComposeDocument doc(1);
    ASSERT_EQ(doc.NewDocument(50, 40, 0xFF336699), 1);
    CLayer* top = doc.AddLayer(0, 0);
    vmtest::FillNoise(top->m_image, 50, 40, 3);
    CFakeView view;
    doc.SetView(&view);
    ExpectCompositeIsTheMerge(doc);
    EXPECT_GE(view.posted.load(), 1);

    // A later change shows after the next Refresh: no request is lost.
    {
        CStackLock lock(doc);
        top->m_opacity = 10;
        doc.GetSelectionMask() = vmtest::Plane(50, 40, 200);
    }
    const uint32_t before = doc.GetModificationCount();
    EXPECT_EQ(doc.Refresh(), int(before + 1));
    ExpectCompositeIsTheMerge(doc);
    CStackLock lock(doc);
    EXPECT_EQ(doc.GetComposite()->GetPixel2(0, 0).alpha, 200) << "the composite's alpha is the selection";
}

TEST(MergeThread, ManyRequestsDuringAMergeGiveOneMoreAndADetachedViewHearsNoMore)
{
    CComposeDocument doc(1);
    ASSERT_EQ(doc.NewDocument(64, 64, 0xFF000000), 1);
    CFakeView view;
    doc.SetView(&view);
    ASSERT_TRUE(doc.GetMergeThread().WaitIdle(10s));
    const uint64_t start = doc.GetMergeThread().GetMergeCount();
    {
        // Holding the document lock keeps the next merge waiting for it once it has started.
        CStackLock lock(doc);
        doc.Refresh();
        ASSERT_TRUE(WaitMerging(doc.GetMergeThread()));
        for (int i = 0; i < 100; ++i)
            doc.Refresh();
        EXPECT_TRUE(doc.GetMergeThread().IsBusy());
    }
    ASSERT_TRUE(doc.GetMergeThread().WaitIdle(10s));
    EXPECT_EQ(doc.GetMergeThread().GetMergeCount() - start, 2u) << "one running, one pending";

    doc.SetView(nullptr);
    const int posted = view.posted.load();
    doc.GetMergeThread().Request();
    ASSERT_TRUE(doc.GetMergeThread().WaitIdle(10s));
    EXPECT_EQ(view.posted.load(), posted) << "a detached view is not called again";
}

TEST(MergeThread, NoViewNoMergeAndUnthreadedDocumentsHaveNoThread)
{
    CComposeDocument doc(1);
    ASSERT_EQ(doc.NewDocument(8, 8, 0), 1);
    doc.Refresh();
    EXPECT_TRUE(doc.GetMergeThread().WaitIdle(10s));
    EXPECT_EQ(doc.GetMergeThread().GetMergeCount(), 0u);
    EXPECT_TRUE(doc.GetComposite()->IsNull());

    CComposeDocument plain(0);
    ASSERT_EQ(plain.NewDocument(8, 8, 0xFF010203), 1);
    CFakeView view;
    plain.SetView(&view);
    plain.Refresh();
    EXPECT_EQ(plain.GetMergeThread().GetMergeCount(), 0u);
    EXPECT_EQ(view.posted.load(), 0);
    ASSERT_EQ(plain.MergeNow(), 1);
    EXPECT_EQ(plain.GetComposite()->GetPixel(7, 7), 0x00010203u);
}

TEST(MergeThread, StopsCleanlyWithWorkPending)
{
    CFakeView view;
    for (int round = 0; round < 20; ++round) {
        CComposeDocument doc(1);
        ASSERT_EQ(doc.NewDocument(300, 200, 0xFF000000), 1);
        ASSERT_NE(doc.AddLayer(0, 0), nullptr);
        doc.SetView(&view);
        for (int i = 0; i < 5; ++i)
            doc.Refresh();
        // the document goes out of scope while merges run or wait
    }
    // Every thread was joined with its document: no merge reports to the view afterwards.
    const int posted = view.posted.load();
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(view.posted.load(), posted);
}

// Layer-list, size and mask changes on this thread while the merge thread merges: every change is made under
// the document lock, so the sanitizers must see no race and the last composite must be exact.
TEST(MergeThread, EditsUnderTheLockRaceFreeWithMerges)
{
    CComposeDocument doc(1);
    ASSERT_EQ(doc.NewDocument(120, 90, 0xFF202020), 1);
    CFakeView view;
    doc.SetView(&view);
    for (int i = 0; i < 200; ++i) {
        switch (i % 5) {
        case 0: {
            CLayer* layer = doc.AddLayer(doc.GetLayerCount() - 1, 0);
            if (layer) {
                CStackLock lock(doc);
                vmtest::FillNoise(layer->m_image, 120, 90, uint32_t(i));
                layer->m_x = i % 17 - 8;
            }
            break;
        }
        case 1:
            doc.DuplicateLayer(doc.GetLayerCount() - 1);
            break;
        case 2:
            doc.MergeDown(doc.GetLayerCount() - 1);
            break;
        case 3: {
            CStackLock lock(doc);
            if (doc.GetSelectionMask().IsNull()) {
                doc.GetSelectionMask() = vmtest::Plane(120, 90, uint8_t(i));
            } else {
                doc.GetSelectionMask().Free();
            }
            break;
        }
        default:
            doc.RemoveLayer(doc.GetLayerCount() - 1);
            break;
        }
        doc.Refresh();
    }
    ExpectCompositeIsTheMerge(doc);
}
