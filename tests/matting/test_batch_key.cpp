#include <gtest/gtest.h>

#include <filesystem>
#include <tuple>

#include "imaging/codec.h"
#include "matting/batch_key.h"
#include "support/engine_checks.h"
#include "support/test_support.h"

using namespace batchkey;

namespace {

using vmtest::Rgb;

// A green-screen picture: an orange block on a green backdrop.
COLImage GreenShot(uint32_t w, uint32_t h)
{
    return vmtest::Picture(w, h, [&](uint32_t x, uint32_t y) {
        return x > w / 3 && x < 2 * w / 3 && y > h / 3 ? Rgb(210, 120, 60) : Rgb(46, 168, 72);
    });
}

} // namespace

TEST(BatchKey, OutputPathRule)
{
    EXPECT_EQ(OutputPath("/out", "/in/photo.jpg", "", false), "/out/photo.png");
    EXPECT_EQ(OutputPath("/out/", "/in/photo.jpg", "", true), "/out/photo.png");
    EXPECT_EQ(OutputPath("/out", "/in/photo.jpg", "cut_", true), "/out/cut_photo.png");
    EXPECT_EQ(OutputPath("/out", "/in/photo.jpg", "_cut", false), "/out/photo_cut.png");
    EXPECT_EQ(OutputPath("/out", "/in/a.b.TIFF", "", false), "/out/a.b.png");
    EXPECT_EQ(OutputPath("/out", "/in/photo.png", "", false), "/out/photo.png");
    EXPECT_EQ(OutputPath("/out", "noext", "", false), "/out/noext.png");
    EXPECT_EQ(OutputPath("/out", "/in.d/.hidden", "", false), "/out/.hidden.png");
    EXPECT_EQ(OutputPath("", "photo.jpg", "", false), "photo.png");
}

TEST(BatchKey, ColourAtPercentReadsFourNeighbours)
{
    const COLImage img =
        vmtest::Picture(10, 10, [](uint32_t x, uint32_t y) { return Rgb(int(x * 20), int(y * 20), 7); });
    // 50 %: around (5, 5): left (4,5), right (6,5), below (5,6), above (5,4).
    CPixel c = ColourAtPercent(img, 50, 50);
    EXPECT_EQ(c.Word(), CPixel::Make(100, 100, 7).Word());
    // 0 %: x - 1 wraps to the last column through the clamped access: (9,0), (1,0), (0,1), (0,9).
    c = ColourAtPercent(img, 0, 0);
    EXPECT_EQ(c.red, (180 + 20 + 0 + 0) >> 2);
    EXPECT_EQ(c.green, (0 + 0 + 20 + 180) >> 2);
    // 100 %: x = 10 is beyond the picture; every read clamps to the last column and row.
    c = ColourAtPercent(img, 100, 100);
    EXPECT_EQ(c.Word(), CPixel::Make(180, 180, 7).Word());
    c = ColourAtPercent(img, 85, 85);   // (8, 8): (7,8), (9,8), (8,9), (8,7)
    EXPECT_EQ(c.red, (140 + 180 + 160 + 160) >> 2);
    EXPECT_EQ(c.alpha, 255);
}

TEST(BatchKey, ColourModes)
{
    COLImage img = GreenShot(120, 90);
    Settings s;
    EXPECT_EQ(ColourOfFile(img, s).Word(), 0xFF2EA848u);   // estimated from the border
    s.colourMode = kColourAtPoint;
    s.pickX = 50;
    s.pickY = 90;
    EXPECT_EQ(ColourOfFile(img, s).Word(), 0xFFD2783Cu);   // on the subject
    s.colourMode = kColourFixed;
    s.fixedColour = CPixel{1, 2, 3, 0};
    EXPECT_EQ(ColourOfFile(img, s).Word(), 0xFF030201u);
}

TEST(BatchKey, FileListKeepsOneEntryPerFile)
{
    vmtest::TempDir dir;
    vmtest::WriteAll(dir.File("a.jpg"), {1});
    std::vector<std::string> files;
    EXPECT_TRUE(AddFile(files, dir.File("a.jpg")));
    EXPECT_FALSE(AddFile(files, dir.File("a.jpg")));
    EXPECT_FALSE(AddFile(files, (dir.Path() / "." / "a.jpg").string()));
    EXPECT_TRUE(AddFile(files, dir.File("b.jpg")));
    EXPECT_EQ(files.size(), 2u);
}

TEST(BatchKey, FolderGivesItsPictures)
{
    vmtest::TempDir dir;
    for (const char* name : {"b.JPG", "a.tif", "c.png", "d.txt", "e.jpeg", "g.Tga", "h.psd", "i.vmpd", "png"})
        vmtest::WriteAll(dir.File(name), {1});
    std::filesystem::create_directory(dir.Path() / "sub");
    std::filesystem::create_directory(dir.Path() / "sub.png");
    vmtest::WriteAll((dir.Path() / "sub" / "f.jpg").string(), {1});
    const std::vector<std::string> found = PicturesInFolder(dir.Path().string());
    const std::vector<std::string> expected = {dir.File("a.tif"), dir.File("b.JPG"), dir.File("c.png"),
                                               dir.File("e.jpeg"), dir.File("g.Tga")};
    EXPECT_EQ(found, expected);
}

TEST(BatchKey, RunSkipsUnreadableFilesOverwritesResultsAndMakesItsFolder)
{
    vmtest::TempDir dir;
    COLImageCodec codec;
    COLImage shot = GreenShot(90, 60);
    ASSERT_TRUE(codec.SaveFile(dir.File("one.bmp").c_str(), &shot));
    ASSERT_TRUE(codec.SaveFile(dir.File("two.jpg").c_str(), &shot));
    vmtest::WriteAll(dir.File("broken.jpg"), {0xFF, 0xD8, 0xFF, 0xE0, 0, 0x10});
    const std::string out = dir.File("out");
    std::filesystem::create_directory(out);
    vmtest::WriteAll(out + "/one_key.png", {'o', 'l', 'd'});

    Settings s;
    s.outputDir = out;
    s.affix = "_key";
    std::vector<std::string> started, done;
    Listener listener;
    listener.onStart = [&](size_t i, size_t n, const std::string& p) {
        EXPECT_EQ(n, 3u);
        EXPECT_EQ(i, started.size());
        started.push_back(p);
    };
    listener.onDone = [&](size_t, size_t, const std::string&, const std::string& o) { done.push_back(o); };
    const std::vector<Failure> failures =
        batchkey::Run({dir.File("one.bmp"), dir.File("broken.jpg"), dir.File("two.jpg")}, s, listener);

    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].path, dir.File("broken.jpg"));
    EXPECT_EQ(started.size(), 3u);   // the run went on after the broken file
    ASSERT_EQ(done.size(), 2u);
    EXPECT_EQ(done[0], out + "/one_key.png");
    EXPECT_EQ(done[1], out + "/two_key.png");
    EXPECT_FALSE(std::filesystem::exists(out + "/broken_key.png"));

    COLImage result;
    ASSERT_TRUE(codec.LoadFile(done[0].c_str(), &result));   // the old file was replaced
    ASSERT_EQ(result.GetWidth(), 90u);
    // The unattended strength of 32 sets the threshold 4 below the backdrop's key: a flat backdrop keeps a
    // trace, which the low level of 32 mostly clears.
    EXPECT_LT(result.GetPixel2(2, 2).alpha, 16);
    EXPECT_EQ(result.GetPixel2(45, 50).alpha, 255);     // subject kept
    EXPECT_EQ(result.GetPixel2(45, 50).Word(), 0xFFD2783Cu);

    // A missing output folder is made, and a prefix goes before the name.
    s.outputDir = dir.File("new/deeper");
    s.affix = "x_";
    s.affixIsPrefix = true;
    EXPECT_TRUE(batchkey::Run({dir.File("one.bmp")}, s).empty());
    EXPECT_TRUE(std::filesystem::exists(dir.File("new/deeper/x_one.png")));
}
