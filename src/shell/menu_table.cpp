#include "shell/menu_table.h"

namespace {

using cmd::kSeparator;

const MenuItemDef kItems[] = {
    {cmd::kNew, "新建图片(&N)...", "&New picture...", nullptr, EMenuArgument::kNone},
    {cmd::kOpen, "打开文件(&O)...\tCtrl+O", "&Open...\tCtrl+O", nullptr, EMenuArgument::kNone},
    {cmd::kOpenProject, "打开工程(&D)...", "Open &project...", nullptr, EMenuArgument::kNone},
    {cmd::kSave, "存储文件(&S)...\tCtrl+S", "&Save...\tCtrl+S", nullptr, EMenuArgument::kNone},
    {cmd::kClose, "关闭文件\tCtrl+W", "&Close\tCtrl+W", nullptr, EMenuArgument::kNone},
    {cmd::kBatchKey, "批量单色幕...", "&Batch chroma key...", nullptr, EMenuArgument::kNone},
    {cmd::kPrint, "打印(&P)...\tCtrl+P", "&Print...\tCtrl+P", nullptr, EMenuArgument::kNone},
    {cmd::kExit, "退出(&X)", "E&xit", nullptr, EMenuArgument::kNone},
    {cmd::kUndo, "撤消(&U)\tCtrl+Z", "&Undo\tCtrl+Z", "UI_HistoryBackward", EMenuArgument::kNone},
    {cmd::kRedo, "重作(&U)\tCtrl+Y", "&Redo\tCtrl+Y", "UI_HistoryForward", EMenuArgument::kNone},
    {cmd::kCut, "剪切(&T)\tCtrl+X", "Cu&t\tCtrl+X", "Doc_Cut", EMenuArgument::kNone},
    {cmd::kCopy, "复制(&C)\tCtrl+C", "&Copy\tCtrl+C", "UI_Copy", EMenuArgument::kNone},
    {cmd::kPaste, "粘贴(&P)\tCtrl+V", "&Paste\tCtrl+V", "Doc_Paste", EMenuArgument::kNone},
    {cmd::kImageSize, "图象尺寸...", "Image size...", nullptr, EMenuArgument::kNone},
    {cmd::kCanvasSize, "画布尺寸...", "Canvas size...", nullptr, EMenuArgument::kNone},
    {cmd::kRotateLeft, "逆时针90度", "Rotate 90° counter-clockwise", "Doc_RotateLeft", EMenuArgument::kNone},
    {cmd::kRotateRight, "顺时针90度", "Rotate 90° clockwise", "Doc_RotateRight", EMenuArgument::kNone},
    {cmd::kFlipH, "水平翻转", "Flip horizontally", "Doc_FlipH", EMenuArgument::kNone},
    {cmd::kFlipV, "垂直翻转", "Flip vertically", "Doc_FlipV", EMenuArgument::kNone},
    {cmd::kRotateImageLeft, "整幅图象逆时针90度", "Rotate the whole picture 90° counter-clockwise",
     "Doc_RotateImageLeft", EMenuArgument::kNone},
    {cmd::kRotateImageRight, "整幅图象顺时针90度", "Rotate the whole picture 90° clockwise", "Doc_RotateImageRight",
     EMenuArgument::kNone},
    {cmd::kFlipImageH, "整幅图象水平翻转", "Flip the whole picture horizontally", "Doc_FlipImageH",
     EMenuArgument::kNone},
    {cmd::kFlipImageV, "整幅图象垂直翻转", "Flip the whole picture vertically", "Doc_FlipImageV", EMenuArgument::kNone},
    {cmd::kLensBlur, "镜头模糊...", "Lens blur...", nullptr, EMenuArgument::kNone},
    {cmd::kCompanion, "&Ombra Lens", "&Ombra Lens", nullptr, EMenuArgument::kNone},
    {cmd::kMergeDown, "向下合并", "Merge down", "Doc_MergeDownLayer('%d')", EMenuArgument::kCurrent},
    {cmd::kFlatten, "合并全部", "Flatten", "Doc_FlatImage", EMenuArgument::kNone},
    {cmd::kNewLayer, "新建图层", "New layer", "Doc_NewLayer('%d')", EMenuArgument::kCurrent},
    {cmd::kOpenLayer, "打开文件到新图层", "Open a file as a new layer", "Doc_OpenLayer('%d')",
     EMenuArgument::kCurrentPlusOne},
    {cmd::kExportLayer, "导出图层到文件", "Export the layer to a file...", nullptr, EMenuArgument::kNone},
    {cmd::kDeleteLayer, "删除图层", "Delete layer", "Doc_DeleteLayer('%d')", EMenuArgument::kCurrent},
    {cmd::kSelectAll, "全部选择\tCtrl+A", "Select all\tCtrl+A", "Doc_SelectAll", EMenuArgument::kNone},
    {cmd::kSelectNone, "取消选择\tCtrl+D", "Select none\tCtrl+D", "Doc_SelectNone", EMenuArgument::kNone},
    {cmd::kSelectInverse, "反选\tShift+Ctrl+I", "Inverse\tShift+Ctrl+I", "Doc_SelectInverse", EMenuArgument::kNone},
    {cmd::kFeather, "羽化选区 ...", "Feather...", nullptr, EMenuArgument::kNone},
    {cmd::kExpand, "扩大选区...", "Expand...", nullptr, EMenuArgument::kNone},
    {cmd::kShrink, "缩小选区...", "Shrink...", nullptr, EMenuArgument::kNone},
    {cmd::kFill, "填充 ...", "Fill...", "Doc_FillSelection", EMenuArgument::kNone},
    {cmd::kStroke, "描边 ...", "Stroke...", nullptr, EMenuArgument::kNone},
    {cmd::kSegmentDeflate, "收缩到图像分块", "Shrink to segments", nullptr, EMenuArgument::kNone},
    {cmd::kInpaint, "智能修补选区 ...", "Smart inpaint...", "Doc_SmartInpaint", EMenuArgument::kNone},
    {cmd::kDeleteSelection, "删除选区内容\tDel", "Delete the selection\tDel", "Doc_Delect", EMenuArgument::kNone},
    {cmd::kDeleteOutside, "删除非选区内容\tCtrl+Del", "Delete outside the selection\tCtrl+Del", "Doc_DelectInv",
     EMenuArgument::kNone},
    {cmd::kToolBar, "工具栏(&T)", "&Tool bar", nullptr, EMenuArgument::kNone},
    {cmd::kStatusBar, "状态栏(&S)", "&Status bar", nullptr, EMenuArgument::kNone},
    {cmd::kSettings, "设置...", "Settings...", nullptr, EMenuArgument::kNone},
    {cmd::kTutorialCompose, "普通合成", "Composing", nullptr, EMenuArgument::kNone},
    {cmd::kTutorialBlue, "单色幕抠图", "Chroma key", nullptr, EMenuArgument::kNone},
    {cmd::kTutorialInout, "内外轮廓抠图", "Inner and outer contours", nullptr, EMenuArgument::kNone},
    {cmd::kTutorialLensBlur, "背景模糊，改变景深", "Background blur, depth of field", nullptr, EMenuArgument::kNone},
    {cmd::kTutorialSmartErase, "智能删除，反合成", "Smart erase", nullptr, EMenuArgument::kNone},
    {cmd::kHelpFile, "帮助文件(&H)", "&Help", nullptr, EMenuArgument::kNone},
    {cmd::kHomeSite, "网站", "Web site", nullptr, EMenuArgument::kNone},
    {cmd::kAbout, "关于Velmorando(&A)...", "&About Velmorando...", nullptr, EMenuArgument::kNone},
    {cmd::kConfirmReturn, "确认返回", "&Confirm and return\tCtrl+Return", nullptr, EMenuArgument::kNone},
    {cmd::kCancelReturn, "取消返回", "C&ancel and return", nullptr, EMenuArgument::kNone},
    {cmd::kFeatherShrink, "羽化和内缩...", "&Feather and shrink...", nullptr, EMenuArgument::kNone},
    {cmd::kBuildSelection, "根据内外轮廓创建选区\tCtrl+B", "Create the cut-out from the contours\tCtrl+B", nullptr,
     EMenuArgument::kNone},
    {cmd::kRefinedEdges, "精细边缘（较慢）", "&Refined edges (slower)", nullptr, EMenuArgument::kNone},
    {cmd::kChromaKey, "单色幕去背法(色度键法)...", "&Chroma key (single-coloured backdrop)...", nullptr,
     EMenuArgument::kNone},
    {cmd::kBackColour, "单色背景", "Plain &colour", nullptr, EMenuArgument::kNone},
    {cmd::kBackChecker, "方格背景", "C&heckerboard", nullptr, EMenuArgument::kNone},
    {cmd::kBackPicture, "图片背景", "&Picture...", nullptr, EMenuArgument::kNone},
    {cmd::kBackMask, "显示蒙版", "&Mask (black and white)", nullptr, EMenuArgument::kNone},
    {cmd::kBackOriginal, "原图", "&Original picture", nullptr, EMenuArgument::kNone},
};

constexpr int kTutorialSubMenu = -1;

const MenuDef kTutorials = {
    "教程(&T)",
    "&Tutorials",
    {cmd::kTutorialCompose, cmd::kTutorialBlue, cmd::kTutorialInout, cmd::kTutorialLensBlur, cmd::kTutorialSmartErase}};

} // namespace

const MenuItemDef* FindMenuItem(int id)
{
    for (const MenuItemDef& item : kItems)
        if (item.id == id) return &item;
    return nullptr;
}

std::string MenuItemText(int id, ETextLanguage language)
{
    const MenuItemDef* item = FindMenuItem(id);
    if (!item) return {};
    return language == ETextLanguage::kChinese ? item->chinese : item->english;
}

const char* MenuTitle(const MenuDef& menu, ETextLanguage language)
{
    return language == ETextLanguage::kChinese ? menu.chinese : menu.english;
}

const std::vector<MenuDef>& ComposeMenus()
{
    static const std::vector<MenuDef> menus = {
        {"文件(&F)",
         "&File",
         {cmd::kNew, cmd::kOpen, cmd::kOpenProject, cmd::kSave, cmd::kClose, kSeparator, cmd::kBatchKey, kSeparator,
          cmd::kPrint, kSeparator, cmd::kExit}},
        {"编辑(&E)",
         "&Edit",
         {cmd::kUndo, cmd::kRedo, kSeparator, cmd::kCut, cmd::kCopy, cmd::kPaste, kSeparator, cmd::kFill, cmd::kStroke}},
        {"图像(&I)",
         "&Image",
         {cmd::kImageSize, cmd::kCanvasSize, kSeparator, cmd::kRotateLeft, cmd::kRotateRight, cmd::kFlipH, cmd::kFlipV,
          kSeparator, cmd::kRotateImageLeft, cmd::kRotateImageRight, cmd::kFlipImageH, cmd::kFlipImageV, kSeparator,
          cmd::kLensBlur, cmd::kCompanion}},
        {"图层(&L)",
         "&Layer",
         {cmd::kNewLayer, cmd::kOpenLayer, cmd::kExportLayer, cmd::kDeleteLayer, kSeparator, cmd::kMergeDown,
          cmd::kFlatten}},
        {"选择(&S)",
         "&Select",
         {cmd::kSelectAll, cmd::kSelectNone, cmd::kSelectInverse, kSeparator, cmd::kFeather, cmd::kExpand, cmd::kShrink,
          cmd::kSegmentDeflate, kSeparator, cmd::kInpaint, kSeparator, cmd::kDeleteSelection, cmd::kDeleteOutside,
          kSeparator, cmd::kChromaKey}},
        {"查看(&V)", "&View", {cmd::kStatusBar, cmd::kSettings}},
        {"帮助(&H)", "&Help", {kTutorialSubMenu, cmd::kHelpFile, cmd::kHomeSite, kSeparator, cmd::kAbout}},
    };
    return menus;
}

const std::vector<MenuDef>& EmptyMenus()
{
    static const std::vector<MenuDef> menus = {
        {"文件(&F)", "&File", {cmd::kNew, cmd::kOpen, cmd::kPaste, kSeparator, cmd::kExit}},
        {"查看(&V)", "&View", {cmd::kToolBar, cmd::kStatusBar, cmd::kSettings}},
        {"帮助(&H)", "&Help", {kTutorialSubMenu, cmd::kHelpFile, kSeparator, cmd::kAbout}},
    };
    return menus;
}

const std::vector<MenuDef>& SelectionMenus()
{
    static const std::vector<MenuDef> menus = {
        {"选择(&S)",
         "&Selection",
         {cmd::kConfirmReturn, cmd::kCancelReturn, kSeparator, cmd::kUndo, cmd::kRedo, kSeparator,
          cmd::kBuildSelection, cmd::kRefinedEdges, kSeparator, cmd::kFeatherShrink}},
        {"背景(&B)",
         "&Background",
         {cmd::kBackChecker, cmd::kBackColour, cmd::kBackPicture, cmd::kBackMask, kSeparator, cmd::kBackOriginal}},
        {"帮助(&H)", "&Help", {kTutorialSubMenu, cmd::kHelpFile, kSeparator, cmd::kAbout}},
    };
    return menus;
}

int BackgroundModeOf(int id)
{
    switch (id) {
    case cmd::kBackColour:
        return 1;
    case cmd::kBackChecker:
        return 2;
    case cmd::kBackPicture:
        return 3;
    case cmd::kBackMask:
        return 4;
    case cmd::kBackOriginal:
        return 5;
    default:
        return 0;
    }
}

const MenuDef& SubMenu(int)
{
    return kTutorials;
}

bool IsCommandEnabled(int id, const FrameState& s)
{
    const int L = s.layerCount, I = s.currentIndex;
    const bool M = s.hasMask, E = s.modalEdit;
    switch (id) {
    case cmd::kOpen:
        return !s.selectionMode && !E;
    case cmd::kOpenProject:
        return false;
    case cmd::kSave:
        return L > 0 && !E;
    case cmd::kClose:
    case cmd::kPrint:
        return L > 0;
    case cmd::kCut:
    case cmd::kCopy:
        return M && !E;
    case cmd::kPaste:
        return s.clipboardHasImage;
    case cmd::kImageSize:
    case cmd::kCanvasSize:
    case cmd::kRotateImageLeft:
    case cmd::kRotateImageRight:
    case cmd::kFlipImageH:
    case cmd::kFlipImageV:
        return L > 0 && !E;
    case cmd::kRotateLeft:
    case cmd::kRotateRight:
        return I != 0 && !E;
    case cmd::kLensBlur:
        return I == 0;
    case cmd::kCompanion:
        return s.documentShown && s.currentVisible;
    case cmd::kMergeDown:
        return I > 0 && !E;
    case cmd::kFlatten:
        return L > 1 && !E;
    case cmd::kNewLayer:
    case cmd::kOpenLayer:
        return L > 0 && !E;
    case cmd::kDeleteLayer:
        return I > 0 && !E;
    case cmd::kSelectNone:
    case cmd::kSelectInverse:
    case cmd::kFeather:
    case cmd::kExpand:
    case cmd::kShrink:
    case cmd::kStroke:
    case cmd::kSegmentDeflate:
    case cmd::kDeleteSelection:
    case cmd::kDeleteOutside:
        return M;
    case cmd::kFill:
        return M && !E;
    case cmd::kInpaint:
        return M && I == 0;
    case cmd::kFeatherShrink:
        return s.selectionMode && s.resultHasPixels;
    case cmd::kBuildSelection:
        // Both contours drawn and nothing computed yet: a result is edited, not built again.
        return s.selectionMode && s.inoutMethod && s.contoursDrawn && !s.resultExists;
    case cmd::kRefinedEdges:
        return s.selectionMode && s.inoutMethod;
    case cmd::kBackColour:
    case cmd::kBackChecker:
    case cmd::kBackPicture:
    case cmd::kBackMask:
    case cmd::kBackOriginal:
        // Behind an opaque working copy a background shows nothing: only a result lets it through.
        return s.selectionMode && s.resultExists;
    case cmd::kConfirmReturn:
        // Also the large button of compose mode, which enters the mode.
        return L > 0;
    case cmd::kCancelReturn:
        return s.selectionMode;
    case cmd::kChromaKey:
        return L > 0 && !s.selectionMode && !E;
    case cmd::kBatchKey:
        // Review shows each result in selection mode, which the open photo leads into.
        return L > 0 && !E && !s.selectionMode;
    default:
        return true; // new, exit, undo, redo, flips, export, select all, view, settings and help items
    }
}

std::string CommandTextFor(int id, int currentIndex)
{
    const MenuItemDef* item = FindMenuItem(id);
    if (!item || !item->command) return {};
    std::string text = item->command;
    const size_t at = text.find("%d");
    if (at != std::string::npos) {
        const int arg = item->argument == EMenuArgument::kCurrentPlusOne ? currentIndex + 1 : currentIndex;
        text.replace(at, 2, std::to_string(arg));
    }
    return text;
}

const char* TutorialKey(int id)
{
    switch (id) {
    case cmd::kTutorialCompose:
        return "tutorial_compose";
    case cmd::kTutorialBlue:
        return "tutorial_blue";
    case cmd::kTutorialInout:
        return "tutorial_inout";
    case cmd::kTutorialLensBlur:
        return "tutorial_lensblur";
    case cmd::kTutorialSmartErase:
        return "tutorial_smarterase";
    case cmd::kHomeSite:
        return "homesite";
    default:
        return "";
    }
}
