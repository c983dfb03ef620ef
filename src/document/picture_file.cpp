#include "document/picture_file.h"

#include "imaging/codec.h"
#include "imaging/image.h"

// The document's view of picture files, through the image codec.

uint32_t GetPictureFileType(const char* path)
{
    if (!path) return kFileTypeUnusable;
    return COLImageCodec::GetFileType(path);
}

int LoadPictureFile(const char* path, COLImage* image)
{
    if (!path || !image) return 0;
    const uint32_t type = COLImageCodec::GetFileType(path);
    if (type == kFileTypeUnusable || type == kFileTypeProject || type == kFileTypePsd) return 0;
    COLImageCodec codec;
    if (!codec.LoadFile(path, image) || image->IsEmpty() || image->GetWidth() > kMaxImageSide ||
        image->GetHeight() > kMaxImageSide) {
        image->Free();
        return 0;
    }
    return 1;
}

int SavePictureFile(const char* path, const COLImage* image)
{
    if (!path || !image || image->IsEmpty()) return 0;
    COLImageCodec codec;
    return codec.SaveFile(path, image) ? 1 : 0;
}
