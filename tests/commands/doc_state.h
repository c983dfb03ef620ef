#pragma once

#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/channel.h"
#include "imaging/image.h"
#include "support/test_support.h"

namespace vmtest {

// Everything a document shows, copied out so that states before and after jumps can be compared exactly.
struct LayerState {
    int x, y, visible, kind, opacity, blend;
    std::string name;   // all 32 bytes
    uint32_t width, height;
    std::vector<uint8_t> pixels;
    int channelLink;
    std::string text;   // text layers only
    bool operator==(const LayerState&) const = default;
};

struct DocState {
    int width = 0, height = 0, current = 0;
    std::vector<LayerState> layers;
    std::vector<std::vector<uint8_t>> channels;
    std::vector<uint8_t> mask;   // empty without a selection
    uint32_t maskWidth = 0;
    bool operator==(const DocState&) const = default;
};

inline DocState Capture(const CLayerStack& doc)
{
    DocState s;
    s.width = doc.GetWidth();
    s.height = doc.GetHeight();
    s.current = doc.GetCurrentIndex();
    for (int i = 0; i < doc.GetLayerCount(); ++i) {
        const CLayer* l = doc.GetLayer(i);
        LayerState ls{l->m_x, l->m_y, l->m_visible, l->m_kind, l->m_opacity, l->m_blendMode,
                      std::string(l->m_name, kLayerNameBytes), l->m_image.GetWidth(), l->m_image.GetHeight(), {}, -1,
                      {}};
        ls.pixels = Bytes(l->m_image);
        for (int k = 0; k < doc.GetChannelCount(); ++k)
            if (l->m_pChannel == doc.GetChannel(k)) ls.channelLink = k;
        if (const auto* t = dynamic_cast<const CTextLayer*>(l)) ls.text = t->m_text;
        s.layers.push_back(std::move(ls));
    }
    for (int k = 0; k < doc.GetChannelCount(); ++k) s.channels.push_back(Bytes(*doc.GetChannel(k)));
    s.mask = Bytes(doc.GetSelectionMask());
    s.maskWidth = doc.GetSelectionMask().IsNull() ? 0 : doc.GetSelectionMask().GetWidth();
    return s;
}

inline std::ostream& operator<<(std::ostream& os, const DocState& s)
{
    os << s.width << "x" << s.height << " current " << s.current << ", layers:";
    for (const LayerState& l : s.layers)
        os << " [" << l.x << "," << l.y << " " << l.width << "x" << l.height << " op " << l.opacity << " vis "
           << l.visible << "]";
    return os << ", mask " << s.mask.size() << " bytes";
}

} // namespace vmtest
