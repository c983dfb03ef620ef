#pragma once

#include <cstdint>
#include <string>

#include "imaging/image.h"

namespace vmbench {

// A deterministic photo-like picture: smooth gradients, soft-edged shapes and sensor-like noise, so that filters
// and encoders see realistic data rather than flat colour or white noise.
void MakePhoto(COLImage& image, uint32_t width, uint32_t height, uint32_t seed = 1);

// 12 megapixels in 4:3, the size the benchmark figures are quoted for.
inline constexpr uint32_t kPhotoWidth = 4000;
inline constexpr uint32_t kPhotoHeight = 3000;

// The 12-megapixel photo of MakePhoto, made once per program and shared by its benchmarks.
const COLImage& SharedPhoto();

// Runs the registered benchmarks and then prints every result as a ratio to the benchmarks whose names start
// with baselinePrefix (each benchmark is compared with the baseline that shares its argument suffix, or the
// first baseline). Use as the body of main().
int RunWithRatios(int argc, char** argv, const std::string& baselinePrefix);

} // namespace vmbench
