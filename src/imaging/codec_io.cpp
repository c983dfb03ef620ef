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
}

bool CMappedFile::Open(const char* path)
{
    if (!path) return false;
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK); // a FIFO must not block the open
    if (fd < 0) return false;
    struct stat st {};
    bool ok = false;
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
        if (st.st_size == 0) {
            ok = true; // an empty file: nothing to map, every reader refuses it
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
    }
    // Pipes and devices are not read: a FIFO without a writer would hang, /dev/zero never ends.
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
    for (char& c : ext)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext;
}

void OpaqueIfAllClear(COLImage& image)
{
    if (image.IsNull()) return;
    CPixel* p = image.GetBuffer();
    const size_t n = image.GetPixelCount();
    for (size_t i = 0; i < n; ++i)
        if (p[i].alpha != 0) return;
    for (size_t i = 0; i < n; ++i)
        p[i].alpha = 255;
}

} // namespace codec
