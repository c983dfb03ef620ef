#pragma once

#include <cstddef>
#include <cstdint>

#include "imaging/pixel.h"
#include "imaging/result.h"

class COLChannel;

// 32-bit raster: 16-byte aligned buffer, no row padding, rows top-down.
// An image exists when its buffer is not null; Free keeps width and height so GetSize still answers.
// Copying is by DuplicateFrom; the object itself moves but does not copy, so a buffer has exactly one owner.
class COLImage {
public:
    COLImage() = default;
    virtual ~COLImage();
    COLImage(const COLImage&) = delete;
    COLImage& operator=(const COLImage&) = delete;
    COLImage(COLImage&& other) noexcept;
    COLImage& operator=(COLImage&& other) noexcept;

    // Keeps the pixels when the size is unchanged; otherwise reallocates without clearing.
    long Create(uint32_t width, uint32_t height);
    void Free();

    CPixel* GetBuffer(uint32_t x = 0, uint32_t y = 0) const { return m_pBuffer + (size_t(y) * m_width + x); }
    // No pixels at all: the image was never created or has been freed.
    bool IsNull() const { return m_pBuffer == nullptr; }
    void PutPixel(uint32_t x, uint32_t y, CPixel p) { m_pBuffer[size_t(y) * m_width + x] = p; }
    uint32_t GetPixel(uint32_t x, uint32_t y) const { return m_pBuffer[size_t(y) * m_width + x].Word(); }
    CPixel GetPixel2(uint32_t x, uint32_t y) const { return m_pBuffer[size_t(y) * m_width + x]; }
    // Clamps with an unsigned test: a negative coordinate lands on the last column or row.
    CPixel GetSafePixel(int x, int y) const
    {
        uint32_t ux = static_cast<uint32_t>(x), uy = static_cast<uint32_t>(y);
        if (ux > m_width - 1) ux = m_width - 1;
        if (uy > m_height - 1) uy = m_height - 1;
        return m_pBuffer[size_t(uy) * m_width + ux];
    }
    void GetSize(uint32_t& width, uint32_t& height) const
    {
        width = m_width;
        height = m_height;
    }
    uint32_t GetWidth() const { return m_width; }
    uint32_t GetHeight() const { return m_height; }
    uint32_t GetAreaByteSize() const { return m_byteSize; }
    size_t GetPixelCount() const { return size_t(m_width) * m_height; }

    CPixel GetAveragePixel() const;
    uint32_t BuildGrayChannel();
    void ComputeLaplasToAlpha();
    int DuplicateFrom(const COLImage* source);
    int ChannelFrom(const COLChannel* channel, int index);
    static COLImage* CreateNewInstance();

    // Small uncompressed BMP reader and writer (results: 0, 2, 8, 9, kFail).
    long LoadFromFile(const char* path);
    long SaveToFile(const char* path) const;

private:
    void* m_pAllocation = nullptr;
    CPixel* m_pBuffer = nullptr;
    uint32_t m_width = 0;
    uint32_t m_height = 0;
    uint32_t m_byteSize = 0;
};

// Result codes of the small BMP reader and writer.
inline constexpr long kBmpCannotOpen = 2;
inline constexpr long kBmpNoRowBuffer = 8;
inline constexpr long kBmpBadData = 9;
