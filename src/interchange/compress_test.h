#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "matting/image_process.h"

// The record of CCompressTestProcess: the JPEG writer's quality, 1..100, or 101..200 for full-resolution colour.
struct CompressTestParams {
    int32_t quality = 80;
};

// Measures what a JPEG of the source would cost on disk and shows what it would look like: the source is encoded
// whole at the quality of the record, exactly as the JPEG save writes it, and the compressed size is the size of
// that file. With m_loadResult set the encoded picture is decoded into the destination, artefacts and all.
//
// The encoding stays in memory: no test file in the temporary folder (two dialogs, or two programs, would share
// one name), nothing to delete, and a full or read-only disk does not stop the preview.
class CCompressTestProcess : public CImageProcess {
public:
    // kOk; kFail when the source is missing, memory runs out or a cancel arrived (checked every 16 rows).
    long Process(const void* params) override;

    int32_t m_quality = 0;
    size_t m_compressedSize = 0; // bytes
    int m_loadResult = 1;
    // Called on the running thread as soon as the size is known, before the preview is decoded, so that the
    // size can be shown while the preview is still on its way. May be empty.
    std::function<void(size_t)> m_onSize;
};

// The size text's number: kilobytes as the size times 1 / 1024.
inline double CompressedKilobytes(size_t bytes)
{
    return static_cast<double>(bytes) * 0.0009765625;
}
