#include "imaging/image.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>
#include <new>
#include <vector>

#include "imaging/channel.h"
#include "imaging/safe_file.h"
#include "runtime/aligned_block.h"

COLImage::~COLImage() { Free(); }

COLImage::COLImage(COLImage&& other) noexcept { *this = std::move(other); }

COLImage& COLImage::operator=(COLImage&& other) noexcept
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

long COLImage::Create(uint32_t width, uint32_t height)
{
    if (m_pBuffer && width == m_width && height == m_height) return kOk;
    Free();
    const uint64_t bytes = uint64_t(width) * height * 4;
    if (bytes > 0xFFFFFFF0u) return kFail;   // the byte size must fit its 32-bit field
    uint8_t* aligned = nullptr;
    if (!AlignedBlock::Allocate(static_cast<size_t>(bytes), m_pAllocation, aligned)) return kFail;
    m_pBuffer = reinterpret_cast<CPixel*>(aligned);
    m_width = width;
    m_height = height;
    m_byteSize = static_cast<uint32_t>(bytes);
    return kOk;
}

void COLImage::Free()
{
    if (m_pBuffer) {
        AlignedBlock::Release(m_pAllocation);
        m_pBuffer = nullptr;
    }
}

CPixel COLImage::GetAveragePixel() const
{
    // Divided by count + 1 so an empty image needs no special case; the mean is very slightly low.
    // 64-bit sums: a 20-megapixel photo would overflow 32 bits.
    uint64_t r = 0, g = 0, b = 0;
    const size_t n = m_pBuffer ? GetPixelCount() : 0;
    for (size_t i = 0; i < n; ++i) {
        r += m_pBuffer[i].red;
        g += m_pBuffer[i].green;
        b += m_pBuffer[i].blue;
    }
    const uint64_t d = uint64_t(static_cast<uint32_t>(n)) + 1;
    CPixel p{};
    p.red = static_cast<uint8_t>(r / d);
    p.green = static_cast<uint8_t>(g / d);
    p.blue = static_cast<uint8_t>(b / d);
    p.alpha = 0;
    return p;
}

uint32_t COLImage::BuildGrayChannel()
{
    if (!m_pBuffer || m_height == 0) return 0;
    uint32_t sum = 0;
    const size_t n = GetPixelCount();
    for (size_t i = 0; i < n; ++i) {
        const uint8_t g = m_pBuffer[i].GetGray2();
        m_pBuffer[i].alpha = g;
        sum += g;
    }
    return sum;
}

void COLImage::ComputeLaplasToAlpha()
{
    if (!m_pBuffer) return;
    const size_t n = GetPixelCount();
    for (size_t i = 0; i < n; ++i) m_pBuffer[i].alpha = m_pBuffer[i].GetGray2();

    std::unique_ptr<CPixel[]> copy(new (std::nothrow) CPixel[n]);
    if (!copy) return;
    std::memcpy(copy.get(), m_pBuffer, n * sizeof(CPixel));

    const int w = static_cast<int>(m_width), h = static_cast<int>(m_height);
    auto g = [&](int x, int y) { return int(copy[size_t(y) * w + x].alpha); };
    // A cross with arms of 3 pixels; the low byte of |L| is kept unsaturated, weak responses dropped.
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            uint8_t a = 0;
            if (y >= 3 && x >= 3 && y <= h - 4 && x <= w - 4) {
                const int L = 4 * g(x, y) - g(x - 3, y) - g(x + 3, y) - g(x, y - 3) - g(x, y + 3);
                a = static_cast<uint8_t>(std::abs(L) & 0xFF);
                if (a < 32) a = 0;
            }
            m_pBuffer[size_t(y) * w + x].alpha = a;
        }
    }

    // Remove isolated edge dots: fewer than 5 of the 8 neighbours set clears the pixel.
    std::memcpy(copy.get(), m_pBuffer, n * sizeof(CPixel));
    for (int y = 1; y <= h - 2; ++y) {
        for (int x = 1; x <= w - 2; ++x) {
            int count = 0;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx)
                    if ((dx || dy) && copy[size_t(y + dy) * w + (x + dx)].alpha != 0) ++count;
            if (count < 5) m_pBuffer[size_t(y) * w + x].alpha = 0;
        }
    }
}

int COLImage::DuplicateFrom(const COLImage* source)
{
    if (!source || !source->m_pBuffer) return 0;
    if (source == this) return 1;
    if (m_pBuffer && m_byteSize >= source->m_byteSize) {
        m_width = source->m_width;
        m_height = source->m_height;
    } else if (Create(source->m_width, source->m_height) != kOk) {
        return 0;
    }
    m_byteSize = source->m_height * source->m_width * 4;
    std::memcpy(m_pBuffer, source->m_pBuffer, m_byteSize);
    return 1;
}

int COLImage::ChannelFrom(const COLChannel* channel, int index)
{
    if (!channel || channel->IsNull() || channel->GetWidth() != m_width || channel->GetHeight() != m_height ||
        !m_pBuffer)
        return 0;
    if (index < 0) index = 0;
    if (index > 3) index = 3;
    const uint8_t* src = channel->GetBuffer();
    uint8_t* dst = reinterpret_cast<uint8_t*>(m_pBuffer) + index;
    const size_t n = GetPixelCount();
    for (size_t i = 0; i < n; ++i) dst[i * 4] = src[i];
    return 1;
}

COLImage* COLImage::CreateNewInstance() { return new (std::nothrow) COLImage(); }

namespace {

uint32_t ReadLe32(const uint8_t* p) { return p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24; }
uint16_t ReadLe16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
void PutLe32(uint8_t* p, uint32_t v)
{
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
    p[2] = uint8_t(v >> 16);
    p[3] = uint8_t(v >> 24);
}
void PutLe16(uint8_t* p, uint16_t v)
{
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
}

struct FileCloser {
    void operator()(FILE* f) const { std::fclose(f); }
};

// Row length in bytes, padded to 4, as the reader expects it for each depth.
size_t BmpRowBytes(uint32_t width, int bits)
{
    switch (bits) {
    case 1: return width % 32 == 0 ? width / 8 : (width / 8) / 4 * 4 + 4;
    case 4: return width % 8 == 0 ? width / 2 : (width / 2) / 4 * 4 + 4;
    case 8: return (size_t(width) + 3) / 4 * 4;
    case 24: return (size_t(width) * 3 + 3) / 4 * 4;
    default: return 0;
    }
}

} // namespace

long COLImage::LoadFromFile(const char* path)
{
    std::unique_ptr<FILE, FileCloser> file(std::fopen(path, "rb"));
    if (!file) return kBmpCannotOpen;
    uint8_t header[54];
    if (std::fread(header, 1, 2, file.get()) != 2 || header[0] != 'B') return kBmpBadData;
    if (std::fread(header + 2, 1, 52, file.get()) != 52) return kBmpBadData;

    const int32_t rawWidth = static_cast<int32_t>(ReadLe32(header + 18));
    int32_t rawHeight = static_cast<int32_t>(ReadLe32(header + 22));
    const int bits = ReadLe16(header + 28);
    if (rawHeight < 0) rawHeight = -rawHeight;
    // Refuse absurd headers before allocating anything.
    if (rawWidth <= 0 || rawHeight <= 0 || uint32_t(rawWidth) > kMaxImageSide || uint32_t(rawHeight) > kMaxImageSide)
        return kBmpBadData;
    const uint32_t width = uint32_t(rawWidth), height = uint32_t(rawHeight);

    uint8_t palette[256 * 4] = {};
    const int entries = bits == 1 ? 2 : bits == 4 ? 16 : bits == 8 ? 256 : 0;
    if (entries && std::fread(palette, 4, entries, file.get()) != size_t(entries)) return kBmpBadData;

    if (bits != 1 && bits != 4 && bits != 8 && bits != 24) {
        // Other depths are not decoded: the picture gets its size and stays blank.
        long r = Create(width, height);
        if (r == kOk) std::memset(m_pBuffer, 0, m_byteSize);
        return r;
    }

    const size_t rowBytes = BmpRowBytes(width, bits);
    std::vector<uint8_t> row;
    try {
        row.resize(rowBytes);
    } catch (const std::bad_alloc&) {
        return kBmpNoRowBuffer;
    }
    long r = Create(width, height);
    if (r != kOk) return r;

    for (uint32_t fileRow = 0; fileRow < height; ++fileRow) {
        if (std::fread(row.data(), 1, rowBytes, file.get()) != rowBytes) return kBmpBadData;
        CPixel* dst = GetBuffer(0, height - 1 - fileRow);
        for (uint32_t x = 0; x < width; ++x) {
            const uint8_t* c;
            uint8_t rgb[3];
            switch (bits) {
            case 1: c = palette + 4 * ((row[x / 8] >> (7 - x % 8)) & 1); break;
            case 4: c = palette + 4 * ((x % 2 == 0) ? row[x / 2] >> 4 : row[x / 2] & 15); break;
            case 8: c = palette + 4 * row[x]; break;
            default:
                rgb[0] = row[x * 3];
                rgb[1] = row[x * 3 + 1];
                rgb[2] = row[x * 3 + 2];
                c = rgb;
                break;
            }
            // Alpha is left as it was on purpose.
            dst[x].blue = c[0];
            dst[x].green = c[1];
            dst[x].red = c[2];
        }
    }
    return kOk;
}

long COLImage::SaveToFile(const char* path) const
{
    if (!m_pBuffer) return kBmpCannotOpen;
    const uint32_t stride = (m_width * 3 + 3) / 4 * 4;
    uint8_t header[54] = {};
    header[0] = 'B';
    header[1] = 'M';
    // The size fields state three times the pixel bytes; readers ignore them and the files have always said so.
    PutLe32(header + 2, (stride * m_height + 18) * 3);
    PutLe32(header + 10, 54);
    PutLe32(header + 14, 40);
    PutLe32(header + 18, m_width);
    PutLe32(header + 22, m_height);
    PutLe16(header + 26, 1);
    PutLe16(header + 28, 24);
    PutLe32(header + 34, stride * m_height * 3);
    PutLe32(header + 38, 4730);

    CSafeFileWriter out;
    if (!out.Open(path)) return kBmpCannotOpen;
    out.Write(header, sizeof header);
    std::vector<uint8_t> row(stride, 0);
    // Rows go out top row first although the header declares bottom-up: a dump reads back flipped.
    for (uint32_t y = 0; y < m_height && !out.Failed(); ++y) {
        const CPixel* src = GetBuffer(0, y);
        for (uint32_t x = 0; x < m_width; ++x) {
            row[x * 3] = src[x].blue;
            row[x * 3 + 1] = src[x].green;
            row[x * 3 + 2] = src[x].red;
        }
        out.Write(row.data(), stride);
    }
    // A failed write keeps whatever file was there and reports that the file could not be written.
    return out.Commit() ? kOk : kBmpCannotOpen;
}
