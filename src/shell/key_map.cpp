#include "shell/key_map.h"

int ShiftedDigit(int key)
{
    if (key >= vmkey::k0 && key <= vmkey::k9) return key - vmkey::k0;
    // With Shift held most layouts report the symbol of the digit key rather than the digit.
    static const char kSymbols[] = ")!@#$%^&*(";
    for (int d = 0; d < 10; ++d)
        if (key == static_cast<unsigned char>(kSymbols[d])) return d;
    return -1;
}

KeyDecision MapShortcut(int key, bool ctrl, bool shift, bool selectionMode)
{
    auto command = [](const char* text) { return KeyDecision{EKeyAction::kCommand, text}; };
    if (ctrl) {
        // Keys of every mode.
        switch (key) {
        case '0':
            return command("UI_ZoomFit");
        case 'Y':
            return command("UI_HistoryForward");
        // Ctrl+Shift+Z redoes, as on every Linux desktop.
        case 'Z':
            return command(shift ? "UI_HistoryForward" : "UI_HistoryBackward");
        case vmkey::kEqual:
        case vmkey::kPlus:
            return command("UI_ZoomIn");
        case vmkey::kMinus:
        case vmkey::kUnderscore:
            return command("UI_ZoomOut");
        default:
            break;
        }
        if (selectionMode) {
            if (key == 'S') return {EKeyAction::kSave, {}};
            if (key == vmkey::kReturn || key == vmkey::kEnter) return {EKeyAction::kConfirmReturn, {}};
            if (key == 'B') return {EKeyAction::kBuildSelection, {}};
            return {};
        }
        switch (key) {
        case vmkey::kDelete:
            return command("Doc_DelectInv");
        case 'A':
            return command("Doc_SelectAll");
        case 'C':
            return command("UI_Copy");
        case 'D':
            return command("Doc_SelectNone");
        case 'I':
            return shift ? command("Doc_SelectInverse") : KeyDecision{};
        case 'V':
            return command("Doc_Paste");
        case 'X':
            return command("Doc_Cut");
        case 'O':
            return {EKeyAction::kOpen, {}};
        case 'P':
            return {EKeyAction::kPrint, {}};
        case 'S':
            return {EKeyAction::kSave, {}};
        case 'W':
            return {EKeyAction::kClose, {}};
        default:
            return {};
        }
    }
    if (selectionMode) return {};
    if (key == vmkey::kDelete) return command("Doc_Delect");
    if (key == vmkey::kEscape) return {EKeyAction::kCancelTool, {}};
    if (shift) {
        const int digit = ShiftedDigit(key);
        if (digit >= 0) return command(("Doc_SelectLayer('" + std::to_string(digit) + "')").c_str());
    }
    return {};
}
