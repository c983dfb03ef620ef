#include "matting/blue_matting_logic.h"

#include <algorithm>
#include <cmath>

#include "imaging/codec.h"

CBlueMattingLogic::CBlueMattingLogic()
{
    if (m_strip.Create(kStripWidth, kStripHeight) != kOk) return;
    COLImageCodec codec;
    for (int y = 0; y < kStripHeight; ++y) {
        CPixel* row = m_strip.GetBuffer(0, uint32_t(y));
        for (int x = 0; x < kStripWidth; ++x) row[x] = CPixel{128, 255, static_cast<uint8_t>(x), 255};
        codec.HSB2RGB(row, kStripWidth);
        for (int x = 0; x < kStripWidth; ++x) row[x].alpha = 255;
    }
}

void CBlueMattingLogic::Reset()
{
    slider = 50;
    featherSelection = 0;
}

ChromaKeyParams* CBlueMattingLogic::GetParams()
{
    m_params.strength = slider;
    m_params.levelLow = levelLow;
    m_params.levelHigh = levelHigh;
    m_params.includeShadow = includeShadow;
    m_params.recoverColour = recoverColour;
    m_params.jpegChroma = jpegChroma;
    m_params.featherSelection = featherSelection;
    return &m_params;
}

bool CBlueMattingLogic::ApplyFirstPickRule(CPixel backdrop)
{
    if (!m_firstPick) return false;
    m_firstPick = false;
    CPixel hsb = backdrop;
    COLImageCodec().RGB2HSB(&hsb, 1);
    if (hsb.red >= 48 && hsb.red < 193) return false;
    slider = 20;
    return true;
}

bool CBlueMattingLogic::RefreshHueStrip(const std::vector<CPixel>* toolColours)
{
    CPixel first{};
    if (toolColours && !toolColours->empty()) first = toolColours->front();
    else if (!colours.empty()) first = colours.front();
    else return false;
    if (m_strip.IsNull()) return false;

    COLImageCodec codec;
    CPixel hsb = first;
    codec.RGB2HSB(&hsb, 1);
    hsb.green = 255;
    hsb.blue = 128;
    codec.HSB2RGB(&hsb, 1);
    hsb.alpha = 255;
    m_stripBackdrop = hsb;

    ChromaKeyParams params = *GetParams();
    params.backdrop = m_stripBackdrop;
    params.levelLow = 0;
    params.levelHigh = 255;
    CChromaKeyProcess process;
    process.SetImages(&m_strip, &m_stripResult);
    if (process.Process(&params) != kOk) return false;
    DrawOverChecker(m_strip, m_stripResult, m_stripPicture);
    return true;
}

void CBlueMattingLogic::DrawOverChecker(const COLImage& plain, const COLImage& keyed, COLImage& picture)
{
    const uint32_t w = plain.GetWidth(), h = plain.GetHeight();
    if (plain.IsNull() || keyed.IsNull() || keyed.GetWidth() != w || keyed.GetHeight() != h) return;
    if (picture.Create(w, h) != kOk) return;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            const CPixel s = plain.GetPixel2(x, y);
            const int a = keyed.GetPixel2(x, y).alpha;
            CPixel out = s;
            if (a != 255) {
                const int c = (x / 10 + y / 5) % 2 == 0 ? 255 : 0;
                out.red = static_cast<uint8_t>((s.red * a + c * (255 - a)) / 255);
                out.green = static_cast<uint8_t>((s.green * a + c * (255 - a)) / 255);
                out.blue = static_cast<uint8_t>((s.blue * a + c * (255 - a)) / 255);
            }
            out.alpha = 255;
            picture.PutPixel(x, y, out);
        }
}

std::vector<int> CBlueMattingLogic::CleaningHistogram(const COLImage& result)
{
    std::vector<int> smoothed(256, 0);
    if (result.IsNull()) return smoothed;
    std::vector<int64_t> raw(256, 0);
    const CPixel* p = result.GetBuffer();
    for (size_t i = 0, n = result.GetPixelCount(); i < n; ++i) ++raw[p[i].alpha];
    for (int x = 0; x < 256; ++x) {
        int64_t sum = 0;
        int count = 0;
        for (int k = std::max(1, x - 2); k <= std::min(255, x + 2); ++k) {
            sum += raw[size_t(k)];
            ++count;
        }
        smoothed[size_t(x)] = count ? int(sum / count) : 0;
    }
    return smoothed;
}

int CBlueMattingLogic::BarHeight(int bin, int highest, int drawHeight)
{
    if (highest <= 0 || bin <= 0 || drawHeight <= 17) return 0;
    return static_cast<int>(std::sqrt(double(bin) / highest) * (drawHeight - 17));
}

namespace {
int HandleLevel(int x, int left, int right)
{
    return right > left ? (x - left) * 256 / (right - left) : 0;
}
} // namespace

void CBlueMattingLogic::DragLowHandle(int x, int left, int right)
{
    levelLow = std::clamp(HandleLevel(x, left, right), 0, levelHigh - 1);
}

void CBlueMattingLogic::DragHighHandle(int x, int left, int right)
{
    levelHigh = std::clamp(HandleLevel(x, left, right), levelLow + 1, 255);
}
