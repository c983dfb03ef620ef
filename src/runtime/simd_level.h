#pragma once

// Which instruction set the filters' inner loops use. All levels give the same bytes; tests run each one, and
// the automatic choice takes the best that the processor has.
namespace vmsimd {

enum Level : int { kPlain = 0, kSse2 = 1, kAvx2 = 2 };

// The level in use: the processor's best, capped by LimitLevel.
Level CurrentLevel();
// Caps the level (for tests and comparisons); a negative value removes the cap.
void LimitLevel(int level);

} // namespace vmsimd
