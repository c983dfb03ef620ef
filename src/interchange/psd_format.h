#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Shared pieces of the Photoshop document format (version 1, big-endian): field access, the blend-mode keys and
// layer names, used by the reader and both writers.
namespace psd {

inline uint16_t Be16(const uint8_t* p)
{
    return static_cast<uint16_t>(p[0] << 8 | p[1]);
}
inline uint32_t Be32(const uint8_t* p)
{
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 | static_cast<uint32_t>(p[2]) << 8 |
           p[3];
}

// Appends big-endian fields to a byte buffer.
class CByteSink {
public:
    void U8(uint32_t v) { m_bytes.push_back(static_cast<uint8_t>(v)); }
    void U16(uint32_t v)
    {
        U8(v >> 8);
        U8(v);
    }
    void U32(uint32_t v)
    {
        U16(v >> 16);
        U16(v);
    }
    void Text(std::string_view s) { m_bytes.insert(m_bytes.end(), s.begin(), s.end()); }
    void Zeros(size_t n) { m_bytes.insert(m_bytes.end(), n, 0); }
    void Put32At(size_t at, uint32_t v)
    {
        m_bytes[at] = static_cast<uint8_t>(v >> 24);
        m_bytes[at + 1] = static_cast<uint8_t>(v >> 16);
        m_bytes[at + 2] = static_cast<uint8_t>(v >> 8);
        m_bytes[at + 3] = static_cast<uint8_t>(v);
    }
    size_t Size() const { return m_bytes.size(); }
    const uint8_t* Data() const { return m_bytes.data(); }
    std::vector<uint8_t>& Bytes() { return m_bytes; }

private:
    std::vector<uint8_t> m_bytes;
};

// Our blend modes 0..10 by their four-letter keys; an unknown key is normal (0). A mode outside 0..10 is
// written as "norm".
int BlendModeFromKey(const uint8_t* key);
const char* BlendKeyOfMode(int mode);

// A layer name as this program stores it (GBK, at most 31 bytes, never a split character) from the Pascal name
// of a layer record: ASCII as it stands, valid UTF-8 (what several editors write) converted, anything else
// taken as GBK bytes.
std::string NameFromPascal(const uint8_t* bytes, size_t length);
// The same from the UTF-16 name of a "luni" block; characters that GBK lacks become '?'.
std::string NameFromUtf16(const uint8_t* bigEndian, size_t count);
// UTF-16 code units of a GBK name, for a "luni" block; bytes that are not GBK are taken one by one as Latin-1.
std::u16string Utf16FromGbk(std::string_view gbk);
bool IsAscii(std::string_view text);

// The name area of a layer record: the Pascal name padded to a multiple of 4 and, for a name that is not plain
// ASCII, a "luni" block with its UTF-16 form so that other editors show it right.
void AppendLayerName(CByteSink& sink, std::string_view gbkName);

} // namespace psd
