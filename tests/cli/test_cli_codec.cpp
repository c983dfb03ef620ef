#include <gtest/gtest.h>
#include <string>

#include "imaging/codec.h"
#include "support/test_support.h"

using vmtest::CliResult;
using vmtest::Quote;
using vmtest::RunCli;

namespace {

TEST(CliCodec, InfoNamesTypeSizeAndAlpha)
{
    CliResult r = RunCli("info " + Quote(vmtest::AssetPath("samples/sample.jpg")));
    EXPECT_EQ(r.exitCode, 0) << r.output;
    EXPECT_NE(r.output.find("JPEG (type 2), 451 x 300, opaque"), std::string::npos) << r.output;
    r = RunCli("info " + Quote(vmtest::DataPath("codec/png-interlaced.png")));
    EXPECT_EQ(r.exitCode, 0) << r.output;
    EXPECT_NE(r.output.find("PNG (type 7), 32 x 24, with alpha"), std::string::npos) << r.output;
    r = RunCli("info " + Quote(vmtest::DataPath("codec/pcx-rgb24.pcx")));
    EXPECT_NE(r.output.find("PCX (type 4)"), std::string::npos) << r.output;

    vmtest::TempDir dir;
    vmtest::WriteAll(dir.File("a.psd"),
                     {'8', 'B', 'P', 'S', 0, 1, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 9, 0, 0, 0, 7, 0, 8, 0, 3});
    r = RunCli("info " + Quote(dir.File("a.psd")));
    // A header alone: its size is shown, and the missing rest is an error.
    EXPECT_EQ(r.exitCode, 1) << r.output;
    EXPECT_NE(r.output.find("PSD (type 254), 7 x 9"), std::string::npos) << r.output;
    vmtest::WriteAll(dir.File("notes.txt"), {'h', 'i'});
    r = RunCli("info " + Quote(dir.File("notes.txt")));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.output.find("type 10"), std::string::npos) << r.output;
    std::vector<uint8_t> cut = vmtest::ReadAll(vmtest::DataPath("codec/png-interlaced.png"));
    cut.resize(cut.size() / 2);
    vmtest::WriteAll(dir.File("cut.png"), cut);
    r = RunCli("info " + Quote(dir.File("cut.png")));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.output.find("damaged"), std::string::npos) << r.output;
    r = RunCli("info " + Quote(dir.File("missing.bmp")));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.output.find("error"), std::string::npos) << r.output;
    EXPECT_EQ(RunCli("info").exitCode, 2);
}

TEST(CliCodec, ConvertChoosesTheWriterByExtension)
{
    vmtest::TempDir dir;
    const std::string src = Quote(vmtest::DataPath("codec/png-interlaced.png"));
    COLImageCodec codec;
    for (const char* name : {"out.png", "out.jpg", "out.bmp", "out.tif", "out.tga"}) {
        SCOPED_TRACE(name);
        CliResult r = RunCli("convert " + src + " " + Quote(dir.File(name)));
        ASSERT_EQ(r.exitCode, 0) << r.output;
        COLImage img;
        ASSERT_EQ(codec.LoadFile(dir.File(name).c_str(), &img), 1);
        EXPECT_EQ(img.GetWidth(), 32u);
        bool transparent = false;
        for (size_t i = 0; i < img.GetPixelCount(); ++i)
            transparent |= img.GetBuffer()[i].alpha != 255;
        EXPECT_EQ(transparent, std::string(name) == "out.png"); // only PNG keeps alpha
    }
    EXPECT_EQ(COLImageCodec::GetFileType(dir.File("out.tga").c_str()), kFileTga);

    CliResult r = RunCli("convert " + src + " " + Quote(dir.File("q.jpg")) + " --quality 150");
    EXPECT_EQ(r.exitCode, 0) << r.output;
    r = RunCli("convert " + src + " " + Quote(dir.File("q.jpg")) + " --quality 0");
    EXPECT_EQ(r.exitCode, 2);
    r = RunCli("convert " + src + " " + Quote(dir.File("out.gif")));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.output.find("cannot write"), std::string::npos) << r.output;
    r = RunCli("convert " + Quote(dir.File("missing.png")) + " " + Quote(dir.File("x.png")));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.output.find("cannot read"), std::string::npos) << r.output;
    r = RunCli("convert " + src + " " + Quote(dir.File("no/such/folder/x.png")));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.output.find("cannot write"), std::string::npos) << r.output;
    r = RunCli("convert " + src);
    EXPECT_EQ(r.exitCode, 2);
}

} // namespace
