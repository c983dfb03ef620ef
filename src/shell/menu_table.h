#pragma once

#include <string>
#include <vector>

#include "shell/string_table.h"

// Command numbers of the main frame's menus.
namespace cmd {
inline constexpr int kNew = 57600;
inline constexpr int kOpen = 57601;
inline constexpr int kOpenProject = 32796;
inline constexpr int kSave = 57603;
inline constexpr int kClose = 57602;
inline constexpr int kPrint = 57607;
inline constexpr int kExit = 57665;
inline constexpr int kUndo = 57643;
inline constexpr int kRedo = 57644;
inline constexpr int kCut = 57635;
inline constexpr int kCopy = 57634;
inline constexpr int kPaste = 57637;
inline constexpr int kImageSize = 32774;
inline constexpr int kCanvasSize = 32775;
inline constexpr int kRotateLeft = 32782;
inline constexpr int kRotateRight = 32783;
inline constexpr int kFlipH = 32784;
inline constexpr int kFlipV = 32785;
inline constexpr int kLensBlur = 32807;
// The same turns and mirrors for the whole document (every layer, the selection and the channels).
inline constexpr int kRotateImageLeft = 32830;
inline constexpr int kRotateImageRight = 32831;
inline constexpr int kFlipImageH = 32832;
inline constexpr int kFlipImageV = 32833;
inline constexpr int kCompanion = 32773;
inline constexpr int kMergeDown = 32771;
inline constexpr int kFlatten = 32772;
inline constexpr int kNewLayer = 32789;
inline constexpr int kOpenLayer = 32792;
inline constexpr int kExportLayer = 32790;
inline constexpr int kDeleteLayer = 32791;
inline constexpr int kSelectAll = 32778;
inline constexpr int kSelectNone = 32779;
inline constexpr int kSelectInverse = 32780;
inline constexpr int kFeather = 32781;
inline constexpr int kExpand = 32800;
inline constexpr int kShrink = 32801;
inline constexpr int kFill = 32786;
inline constexpr int kStroke = 32806;
inline constexpr int kSegmentDeflate = 32813;
inline constexpr int kInpaint = 32805;
inline constexpr int kDeleteSelection = 32797;
inline constexpr int kDeleteOutside = 32798;
inline constexpr int kToolBar = 59392;
inline constexpr int kStatusBar = 59393;
inline constexpr int kSettings = 32787;
inline constexpr int kTutorialCompose = 32815;
inline constexpr int kTutorialBlue = 32816;
inline constexpr int kTutorialInout = 32817;
inline constexpr int kTutorialLensBlur = 32818;
inline constexpr int kTutorialSmartErase = 32819;
inline constexpr int kHelpFile = 57670;
inline constexpr int kHomeSite = 32811;
inline constexpr int kAbout = 57664;
// Selection mode.
inline constexpr int kConfirmReturn = 32776;
inline constexpr int kCancelReturn = 32777;
inline constexpr int kFeatherShrink = 32803;
inline constexpr int kBuildSelection = 32820;   // also the "buildseltip" button of the tool strip
inline constexpr int kRefinedEdges = 32821;     // checkable: which solver the build uses
inline constexpr int kChromaKey = 32840;        // selection mode with the chroma-key method
inline constexpr int kBatchKey = 32841;         // the batch chroma-key dialog, with a photo open
// Selection mode's backgrounds behind the cut-out (the values of the display mode follow from them).
inline constexpr int kBackColour = 20499;
inline constexpr int kBackChecker = 20500;
inline constexpr int kBackPicture = 20501;
inline constexpr int kBackMask = 20502;
inline constexpr int kBackOriginal = 20506;
inline constexpr int kSeparator = 0;
} // namespace cmd

// What the enabling rules look at.
struct FrameState {
    int layerCount = 0;     // L
    int currentIndex = 0;   // I
    bool hasMask = false;   // M: the document has a selection mask
    bool modalEdit = false; // E: a tool holds an edit open
    bool selectionMode = false;
    bool clipboardHasImage = false;
    bool documentShown = false;
    bool currentVisible = false;
    // Selection mode: the result mask exists, and has a pixel above 0.
    bool resultExists = false;
    bool resultHasPixels = false;
    // Selection mode: the inner-outer method, and both contour planes hold a pixel.
    bool inoutMethod = false;
    bool contoursDrawn = false;
};

enum class EMenuArgument { kNone, kCurrent, kCurrentPlusOne };

struct MenuItemDef {
    int id;
    const char* chinese;
    const char* english;
    const char* command; // command text for the executor, or null when the frame handles the item itself
    EMenuArgument argument;
};

struct MenuDef {
    const char* chinese;
    const char* english;
    std::vector<int> items; // command numbers; cmd::kSeparator for a line; negative: a submenu (see SubMenu)
};

const MenuItemDef* FindMenuItem(int id);
std::string MenuItemText(int id, ETextLanguage language);
const char* MenuTitle(const MenuDef& menu, ETextLanguage language);

// The menu bar with a document in compose mode, the one without a document, and the one of selection mode.
const std::vector<MenuDef>& ComposeMenus();
const std::vector<MenuDef>& EmptyMenus();
const std::vector<MenuDef>& SelectionMenus();
// Submenus referred to by a negative number in a menu's items.
const MenuDef& SubMenu(int negativeId);

// The enabling rule of a command; selection mode's items follow the state of its result mask.
bool IsCommandEnabled(int id, const FrameState& state);

// The display mode of the selection document that a background item chooses; 0 for other items.
int BackgroundModeOf(int id);

// The command text an item sends, with its layer argument filled in; empty for items the frame handles itself.
std::string CommandTextFor(int id, int currentIndex);

// The key of the web address (or help page) a tutorial item opens; empty for other items.
const char* TutorialKey(int id);
