#pragma once

#include <cstdint>

class QKeyEvent;

// The key number tools see: the classic virtual-key numbering (letters and digits as their upper-case ASCII
// codes, 0x25..0x28 for the arrows, 0x10 Shift, 0x11 Ctrl, 0x20 Space, 0x0D Enter, 0x1B Escape, 0x2E Delete).
uint32_t VirtualKeyOf(const QKeyEvent* event);
uint32_t VirtualKeyOf(int qtKey);
