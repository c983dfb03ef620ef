#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <string>

#include "imaging/codec.h"
#include "imaging/image.h"
#include "interchange/export.h"
#include "support/engine_checks.h"
#include "support/test_support.h"

namespace {

// What the codec must find in a file each writer made, judged by the file's content.
const std::map<std::string, uint32_t> kTypeOfFormat = {
    {"PNG", kFilePng}, {"JPEG", kFileJpeg}, {"BMP", kFileBmp}, {"TIFF", kFileTiff}, {"TGA", kFileTga},
};

// The extensions a format lists, split at each blank.
std::vector<std::string> Extensions(const ExportFormat& f)
{
    std::istringstream list(f.extensions);
    std::vector<std::string> out;
    for (std::string extension; std::getline(list, extension, ' ');)
        out.push_back(extension);
    return out;
}

// A smooth picture (JPEG keeps it close) with a transparent band.
COLImage MakePicture()
{
    return vmtest::Picture(24, 16, [](uint32_t x, uint32_t y) {
        return CPixel::Make(uint8_t(40 + x * 4), uint8_t(90 + y * 3), 120, y < 4 ? 0 : 255);
    });
}

TEST(Export, EveryExtensionOfTheTableWritesItsFormat)
{
    vmtest::TempDir dir;
    const COLImage source = MakePicture();
    ASSERT_EQ(ExportFormatCount(), kTypeOfFormat.size());
    for (size_t i = 0; i < ExportFormatCount(); ++i) {
        const ExportFormat& format = GetExportFormat(i);
        ASSERT_TRUE(kTypeOfFormat.count(format.name)) << format.name;
        for (const std::string& ext : Extensions(format)) {
            // Upper case too: cameras name their photos ".JPG".
            for (const std::string& name :
                 {"a." + ext, "B." + ext, "c." + std::string(1, char(toupper(ext[0]))) + ext.substr(1)}) {
                SCOPED_TRACE(name);
                const std::string path = dir.File(name);
                EXPECT_EQ(FindExportFormat(path), &format);
                ASSERT_EQ(ExportPicture(path, source), EExportResult::kOk);
                EXPECT_EQ(COLImageCodec::GetFileType(path.c_str()), kTypeOfFormat.at(format.name));
                COLImage back;
                ASSERT_EQ(COLImageCodec().LoadFile(path.c_str(), &back), 1);
                ASSERT_EQ(vmtest::Size(back), "24x16");
                if (format.keepsAlpha) {
                    EXPECT_TRUE(vmtest::SamePixels(source, back));
                } else {
                    EXPECT_EQ(back.GetPixel2(0, 0).alpha, 255);
                    EXPECT_LE(vmtest::MaxColourDifference(source, back), std::string(format.name) == "JPEG" ? 8 : 0);
                }
            }
        }
    }
}

TEST(Export, NamesWithoutAWriter)
{
    vmtest::TempDir dir;
    const COLImage source = MakePicture();
    for (const char* name : {"picture", ".png", "picture.gif", "picture.png.bak", "shot.jpg jpeg", "folder.png/"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(FindExportFormat(dir.File(name)), nullptr);
        EXPECT_EQ(ExportPicture(dir.File(name), source), EExportResult::kUnknownFormat);
        EXPECT_FALSE(std::filesystem::exists(dir.File(name)));
    }
    // A dot in a folder's name is not the file's extension.
    EXPECT_EQ(FindExportFormat("/tmp/shots.png/picture"), nullptr);
    EXPECT_NE(FindExportFormat("/tmp/shots.v2/picture.tga"), nullptr);
}

TEST(Export, AButtonsFormatNamesAFileThatHasNone)
{
    const ExportFormat* png = FindExportFormat("x.png");
    const ExportFormat* jpeg = FindExportFormat("x.jpg");
    ASSERT_TRUE(png && jpeg);
    EXPECT_EQ(WithExportExtension("/a/cut", *png), "/a/cut.png");
    EXPECT_EQ(WithExportExtension("/a/cut.final", *png), "/a/cut.final.png");
    // A name the user gave a known extension keeps it, even another format's.
    EXPECT_EQ(WithExportExtension("/a/cut.TIF", *png), "/a/cut.TIF");
    EXPECT_EQ(WithExportExtension("/a/cut.jpeg", *jpeg), "/a/cut.jpeg");
}

TEST(Export, FailuresLeaveNothingBehind)
{
    vmtest::TempDir dir;
    const COLImage source = MakePicture(), empty;
    EXPECT_EQ(ExportPicture(dir.File("none.png"), empty), EExportResult::kNothingToWrite);
    EXPECT_FALSE(std::filesystem::exists(dir.File("none.png")));
    EXPECT_EQ(ExportPicture(dir.File("no/such/folder/x.tif"), source), EExportResult::kWriteFailed);

    // A good file stays as it was when the next write of that name cannot happen.
    ASSERT_EQ(ExportPicture(dir.File("keep.bmp"), source), EExportResult::kOk);
    const std::vector<uint8_t> before = vmtest::ReadAll(dir.File("keep.bmp"));
    EXPECT_EQ(ExportPicture(dir.File("keep.bmp"), empty), EExportResult::kNothingToWrite);
    EXPECT_EQ(vmtest::ReadAll(dir.File("keep.bmp")), before);
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(dir.Path(), ec))
        EXPECT_EQ(entry.path().filename(), "keep.bmp") << "a temporary was left behind";
}

TEST(Export, JpegQualityReachesTheFile)
{
    vmtest::TempDir dir;
    const COLImage noise = vmtest::Noise(64, 64, 7);
    // The size of the file written at that quality.
    const auto sizeAt = [&](int quality) {
        ExportOptions options;
        options.jpegQuality = quality;
        const std::string path = dir.File("q" + std::to_string(quality) + ".jpg");
        EXPECT_EQ(ExportPicture(path, noise, options), EExportResult::kOk) << quality;
        return std::filesystem::file_size(path);
    };
    EXPECT_LT(sizeAt(10), sizeAt(95));
    EXPECT_LE(sizeAt(0), sizeAt(10)); // a slider at its left end: treated as 1, not refused
    // Above 100 the colour is kept at full resolution: a larger file at the same quality.
    EXPECT_GT(sizeAt(195), sizeAt(95));
}

} // namespace
