#include "cli/mask_png.h"

#include <cstdint>
#include <vector>
#include <zlib.h>

#include "imaging/channel.h"
#include "imaging/safe_file.h"

namespace cli {

namespace {

void PutU32(std::vector<uint8_t>& out, uint32_t v)
{
    out.push_back(uint8_t(v >> 24));
    out.push_back(uint8_t(v >> 16));
    out.push_back(uint8_t(v >> 8));
    out.push_back(uint8_t(v));
}

void Chunk(std::vector<uint8_t>& out, const char* type, const uint8_t* data, size_t size)
{
    PutU32(out, uint32_t(size));
    const size_t start = out.size();
    out.insert(out.end(), type, type + 4);
    out.insert(out.end(), data, data + size);
    PutU32(out, uint32_t(crc32(0, out.data() + start, uInt(size + 4))));
}

} // namespace

std::string SaveGrayPng(const std::string& path, const COLChannel& plane)
{
    if (plane.IsNull()) return path + ": the plane is empty, there is nothing to write";
    const uint32_t w = plane.GetWidth(), h = plane.GetHeight();
    std::vector<uint8_t> raw;
    raw.reserve(size_t(w + 1) * h);
    for (uint32_t y = 0; y < h; ++y) {
        raw.push_back(0);   // no filter
        const uint8_t* row = plane.GetBuffer(0, y);
        raw.insert(raw.end(), row, row + w);
    }
    uLongf packedSize = compressBound(uLong(raw.size()));
    std::vector<uint8_t> packed(packedSize);
    if (compress2(packed.data(), &packedSize, raw.data(), uLong(raw.size()), 6) != Z_OK)
        return path + ": out of memory while compressing";
    std::vector<uint8_t> file = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<uint8_t> header;
    PutU32(header, w);
    PutU32(header, h);
    header.insert(header.end(), {8, 0, 0, 0, 0});   // 8-bit gray, deflate, adaptive filters, no interlace
    Chunk(file, "IHDR", header.data(), header.size());
    Chunk(file, "IDAT", packed.data(), packedSize);
    Chunk(file, "IEND", nullptr, 0);
    CSafeFileWriter writer;
    if (!writer.Open(path) || !writer.Write(file.data(), file.size()) || !writer.Commit())
        return "cannot write " + path + " (folder missing, no permission or disk full)";
    return {};
}

} // namespace cli
