#include "interchange/psd_reader.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <zlib.h>

#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/channel.h"
#include "imaging/gbk_text.h"
#include "imaging/image.h"
#include "interchange/packbits.h"
#include "interchange/psd_format.h"

namespace {

constexpr uint32_t kMaxPsdChannels = 56;
constexpr int kSectionFolderOpen = 1, kSectionFolderClosed = 2, kSectionDivider = 3;

const char* ModeName(uint16_t mode)
{
    switch (mode) {
    case 0:
        return "bitmap";
    case 2:
        return "indexed";
    case 4:
        return "CMYK";
    case 7:
        return "multichannel";
    case 8:
        return "duotone";
    case 9:
        return "Lab";
    default:
        return "unknown";
    }
}

// Fewest bytes that PackBits needs for `bytes` of output: two per 128.
uint64_t PackBitsFloor(uint64_t bytes)
{
    return (bytes + 127) / 128 * 2;
}

} // namespace

struct CPsdReader::CRecord {
    int32_t top = 0, left = 0, bottom = 0, right = 0;
    std::vector<CChannelInfo> channels;
    uint8_t key[4] = {'n', 'o', 'r', 'm'};
    uint8_t opacity = 255;
    uint8_t flags = 0;
    bool hasMask = false;
    int32_t maskTop = 0, maskLeft = 0, maskBottom = 0, maskRight = 0;
    std::string name;
    bool unicodeName = false;
    int sectionType = 0;

    uint32_t Width() const { return static_cast<uint32_t>(right - left); }
    uint32_t Height() const { return static_cast<uint32_t>(bottom - top); }
};

CPsdReader::~CPsdReader()
{
    if (m_pFile && m_ownsFile) std::fclose(m_pFile);
}

int CPsdReader::LoadFile(const char* path, CLayerStack& stack)
{
    m_error = 0;
    m_reason.clear();
    FILE* f = path ? std::fopen(path, "rb") : nullptr;
    if (!f) {
        m_error = kPsdCannotOpen;
        m_reason = "cannot open the file";
        return 0;
    }
    if (m_pFile && m_ownsFile) std::fclose(m_pFile);
    m_pFile = f;
    m_ownsFile = true;
    return Run(stack);
}

int CPsdReader::LoadStream(FILE* stream, CLayerStack& stack)
{
    m_error = 0;
    m_reason.clear();
    if (!stream) {
        m_error = kPsdCannotOpen;
        m_reason = "no stream";
        return 0;
    }
    if (m_pFile && m_ownsFile) std::fclose(m_pFile);
    m_pFile = stream;
    m_ownsFile = false;
    return Run(stack);
}

int CPsdReader::Run(CLayerStack& stack)
{
    m_position = 0;
    m_mergedAlpha = 0;
    // The size bounds every length in the file before anything is allocated for it.
    const long start = std::ftell(m_pFile);
    const long end = start < 0 || std::fseek(m_pFile, 0, SEEK_END) != 0 ? -1 : std::ftell(m_pFile);
    bool ok = end >= start && start >= 0 && std::fseek(m_pFile, start, SEEK_SET) == 0;
    if (!ok) Fail("cannot seek in the file");
    m_fileSize = ok ? static_cast<uint64_t>(end - start) : 0;

    ok = ok && ReadHeader(stack) && ReadColourModeData() && ReadImageResources() && ReadLayers(stack) &&
         ReadMergedImage(stack);
    if (ok) return 1;
    if (m_reason.empty()) m_reason = "damaged file";
    m_error = kPsdBadFile; // an unsupported colour mode too
    return 0;
}

bool CPsdReader::Fail(const char* reason)
{
    if (m_reason.empty()) m_reason = reason;
    return false;
}

bool CPsdReader::Read(void* buffer, size_t bytes)
{
    if (bytes > Remaining()) return Fail("the file ends too early");
    if (bytes && std::fread(buffer, 1, bytes, m_pFile) != bytes) return Fail("the file ends too early");
    m_position += bytes;
    return true;
}

bool CPsdReader::SeekTo(uint64_t position)
{
    if (position > m_fileSize) return Fail("a length points past the end of the file");
    if (position == m_position) return true;
    const long long delta = static_cast<long long>(position) - static_cast<long long>(m_position);
    if (std::fseek(m_pFile, static_cast<long>(delta), SEEK_CUR) != 0) return Fail("cannot seek in the file");
    m_position = position;
    return true;
}

bool CPsdReader::Skip(uint64_t bytes)
{
    if (bytes > Remaining()) return Fail("a length points past the end of the file");
    return SeekTo(m_position + bytes);
}

bool CPsdReader::ReadU16(uint16_t& v)
{
    uint8_t b[2];
    if (!Read(b, 2)) return false;
    v = psd::Be16(b);
    return true;
}

bool CPsdReader::ReadU32(uint32_t& v)
{
    uint8_t b[4];
    if (!Read(b, 4)) return false;
    v = psd::Be32(b);
    return true;
}

int CPsdReader::SkipSection()
{
    uint32_t length;
    if (!ReadU32(length)) return 0;
    return Skip(length) ? 1 : 0;
}

int CPsdReader::ReadHeader(CLayerStack& stack)
{
    uint8_t h[26];
    if (!Read(h, sizeof h)) return 0;
    if (std::memcmp(h, "8BPS", 4) != 0) return Fail("not a Photoshop document"), 0;
    if (psd::Be16(h + 4) == 2) return Fail("large document format (PSB) is not supported"), 0;
    if (psd::Be16(h + 4) != 1) return Fail("unknown Photoshop document version"), 0;
    for (int i = 6; i < 12; ++i)
        if (h[i] != 0) return Fail("damaged header"), 0;
    m_channels = psd::Be16(h + 12);
    const uint32_t height = psd::Be32(h + 14), width = psd::Be32(h + 18);
    m_depth = psd::Be16(h + 22);
    m_colourMode = psd::Be16(h + 24);
    if (m_colourMode != 1 && m_colourMode != 3) {
        m_error = kPsdUnsupportedMode;
        m_reason = std::string(ModeName(m_colourMode)) + " colour mode is not supported (RGB and grayscale are)";
        return 0;
    }
    if (m_depth != 8 && m_depth != 16) {
        m_error = kPsdUnsupportedMode;
        m_reason = std::to_string(m_depth) + "-bit channels are not supported (8 and 16 bits are)";
        return 0;
    }
    if (m_channels < 1 || m_channels > kMaxPsdChannels) return Fail("impossible channel count in the header"), 0;
    if (width < 1 || height < 1 || width > kMaxImageSide || height > kMaxImageSide) {
        m_reason = "picture of " + std::to_string(width) + " x " + std::to_string(height) +
                   ": each side must lie within 1..20000";
        return 0;
    }
    stack.SetSize(static_cast<int>(width), static_cast<int>(height));
    return 1;
}

bool CPsdReader::ReadRecord(CRecord& r)
{
    uint8_t b[18];
    if (!Read(b, sizeof b)) return false;
    r.top = static_cast<int32_t>(psd::Be32(b));
    r.left = static_cast<int32_t>(psd::Be32(b + 4));
    r.bottom = static_cast<int32_t>(psd::Be32(b + 8));
    r.right = static_cast<int32_t>(psd::Be32(b + 12));
    const uint16_t count = psd::Be16(b + 16);
    const int64_t w = int64_t(r.right) - r.left, h = int64_t(r.bottom) - r.top;
    if (w < 0 || h < 0 || w > kMaxImageSide || h > kMaxImageSide)
        return Fail("a layer of impossible size (a side negative or above 20000)");
    if (count > kMaxPsdChannels) return Fail("a layer with an impossible channel count");
    for (uint16_t i = 0; i < count; ++i) {
        uint8_t c[6];
        if (!Read(c, sizeof c)) return false;
        r.channels.push_back({static_cast<int16_t>(psd::Be16(c)), psd::Be32(c + 2)});
    }
    uint8_t blend[16];
    if (!Read(blend, sizeof blend)) return false;
    std::memcpy(r.key, blend + 4, 4);
    r.opacity = blend[8];
    r.flags = blend[10];
    const uint32_t extraLength = psd::Be32(blend + 12);
    if (extraLength > Remaining()) return Fail("a layer record runs past the end of the file");
    const uint64_t extraEnd = m_position + extraLength;

    uint32_t length;
    if (extraEnd - m_position >= 4) {
        if (!ReadU32(length)) return false;
        if (length > extraEnd - m_position) return Fail("a layer mask record runs past its layer record");
        if (length >= 16) {
            uint8_t m[16];
            if (!Read(m, sizeof m)) return false;
            r.hasMask = true;
            r.maskTop = static_cast<int32_t>(psd::Be32(m));
            r.maskLeft = static_cast<int32_t>(psd::Be32(m + 4));
            r.maskBottom = static_cast<int32_t>(psd::Be32(m + 8));
            r.maskRight = static_cast<int32_t>(psd::Be32(m + 12));
            length -= 16;
        }
        if (!Skip(length)) return false;
    }
    if (extraEnd - m_position >= 4) {
        if (!ReadU32(length)) return false;
        if (length > extraEnd - m_position) return Fail("blending ranges run past their layer record");
        if (!Skip(length)) return false;
    }
    if (extraEnd > m_position) {
        uint8_t n;
        if (!Read(&n, 1)) return false;
        uint8_t text[255];
        const size_t have = std::min<uint64_t>(n, extraEnd - m_position);
        if (!Read(text, have)) return false;
        r.name = psd::NameFromPascal(text, have);
        const uint64_t pad = (4 - (1 + have) % 4) % 4;
        if (!Skip(std::min<uint64_t>(pad, extraEnd - m_position))) return false;
    }
    // Additional layer information: the Unicode name and the group markers are used, the rest is skipped.
    while (extraEnd - m_position >= 12) {
        uint8_t t[12];
        if (!Read(t, sizeof t)) return false;
        if (std::memcmp(t, "8BIM", 4) != 0 && std::memcmp(t, "8B64", 4) != 0) break;
        const uint64_t blockLength = std::min<uint64_t>(psd::Be32(t + 8), extraEnd - m_position);
        if (std::memcmp(t + 4, "luni", 4) == 0 && blockLength >= 4) {
            std::vector<uint8_t> data(blockLength);
            if (!Read(data.data(), data.size())) return false;
            const size_t chars = std::min<uint64_t>(psd::Be32(data.data()), (blockLength - 4) / 2);
            r.name = psd::NameFromUtf16(data.data() + 4, chars);
            r.unicodeName = true;
        } else if ((std::memcmp(t + 4, "lsct", 4) == 0 || std::memcmp(t + 4, "lsdk", 4) == 0) && blockLength >= 4) {
            uint32_t type;
            if (!ReadU32(type)) return false;
            r.sectionType = static_cast<int>(type);
            if (!Skip(blockLength - 4)) return false;
        } else if (!Skip(blockLength)) {
            return false;
        }
    }
    return SeekTo(extraEnd);
}

bool CPsdReader::ReadChannel(const CChannelInfo& info, uint32_t width, uint32_t height, std::vector<uint8_t>& plane,
                             bool& empty)
{
    empty = true;
    if (info.length > Remaining()) return Fail("channel data runs past the end of the file");
    if (info.length <= 2) return Skip(info.length);
    uint16_t compression;
    if (!ReadU16(compression)) return false;
    const uint64_t data = info.length - 2;
    const uint64_t bytesPerSample = m_depth / 8;
    const uint64_t rowBytes = uint64_t(width) * bytesPerSample;
    const uint64_t need = rowBytes * height;
    if (need == 0) return Skip(data);
    // The data must be able to fill the plane before memory is taken for it.
    const uint64_t table = uint64_t(height) * 2;
    if (compression == 0 && data < need) return Fail("raw channel data falls short of the layer's size");
    if (compression == 1 && data < table + PackBitsFloor(need))
        return Fail("PackBits channel data falls short of the layer's size");
    if ((compression == 2 || compression == 3) && need / 1032 > data)
        return Fail("ZIP channel data falls short of the layer's size");
    if (compression > 3) return Fail("unknown channel compression");
    empty = false;
    std::vector<uint8_t> decoded, packed;
    try {
        plane.resize(size_t(width) * height);
        if (bytesPerSample != 1) decoded.resize(need);
        if (compression != 0) packed.resize(compression == 1 ? data - table : data);
    } catch (const std::bad_alloc&) {
        return Fail("out of memory");
    }
    uint8_t* target = bytesPerSample == 1 ? plane.data() : decoded.data();
    if (compression == 0) {
        if (!Read(target, need) || !Skip(data - need)) return false;
    } else if (compression == 1) {
        if (!Skip(table) || !Read(packed.data(), packed.size())) return false;
        if (DecodePackBits(target, need, packed.data(), packed.size()) != need)
            return Fail("PackBits channel data falls short of the layer's size");
    } else {
        if (!Read(packed.data(), packed.size())) return false;
        z_stream z{};
        if (inflateInit(&z) != Z_OK) return Fail("out of memory");
        z.next_in = packed.data();
        z.avail_in = static_cast<uInt>(packed.size());
        z.next_out = target;
        z.avail_out = static_cast<uInt>(need);
        const int r = inflate(&z, Z_FINISH);
        const bool full = z.avail_out == 0 && (r == Z_STREAM_END || r == Z_OK || r == Z_BUF_ERROR);
        inflateEnd(&z);
        if (!full) return Fail("ZIP channel data is damaged or falls short");
        if (compression == 3) { // with prediction: each sample is stored as its difference to the one before
            for (uint32_t y = 0; y < height; ++y) {
                uint8_t* row = target + y * rowBytes;
                if (bytesPerSample == 1) {
                    for (uint32_t x = 1; x < width; ++x)
                        row[x] = static_cast<uint8_t>(row[x] + row[x - 1]);
                } else {
                    for (uint32_t x = 1; x < width; ++x) {
                        const uint32_t v = (psd::Be16(row + 2 * x) + psd::Be16(row + 2 * x - 2)) & 0xFFFF;
                        row[2 * x] = static_cast<uint8_t>(v >> 8);
                        row[2 * x + 1] = static_cast<uint8_t>(v);
                    }
                }
            }
        }
    }
    if (bytesPerSample != 1) // 16 bits: the high byte of each sample
        for (size_t i = 0; i < plane.size(); ++i)
            plane[i] = decoded[2 * i];
    return true;
}

int CPsdReader::ReadLayers(CLayerStack& stack)
{
    uint32_t sectionLength;
    if (!ReadU32(sectionLength)) return 0;
    if (sectionLength == 0) return 1;
    if (sectionLength > Remaining()) return Fail("the layer section runs past the end of the file"), 0;
    const uint64_t sectionEnd = m_position + sectionLength;
    uint32_t infoLength = 0;
    if (sectionLength < 4 || !ReadU32(infoLength) || infoLength == 0 || infoLength < 2)
        return SeekTo(sectionEnd) ? 1 : 0;
    if (infoLength > sectionEnd - m_position) return Fail("the layer records run past their section"), 0;
    const uint64_t infoEnd = m_position + infoLength;
    uint16_t rawCount;
    if (!ReadU16(rawCount)) return 0;
    int count = static_cast<int16_t>(rawCount);
    if (count < 0) {
        m_mergedAlpha = 1;
        count = -count;
    }
    // A record takes at least 34 bytes: a count that cannot fit is a damaged file, not a reason to allocate.
    if (uint64_t(count) * 34 > infoEnd - m_position) return Fail("more layers than the layer section can hold"), 0;

    std::vector<CRecord> records(static_cast<size_t>(count));
    uint64_t channelBytes = 0;
    for (CRecord& r : records) {
        if (!ReadRecord(r)) return 0;
        if (m_position > infoEnd) return Fail("the layer records run past their section"), 0;
        for (const CChannelInfo& c : r.channels)
            channelBytes += c.length;
    }
    if (channelBytes > infoEnd - m_position) return Fail("channel data runs past the layer section"), 0;

    std::vector<uint8_t> plane;
    for (const CRecord& r : records) {
        const bool marker = r.sectionType == kSectionFolderOpen || r.sectionType == kSectionFolderClosed ||
                            r.sectionType == kSectionDivider;
        if (stack.GetLayerCount() >= kMaxLayers) break; // later layers are dropped, their data never read
        if (marker) { // a group's begin or end: its layers stand in the list on their own
            for (const CChannelInfo& c : r.channels)
                if (!Skip(c.length)) return 0;
            continue;
        }
        const uint32_t w = r.Width(), h = r.Height();
        const bool maskOk = r.hasMask && r.maskRight > r.maskLeft && r.maskBottom > r.maskTop &&
                            int64_t(r.maskRight) - r.maskLeft <= kMaxImageSide &&
                            int64_t(r.maskBottom) - r.maskTop <= kMaxImageSide;
        const uint32_t mw = maskOk ? uint32_t(r.maskRight - r.maskLeft) : 0;
        const uint32_t mh = maskOk ? uint32_t(r.maskBottom - r.maskTop) : 0;
        auto layer = std::make_unique<CLayer>();
        bool any = false;
        COLChannel mask;
        for (const CChannelInfo& c : r.channels) {
            int byte = -1; // which CPixel byte the plane fills; 4 for all three colours
            if (c.id == -1)
                byte = 3;
            else if (m_colourMode == 3 && c.id >= 0 && c.id <= 2)
                byte = 2 - c.id;
            else if (m_colourMode == 1 && c.id == 0)
                byte = 4;
            const bool isMask = c.id == -2 && mw && mh;
            if (byte < 0 && !isMask) {
                if (!Skip(c.length)) return 0;
                continue;
            }
            bool empty;
            if (!ReadChannel(c, isMask ? mw : w, isMask ? mh : h, plane, empty)) return 0;
            if (empty) continue;
            if (isMask) {
                if (mask.Create(mw, mh) != kOk) return Fail("out of memory"), 0;
                std::memcpy(mask.GetBuffer(), plane.data(), plane.size());
                continue;
            }
            if (!any) { // the image is made once a channel has proved it can fill it; opaque until alpha comes
                if (layer->m_image.Create(w, h) != kOk) return Fail("out of memory"), 0;
                CPixel* px = layer->m_image.GetBuffer();
                for (size_t i = 0, n = layer->m_image.GetPixelCount(); i < n; ++i)
                    px[i] = CPixel{0, 0, 0, 255};
            }
            any = true;
            uint8_t* dst = reinterpret_cast<uint8_t*>(layer->m_image.GetBuffer());
            const size_t n = plane.size();
            if (byte == 4) {
                for (size_t i = 0; i < n; ++i)
                    dst[4 * i] = dst[4 * i + 1] = dst[4 * i + 2] = plane[i];
            } else {
                for (size_t i = 0; i < n; ++i)
                    dst[4 * i + size_t(byte)] = plane[i];
            }
        }
        layer->m_x = r.left;
        layer->m_y = r.top;
        layer->m_opacity = r.opacity;
        layer->m_blendMode = static_cast<uint8_t>(psd::BlendModeFromKey(r.key));
        layer->m_visible = (r.flags & 0x02) ? 0 : 1;
        CopyGbkField(layer->m_name, kLayerNameBytes, r.name);
        if (!any) { // nothing to show: a blank 1 x 1 at opacity 0 keeps its place in the stack
            if (layer->m_image.Create(1, 1) != kOk) return Fail("out of memory"), 0;
            layer->m_image.PutPixel(0, 0, CPixel{0, 0, 0, 0});
            layer->m_opacity = 0;
        }
        CLayer* raw = layer.get();
        if (!stack.InsertLayer(layer.release(), stack.GetLayerCount() - 1)) return Fail("out of memory"), 0;
        if (!mask.IsNull() && stack.GetChannelCount() < kMaxChannels) {
            if (COLChannel* linked = stack.AddChannel()) {
                *linked = std::move(mask);
                raw->m_pChannel = linked;
            }
        }
    }
    if (!SeekTo(infoEnd) || !SeekTo(sectionEnd)) return 0;

    // The base fixes the document's size: it is placed at the origin and cut or widened to the document, with
    // what it does not cover transparent.
    CLayer* base = stack.GetLayer(0);
    if (!base) return 1;
    base->m_visible = 1;
    const uint32_t dw = static_cast<uint32_t>(stack.GetWidth()), dh = static_cast<uint32_t>(stack.GetHeight());
    if (base->m_x == 0 && base->m_y == 0 && base->m_image.GetWidth() == dw && base->m_image.GetHeight() == dh) return 1;
    COLImage sized;
    if (sized.Create(dw, dh) != kOk) return Fail("out of memory"), 0;
    std::memset(sized.GetBuffer(), 0, sized.GetAreaByteSize());
    const int64_t bw = base->m_image.GetWidth(), bh = base->m_image.GetHeight();
    const int64_t x0 = std::max<int64_t>(0, base->m_x), x1 = std::min<int64_t>(dw, base->m_x + bw);
    const int64_t y0 = std::max<int64_t>(0, base->m_y), y1 = std::min<int64_t>(dh, base->m_y + bh);
    for (int64_t y = y0; y < y1; ++y)
        if (x1 > x0)
            std::memcpy(sized.GetBuffer(uint32_t(x0), uint32_t(y)),
                        base->m_image.GetBuffer(uint32_t(x0 - base->m_x), uint32_t(y - base->m_y)),
                        size_t(x1 - x0) * sizeof(CPixel));
    CStackLock lock(stack);
    base->m_image = std::move(sized);
    base->m_x = base->m_y = 0;
    return 1;
}

int CPsdReader::ReadMergedImage(CLayerStack& stack)
{
    // Layers carry the picture; the merged image is only read for a file that has none.
    if (stack.GetLayerCount() > 0) return 1;
    uint16_t compression;
    if (!ReadU16(compression)) return 0;
    const uint32_t w = static_cast<uint32_t>(stack.GetWidth()), h = static_cast<uint32_t>(stack.GetHeight());
    const uint32_t planes = m_colourMode == 3 ? 3 : 1;
    if (m_channels < planes) return Fail("the merged image has too few channels"), 0;
    const uint64_t bytesPerSample = m_depth / 8;
    const uint64_t planeBytes = uint64_t(w) * h * bytesPerSample;
    const uint64_t need = planeBytes * planes;
    std::vector<uint8_t> data;
    if (compression == 0) {
        if (Remaining() < need) return Fail("the merged image falls short of the picture's size"), 0;
        data.resize(need);
        if (!Read(data.data(), need)) return 0;
    } else if (compression == 1) {
        // The row table covers every channel; the planes that are used are the first ones.
        const uint64_t rows = uint64_t(m_channels) * h;
        if (Remaining() < rows * 2 + PackBitsFloor(need)) return Fail("the merged image falls short"), 0;
        std::vector<uint8_t> table(rows * 2);
        if (!Read(table.data(), table.size())) return 0;
        uint64_t packedBytes = 0;
        for (uint64_t r = 0; r < uint64_t(planes) * h; ++r)
            packedBytes += psd::Be16(table.data() + 2 * r);
        if (packedBytes > Remaining()) return Fail("the merged image's rows run past the end of the file"), 0;
        std::vector<uint8_t> packed(packedBytes);
        if (!Read(packed.data(), packed.size())) return 0;
        data.resize(need);
        if (DecodePackBits(data.data(), need, packed.data(), packed.size()) != need)
            return Fail("PackBits data of the merged image falls short"), 0;
    } else {
        return Fail(compression == 2 || compression == 3 ? "a ZIP-compressed merged image is not supported"
                                                         : "unknown compression of the merged image"),
               0;
    }
    auto layer = std::make_unique<CLayer>();
    if (layer->m_image.Create(w, h) != kOk) return Fail("out of memory"), 0;
    std::memcpy(layer->m_name, "BackGround ", 12);
    uint8_t* dst = reinterpret_cast<uint8_t*>(layer->m_image.GetBuffer());
    const size_t n = size_t(w) * h;
    const size_t step = bytesPerSample; // 16 bits: the high byte
    if (planes == 3) {
        const uint8_t* r = data.data();
        const uint8_t* g = r + planeBytes;
        const uint8_t* b = g + planeBytes;
        for (size_t i = 0; i < n; ++i) {
            dst[4 * i] = b[i * step];
            dst[4 * i + 1] = g[i * step];
            dst[4 * i + 2] = r[i * step];
            dst[4 * i + 3] = 255;
        }
    } else {
        for (size_t i = 0; i < n; ++i) {
            dst[4 * i] = dst[4 * i + 1] = dst[4 * i + 2] = data[i * step];
            dst[4 * i + 3] = 255;
        }
    }
    if (!stack.InsertLayer(layer.release(), -1)) return Fail("out of memory"), 0;
    return 1;
}
