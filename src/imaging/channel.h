#pragma once

#include <cstddef>
#include <cstdint>

#include "imaging/result.h"

class COLImage;

// 8-bit plane with the same layout and ownership rules as COLImage; used for masks and contours.
class COLChannel {
public:
    COLChannel() = default;
    virtual ~COLChannel();
    COLChannel(const COLChannel&) = delete;
    COLChannel& operator=(const COLChannel&) = delete;
    COLChannel(COLChannel&& other) noexcept;
    COLChannel& operator=(COLChannel&& other) noexcept;

    long Create(uint32_t width, uint32_t height);
    void Free();

    uint8_t* GetBuffer(uint32_t x = 0, uint32_t y = 0) const { return m_pBuffer + (size_t(y) * m_width + x); }
    bool IsNull() const { return m_pBuffer == nullptr; }
    uint8_t GetValue(uint32_t x, uint32_t y) const { return m_pBuffer[size_t(y) * m_width + x]; }
    void SetValue(uint32_t x, uint32_t y, uint8_t v) { m_pBuffer[size_t(y) * m_width + x] = v; }
    void GetSize(uint32_t& width, uint32_t& height) const
    {
        width = m_width;
        height = m_height;
    }
    uint32_t GetWidth() const { return m_width; }
    uint32_t GetHeight() const { return m_height; }
    uint32_t GetAreaByteSize() const { return m_byteSize; }

    int DuplicateFrom(const COLChannel* source);
    int ExtractFrom(const COLImage* image, int byteIndex);
    // Union and difference of soft masks, as the selection tools add and subtract.
    COLChannel* Add(const COLChannel* other);
    COLChannel* Subtract(const COLChannel* other);
    void Square();
    // 1 when no byte is set (a mask that selects nothing), a plane without a buffer included.
    int IsAllZero() const;
    // Dumps the plane as a gray BMP for inspection; failures are silent.
    void SaveToFile(const char* path) const;

private:
    void* m_pAllocation = nullptr;
    uint8_t* m_pBuffer = nullptr;
    uint32_t m_width = 0;
    uint32_t m_height = 0;
    uint32_t m_byteSize = 0;
};
