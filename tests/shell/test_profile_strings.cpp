#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <strings.h>

#include "gui_support.h"
#include "shell/app_globals.h"
#include "shell/app_paths.h"
#include "shell/profile.h"
#include "shell/string_table.h"
#include "support/test_support.h"

using vmtest::ReadText;
using vmtest::WriteText;

TEST(Profile, MissingFileReadsAsEmptyAndIsMadeOnFirstWrite)
{
    vmtest::TempDir dir;
    const std::string path = dir.File("conf/velmorando/Velmorando.ini");
    CProfile p;
    EXPECT_TRUE(p.Load(path));
    EXPECT_EQ(p.GetInt("Int", "AfterOpenWizard", 7), 7);
    EXPECT_EQ(p.GetStr("Str", "x", "dflt"), "dflt");
    EXPECT_FALSE(std::filesystem::exists(path));

    ASSERT_TRUE(p.SetInt("Int", "Check Result", 0));
    ASSERT_TRUE(p.SetStr("Str", "Language", "en"));
    ASSERT_TRUE(std::filesystem::exists(path));
    EXPECT_EQ(ReadText(path), "[Int]\nCheck Result=0\n\n[Str]\nLanguage=en\n");

    CProfile again;
    ASSERT_TRUE(again.Load(path));
    EXPECT_EQ(again.GetInt("int", "check result", 1), 0);
    EXPECT_EQ(again.GetStr("STR", "LANGUAGE", ""), "en");
}

TEST(Profile, HandWrittenFileWithSpacesCommentsAndCase)
{
    vmtest::TempDir dir;
    const std::string path = dir.File("p.ini");
    WriteText(path, "\xEF\xBB\xBF; made by hand\r\n[int]\r\n  DarkColor = 0x102030 \r\nbkcolor=-8355712\r\n"
                    "Check Result=0\r\nbroken=12abc\r\nbkcolor=5\r\n\r\n[Str]\r\nfont=\"Noto Sans\"\r\n");
    CProfile p;
    ASSERT_TRUE(p.Load(path));
    EXPECT_EQ(p.GetInt("Int", "DarkColor", 0), 0x102030);
    EXPECT_EQ(p.GetInt("Int", "bkcolor", 0), -8355712); // the first of two wins
    EXPECT_EQ(p.GetInt("Int", "Check Result", 1), 0);
    EXPECT_EQ(p.GetInt("Int", "broken", 42), 42); // not a number: the default
    EXPECT_EQ(p.GetStr("Str", "font", ""), "Noto Sans");

    // A write keeps what was there and changes only its own key.
    ASSERT_TRUE(p.SetInt("Int", "darkcolor", 255));
    CProfile again;
    ASSERT_TRUE(again.Load(path));
    EXPECT_EQ(again.GetInt("Int", "DarkColor", 0), 255);
    EXPECT_EQ(again.GetInt("Int", "bkcolor", 0), -8355712);
    EXPECT_EQ(again.GetStr("Str", "font", ""), "Noto Sans");
    EXPECT_NE(ReadText(path).find("DarkColor=255"), std::string::npos); // spelling of the first writer kept
}

TEST(Profile, NumberForms)
{
    const std::pair<const char*, int> good[] = {
        {"0xFF808080", -8355712}, {" -12 ", -12}, {"+7", 7}, {"2147483647", 2147483647}};
    for (const auto& [text, expected] : good) {
        int v = 0;
        EXPECT_TRUE(CProfile::ParseInt(text, v)) << text;
        EXPECT_EQ(v, expected) << text;
    }
    int v = 0;
    for (const char* bad : {"2147483648", "0x100000000", "", "0x", "1 2"})
        EXPECT_FALSE(CProfile::ParseInt(bad, v)) << bad;
}

TEST(Profile, ValueWithLineBreakStaysOneEntry)
{
    vmtest::TempDir dir;
    CProfile p;
    p.Load(dir.File("p.ini"));
    ASSERT_TRUE(p.SetStr("Str", "a", "one\ntwo=three"));
    ASSERT_TRUE(p.SetStr("Str", "b", "x"));
    CProfile again;
    again.Load(dir.File("p.ini"));
    EXPECT_EQ(again.GetStr("Str", "a", ""), "one two=three");
    EXPECT_FALSE(again.Has("Str", "two"));
}

TEST(StringTable, EnglishTableKeepsTheKeysAndAddsTheMissingOnes)
{
    std::vector<StringRow> zh, en;
    FillStringTable(zh, ETextLanguage::kChinese);
    FillStringTable(en, ETextLanguage::kEnglish);
    ASSERT_GT(en.size(), zh.size());
    for (size_t i = 0; i < zh.size(); ++i)
        EXPECT_EQ(en[i].m_key, zh[i].m_key);
    for (const char* key : {"expect", "inoutoptimize", "afterinoutoptimize", "smartin"}) {
        EXPECT_EQ(FindStringRow(zh, key), nullptr) << key;
        ASSERT_NE(FindStringRow(en, key), nullptr) << key;
        EXPECT_FALSE(FindStringRow(en, key)->m_text.empty()) << key;
    }
}

TEST(StringTable, RowsFitTheirFieldsKeysAreUniqueAndFiltersEndWithTwoBars)
{
    for (ETextLanguage lang : {ETextLanguage::kChinese, ETextLanguage::kEnglish}) {
        std::vector<StringRow> rows;
        FillStringTable(rows, lang);
        std::set<std::string> seen;
        for (const StringRow& r : rows) {
            EXPECT_LE(r.m_key.size(), kMaxStringKey) << r.m_key;
            // UTF-8 is never shorter than GBK, so this also bounds the GBK form.
            EXPECT_LE(r.m_text.size(), kMaxStringText) << r.m_key;
            EXPECT_FALSE(r.m_text.empty()) << r.m_key;
            std::string lower = r.m_key;
            for (char& c : lower)
                c = char(tolower(c));
            EXPECT_TRUE(seen.insert(lower).second) << "a second row would never be reached: " << r.m_key;
        }
        // The file dialogs' filters end with their two bars.
        for (const char* key : {"vmdoc", "openfiletype", "openflatfiletype"}) {
            const std::string& f = FindStringRow(rows, key)->m_text;
            EXPECT_EQ(f.substr(f.size() - 2), "||") << key;
        }
    }
}

TEST(StringTable, LanguageChoice)
{
    EXPECT_EQ(ChooseLanguage("", "zh_CN.UTF-8"), ETextLanguage::kChinese);
    EXPECT_EQ(ChooseLanguage("", "en_GB.UTF-8"), ETextLanguage::kEnglish);
    EXPECT_EQ(ChooseLanguage("", ""), ETextLanguage::kEnglish);
    EXPECT_EQ(ChooseLanguage("zh", "en_US.UTF-8"), ETextLanguage::kChinese);
    EXPECT_EQ(ChooseLanguage("English", "zh_TW"), ETextLanguage::kEnglish);
    EXPECT_EQ(ChooseLanguage("klingon", "zh_CN"), ETextLanguage::kChinese); // an unknown choice leaves the locale
}

class AppGlobalsTest : public ::testing::Test {
protected:
    void Init(const std::string& language = "zh")
    {
        m_app.Init({vmtest::AssetPath(""), m_dir.File("cfg/Velmorando.ini"), language});
    }
    vmtest::TempDir m_dir;
    CAppGlobals m_app;
};

TEST_F(AppGlobalsTest, GetStringLooksUpSpecialKeysTableThenProfile)
{
    WriteText(m_dir.File("cfg/Velmorando.ini"), "[Str]\nmyown=from the profile\nsavewar=not this one\n");
    Init();
    EXPECT_EQ(&m_app, AppGlobals());
    EXPECT_EQ(m_app.GetString("TITTLE"), "Velmorando");
    EXPECT_EQ(m_app.GetString("tittle"), "Velmorando");
    for (const char* k : {"Workdir", "workdir", "WorkDir"})
        EXPECT_EQ(m_app.GetString(k), m_app.GetWorkDir());
    EXPECT_EQ(m_app.GetWorkDir().back(), '/');
    EXPECT_EQ(m_app.GetString("profile"), m_dir.File("cfg/Velmorando.ini"));
    EXPECT_EQ(m_app.GetString("myown"), "from the profile");
    EXPECT_EQ(m_app.GetString("savewar"), "此操作将放弃现在的编辑结果，继续吗？"); // the table comes first
    EXPECT_EQ(m_app.GetString("no such key"), "");
    EXPECT_EQ(m_app.GetString("expect"), "");
    EXPECT_EQ(GetString("Tittle"), "Velmorando");
}

TEST_F(AppGlobalsTest, ProfileLanguageChoosesTheEnglishTable)
{
    WriteText(m_dir.File("cfg/Velmorando.ini"), "[Str]\nLanguage=en\n");
    Init("");
    EXPECT_EQ(m_app.GetLanguage(), ETextLanguage::kEnglish);
    EXPECT_EQ(m_app.GetString("savewar"), "This will discard your current edits. Continue?");
    EXPECT_FALSE(m_app.GetString("expect").empty());
}

TEST_F(AppGlobalsTest, EmptyProfileGivesDefaultsAndForeColourIsWrittenAtTheEnd)
{
    Init();
    EXPECT_EQ(m_app.GetProfileInt("AfterOpenWizard"), 1);
    EXPECT_EQ(m_app.GetProfileInt("Check Result"), 1);
    EXPECT_EQ(m_app.GetProfileInt("BackColor"), 0xD2D2D2);
    // Colours are stored as signed numbers: the opaque gray backdrop reads back negative.
    EXPECT_EQ(static_cast<uint32_t>(m_app.GetProfileInt("bkcolor")), 0xFF808080u);
    EXPECT_EQ(m_app.GetProfileInt("SelEraseTool_BrushSize"), 9);
    EXPECT_EQ(m_app.GetProfileInt("CameraTool_BrushSoft"), 50);
    EXPECT_EQ(m_app.GetProfileInt("_BrushSize"), 0); // no tool name: not a brush key
    EXPECT_EQ(m_app.m_foreColor.Word(), 0xFF000000u);
    EXPECT_EQ(m_app.GetSkinPath("btnst.bmp"), m_app.GetWorkDir() + "skin/btnst.bmp");
    EXPECT_FALSE(std::filesystem::exists(m_dir.File("cfg/Velmorando.ini")));
}

TEST(AppGlobals, ForeColourRoundTripsWithoutAlpha)
{
    vmtest::TempDir dir;
    const std::string ini = dir.File("Velmorando.ini");
    {
        CAppGlobals app;
        app.Init({vmtest::AssetPath(""), ini, "zh"});
        app.m_foreColor = CPixel::Make(0x12, 0x34, 0x56, 0x78);
    }
    EXPECT_NE(ReadText(ini).find("ForeColor=" + std::to_string(0x123456)), std::string::npos);
    CAppGlobals app;
    app.Init({vmtest::AssetPath(""), ini, "zh"});
    EXPECT_EQ(app.m_foreColor.Word(), 0xFF123456u);
}

TEST(AppPaths, WorkFolderIsWhereTheSkinIs)
{
    vmtest::TempDir dir;
    std::filesystem::create_directories(dir.File("b/skin"));
    WriteText(dir.File("b/skin/btnst.bmp"), "BM");
    EXPECT_EQ(FindWorkDir({dir.File("a"), dir.File("b")}), std::filesystem::canonical(dir.File("b")).string() + "/");
    EXPECT_EQ(FindWorkDir({dir.File("a"), dir.File("c")}), dir.File("a") + "/"); // none: the first
}

TEST(AppPaths, ConfigFolderFollowsXdg)
{
    const char* old = std::getenv("XDG_CONFIG_HOME");
    const std::string saved = old ? old : "";
    setenv("XDG_CONFIG_HOME", "/somewhere/cfg", 1);
    EXPECT_EQ(DefaultProfilePath(), "/somewhere/cfg/velmorando/Velmorando.ini");
    setenv("XDG_CONFIG_HOME", "relative/is/ignored", 1);
    EXPECT_EQ(ConfigDirectory(), std::string(std::getenv("HOME")) + "/.config");
    if (old)
        setenv("XDG_CONFIG_HOME", saved.c_str(), 1);
    else
        unsetenv("XDG_CONFIG_HOME");
}
