#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "imaging/image.h"
#include "matting/refined_key.h"
#include "support/cli_checks.h"
#include "support/pictures.h"
#include "tools/bk_picker_tool.h"

using vmtest::Quote;

TEST(CliReplayPicker, BackdropPickerKeysTheGreenScreenLikeTheEngine)
{
    vmtest::TempDir dir;
    const std::string in = vmtest::DataPath("matting/key_green.png");
    const std::string script = dir.File("script.txt"), mask = dir.File("result.png"), out = dir.File("out.png");
    std::ofstream(script) << "mode select chroma\n"
                             "tool picker        # the backdrop picker\n"
                             "down 12 10\n"
                             "up 12 10\n"
                             "save-mask result " + mask + "\n"
                             "mode compose keep\n";
    vmtest::RunOk("replay " + Quote(in) + " " + Quote(script) + " -o " + Quote(out));

    COLImage picture = vmtest::Load(in);
    ASSERT_FALSE(picture.IsNull());
    COLImage result;
    ChromaKeySettings settings;
    settings.params.backdrop = CBkPickerTool::PickColour(picture, 12, 10);
    ASSERT_EQ(RunBackdropKey(settings, picture, result), kOk);
    const std::vector<uint8_t> expected = vmtest::SquaredAlpha(result);
    EXPECT_EQ(vmtest::GrayBytes(mask), expected);
    EXPECT_EQ(expected.front(), 0) << "the corner is backdrop";
}
