#pragma once

// kOk, kFail and the other result conventions of the program are described in runtime/status.h.
#include "runtime/status.h"

// The largest side of any picture the program will hold.
inline constexpr unsigned kMaxImageSide = 20000;
