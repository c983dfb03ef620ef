#pragma once

// Status results shared by every layer. Long operations answer 0 for success and kFail for any failure.
inline constexpr long kOk = 0;
inline constexpr long kFail = 0x80004005L;

// The largest side of any picture the program will hold.
inline constexpr unsigned kMaxImageSide = 20000;
