#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/media_checks.h"

// Builds Photoshop documents byte by byte for the reader's tests, independently of the program's writers.
namespace psdtest {

// Photoshop numbers are big-endian.
struct Bytes : vmtest::ByteWriter {
    Bytes() : ByteWriter(true) {}
};

struct Channel {
    int16_t id;
    uint16_t compression = 0;     // 0 raw, 1 PackBits (data then holds the row table and the rows)
    std::vector<uint8_t> data;    // after the compression word
    bool omitCompression = false; // a length-0 channel
};

struct Layer {
    int32_t top = 0, left = 0, bottom = 0, right = 0;
    std::vector<Channel> channels;
    std::string key = "norm";
    uint8_t opacity = 255;
    uint8_t flags = 0;
    bool mask = false;
    int32_t maskTop = 0, maskLeft = 0, maskBottom = 0, maskRight = 0;
    std::string pascalName;
    std::vector<uint32_t> blendingRanges; // the words of the blending ranges, none when empty
    std::u16string unicodeName;           // a "luni" block when not empty
    bool padUnicodeName = false;          // that block padded to a multiple of 4 bytes, as our writer makes it
    int sectionType = -1;                 // an "lsct" block when 0 or more
};

struct Document {
    uint16_t channels = 3;
    uint32_t width = 4, height = 3;
    uint16_t depth = 8, mode = 3;
    bool negativeCount = false;
    bool layerSection = true;
    std::vector<Layer> layers;
    uint16_t mergedCompression = 0;
    std::vector<uint8_t> merged; // after the compression word
};

inline void Header(Bytes& b, const Document& d)
{
    b.Str("8BPS");
    b.U16(1);
    for (int i = 0; i < 6; ++i)
        b.U8(0);
    b.U16(d.channels);
    b.U32(d.height);
    b.U32(d.width);
    b.U16(d.depth);
    b.U16(d.mode);
    b.U32(0);
    b.U32(0);
}

inline std::vector<uint8_t> Build(const Document& d)
{
    Bytes b;
    Header(b, d);
    if (!d.layerSection || d.layers.empty()) {
        b.U32(0);
    } else {
        Bytes info;
        const int count = int(d.layers.size());
        info.U16(uint16_t(d.negativeCount ? -count : count));
        for (const Layer& l : d.layers) {
            info.U32(uint32_t(l.top));
            info.U32(uint32_t(l.left));
            info.U32(uint32_t(l.bottom));
            info.U32(uint32_t(l.right));
            info.U16(uint16_t(l.channels.size()));
            for (const Channel& c : l.channels) {
                info.U16(uint16_t(c.id));
                info.U32(c.omitCompression ? 0 : uint32_t(2 + c.data.size()));
            }
            info.Str("8BIM");
            info.Str(l.key);
            info.U8(l.opacity);
            info.U8(0);
            info.U8(l.flags);
            info.U8(0);
            Bytes extra;
            extra.U32(l.mask ? 20 : 0); // the mask block's length
            if (l.mask) {
                for (int32_t side : {l.maskTop, l.maskLeft, l.maskBottom, l.maskRight})
                    extra.U32(uint32_t(side));
                extra.U32(0);
            }
            extra.U32(uint32_t(4 * l.blendingRanges.size()));
            for (uint32_t range : l.blendingRanges)
                extra.U32(range);
            const size_t nameStart = extra.size();
            extra.U8(uint32_t(l.pascalName.size()));
            extra.Str(l.pascalName);
            while ((extra.size() - nameStart) % 4)
                extra.U8(0);
            if (!l.unicodeName.empty()) {
                const size_t padding = l.padUnicodeName ? (4 - 2 * l.unicodeName.size() % 4) % 4 : 0;
                extra.Str("8BIMluni");
                extra.U32(uint32_t(4 + 2 * l.unicodeName.size() + padding));
                extra.U32(uint32_t(l.unicodeName.size()));
                for (char16_t u : l.unicodeName)
                    extra.U16(u);
                extra.resize(extra.size() + padding);
            }
            if (l.sectionType >= 0) {
                extra.Str("8BIMlsct");
                extra.U32(4);
                extra.U32(uint32_t(l.sectionType));
            }
            info.U32(uint32_t(extra.size()));
            info.Add(extra);
        }
        for (const Layer& l : d.layers)
            for (const Channel& c : l.channels) {
                if (c.omitCompression) continue;
                info.U16(c.compression);
                info.Add(c.data);
            }
        if (info.size() % 2) info.U8(0);
        b.U32(uint32_t(info.size() + 8));
        b.U32(uint32_t(info.size()));
        b.Add(info);
        b.U32(0);
    }
    b.U16(d.mergedCompression);
    b.Add(d.merged);
    return b;
}

// A raw channel of w x h bytes from a function of (x, y).
template <class F> Channel RawChannel(int16_t id, uint32_t w, uint32_t h, F f)
{
    Channel c{id, 0, {}, false};
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            c.data.push_back(uint8_t(f(x, y)));
    return c;
}

// The same plane as PackBits with one literal packet per row (rows of up to 128 bytes).
inline Channel PackBitsChannel(const Channel& raw, uint32_t w, uint32_t h)
{
    Channel c{raw.id, 1, {}, false};
    for (uint32_t y = 0; y < h; ++y) {
        c.data.push_back(0);
        c.data.push_back(uint8_t(w + 1));
    }
    for (uint32_t y = 0; y < h; ++y) {
        c.data.push_back(uint8_t(w - 1));
        c.data.insert(c.data.end(), raw.data.begin() + y * w, raw.data.begin() + (y + 1) * w);
    }
    return c;
}

// A layer of w x h at (left, top) with RGBA channels from a pixel function returning 0xAARRGGBB.
template <class F> Layer RgbaLayer(int32_t left, int32_t top, uint32_t w, uint32_t h, F pixel)
{
    Layer l;
    l.top = top;
    l.left = left;
    l.bottom = top + int32_t(h);
    l.right = left + int32_t(w);
    for (int16_t id = -1; id <= 2; ++id) // alpha (-1), red, green, blue: 24, 16, 8 and 0 bits down the word
        l.channels.push_back(
            RawChannel(id, w, h, [&](uint32_t x, uint32_t y) { return pixel(x, y) >> (16 - 8 * id); }));
    return l;
}

} // namespace psdtest
