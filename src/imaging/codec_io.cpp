#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "imaging/codec_formats.h"

namespace codec {

CMappedFile::~CMappedFile()
{
    if (m_pMapped) munmap(m_pMapped, m_size);
    std::free(m_pOwned);
}

bool CMappedFile::Open(const char* path)
{
    if (!path) return false;
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat st {};
    bool ok = false;
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
        if (st.st_size == 0) {
            ok = true;   // an empty file: nothing to map, every reader refuses it
        } else if (static_cast<uint64_t>(st.st_size) <= SIZE_MAX) {
            m_size = static_cast<size_t>(st.st_size);
            void* p = mmap(nullptr, m_size, PROT_READ, MAP_PRIVATE, fd, 0);
            if (p != MAP_FAILED) {
                m_pMapped = p;
                m_pData = static_cast<const uint8_t*>(p);
                ok = true;
            } else {
                m_size = 0;
            }
        }
    } else if (fstat(fd, &st) == 0 && !S_ISDIR(st.st_mode)) {
        // A pipe or device: read it, with a ceiling well above any picture we accept.
        const size_t limit = size_t(2) << 30;
        size_t cap = 1 << 16;
        m_pOwned = static_cast<uint8_t*>(std::malloc(cap));
        ok = m_pOwned != nullptr;
        while (ok) {
            if (m_size == cap) {
                if (cap >= limit) {
                    ok = false;
                    break;
                }
                uint8_t* grown = static_cast<uint8_t*>(std::realloc(m_pOwned, cap * 2));
                if (!grown) {
                    ok = false;
                    break;
                }
                m_pOwned = grown;
                cap *= 2;
            }
            const ssize_t n = read(fd, m_pOwned + m_size, cap - m_size);
            if (n < 0) ok = false;
            if (n <= 0) break;
            m_size += static_cast<size_t>(n);
        }
        m_pData = m_pOwned;
    }
    close(fd);
    return ok;
}

std::string Extension(const char* path)
{
    if (!path) return {};
    const char* slash = std::strrchr(path, '/');
    const char* name = slash ? slash + 1 : path;
    const char* dot = std::strrchr(name, '.');
    if (!dot || dot == name) return {};
    std::string ext(dot + 1);
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext;
}

void OpaqueIfAllClear(COLImage& image)
{
    if (image.IsEmpty()) return;
    CPixel* p = image.GetBuffer();
    const size_t n = image.GetPixelCount();
    for (size_t i = 0; i < n; ++i)
        if (p[i].alpha != 0) return;
    for (size_t i = 0; i < n; ++i) p[i].alpha = 255;
}

} // namespace codec
