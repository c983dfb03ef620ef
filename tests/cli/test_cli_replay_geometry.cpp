#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>

#include "commands/project_stream.h"
#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/image.h"
#include "matting/warp.h"
#include "matting/warp_fit.h"
#include "replay_test.h"

namespace {

class CliReplayGeometry : public vmtest::ReplayTest {
protected:
    CliReplayGeometry() : ReplayTest(45) {}
};

} // namespace

TEST_F(CliReplayGeometry, LiftMoveTransformAndCropAreExact)
{
    const std::string out = m_dir.File("out.vmpd"), sel = m_dir.File("sel.png");
    ASSERT_TRUE(ReplayOk("tool rect\n"
                         "down 5 5\nup 15 12\n"
                         "save-mask selection " + sel + "\n"
                         "option color 204060\n"
                         "tool move\n"
                         "down 8 8\ndrag 12 10\nup 20 14\n"
                         "tool transform\n"
                         "option corners 16 10 38 12 36 27 15 25\n"
                         "dbl 26 18\n"
                         "tool crop\n"
                         "down 2 3\nup 38 28\n"
                         "dbl 10 10\n",
                         out));

    const std::vector<uint8_t> selected = vmtest::GrayBytes(sel);
    ASSERT_EQ(selected.size(), size_t(W * H));
    auto mask = [&](int x, int y) { return int(selected[size_t(y) * W + x]); };
    // The lift: the selected part goes to a layer of its own (alpha = mask), the base's hole takes the colour.
    const CPixel fore = CPixel::Make(0x20, 0x40, 0x60);
    COLImage base = vmtest::Copy(m_picture);
    int l = W, t = H, rr = 0, b = 0;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const int m = mask(x, y);
            if (m == 0) continue;
            l = std::min(l, x), t = std::min(t, y), rr = std::max(rr, x + 1), b = std::max(b, y + 1);
            CPixel& p = base.GetBuffer()[size_t(y) * W + x];
            const int keep = 255 - m;
            p = CPixel::Make(uint8_t((fore.red * m + p.red * keep) / 255), uint8_t((fore.green * m + p.green * keep) / 255),
                             uint8_t((fore.blue * m + p.blue * keep) / 255), 255);
        }
    ASSERT_LT(l, rr);
    COLImage lifted = vmtest::Picture(uint32_t(rr - l), uint32_t(b - t), [&](uint32_t x, uint32_t y) {
        const CPixel p = m_picture.GetPixel2(x + uint32_t(l), y + uint32_t(t));
        return CPixel::Make(p.red, p.green, p.blue, uint8_t(mask(int(x) + l, int(y) + t)));
    });
    // The transform of the moved layer through the inverse fit of the corners, then trimmed.
    const WarpCorner c[4] = {{16, 10}, {38, 12}, {36, 27}, {15, 25}};
    WarpParams p{};
    ASSERT_TRUE(FitInverseWarp(c, p.xCoef, p.yCoef));
    p.width = 38 - 15 + 2;
    p.height = 27 - 10 + 2;
    p.fillColour = fore;
    p.mode = 1;
    p.originX = 15 - 1;
    p.originY = 10 - 1;
    CLayer warped;
    CWarpProcess warp;
    warp.SetImages(&lifted, &warped.m_image);
    ASSERT_EQ(warp.Process(&p), kOk);
    warped.m_x = p.originX;
    warped.m_y = p.originY;
    ASSERT_EQ(warped.TrimToContent(), 1);

    CLayerStack doc;
    ASSERT_EQ(OpenProject(doc, nullptr, out.c_str()), 1);
    ASSERT_EQ(vmtest::Size(doc), "36x25");
    ASSERT_EQ(doc.GetLayerCount(), 2);
    // The crop: the base is the rectangle from (2, 3), the layer above shifts with it.
    const auto cropped = [&](uint32_t x, uint32_t y) { return base.GetPixel2(x + 2, y + 3); };
    EXPECT_TRUE(vmtest::SamePixels(doc.GetLayer(0)->m_image, vmtest::Picture(36, 25, cropped)));
    const CLayer* layer = doc.GetLayer(1);
    EXPECT_EQ(layer->m_x, warped.m_x - 2);
    EXPECT_EQ(layer->m_y, warped.m_y - 3);
    EXPECT_EQ(vmtest::Bytes(layer->m_image), vmtest::Bytes(warped.m_image));
}

TEST_F(CliReplayGeometry, RefusalsEndTheScriptWithTheirReason)
{
    ExpectRefused({
        {"tool move\ndown 5 5\nup 9 9\n", "line 2: the tool refused (message \"moverror\")"},
        {"tool transform\n", "message \"transerr\""},
        {"tool crop\noption ratio 4:3\noption freeshape on\n", "line 3: a free shape needs option ratio none first"},
        {"tool crop\noption ratio 4:0\n", "script.txt:2: ratio is"},
    });
}
