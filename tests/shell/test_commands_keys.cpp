#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <vector>

#include "gui_support.h"
#include "shell/command_line.h"
#include "shell/file_filter.h"
#include "shell/key_map.h"
#include "shell/menu_table.h"
#include "support/test_support.h"

TEST(CommandLine, PathsQuotesAndPluginSwitch)
{
    const struct {
        const char* text;
        bool plugin;
        int digit;
        const char* path;
    } cases[] = {
        {"   /home/u/a.jpg", false, 0, "/home/u/a.jpg"},
        {"\"/home/u/my photo.jpg\" ignored", false, 0, "/home/u/my photo.jpg"},
        {"\"/home/u/my photo.jpg", false, 0, "/home/u/my photo.jpg"}, // no closing quote: to the end of the text
        {"-i0 /tmp/x.raw", true, 0, "/tmp/x.raw"},
        {"  -I1   \"/tmp/a b.raw\"", true, 1, "/tmp/a b.raw"}, // capitals too
        {"-i0   ", false, 0, ""},                              // nothing to open: plug-in mode off
        {"", false, 0, ""},
        {"\"\"", false, 0, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const ShellCommandLine got = ParseCommandLine(c.text);
        EXPECT_EQ(got.pluginMode, c.plugin);
        if (c.plugin) {
            EXPECT_EQ(got.methodDigit, c.digit);
        }
        EXPECT_EQ(got.path, c.path);
    }
}

TEST(CommandLine, ArgumentsBecomeTheCommandText)
{
    EXPECT_EQ(JoinArguments({}), "");
    EXPECT_EQ(JoinArguments({"/a/b c.jpg", "/second.jpg"}), "\"/a/b c.jpg\"");
    EXPECT_EQ(JoinArguments({"-i0", "/t/x y.raw"}), "-i0 \"/t/x y.raw\"");
    EXPECT_EQ(JoinArguments({"-i1/t/x.raw"}), "-i1 /t/x.raw");
    ShellCommandLine c = ParseCommandLine(JoinArguments({"-i1", "/t/with space.raw"}));
    EXPECT_TRUE(c.pluginMode);
    EXPECT_EQ(c.methodDigit, 1);
    EXPECT_EQ(c.path, "/t/with space.raw");
}

namespace {

CPixel HostColour(uint32_t x, uint32_t y)
{
    return CPixel::Make(uint8_t(10 * x + y), uint8_t(100 + x), uint8_t(200 + y));
}

} // namespace

TEST(HostImage, ThreeAndFourBytesPerPixel)
{
    vmtest::TempDir dir;
    for (int bpp : {3, 4}) {
        const std::string path = dir.File("host" + std::to_string(bpp));
        vmtest::WriteAll(path, vmtest::HostFile(5, 3, bpp, 3, HostColour));
        COLImage img;
        uint32_t got = 0;
        ASSERT_TRUE(ReadHostImage(path, img, 0xFF000000u, got));
        EXPECT_EQ(got, uint32_t(bpp));
        EXPECT_TRUE(vmtest::SamePixels(img, vmtest::Picture(5, 3, HostColour))) << vmtest::Size(img);
    }
}

TEST(HostImage, ShortFileKeepsTheFillAndBadHeadersFail)
{
    vmtest::TempDir dir;
    std::vector<uint8_t> bytes = vmtest::HostFile(4, 4, 3, 2, HostColour);
    bytes.resize(bytes.size() + 5); // half a third row
    vmtest::WriteAll(dir.File("short"), bytes);
    COLImage img;
    uint32_t bpp = 0;
    ASSERT_TRUE(ReadHostImage(dir.File("short"), img, 0xFF336699u, bpp));
    EXPECT_EQ(img.GetPixel(0, 1), CPixel::Make(1, 100, 201).Word());
    EXPECT_EQ(img.GetPixel(0, 2), 0xFF336699u); // the short row is not used
    EXPECT_EQ(img.GetPixel(3, 3), 0xFF336699u);

    vmtest::WriteAll(dir.File("tiny"), {1, 0, 0});
    EXPECT_FALSE(ReadHostImage(dir.File("tiny"), img, 0, bpp));
    vmtest::WriteAll(dir.File("zero"), vmtest::HostFile(0, 5, 3, 0, HostColour));
    EXPECT_FALSE(ReadHostImage(dir.File("zero"), img, 0, bpp));
    vmtest::WriteAll(dir.File("huge"), vmtest::HostFile(20001, 1, 3, 0, HostColour));
    EXPECT_FALSE(ReadHostImage(dir.File("huge"), img, 0, bpp));
    std::vector<uint8_t> negative = vmtest::HostFile(2, 2, 3, 2, HostColour);
    negative[7] = 0x80; // a negative height
    vmtest::WriteAll(dir.File("negative"), negative);
    EXPECT_FALSE(ReadHostImage(dir.File("negative"), img, 0, bpp));
    EXPECT_FALSE(ReadHostImage(dir.File("missing"), img, 0, bpp));
}

TEST(Shortcuts, ComposeModeRulesBeyondTheTable)
{
    auto cmd = [](int key, bool ctrl, bool shift) { return MapShortcut(key, ctrl, shift, false).command; };
    EXPECT_EQ(cmd('I', true, true), "Doc_SelectInverse");
    EXPECT_EQ(MapShortcut('I', true, false, false).action, EKeyAction::kNone); // Ctrl+I alone is the tool's
    EXPECT_EQ(cmd('Z', true, false), "UI_HistoryBackward");
    EXPECT_EQ(cmd('Z', true, true), "UI_HistoryForward");
    EXPECT_EQ(cmd(vmkey::kPlus, true, true), "UI_ZoomIn");
    EXPECT_EQ(cmd(vmkey::kDelete, true, false), "Doc_DelectInv");
    EXPECT_EQ(cmd(vmkey::kDelete, false, false), "Doc_Delect");
    EXPECT_EQ(cmd('3', false, true), "Doc_SelectLayer('3')");
    EXPECT_EQ(cmd('#', false, true), "Doc_SelectLayer('3')"); // Shift+3 on a US keyboard
    EXPECT_EQ(cmd(')', false, true), "Doc_SelectLayer('0')");
    EXPECT_EQ(MapShortcut('3', false, false, false).action, EKeyAction::kNone); // a plain digit is the tool's
    EXPECT_EQ(MapShortcut('S', true, false, false).action, EKeyAction::kSave);
    EXPECT_EQ(MapShortcut(vmkey::kEscape, false, false, false).action, EKeyAction::kCancelTool);
    EXPECT_EQ(MapShortcut('Q', true, false, false).action, EKeyAction::kNone);
    EXPECT_EQ(MapShortcut('A', false, false, false).action, EKeyAction::kNone);
}

TEST(Shortcuts, SelectionModeKeepsHistoryZoomSaveAndReturn)
{
    for (int key : {int('0'), int('Y'), int('Z'), vmkey::kEqual, vmkey::kMinus})
        EXPECT_EQ(MapShortcut(key, true, false, true).action, EKeyAction::kCommand) << key;
    // Save asks to return first when there is no result; Ctrl+Return confirms and returns.
    EXPECT_EQ(MapShortcut('S', true, false, true).action, EKeyAction::kSave);
    EXPECT_EQ(MapShortcut(vmkey::kReturn, true, false, true).action, EKeyAction::kConfirmReturn);
    EXPECT_EQ(MapShortcut(vmkey::kReturn, true, false, false).action, EKeyAction::kNone);
    // Ctrl+B computes the cut-out in selection mode only.
    EXPECT_EQ(MapShortcut('B', true, false, true).action, EKeyAction::kBuildSelection);
    EXPECT_EQ(MapShortcut('B', true, false, false).action, EKeyAction::kNone);
    for (int key : {int('A'), int('C'), int('D'), int('V'), int('X'), int('O'), int('W'), vmkey::kDelete})
        EXPECT_EQ(MapShortcut(key, true, false, true).action, EKeyAction::kNone) << key;
    EXPECT_EQ(MapShortcut(vmkey::kDelete, false, false, true).action, EKeyAction::kNone);
    EXPECT_EQ(MapShortcut(vmkey::kEscape, false, false, true).action, EKeyAction::kNone);
    EXPECT_EQ(MapShortcut('2', false, true, true).action, EKeyAction::kNone);
}

namespace {

// The items a state of the window enables, and those it leaves grey.
struct Enabling {
    const char* state;
    FrameState frame;
    std::vector<int> enabled, grey;
};

void ExpectEnabling(const std::vector<Enabling>& cases)
{
    for (const Enabling& c : cases) {
        SCOPED_TRACE(c.state);
        for (int id : c.enabled)
            EXPECT_TRUE(IsCommandEnabled(id, c.frame)) << id;
        for (int id : c.grey)
            EXPECT_FALSE(IsCommandEnabled(id, c.frame)) << id;
    }
}

} // namespace

TEST(MenuRules, EnablingFollowsLayersSelectionAndModalEdits)
{
    // Rotation of the base layer would change the document's size: only upper layers turn. Inpaint and the lens
    // blur work on the base layer only.
    ExpectEnabling({
        {"no document",
         {},
         {cmd::kOpen, cmd::kUndo, cmd::kFlipH, cmd::kSelectAll},
         {cmd::kSave, cmd::kClose, cmd::kNewLayer}},
        {"one layer",
         {.layerCount = 1},
         {cmd::kSave, cmd::kLensBlur, cmd::kNewLayer},
         {cmd::kRotateLeft, cmd::kMergeDown, cmd::kFlatten, cmd::kDeleteLayer}},
        {"upper layer current",
         {.layerCount = 3, .currentIndex = 2},
         {cmd::kRotateRight, cmd::kMergeDown, cmd::kFlatten, cmd::kDeleteLayer},
         {cmd::kOpenProject, cmd::kCopy, cmd::kLensBlur, cmd::kSelectNone}},
        {"upper layer with a selection",
         {.layerCount = 3, .currentIndex = 2, .hasMask = true},
         {cmd::kCopy, cmd::kFill, cmd::kDeleteSelection},
         {cmd::kPaste, cmd::kInpaint}},
        {"a tool's edit open",
         {.layerCount = 3, .currentIndex = 2, .hasMask = true, .modalEdit = true},
         {cmd::kClose, cmd::kSelectNone},
         {cmd::kOpen, cmd::kSave, cmd::kCut, cmd::kRotateRight, cmd::kFill}},
        {"selection mode", {.layerCount = 1, .selectionMode = true}, {}, {cmd::kOpen}},
        {"a picture on the clipboard", {.clipboardHasImage = true}, {cmd::kPaste}, {}},
        {"base layer with a selection", {.layerCount = 1, .hasMask = true}, {cmd::kInpaint}, {}},
        {"current layer hidden", {.layerCount = 1, .documentShown = true}, {}, {cmd::kCompanion}},
        {"current layer shown",
         {.layerCount = 1, .documentShown = true, .currentVisible = true},
         {cmd::kCompanion},
         {}},
    });
}

TEST(MenuRules, SelectionModeItemsFollowTheResult)
{
    // Return, undo, redo and save (which asks to return first when there is no result) always act in the mode.
    // Feathering needs a result with something in it; the backgrounds show only through a result. The large button
    // enters the mode through the same command, so it needs only a picture.
    ExpectEnabling({
        {"contours only",
         {.layerCount = 1, .selectionMode = true},
         {cmd::kConfirmReturn, cmd::kCancelReturn, cmd::kUndo, cmd::kRedo, cmd::kSave},
         {cmd::kFeatherShrink, cmd::kBackColour, cmd::kBackChecker, cmd::kBackPicture, cmd::kBackMask,
          cmd::kBackOriginal}},
        {"an empty result",
         {.layerCount = 1, .selectionMode = true, .resultExists = true},
         {cmd::kConfirmReturn, cmd::kCancelReturn, cmd::kUndo, cmd::kRedo, cmd::kSave, cmd::kBackColour,
          cmd::kBackChecker, cmd::kBackPicture, cmd::kBackMask, cmd::kBackOriginal},
         {cmd::kFeatherShrink}},
        {"a result",
         {.layerCount = 1, .selectionMode = true, .resultExists = true, .resultHasPixels = true},
         {cmd::kConfirmReturn, cmd::kCancelReturn, cmd::kUndo, cmd::kRedo, cmd::kSave, cmd::kFeatherShrink},
         {}},
        {"compose mode",
         {.layerCount = 1, .resultExists = true, .resultHasPixels = true},
         {cmd::kConfirmReturn},
         {cmd::kCancelReturn, cmd::kFeatherShrink, cmd::kBackColour, cmd::kBackChecker, cmd::kBackPicture,
          cmd::kBackMask, cmd::kBackOriginal}},
        {"no document", {}, {}, {cmd::kConfirmReturn}},
    });

    // The selection menus hold the return items (their texts are checked with every other menu's).
    bool hasConfirm = false, hasCancel = false;
    for (const MenuDef& menu : SelectionMenus())
        for (int id : menu.items) {
            hasConfirm |= id == cmd::kConfirmReturn;
            hasCancel |= id == cmd::kCancelReturn;
        }
    EXPECT_TRUE(hasConfirm && hasCancel);
    EXPECT_EQ(BackgroundModeOf(cmd::kBackMask), 4);
    EXPECT_EQ(BackgroundModeOf(cmd::kUndo), 0);
}

TEST(MenuRules, TheCutOutIsBuiltOnceFromBothContoursOfTheInnerOuterMethod)
{
    // The build needs both contours of the inner-outer method, once; the refined choice belongs to that method.
    ExpectEnabling({
        {"a contour still empty",
         {.layerCount = 1, .selectionMode = true, .inoutMethod = true},
         {cmd::kRefinedEdges},
         {cmd::kBuildSelection}},
        {"both contours",
         {.layerCount = 1, .selectionMode = true, .inoutMethod = true, .contoursDrawn = true},
         {cmd::kBuildSelection},
         {}},
        {"built",
         {.layerCount = 1, .selectionMode = true, .resultExists = true, .inoutMethod = true, .contoursDrawn = true},
         {},
         {cmd::kBuildSelection}},
        {"another method",
         {.layerCount = 1, .selectionMode = true, .contoursDrawn = true},
         {},
         {cmd::kBuildSelection, cmd::kRefinedEdges}},
        {"compose mode", {.layerCount = 1, .inoutMethod = true, .contoursDrawn = true}, {}, {cmd::kBuildSelection}},
    });
}

TEST(MenuRules, CommandTextsCarryTheLayer)
{
    EXPECT_EQ(CommandTextFor(cmd::kMergeDown, 2), "Doc_MergeDownLayer('2')");
    EXPECT_EQ(CommandTextFor(cmd::kNewLayer, 0), "Doc_NewLayer('0')");
    EXPECT_EQ(CommandTextFor(cmd::kDeleteLayer, 3), "Doc_DeleteLayer('3')");
    EXPECT_EQ(CommandTextFor(cmd::kOpenLayer, 2), "Doc_OpenLayer('3')"); // the new layer goes above the current
    EXPECT_EQ(CommandTextFor(cmd::kUndo, 5), "UI_HistoryBackward");
    EXPECT_EQ(CommandTextFor(cmd::kDeleteSelection, 0), "Doc_Delect");
    EXPECT_EQ(CommandTextFor(cmd::kDeleteOutside, 0), "Doc_DelectInv");
    EXPECT_EQ(CommandTextFor(cmd::kFlatten, 1), "Doc_FlatImage");
    EXPECT_EQ(CommandTextFor(cmd::kSave, 1), "");
    // Every item of every menu bar has a text in both languages, and accelerators are shown after a tab.
    for (const auto* bar : {&ComposeMenus(), &EmptyMenus(), &SelectionMenus()})
        for (const MenuDef& menu : *bar)
            for (int id : menu.items) {
                if (id <= 0) continue;
                EXPECT_FALSE(MenuItemText(id, ETextLanguage::kChinese).empty()) << id;
                EXPECT_FALSE(MenuItemText(id, ETextLanguage::kEnglish).empty()) << id;
            }
    EXPECT_EQ(MenuItemText(cmd::kOpen, ETextLanguage::kChinese), "打开文件(&O)...\tCtrl+O");
}

TEST(FileFilters, TableFiltersBecomeDialogFilters)
{
    // A name that already shows its patterns is written once, not "PNG File(*.png) (*.png)".
    EXPECT_EQ(ToDialogFilter("工程文件格式(*.vmpd)|*.vmpd||"), "工程文件格式(*.vmpd)");
    EXPECT_EQ(ToDialogFilter("PNG File(*.png)|*.png||"), "PNG File(*.png)");
    EXPECT_EQ(ToDialogFilter("PNG File(*.psd)|*.psd||"), "PNG File(*.psd)");
    EXPECT_EQ(ToDialogFilter("Pictures (*.png *.jpg)|*.png;*.jpg||"), "Pictures (*.png *.jpg)");
    // Parentheses that say something else keep the patterns beside them.
    EXPECT_EQ(ToDialogFilter("PNG (alpha)|*.png||"), "PNG (alpha) (*.png)");
    EXPECT_EQ(ToDialogFilter("Old(*.bmp)|*.bmp;*.dib||"), "Old(*.bmp) (*.bmp *.dib)");
    EXPECT_EQ(ToDialogFilter("所有支持格式|*.bmp;*.jpg;*.tga;||"), "所有支持格式 (*.bmp *.jpg *.tga)");
    EXPECT_EQ(ToDialogFilter("A|*.a|B|*.b;*.c||"), "A (*.a);;B (*.b *.c)");
    EXPECT_EQ(DefaultExtension("工程文件格式(*.vmpd)|*.vmpd||"), "vmpd");
    EXPECT_EQ(DefaultExtension("All|*.*||"), "");
    EXPECT_TRUE(ParseFileFilter("").empty());
}

TEST(FileFilters, OpenDialogsTakeEveryPictureBesideTheTablesFilter)
{
    const std::string table = "所有支持格式|*.bmp;*.jpg;*.jpeg;*.gif;*.pcx;*.tif;*.tiff;*.tga;||";
    const std::vector<FileFilterEntry> entries =
        ParseFileFilter(OpenDialogFilter(table, "所有图片", "所有文件", false));
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].name, "所有图片");
    // The table's entry as it stands, between the two of ours.
    EXPECT_EQ(entries[1].name, "所有支持格式");
    EXPECT_EQ(entries[1].patterns, ParseFileFilter(table)[0].patterns);
    EXPECT_EQ(entries[2].patterns, std::vector<std::string>{"*"});
    // Every format the codec reads, in both cases; projects only where documents open.
    const std::vector<std::string>& all = entries[0].patterns;
    for (const char* p : {"*.png", "*.PNG", "*.jpg", "*.JPG", "*.jpeg", "*.gif", "*.pcx", "*.tif", "*.TIFF", "*.tga"})
        EXPECT_NE(std::find(all.begin(), all.end(), p), all.end()) << p;
    EXPECT_EQ(std::find(all.begin(), all.end(), "*.vmpd"), all.end());
    const std::vector<FileFilterEntry> documents = ParseFileFilter(OpenDialogFilter(table, "a", "b", true));
    EXPECT_NE(std::find(documents[0].patterns.begin(), documents[0].patterns.end(), "*.vmpd"),
              documents[0].patterns.end());
}
