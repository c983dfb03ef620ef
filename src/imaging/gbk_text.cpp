#include "imaging/gbk_text.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iconv.h>

namespace {

bool Convert(const char* to, const char* from, std::string_view in, std::string& out)
{
    iconv_t cd = iconv_open(to, from);
    if (cd == reinterpret_cast<iconv_t>(-1)) return false;
    std::string result;
    result.resize(in.size() * 2 + 16);
    char* src = const_cast<char*>(in.data());
    size_t srcLeft = in.size();
    size_t done = 0;
    bool ok = true;
    while (srcLeft > 0) {
        char* dst = result.data() + done;
        size_t dstLeft = result.size() - done;
        const size_t r = iconv(cd, &src, &srcLeft, &dst, &dstLeft);
        done = result.size() - dstLeft;
        if (r != static_cast<size_t>(-1)) continue;
        if (errno == E2BIG) {
            result.resize(result.size() * 2);
            continue;
        }
        ok = false; // EILSEQ or EINVAL: not text of the source encoding
        break;
    }
    iconv_close(cd);
    if (!ok) return false;
    result.resize(done);
    out = std::move(result);
    return true;
}

} // namespace

bool Utf8ToGbk(std::string_view utf8, std::string& gbk)
{
    return Convert("GBK", "UTF-8", utf8, gbk);
}

bool GbkToUtf8(std::string_view gbk, std::string& utf8)
{
    return Convert("UTF-8", "GBK", gbk, utf8);
}

std::string GbkForDisplay(std::string_view gbk)
{
    std::string utf8;
    if (GbkToUtf8(gbk, utf8)) return utf8;
    std::string shown;
    for (unsigned char c : gbk) {
        if (c < 128) {
            shown += static_cast<char>(c);
        } else {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02X", c);
            shown += hex;
        }
    }
    return shown;
}

size_t CopyGbkField(char* field, size_t size, std::string_view gbk)
{
    if (size == 0) return 0;
    size_t n = 0;
    while (n < gbk.size() && gbk[n] != '\0') {
        const size_t step = static_cast<unsigned char>(gbk[n]) >= 128 ? 2 : 1;
        if (n + step > size - 1 || n + step > gbk.size()) break;
        n += step;
    }
    std::memcpy(field, gbk.data(), n);
    std::memset(field + n, 0, size - n);
    return n;
}
