#pragma once

#include <string>

// Key codes as the window toolkit numbers them (Latin-1 codes for printable keys), so that the mapping below needs
// no window library; the window side checks at compile time that they agree.
namespace vmkey {
inline constexpr int kEscape = 0x01000000;
inline constexpr int kReturn = 0x01000004;
inline constexpr int kEnter = 0x01000005;
inline constexpr int kDelete = 0x01000007;
inline constexpr int kPlus = 0x2b;
inline constexpr int kMinus = 0x2d;
inline constexpr int kEqual = 0x3d;
inline constexpr int kUnderscore = 0x5f;
inline constexpr int k0 = 0x30;
inline constexpr int k9 = 0x39;
inline constexpr int kA = 0x41;
inline constexpr int kZ = 0x5a;
} // namespace vmkey

enum class EKeyAction {
    kNone,    // not a shortcut: the key goes on to the focused window (the canvas hands it to the tool)
    kCommand, // run the command text
    kOpen,    // the frame's own handlers
    kPrint,
    kSave,
    kClose,
    kCancelTool, // Escape: no current tool
    kConfirmReturn, // selection mode: confirm the cut-out and return to composing
    kBuildSelection, // selection mode: compute the cut-out from the contours
};

struct KeyDecision {
    EKeyAction action = EKeyAction::kNone;
    std::string command;
};

// The shortcut table. ctrl and shift tell whether either key of the pair is held. In selection mode undo, redo,
// the zoom keys, save (which asks to return first when there is no result), Ctrl+Return (confirm and return)
// and Ctrl+B (compute the cut-out from the contours) act; everything else falls through to the tool.
KeyDecision MapShortcut(int key, bool ctrl, bool shift, bool selectionMode);

// The digit of Shift plus a digit key: the digit itself, or the symbol a US keyboard gives for it; -1 otherwise.
int ShiftedDigit(int key);
