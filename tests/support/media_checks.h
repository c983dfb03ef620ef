#pragma once

// Helpers of the picture-file and layer-file tests: files built byte by byte (each codec test and the layered
// file's builder wrote its own little- or big-endian writer) and a layer's name as a string.

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "document/layer.h"

namespace vmtest {

// The bytes of a file written field by field: numbers little-endian (BMP, TGA, PCX, TIFF "II") or big-endian
// (Photoshop, TIFF "MM"). It is the byte vector itself, so it can be indexed, patched, grown and compared.
struct ByteWriter : std::vector<uint8_t> {
    bool bigEndian = false;

    explicit ByteWriter(bool big = false) : bigEndian(big) {}
    void U8(uint32_t x) { push_back(uint8_t(x)); }
    void U16(uint32_t x)
    {
        U8(bigEndian ? x >> 8 : x);
        U8(bigEndian ? x : x >> 8);
    }
    void U32(uint32_t x)
    {
        U16(bigEndian ? x >> 16 : x);
        U16(bigEndian ? x : x >> 16);
    }
    void Str(const std::string& s) { insert(end(), s.begin(), s.end()); }
    void Add(const std::vector<uint8_t>& b) { insert(end(), b.begin(), b.end()); }
    // Overwrites four bytes already written, at a field's offset.
    void Set32(size_t at, uint32_t x)
    {
        for (int i = 0; i < 4; ++i)
            (*this)[at + size_t(i)] = uint8_t(x >> (bigEndian ? 24 - 8 * i : 8 * i));
    }
};

// A layer's name up to its terminating zero, or the whole field when it fills it.
inline std::string LayerName(const CLayer* layer)
{
    return std::string(layer->m_name, strnlen(layer->m_name, kLayerNameBytes));
}

} // namespace vmtest
