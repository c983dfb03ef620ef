#include "document/layer.h"

#include <cstring>
#include <utility>

namespace {

void PutWord(uint8_t* p, uint32_t v)
{
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
    p[2] = static_cast<uint8_t>(v >> 16);
    p[3] = static_cast<uint8_t>(v >> 24);
}

uint32_t GetWord(const uint8_t* p)
{
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

} // namespace

int CLayer::GetExtraData(uint32_t& size, std::vector<uint8_t>* data) const
{
    size = kRasterExtraBytes;
    if (data) {
        data->assign(kRasterExtraBytes, 0);
        PutWord(data->data(), static_cast<uint32_t>(m_kind));
    }
    return 1;
}

void CLayer::BuildHeader(uint8_t (&header)[kLayerHeaderBytes]) const
{
    std::memset(header, 0, sizeof header);
    uint32_t extra = 0;
    GetExtraData(extra, nullptr);
    PutWord(header + 0, static_cast<uint32_t>(m_x));
    PutWord(header + 4, static_cast<uint32_t>(m_y));
    header[8] = static_cast<uint8_t>(m_visible);
    std::memcpy(header + 9, m_name, kLayerNameBytes);
    header[41] = m_opacity;
    header[42] = m_blendMode;
    PutWord(header + 44, m_image.GetWidth());
    PutWord(header + 48, m_image.GetHeight());
    PutWord(header + 52, extra);
}

int CLayer::WriteRecord(FILE* stream, int flag) const
{
    if (flag) return 1;
    if (!stream) return 0;
    uint8_t header[kLayerHeaderBytes];
    BuildHeader(header);
    if (std::fwrite(header, 1, sizeof header, stream) != sizeof header) return 0;
    uint32_t size = 0;
    std::vector<uint8_t> extra;
    GetExtraData(size, &extra);
    if (std::fwrite(extra.data(), 1, extra.size(), stream) != extra.size()) return 0;
    if (m_image.IsNull()) return 1;
    const size_t bytes = m_image.GetAreaByteSize();
    return std::fwrite(m_image.GetBuffer(), 1, bytes, stream) == bytes ? 1 : 0;
}

CRect CLayer::GetContentBox() const
{
    const uint32_t w = m_image.GetWidth(), h = m_image.GetHeight();
    uint32_t l = w, t = h, r = 0, b = 0;
    if (!m_image.IsNull()) {
        for (uint32_t y = 0; y < h; ++y) {
            const CPixel* row = m_image.GetBuffer(0, y);
            uint32_t first = w, last = 0;
            for (uint32_t x = 0; x < w; ++x)
                if (row[x].alpha) {
                    first = x;
                    break;
                }
            if (first == w) continue;
            for (uint32_t x = w; x-- > first;)
                if (row[x].alpha) {
                    last = x + 1;
                    break;
                }
            if (first < l) l = first;
            if (last > r) r = last;
            if (y < t) t = y;
            b = y + 1;
        }
    }
    return CRect{static_cast<int>(l), static_cast<int>(t), static_cast<int>(r), static_cast<int>(b)};
}

int CLayer::TrimToContent()
{
    const uint32_t w = m_image.GetWidth(), h = m_image.GetHeight();
    const CRect box = GetContentBox();
    const uint32_t l = static_cast<uint32_t>(box.left), t = static_cast<uint32_t>(box.top);
    // Compared as unsigned: an inverted box has a huge width and so leaves the layer alone.
    const uint32_t boxW = static_cast<uint32_t>(box.right) - l, boxH = static_cast<uint32_t>(box.bottom) - t;
    if (w <= boxW && h <= boxH) return 1;
    COLImage cropped;
    if (cropped.Create(boxW, boxH) != kOk) return 0;
    for (uint32_t y = 0; y < boxH; ++y)
        std::memcpy(cropped.GetBuffer(0, y), m_image.GetBuffer(l, t + y), size_t(boxW) * 4);
    m_image = std::move(cropped); // gives the large block back rather than keeping it as spare capacity
    m_x += static_cast<int>(l);
    m_y += static_cast<int>(t);
    return 1;
}

CTextLayer::CTextLayer() : m_pText(m_text)
{
    m_kind = kLayerKindText;
}

int CTextLayer::GetExtraData(uint32_t& size, std::vector<uint8_t>* data) const
{
    size = kTextExtraBytes;
    if (!data) return 1;
    data->assign(kTextExtraBytes, 0);
    uint8_t* p = data->data();
    PutWord(p + 0, static_cast<uint32_t>(m_kind));
    PutWord(p + 4, m_textColour);
    for (int i = 0; i < 6; ++i)
        PutWord(p + 8 + 4 * i, static_cast<uint32_t>(m_style[i]));
    std::memcpy(p + 32, m_fontName, sizeof m_fontName);
    PutWord(p + 64, static_cast<uint32_t>(m_attributes));
    PutWord(p + 68, static_cast<uint32_t>(m_fontSize));
    PutWord(p + 72, 0); // the text pointer has no meaning outside this process
    const size_t n = strnlen(m_text, sizeof m_text - 1);
    std::memcpy(p + 76, m_text, n);
    return 1;
}

bool CTextLayer::ReadExtraData(const uint8_t* data, size_t size)
{
    if (!data || size < kTextExtraBytes || GetWord(data) != kLayerKindText) return false;
    m_textColour = GetWord(data + 4);
    for (int i = 0; i < 6; ++i)
        m_style[i] = static_cast<int32_t>(GetWord(data + 8 + 4 * i));
    std::memcpy(m_fontName, data + 32, sizeof m_fontName);
    m_fontName[sizeof m_fontName - 1] = '\0';
    m_attributes = static_cast<int32_t>(GetWord(data + 64));
    m_fontSize = static_cast<int32_t>(GetWord(data + 68));
    std::memcpy(m_text, data + 76, sizeof m_text);
    m_text[sizeof m_text - 1] = '\0';
    m_pText = m_text;
    return true;
}
