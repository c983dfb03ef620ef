#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "commands/region_tracker.h"
#include "imaging/channel.h"
#include "imaging/image.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

// Plain sums straight from the definition of the fold, to hold the vector passes against: a pixel's four bytes
// added, less 257 above 257; a sample, less 129 from 130 on.
uint32_t Folded(const COLImage& image, uint32_t x, uint32_t y)
{
    const CPixel p = image.GetPixel2(x, y);
    const uint32_t v = p.blue + p.green + p.red + p.alpha;
    return v > 257 ? v - 257 : v;
}
uint32_t Folded(const COLChannel& plane, uint32_t x, uint32_t y)
{
    const uint32_t v = plane.GetValue(x, y);
    return v >= 130 ? v - 129 : v;
}

template <class P> void ReferenceSums(const P& plane, std::vector<uint32_t>& rows, std::vector<uint32_t>& cols)
{
    rows.assign(plane.GetHeight(), 0);
    cols.assign(plane.GetWidth(), 0);
    for (uint32_t y = 0; y < plane.GetHeight(); ++y)
        for (uint32_t x = 0; x < plane.GetWidth(); ++x) {
            rows[y] += Folded(plane, x, y);
            cols[x] += Folded(plane, x, y);
        }
}

TEST(RegionTracker, FoldedSumsMatchTheDefinitionForEveryWidthAndAtTheFoldOnEveryPath)
{
    // Widths around every vector step, so that the scalar tails are exercised as well as the main loops.
    vmtest::ForEachLevelAndSplit([](const std::string& label) {
        for (uint32_t width : {1u, 3u, 4u, 5u, 7u, 8u, 9u, 15u, 16u, 17u, 31u, 32u, 33u, 47u, 64u, 100u}) {
            COLImage img = vmtest::Noise(width, 5, width);
            img.PutPixel(width - 1, 4, CPixel::FromWord(0xFFFFFFFF)); // the largest fold, in the last column
            COLChannel ch = vmtest::NoisePlane(width, 5, width + 100);
            ch.SetValue(width - 1, 4, 130);

            std::vector<uint32_t> refRows, refCols, rows(5), cols(width, 12345);
            ReferenceSums(img, refRows, refCols);
            ComputeFoldedSums(img, rows.data(), cols.data());
            EXPECT_EQ(rows, refRows) << "image width " << width << ", " << label;
            EXPECT_EQ(cols, refCols) << "image width " << width << ", " << label;

            std::fill(cols.begin(), cols.end(), 777u);
            ReferenceSums(ch, refRows, refCols);
            ComputeFoldedSums(ch, rows.data(), cols.data());
            EXPECT_EQ(rows, refRows) << "channel width " << width << ", " << label;
            EXPECT_EQ(cols, refCols) << "channel width " << width << ", " << label;
        }
        SCOPED_TRACE(label);
        // One row of 40 pixels, all zero but the probes, so every vector lane sees a boundary value.
        COLImage img = vmtest::Solid(40, 1, CPixel{0, 0, 0, 0});
        img.PutPixel(0, 0, CPixel{255, 2, 0, 0});        // 257 stays
        img.PutPixel(9, 0, CPixel{255, 3, 0, 0});        // 258 folds to 1
        img.PutPixel(17, 0, CPixel{255, 255, 255, 255}); // 1020 folds to 763
        img.PutPixel(39, 0, CPixel{1, 1, 1, 1});         // 4
        std::vector<uint32_t> rows(1), cols(40);
        ComputeFoldedSums(img, rows.data(), cols.data());
        using Sums = std::vector<uint32_t>;
        EXPECT_EQ((Sums{cols[0], cols[9], cols[17], cols[39], rows[0]}), (Sums{257, 1, 763, 4, 257 + 1 + 763 + 4}));

        COLChannel ch = vmtest::Plane(40, 1, 0);
        ch.SetValue(1, 0, 129);  // stays
        ch.SetValue(20, 0, 130); // folds to 1
        ch.SetValue(35, 0, 255); // folds to 126
        ComputeFoldedSums(ch, rows.data(), cols.data());
        EXPECT_EQ((Sums{cols[1], cols[20], cols[35], rows[0]}), (Sums{129, 1, 126, 129 + 1 + 126}));
    });
}

TEST(RegionTracker, OnePixelChangeGivesItsBoxAndIsTakenIn)
{
    COLImage img = vmtest::Noise(40, 30, 7);
    CRegionTracker t;
    ASSERT_EQ(BuildTracker(t, img), 1);
    EXPECT_EQ(TrackChanges(t, img), (CChangeRect{0, 0, 0, 0}));

    CPixel p = img.GetPixel2(5, 7);
    p.red = static_cast<uint8_t>(p.red + 1);
    img.PutPixel(5, 7, p);
    EXPECT_EQ(TrackChanges(t, img), (CChangeRect{5, 7, 6, 8}));
    // The stored sums now describe the changed picture.
    EXPECT_EQ(TrackChanges(t, img), (CChangeRect{0, 0, 0, 0}));

    // Two separate edits give the box of both.
    img.PutPixel(2, 20, CPixel::FromWord(img.GetPixel(2, 20) ^ 0x01000000));
    img.PutPixel(30, 4, CPixel::FromWord(img.GetPixel(30, 4) ^ 0x00000100));
    EXPECT_EQ(TrackChanges(t, img), (CChangeRect{2, 4, 31, 21}));
}

TEST(RegionTracker, ChangesSeenOnlyInRowsOrOnlyInColumnsSpanThePlane)
{
    COLImage img = vmtest::Noise(20, 12, 3);
    img.PutPixel(4, 3, CPixel::FromWord(0x01010101));
    img.PutPixel(4, 9, CPixel::FromWord(0x02020202));
    img.PutPixel(11, 6, CPixel::FromWord(0x01010101));
    img.PutPixel(15, 6, CPixel::FromWord(0x03030303));
    CRegionTracker t;
    BuildTracker(t, img);

    // Swapping two pixels of one column keeps every column sum: the box spans the full width.
    img.PutPixel(4, 3, CPixel::FromWord(0x02020202));
    img.PutPixel(4, 9, CPixel::FromWord(0x01010101));
    EXPECT_EQ(TrackChanges(t, img), (CChangeRect{0, 3, 20, 10}));

    // Swapping two pixels of one row keeps every row sum: the box spans the full height.
    img.PutPixel(11, 6, CPixel::FromWord(0x03030303));
    img.PutPixel(15, 6, CPixel::FromWord(0x01010101));
    EXPECT_EQ(TrackChanges(t, img), (CChangeRect{11, 0, 16, 12}));
}

TEST(RegionTracker, SizeChangeAndInvalidTrackerRebuild)
{
    COLImage img = vmtest::Noise(16, 16, 1);
    CRegionTracker t;
    EXPECT_EQ(TrackChanges(t, img), (CChangeRect{-1, 0, 0, 0}));
    EXPECT_TRUE(t.IsValid());
    EXPECT_EQ(TrackChanges(t, img), (CChangeRect{0, 0, 0, 0}));

    COLImage bigger = vmtest::Noise(17, 16, 1);
    EXPECT_EQ(TrackChanges(t, bigger), (CChangeRect{-1, 0, 0, 0}));
    EXPECT_EQ(t.GetWidth(), 17u);
    EXPECT_EQ(TrackChanges(t, bigger), (CChangeRect{0, 0, 0, 0}));

    COLImage none;
    EXPECT_EQ(BuildTracker(t, none), 0);
    EXPECT_FALSE(t.IsValid());
}

TEST(RegionTracker, ChannelChangesAcrossTheFold)
{
    COLChannel ch = vmtest::Plane(50, 40, 129);
    CRegionTracker t;
    ASSERT_EQ(BuildTracker(t, ch), 1);
    // 129 -> 130 is one level up but folds from 129 to 1: seen.
    ch.SetValue(33, 38, 130);
    EXPECT_EQ(TrackChanges(t, ch), (CChangeRect{33, 38, 34, 39}));
    ch.SetValue(0, 0, 0);
    ch.SetValue(49, 39, 255);
    EXPECT_EQ(TrackChanges(t, ch), (CChangeRect{0, 0, 50, 40}));
    EXPECT_EQ(TrackChanges(t, ch), (CChangeRect{0, 0, 0, 0}));

    COLChannel other;
    other.Create(50, 41);
    EXPECT_EQ(TrackChanges(t, other), (CChangeRect{-1, 0, 0, 0}));
}

} // namespace
