#include "shell/key_translate.h"

#include <QKeyEvent>

#include "shell/key_map.h"

static_assert(vmkey::kEscape == Qt::Key_Escape && vmkey::kDelete == Qt::Key_Delete && vmkey::kReturn == Qt::Key_Return &&
                  vmkey::kEnter == Qt::Key_Enter && vmkey::kPlus == Qt::Key_Plus &&
                  vmkey::kMinus == Qt::Key_Minus && vmkey::kEqual == Qt::Key_Equal &&
                  vmkey::kUnderscore == Qt::Key_Underscore && vmkey::k0 == Qt::Key_0 && vmkey::k9 == Qt::Key_9 &&
                  vmkey::kA == Qt::Key_A && vmkey::kZ == Qt::Key_Z,
              "the key numbers of the shortcut table must be the toolkit's");

uint32_t VirtualKeyOf(int key)
{
    if ((key >= Qt::Key_A && key <= Qt::Key_Z) || (key >= Qt::Key_0 && key <= Qt::Key_9)) return uint32_t(key);
    switch (key) {
    case Qt::Key_Backspace:
        return 0x08;
    case Qt::Key_Tab:
        return 0x09;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        return 0x0D;
    case Qt::Key_Shift:
        return 0x10;
    case Qt::Key_Control:
        return 0x11;
    case Qt::Key_Alt:
        return 0x12;
    case Qt::Key_Escape:
        return 0x1B;
    case Qt::Key_Space:
        return 0x20;
    case Qt::Key_PageUp:
        return 0x21;
    case Qt::Key_PageDown:
        return 0x22;
    case Qt::Key_End:
        return 0x23;
    case Qt::Key_Home:
        return 0x24;
    case Qt::Key_Left:
        return 0x25;
    case Qt::Key_Up:
        return 0x26;
    case Qt::Key_Right:
        return 0x27;
    case Qt::Key_Down:
        return 0x28;
    case Qt::Key_Insert:
        return 0x2D;
    case Qt::Key_Delete:
        return 0x2E;
    case Qt::Key_Plus:
    case Qt::Key_Equal:
        return 0xBB;
    case Qt::Key_Minus:
    case Qt::Key_Underscore:
        return 0xBD;
    default:
        break;
    }
    if (key >= Qt::Key_F1 && key <= Qt::Key_F12) return uint32_t(0x70 + (key - Qt::Key_F1));
    return 0;
}

uint32_t VirtualKeyOf(const QKeyEvent* event)
{
    // The keypad's digits are digits.
    return VirtualKeyOf(event->key());
}
