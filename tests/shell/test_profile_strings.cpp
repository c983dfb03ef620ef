#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <strings.h>

#include "shell/app_globals.h"
#include "shell/app_paths.h"
#include "shell/profile.h"
#include "shell/string_table.h"
#include "support/test_support.h"

namespace {

std::string ReadText(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

void WriteText(const std::string& path, const std::string& text)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path) << text;
}

// The table's keys in their fixed order.
const char* const kExpectedKeys =
    "Tittle open save hideview tablayer tabmask tabhistory tabwizard can't_open createsel nohelp helpcrop "
    "helppolygonsel normalsel puresel inoutsel afteropen croptip polygonseltip outpolygonseltip inpolygonseltip "
    "modifypolygonseltip buildseltip buildseltext bkmodecolor bkmodeblock bkmodeimage erasesel eraseseltip "
    "helpfreesel freeseltip helprectsel rectseltip helproundsel roundseltip helpmagicsel magicseltip freepaint "
    "freepainthelp pickbkcolor pickbkhelp zoom zoomhelp bkmodemask chbk delbk mask sepbk isbkwarning except "
    "helptrans transtip transerr erase erasehelp erasewar algorithm olwarning TL_new TL_delete TL_mergedown bm_normal "
    "bm_darken bm_lighten bm_color bm_lum bm_mul bm_screen bm_overlay bm_hlit bm_slit bm_dif TL_open His_open "
    "His_select His_selectnone His_delete His_deleteinv Magic_tolerance His_deletelayer His_flatimage "
    "His_layerlocatechange His_layerpropertychange His_mergedownlayer His_newlayer His_openlayer His_selandproc "
    "His_curlayer His_bkpicker His_inout Ciop_namelimit texthelp texttip His_ImageSize His_CavasSize movtooltip "
    "movtoolhelp moverror Paste His_Feature His_FlipH His_FlipV His_RotateRight His_RotateLeft cameratooltip "
    "cameratoolhelp injecttip injecthelp injecterr smartadjtip smartadjhelp smartadjerr forepainttip forepainthelp "
    "fill cantsel isbktip isforetip olnotfound oldwonload orgshow cropsize vmdoc saveerr compressed openfiletype "
    "pluginask cannotsave selshink helpdesat desattip inpaint inpainterr savewar onlybaselayer backtocompose stroke "
    "TL_save leavesel movesel pickertip pickerhelp help blurbk lensblur batchpure diffsel openflatfiletype batover "
    "lastbat batnext oldplugin oldplugindetect normalseltip changebkimg expandsel tabBlue1 tabBlue2 tabBlue3 font "
    "nomask inputnum homesite tutorial_smarterase tutorial_compose tutorial_lensblur tutorial_inout tutorial_blue";

std::vector<std::string> ExpectedKeys()
{
    std::vector<std::string> keys;
    std::istringstream in(kExpectedKeys);
    std::string k;
    while (in >> k) {
        if (k == "can't_open") k = "can't open";
        keys.push_back(k);
    }
    return keys;
}

} // namespace

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
    int v = 0;
    EXPECT_TRUE(CProfile::ParseInt("0xFF808080", v));
    EXPECT_EQ(v, -8355712);
    EXPECT_TRUE(CProfile::ParseInt(" -12 ", v));
    EXPECT_EQ(v, -12);
    EXPECT_TRUE(CProfile::ParseInt("+7", v));
    EXPECT_EQ(v, 7);
    EXPECT_TRUE(CProfile::ParseInt("2147483647", v));
    EXPECT_EQ(v, 2147483647);
    EXPECT_FALSE(CProfile::ParseInt("2147483648", v));
    EXPECT_FALSE(CProfile::ParseInt("0x100000000", v));
    EXPECT_FALSE(CProfile::ParseInt("", v));
    EXPECT_FALSE(CProfile::ParseInt("0x", v));
    EXPECT_FALSE(CProfile::ParseInt("1 2", v));
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

TEST(ProfileDefaults, EveryKeyOfTheProgram)
{
    EXPECT_EQ(ProfileIntDefault("ForeColor"), 0);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(ProfileIntDefault("HisColor" + std::to_string(i)), 0);
    EXPECT_EQ(ProfileIntDefault("AfterOpenWizard"), 1);
    EXPECT_EQ(ProfileIntDefault("PureBk"), 1);
    EXPECT_EQ(ProfileIntDefault("DbSel"), 1);
    EXPECT_EQ(ProfileIntDefault("Check Result"), 1);
    EXPECT_EQ(ProfileIntDefault("bkcolor"), -8355712);
    EXPECT_EQ(static_cast<uint32_t>(ProfileIntDefault("bkcolor")), 0xFF808080u);
    EXPECT_EQ(ProfileIntDefault("bkblocktype"), 1);
    EXPECT_EQ(ProfileIntDefault("DarkColor"), 0);
    EXPECT_EQ(ProfileIntDefault("LightColor"), 0xFFFFFF);
    EXPECT_EQ(ProfileIntDefault("FontColor"), 0);
    EXPECT_EQ(ProfileIntDefault("BackColor"), 0xD2D2D2);
    EXPECT_EQ(ProfileIntDefault("BackLightColor"), 0xF0F0F0);
    EXPECT_EQ(ProfileIntDefault("BackDarkColor"), 0x808080);
    EXPECT_EQ(ProfileIntDefault("SelEraseTool_BrushSize"), 9);
    EXPECT_EQ(ProfileIntDefault("CameraTool_BrushSoft"), 50);
    EXPECT_EQ(ProfileIntDefault("DesatTool_BrushAlpha"), 100);
    EXPECT_EQ(ProfileIntDefault("_BrushSize"), 0); // no tool name: not a brush key
}

TEST(StringTable, ChineseTableHasEveryKeyInOrder)
{
    std::vector<StringRow> rows;
    FillStringTable(rows, ETextLanguage::kChinese);
    const std::vector<std::string> keys = ExpectedKeys();
    ASSERT_EQ(keys.size(), 168u);
    ASSERT_GE(rows.size(), keys.size());
    EXPECT_EQ(SharedStringRowCount(), keys.size());
    for (size_t i = 0; i < keys.size(); ++i)
        EXPECT_EQ(rows[i].m_key, keys[i]) << "row " << i;
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

TEST(StringTable, RowsFitTheirFieldsAndKeysAreUnique)
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
    }
}

TEST(StringTable, TextsTheProgramQuotes)
{
    std::vector<StringRow> rows;
    FillStringTable(rows, ETextLanguage::kChinese);
    auto text = [&](const char* key) { return FindStringRow(rows, key)->m_text; };
    EXPECT_EQ(text("Tittle"), "Velmorando");
    EXPECT_EQ(text("can't open"), "不能打开文件");
    EXPECT_EQ(text("savewar"), "此操作将放弃现在的编辑结果，继续吗？");
    EXPECT_EQ(text("except"), "发生异常，操作失败");
    EXPECT_EQ(text("saveerr"), "存储文件发生错误，请检查路径和写权限。");
    EXPECT_EQ(text("vmdoc"), "工程文件格式(*.vmpd)|*.vmpd||");
    EXPECT_EQ(text("openflatfiletype"), "所有支持格式|*.bmp;*.jpg;*.jpeg;*.gif;*.pcx;*.tif;*.tiff;*.tga;||");
    EXPECT_EQ(text("inputnum"), "请输入%d-%d的整数");
    EXPECT_EQ(text("cropsize"), "%d x %d,左:%d 右:%d 上:%d 下:%d");
    EXPECT_EQ(text("font"), "宋体");
    EXPECT_EQ(text("zoomhelp"), "按住Shift缩小，按住Ctrl成为漫游工具。\n"
                                "在任何时候，滚动鼠标滚轮或者利用热键Ctrl +/-可以实现放大缩小视图。");
    EXPECT_EQ(text("bm_mul"), "正片叠底");
    EXPECT_EQ(text("bm_dif"), "差值");
    // Every file filter ends with the two bars.
    for (ETextLanguage lang : {ETextLanguage::kChinese, ETextLanguage::kEnglish}) {
        std::vector<StringRow> r;
        FillStringTable(r, lang);
        for (const char* key : {"vmdoc", "openfiletype", "openflatfiletype"}) {
            const std::string& f = FindStringRow(r, key)->m_text;
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
