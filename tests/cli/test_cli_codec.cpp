#include <gtest/gtest.h>
#include <string>

#include "imaging/codec.h"
#include "support/cli_checks.h"

using vmtest::ExpectCli;
using vmtest::Quote;

namespace {

TEST(CliCodec, InfoNamesTypeSizeAndAlpha)
{
    vmtest::TempDir dir;
    // A PSD header alone: its size is shown, and the missing rest is an error.
    vmtest::WriteAll(dir.File("a.psd"),
                     {'8', 'B', 'P', 'S', 0, 1, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 9, 0, 0, 0, 7, 0, 8, 0, 3});
    vmtest::WriteAll(dir.File("notes.txt"), {'h', 'i'});
    std::vector<uint8_t> cut = vmtest::ReadAll(vmtest::DataPath("codec/png-interlaced.png"));
    cut.resize(cut.size() / 2);
    vmtest::WriteAll(dir.File("cut.png"), cut);
    ExpectCli({
        {"info " + Quote(vmtest::AssetPath("samples/sample.jpg")), 0, "JPEG (type 2), 451 x 300, opaque"},
        {"info " + Quote(vmtest::DataPath("codec/png-interlaced.png")), 0, "PNG (type 7), 32 x 24, with alpha"},
        {"info " + Quote(vmtest::DataPath("codec/pcx-rgb24.pcx")), 0, "PCX (type 4)"},
        {"info " + Quote(dir.File("a.psd")), 1, "PSD (type 254), 7 x 9"},
        {"info " + Quote(dir.File("notes.txt")), 1, "type 10"},
        {"info " + Quote(dir.File("cut.png")), 1, "damaged"},
        {"info " + Quote(dir.File("missing.bmp")), 1, "error"},
        {"info", 2, ""},
    });
}

TEST(CliCodec, ConvertChoosesTheWriterByExtension)
{
    vmtest::TempDir dir;
    const std::string src = Quote(vmtest::DataPath("codec/png-interlaced.png"));
    const COLImage opaque = vmtest::Solid(32, 24, vmtest::Rgb(0, 0, 0));
    for (const char* name : {"out.png", "out.jpg", "out.bmp", "out.tif", "out.tga"}) {
        SCOPED_TRACE(name);
        vmtest::RunOk("convert " + src + " " + Quote(dir.File(name)));
        const int alpha = vmtest::MaxAlphaDifference(opaque, vmtest::Load(dir.File(name))); // -1: another size
        ASSERT_GE(alpha, 0);
        EXPECT_EQ(alpha > 0, std::string(name) == "out.png"); // only PNG keeps alpha
    }
    EXPECT_EQ(COLImageCodec::GetFileType(dir.File("out.tga").c_str()), kFileTga);

    ExpectCli({
        {"convert " + src + " " + Quote(dir.File("q.jpg")) + " --quality 150", 0, ""},
        {"convert " + src + " " + Quote(dir.File("q.jpg")) + " --quality 0", 2, ""},
        {"convert " + src + " " + Quote(dir.File("out.gif")), 1, "cannot write"},
        {"convert " + Quote(dir.File("missing.png")) + " " + Quote(dir.File("x.png")), 1, "cannot read"},
        {"convert " + src + " " + Quote(dir.File("no/such/folder/x.png")), 1, "cannot write"},
        {"convert " + src, 2, ""},
    });
}

} // namespace
