#include "interchange/psd_format.h"

#include <cstring>

#include "imaging/gbk_text.h"

namespace psd {

namespace {

constexpr const char* kBlendKeys[11] = {"norm", "dark", "lite", "colr", "lum ", "mul ",
                                        "scrn", "over", "hLit", "sLit", "diff"};

void AppendUtf8(std::string& out, uint32_t cp)
{
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | cp >> 6);
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | cp >> 12);
        out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | cp >> 18);
        out += static_cast<char>(0x80 | (cp >> 12 & 0x3F));
        out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

// Decodes strict UTF-8 into code points; false on anything malformed.
bool DecodeUtf8(std::string_view s, std::vector<uint32_t>& cps)
{
    for (size_t i = 0; i < s.size();) {
        const uint8_t c = static_cast<uint8_t>(s[i]);
        int extra;
        uint32_t cp;
        if (c < 0x80) {
            extra = 0;
            cp = c;
        } else if (c >= 0xC2 && c < 0xE0) {
            extra = 1;
            cp = c & 0x1F;
        } else if (c >= 0xE0 && c < 0xF0) {
            extra = 2;
            cp = c & 0x0F;
        } else if (c >= 0xF0 && c < 0xF5) {
            extra = 3;
            cp = c & 0x07;
        } else {
            return false;
        }
        if (i + 1 + static_cast<size_t>(extra) > s.size()) return false;
        for (int k = 1; k <= extra; ++k) {
            const uint8_t t = static_cast<uint8_t>(s[i + static_cast<size_t>(k)]);
            if ((t & 0xC0) != 0x80) return false;
            cp = cp << 6 | (t & 0x3F);
        }
        if ((extra == 2 && cp < 0x800) || (extra == 3 && (cp < 0x10000 || cp > 0x10FFFF)) ||
            (cp >= 0xD800 && cp < 0xE000))
            return false;
        cps.push_back(cp);
        i += 1 + static_cast<size_t>(extra);
    }
    return true;
}

// GBK for a list of code points, character by character so that one it lacks becomes '?' alone.
std::string GbkFromCodePoints(const std::vector<uint32_t>& cps)
{
    std::string gbk;
    for (uint32_t cp : cps) {
        if (cp == 0) break;
        std::string one, converted;
        AppendUtf8(one, cp);
        if (cp < 0x80)
            gbk += static_cast<char>(cp);
        else if (Utf8ToGbk(one, converted) && !converted.empty())
            gbk += converted;
        else
            gbk += '?';
        if (gbk.size() >= 64) break; // far beyond the field already
    }
    return gbk;
}

std::string FitField(std::string_view gbk)
{
    char field[32];
    const size_t n = CopyGbkField(field, sizeof field, gbk);
    return std::string(field, n);
}

} // namespace

int BlendModeFromKey(const uint8_t* key)
{
    for (int i = 0; i < 11; ++i)
        if (std::memcmp(key, kBlendKeys[i], 4) == 0) return i;
    return 0;
}

const char* BlendKeyOfMode(int mode)
{
    return mode >= 0 && mode < 11 ? kBlendKeys[mode] : kBlendKeys[0];
}

bool IsAscii(std::string_view text)
{
    for (char c : text)
        if (static_cast<uint8_t>(c) >= 0x80) return false;
    return true;
}

std::string NameFromPascal(const uint8_t* bytes, size_t length)
{
    std::string_view raw(reinterpret_cast<const char*>(bytes), length);
    if (const size_t nul = raw.find('\0'); nul != std::string_view::npos) raw = raw.substr(0, nul);
    if (IsAscii(raw)) return FitField(raw);
    std::vector<uint32_t> cps;
    if (DecodeUtf8(raw, cps)) return FitField(GbkFromCodePoints(cps));
    return FitField(raw);
}

std::string NameFromUtf16(const uint8_t* bigEndian, size_t count)
{
    std::vector<uint32_t> cps;
    for (size_t i = 0; i < count; ++i) {
        uint32_t u = Be16(bigEndian + 2 * i);
        if (u >= 0xD800 && u < 0xDC00 && i + 1 < count) {
            const uint32_t lo = Be16(bigEndian + 2 * (i + 1));
            if (lo >= 0xDC00 && lo < 0xE000) {
                u = 0x10000 + ((u - 0xD800) << 10) + (lo - 0xDC00);
                ++i;
            }
        }
        if (u == 0) break;
        cps.push_back(u);
    }
    return FitField(GbkFromCodePoints(cps));
}

std::u16string Utf16FromGbk(std::string_view gbk)
{
    std::string utf8;
    std::vector<uint32_t> cps;
    if (!GbkToUtf8(gbk, utf8) || !DecodeUtf8(utf8, cps)) {
        cps.clear();
        for (char c : gbk)
            cps.push_back(static_cast<uint8_t>(c));
    }
    std::u16string out;
    for (uint32_t cp : cps) {
        if (cp >= 0x10000) {
            out += static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10));
            out += static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF));
        } else {
            out += static_cast<char16_t>(cp);
        }
    }
    return out;
}

void AppendLayerName(CByteSink& sink, std::string_view gbkName)
{
    if (gbkName.size() > 255) gbkName = gbkName.substr(0, 255);
    sink.U8(static_cast<uint32_t>(gbkName.size()));
    sink.Text(gbkName);
    sink.Zeros((4 - (1 + gbkName.size()) % 4) % 4);
    if (IsAscii(gbkName)) return;
    const std::u16string utf16 = Utf16FromGbk(gbkName);
    const size_t data = 4 + 2 * utf16.size();
    const size_t padded = (data + 3) / 4 * 4;
    sink.Text("8BIMluni");
    sink.U32(static_cast<uint32_t>(padded));
    sink.U32(static_cast<uint32_t>(utf16.size()));
    for (char16_t u : utf16)
        sink.U16(u);
    sink.Zeros(padded - data);
}

} // namespace psd
