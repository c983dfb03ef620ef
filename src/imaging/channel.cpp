#include "imaging/channel.h"

#include <cstring>
#include <utility>

#include "imaging/image.h"
#include "runtime/aligned_block.h"

COLChannel::~COLChannel() { Free(); }

COLChannel::COLChannel(COLChannel&& other) noexcept { *this = std::move(other); }

COLChannel& COLChannel::operator=(COLChannel&& other) noexcept
{
    if (this != &other) {
        Free();
        m_pAllocation = other.m_pAllocation;
        m_pBuffer = other.m_pBuffer;
        m_width = other.m_width;
        m_height = other.m_height;
        m_byteSize = other.m_byteSize;
        other.m_pAllocation = nullptr;
        other.m_pBuffer = nullptr;
    }
    return *this;
}

long COLChannel::Create(uint32_t width, uint32_t height)
{
    if (m_pBuffer && width == m_width && height == m_height) return kOk;
    Free();
    const uint64_t bytes = uint64_t(width) * height;
    if (bytes > 0xFFFFFFF0u) return kFail;
    if (!AlignedBlock::Allocate(static_cast<size_t>(bytes), m_pAllocation, m_pBuffer)) return kFail;
    m_width = width;
    m_height = height;
    m_byteSize = static_cast<uint32_t>(bytes);
    return kOk;
}

void COLChannel::Free()
{
    if (m_pBuffer) {
        AlignedBlock::Release(m_pAllocation);
        m_pBuffer = nullptr;
    }
}

int COLChannel::DuplicateFrom(const COLChannel* source)
{
    if (!source || !source->m_pBuffer) return 0;
    if (source == this) return 1;
    if (Create(source->m_width, source->m_height) != kOk) return 0;
    std::memcpy(m_pBuffer, source->m_pBuffer, m_byteSize);
    return 1;
}

int COLChannel::ExtractFrom(const COLImage* image, int byteIndex)
{
    if (!image || image->IsNull()) return 0;
    if (Create(image->GetWidth(), image->GetHeight()) != kOk) return 0;
    const uint8_t* src = reinterpret_cast<const uint8_t*>(image->GetBuffer()) + byteIndex;
    for (uint32_t i = 0; i < m_byteSize; ++i) m_pBuffer[i] = src[size_t(i) * 4];
    return 1;
}

COLChannel* COLChannel::Add(const COLChannel* other)
{
    if (!m_pBuffer) {
        DuplicateFrom(other);
        return this;
    }
    if (!other || !other->m_pBuffer || other->m_width != m_width || other->m_height != m_height) return this;
    const uint8_t* b = other->m_pBuffer;
    for (uint32_t i = 0; i < m_byteSize; ++i) {
        if (b[i] == 255)
            m_pBuffer[i] = 255;
        else if (b[i] != 0)
            m_pBuffer[i] = static_cast<uint8_t>(((255 - b[i]) * m_pBuffer[i] + 255 * b[i]) / 255);
    }
    return this;
}

COLChannel* COLChannel::Subtract(const COLChannel* other)
{
    // An empty plane takes the subtrahend itself; the selection tools rely on that.
    if (!m_pBuffer) {
        DuplicateFrom(other);
        return this;
    }
    if (!other || !other->m_pBuffer || other->m_width != m_width || other->m_height != m_height) return this;
    const uint8_t* b = other->m_pBuffer;
    for (uint32_t i = 0; i < m_byteSize; ++i) {
        if (b[i] == 255)
            m_pBuffer[i] = 0;
        else if (b[i] != 0)
            m_pBuffer[i] = static_cast<uint8_t>((255 - b[i]) * m_pBuffer[i] / 255);
    }
    return this;
}

void COLChannel::Square()
{
    if (!m_pBuffer) return;
    for (uint32_t i = 0; i < m_byteSize; ++i) m_pBuffer[i] = static_cast<uint8_t>(m_pBuffer[i] * m_pBuffer[i] / 255);
}

int COLChannel::IsAllZero() const
{
    if (!m_pBuffer) return 1;
    for (uint32_t i = 0; i < m_byteSize; ++i)
        if (m_pBuffer[i]) return 0;
    return 1;
}

void COLChannel::SaveToFile(const char* path) const
{
    if (!m_pBuffer) return;
    COLImage image;
    if (image.Create(m_width, m_height) != kOk) return;
    CPixel* dst = image.GetBuffer();
    for (uint32_t i = 0; i < m_byteSize; ++i) dst[i].blue = dst[i].green = dst[i].red = m_pBuffer[i];
    image.SaveToFile(path);
}
