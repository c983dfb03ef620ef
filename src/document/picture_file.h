#pragma once

#include <cstdint>

class COLImage;

// File type codes as the opening code uses them.
inline constexpr uint32_t kFileTypeUnusable = 10;
inline constexpr uint32_t kFileTypeProject = 253;
inline constexpr uint32_t kFileTypePsd = 254;
inline constexpr uint32_t kFileTypeBmp = 1;

// The picture-file boundary as the document uses it: what kind of file a path holds, judged by content.
uint32_t GetPictureFileType(const char* path);
// Creates the image at the file's size and fills it; alpha 255 where the file has none. Non-zero on success.
// A picture with a side above 20000 is refused.
int LoadPictureFile(const char* path, COLImage* image);
// Writes the image's colours in the format the extension names. Non-zero on success; a failed write leaves
// any older file in place.
int SavePictureFile(const char* path, const COLImage* image);
