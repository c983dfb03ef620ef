#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

// Little-endian field access and exact reads and writes on stdio streams, shared by the project file and the
// history log. Every number in both formats is little-endian whatever the machine.
namespace vmio {

inline void PutU32(uint8_t* p, uint32_t v)
{
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
    p[2] = static_cast<uint8_t>(v >> 16);
    p[3] = static_cast<uint8_t>(v >> 24);
}
inline void PutI32(uint8_t* p, int32_t v) { PutU32(p, static_cast<uint32_t>(v)); }
inline void PutU16(uint8_t* p, uint16_t v)
{
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}
inline uint32_t GetU32(const uint8_t* p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
inline int32_t GetI32(const uint8_t* p) { return static_cast<int32_t>(GetU32(p)); }
inline int16_t GetI16(const uint8_t* p) { return static_cast<int16_t>(uint16_t(p[0]) | uint16_t(p[1]) << 8); }

inline bool WriteBytes(FILE* f, const void* data, size_t bytes)
{
    return bytes == 0 || std::fwrite(data, 1, bytes, f) == bytes;
}
inline bool ReadBytes(FILE* f, void* data, size_t bytes)
{
    return bytes == 0 || std::fread(data, 1, bytes, f) == bytes;
}
inline bool WriteU32(FILE* f, uint32_t v)
{
    uint8_t b[4];
    PutU32(b, v);
    return WriteBytes(f, b, 4);
}
inline bool ReadU32(FILE* f, uint32_t& v)
{
    uint8_t b[4];
    if (!ReadBytes(f, b, 4)) return false;
    v = GetU32(b);
    return true;
}
inline bool ReadI32(FILE* f, int32_t& v)
{
    uint32_t u = 0;
    if (!ReadU32(f, u)) return false;
    v = static_cast<int32_t>(u);
    return true;
}

// Bytes between the stream position and the end of the file, so that a size field read from a damaged file can
// be refused before anything is allocated for it. A stream that cannot seek answers SIZE_MAX: its reads still
// stop at the first short read.
inline uint64_t RemainingBytes(FILE* f)
{
    const long here = std::ftell(f);
    if (here < 0 || std::fseek(f, 0, SEEK_END) != 0) return UINT64_MAX;
    const long end = std::ftell(f);
    std::fseek(f, here, SEEK_SET);
    return end >= here ? static_cast<uint64_t>(end - here) : 0;
}

// Skips forward by reading when the stream cannot seek.
inline bool SkipBytes(FILE* f, uint64_t bytes)
{
    if (bytes == 0) return true;
    if (bytes <= 0x7FFFFFFF && std::fseek(f, static_cast<long>(bytes), SEEK_CUR) == 0) return true;
    uint8_t block[4096];
    while (bytes) {
        const size_t n = bytes < sizeof block ? static_cast<size_t>(bytes) : sizeof block;
        if (!ReadBytes(f, block, n)) return false;
        bytes -= n;
    }
    return true;
}

} // namespace vmio
