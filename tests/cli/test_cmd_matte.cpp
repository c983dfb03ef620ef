#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "imaging/image.h"
#include "matting/contour_matting.h"
#include "matting/contour_optimise.h"
#include "matting/segment.h"
#include "support/pictures.h"

using vmtest::CliResult;
using vmtest::Quote;
using vmtest::RunCli;

namespace {

// A warm disc on a cool background, with noise, and its contours as gray pictures and as planes.
struct Scene {
    COLImage photo;
    COLChannel inner, outer;
};

Scene MakeScene(uint32_t w, uint32_t h)
{
    Scene s;
    vmtest::FillNoise(s.photo, w, h, 4);
    s.inner.Create(w, h);
    s.outer.Create(w, h);
    const double radius = std::min(w, h) / 3.0;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
            const size_t i = size_t(y) * w + x;
            const double r = std::hypot(x - w / 2.0, y - h / 2.0);
            CPixel& p = s.photo.GetBuffer()[i];
            p = r < radius ? CPixel::Make(uint8_t(180 + p.red / 8), uint8_t(90 + p.green / 8), 40)
                           : CPixel::Make(20, uint8_t(60 + p.green / 8), uint8_t(170 + p.blue / 8));
            s.inner.GetBuffer()[i] = r < radius - 6 ? 255 : 0;
            s.outer.GetBuffer()[i] = r < radius + 6 ? 255 : 0;
        }
    return s;
}

// A gray picture of a plane whose every non-zero sample is written as `on`.
void SaveGray(const std::string& path, const COLChannel& plane, uint8_t on = 255)
{
    vmtest::SavePicture(path, vmtest::Picture(plane.GetWidth(), plane.GetHeight(), [&](uint32_t x, uint32_t y) {
                            const uint8_t v = plane.GetValue(x, y) ? on : 0;
                            return CPixel::Make(v, v, v);
                        }));
}

COLImage Expected(const Scene& s, bool optimise)
{
    COLImage photo = vmtest::Copy(s.photo), out;
    COLChannel inner = vmtest::Copy(s.inner), outer = vmtest::Copy(s.outer);
    if (optimise) {
        const int32_t detail = CContourOptimiser::kPanelDetail;
        EXPECT_EQ(OptimiseContoursNow(&photo, &inner, &outer, &detail), kOk);
    }
    CContourMattingProcess p;
    p.SetImages(&photo, &out);
    ContourMattingParams params;
    params.innerPlane = &inner;
    params.outerPlane = &outer;
    EXPECT_EQ(p.Process(&params), kOk);
    return out;
}

struct Files {
    vmtest::TempDir dir;
    std::string photo = dir.File("photo.png"), inner = dir.File("inner.png"), outer = dir.File("outer.png"),
                trimap = dir.File("trimap.png"), out = dir.File("out.png");
};

void Write(const Scene& s, Files& f)
{
    vmtest::SavePicture(f.photo, s.photo);
    // Any non-zero value means inside.
    SaveGray(f.inner, s.inner, 1);
    SaveGray(f.outer, s.outer, 200);
    COLChannel tri = vmtest::Plane(s.photo.GetWidth(), s.photo.GetHeight(), 0);
    for (size_t i = 0; i < tri.GetAreaByteSize(); ++i)
        tri.GetBuffer()[i] = s.inner.GetBuffer()[i] ? 255 : s.outer.GetBuffer()[i] ? 128 : 0;
    vmtest::SavePicture(f.trimap, vmtest::GrayPicture(tri));
}

} // namespace

TEST(CliMatte, MasksTrimapAndOptimiseGiveTheEnginesResult)
{
    const Scene s = MakeScene(180, 150);
    Files f;
    Write(s, f);
    CliResult r = RunCli("matte " + Quote(f.photo) + " --inner " + Quote(f.inner) + " --outer " + Quote(f.outer) + " -o " + Quote(f.out));
    ASSERT_EQ(r.exitCode, 0) << r.output;
    EXPECT_NE(r.output.find("band "), std::string::npos) << r.output;
    const COLImage expected = Expected(s, false);
    EXPECT_TRUE(vmtest::SamePixels(vmtest::Load(f.out), expected));

    std::filesystem::remove(f.out);
    r = RunCli("matte " + Quote(f.photo) + " --trimap " + Quote(f.trimap) + " -o " + Quote(f.out));
    ASSERT_EQ(r.exitCode, 0) << r.output;
    EXPECT_TRUE(vmtest::SamePixels(vmtest::Load(f.out), expected));

    r = RunCli("matte " + Quote(f.photo) + " --trimap " + Quote(f.trimap) + " --optimise -o " + Quote(f.out));
    ASSERT_EQ(r.exitCode, 0) << r.output;
    const COLImage optimised = Expected(s, true);
    EXPECT_TRUE(vmtest::SamePixels(vmtest::Load(f.out), optimised));
    EXPECT_FALSE(vmtest::SamePixels(optimised, expected));
}

TEST(CliMatte, BadInputWritesNothing)
{
    const Scene s = MakeScene(180, 150);
    Files f;
    Write(s, f);
    const std::string small = f.dir.File("small.png");
    SaveGray(small, MakeScene(180, 149).inner);
    const std::string args = Quote(f.photo) + " -o " + Quote(f.out);

    CliResult r = RunCli("matte " + args + " --inner " + Quote(small) + " --outer " + Quote(f.outer));
    EXPECT_NE(r.exitCode, 0);
    EXPECT_NE(r.output.find("same size"), std::string::npos) << r.output;

    r = RunCli("matte " + args + " --inner " + Quote(f.outer) + " --outer " + Quote(f.outer));
    EXPECT_NE(r.exitCode, 0);
    EXPECT_NE(r.output.find("no unknown band"), std::string::npos) << r.output;

    r = RunCli("matte " + args + " --inner " + Quote(f.dir.File("missing.png")) + " --outer " + Quote(f.outer));
    EXPECT_NE(r.exitCode, 0);
    EXPECT_NE(r.output.find("cannot read"), std::string::npos) << r.output;

    r = RunCli("matte " + args + " --inner " + Quote(f.inner));
    EXPECT_EQ(r.exitCode, 2) << r.output;
    r = RunCli("matte " + args + " --trimap " + Quote(f.trimap) + " --inner " + Quote(f.inner));
    EXPECT_EQ(r.exitCode, 2) << r.output;

    // Too small a picture for the growing to advance: refused with a reason.
    const Scene tiny = MakeScene(60, 45);
    Files t;
    Write(tiny, t);
    r = RunCli("matte " + Quote(t.photo) + " --trimap " + Quote(t.trimap) + " -o " + Quote(t.out));
    EXPECT_NE(r.exitCode, 0);
    EXPECT_NE(r.output.find("too small"), std::string::npos) << r.output;
    EXPECT_FALSE(std::filesystem::exists(t.out));

    EXPECT_FALSE(std::filesystem::exists(f.out));
}

TEST(CliSegment, RegionsInColoursGradientInAlphaAndTheCount)
{
    vmtest::TempDir dir;
    const Scene s = MakeScene(120, 90);
    const std::string in = dir.File("in.png"), out = dir.File("labels.png");
    vmtest::SavePicture(in, s.photo);
    CliResult r = RunCli("segment " + Quote(in) + " --detail 20 -o " + Quote(out));
    ASSERT_EQ(r.exitCode, 0) << r.output;

    COLImage photo = vmtest::Copy(s.photo), labels;
    CSegmentProcess p;
    p.SetImages(&photo, &labels);
    const int32_t detail = 20;
    ASSERT_EQ(p.Process(&detail), kOk);
    const COLImage got = vmtest::Load(out);
    ASSERT_EQ(got.GetWidth(), 120u);
    std::set<uint32_t> present;
    // Same label, same colour; different labels, different colours; alpha is the gradient.
    std::map<uint32_t, uint32_t> colourOf, labelOf;
    for (size_t i = 0; i < got.GetPixelCount(); ++i) {
        const uint32_t label = CSegmentProcess::Label(labels.GetBuffer()[i]);
        const uint32_t colour = got.GetBuffer()[i].Word() & 0xFFFFFFu;
        ASSERT_EQ(got.GetBuffer()[i].alpha, labels.GetBuffer()[i].alpha) << i;
        present.insert(label);
        ASSERT_EQ(colourOf.emplace(label, colour).first->second, colour) << i;
        ASSERT_EQ(labelOf.emplace(colour, label).first->second, label) << i;
    }
    present.erase(0u);
    EXPECT_NE(r.output.find("\n" + std::to_string(present.size()) + " regions"), std::string::npos) << r.output;

    r = RunCli("segment " + Quote(dir.File("none.png")) + " -o " + Quote(dir.File("x.png")));
    EXPECT_NE(r.exitCode, 0);
    EXPECT_FALSE(std::filesystem::exists(dir.File("x.png")));
    EXPECT_EQ(RunCli("segment " + Quote(in)).exitCode, 2);
}
