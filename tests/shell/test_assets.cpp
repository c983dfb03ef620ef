#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>

#include "imaging/image.h"
#include "shell/string_table.h"
#include "support/test_support.h"

namespace fs = std::filesystem;

TEST(Assets, BitmapsLoadWithTheProgramsOwnReader)
{
    COLImage buttons, splash;
    ASSERT_EQ(buttons.LoadFromFile(vmtest::AssetPath("skin/btnst.bmp").c_str()), kOk);
    EXPECT_EQ(vmtest::Size(buttons), "96x24");
    ASSERT_EQ(splash.LoadFromFile(vmtest::AssetPath("skin/start.lgb").c_str()), kOk);
    EXPECT_EQ(vmtest::Size(splash), "480x300");
    // Not a blank picture: the splash has its dark background and light lettering.
    uint32_t darkest = 255 * 3, lightest = 0;
    for (size_t i = 0; i < splash.GetPixelCount(); ++i) {
        const CPixel p = splash.GetBuffer()[i];
        darkest = std::min<uint32_t>(darkest, p.red + p.green + p.blue);
        lightest = std::max<uint32_t>(lightest, p.red + p.green + p.blue);
    }
    EXPECT_LT(darkest, 150u);
    EXPECT_GT(lightest, 700u);
}

TEST(Assets, HelpPagesOfTheTableExist)
{
    std::vector<StringRow> rows;
    FillStringTable(rows, ETextLanguage::kChinese);
    for (const char* key : {"oldwonload", "homesite", "tutorial_smarterase", "tutorial_compose", "tutorial_lensblur",
                            "tutorial_inout", "tutorial_blue"})
        EXPECT_TRUE(fs::is_regular_file(vmtest::AssetPath(FindStringRow(rows, key)->m_text))) << key;
    for (const char* page : {"PureBk.htm", "DoubleSel.htm", "checkresult.htm"})
        EXPECT_TRUE(fs::is_regular_file(vmtest::AssetPath("help/" + std::string(page)))) << page;
}

// Every skin picture the program names is made by the generator: each one it makes must be committed as made.
TEST(Assets, GeneratorReproducesTheCommittedSkin)
{
    if (std::system("python3 --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "no python3";
    vmtest::TempDir dir;
    const std::string script = vmtest::AssetPath("../scripts/make-skin.py");
    ASSERT_EQ(std::system((vmtest::Quote(script) + " " + vmtest::Quote(dir.Path().string())).c_str()), 0);
    size_t compared = 0;
    for (const auto& entry : fs::recursive_directory_iterator(dir.Path())) {
        if (!entry.is_regular_file()) continue;
        const fs::path rel = fs::relative(entry.path(), dir.Path());
        EXPECT_EQ(vmtest::ReadAll(entry.path().string()), vmtest::ReadAll(vmtest::AssetPath("skin/" + rel.string())))
            << rel;
        ++compared;
    }
    EXPECT_GE(compared, 26u);
}
