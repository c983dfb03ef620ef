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
#include "support/cli_checks.h"
#include "support/matting_checks.h"
#include "support/pictures.h"

using vmtest::ContourScene;
using vmtest::ExpectCli;
using vmtest::Quote;
using vmtest::RunOk;

namespace {

// A gray picture of a plane whose every non-zero sample is written as `on`.
void SaveGray(const std::string& path, const COLChannel& plane, uint8_t on = 255)
{
    vmtest::SavePicture(path, vmtest::Picture(plane.GetWidth(), plane.GetHeight(), [&](uint32_t x, uint32_t y) {
                            const uint8_t v = plane.GetValue(x, y) ? on : 0;
                            return CPixel::Make(v, v, v);
                        }));
}

COLImage Expected(const ContourScene& s, bool optimise)
{
    COLImage photo = vmtest::Copy(s.photo);
    COLChannel inner = vmtest::Copy(s.inner), outer = vmtest::Copy(s.outer);
    if (optimise) {
        const int32_t detail = CContourOptimiser::kPanelDetail;
        EXPECT_EQ(OptimiseContoursNow(&photo, &inner, &outer, &detail), kOk);
    }
    vmtest::ContourMatteRun run = vmtest::ContourMatte(photo, inner, outer);
    EXPECT_EQ(run.code, kOk);
    return std::move(run.image);
}

struct Files {
    vmtest::TempDir dir;
    std::string photo = dir.File("photo.png"), inner = dir.File("inner.png"), outer = dir.File("outer.png"),
                trimap = dir.File("trimap.png"), out = dir.File("out.png");
};

void Write(const ContourScene& s, Files& f)
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
    const ContourScene s = vmtest::EllipseScene(180, 150, 6);
    Files f;
    Write(s, f);
    RunOk("matte " + Quote(f.photo) + " --inner " + Quote(f.inner) + " --outer " + Quote(f.outer) + " -o " +
              Quote(f.out),
          "band ");
    const COLImage expected = Expected(s, false);
    EXPECT_TRUE(vmtest::SamePixels(vmtest::Load(f.out), expected));

    std::filesystem::remove(f.out);
    RunOk("matte " + Quote(f.photo) + " --trimap " + Quote(f.trimap) + " -o " + Quote(f.out));
    EXPECT_TRUE(vmtest::SamePixels(vmtest::Load(f.out), expected));

    RunOk("matte " + Quote(f.photo) + " --trimap " + Quote(f.trimap) + " --optimise -o " + Quote(f.out));
    const COLImage optimised = Expected(s, true);
    EXPECT_TRUE(vmtest::SamePixels(vmtest::Load(f.out), optimised));
    EXPECT_FALSE(vmtest::SamePixels(optimised, expected));
}

TEST(CliMatte, BadInputWritesNothing)
{
    Files f;
    Write(vmtest::EllipseScene(180, 150, 6), f);
    const std::string small = f.dir.File("small.png");
    SaveGray(small, vmtest::EllipseScene(180, 149, 6).inner);
    const std::string matte = "matte " + Quote(f.photo) + " -o " + Quote(f.out);
    // Too small a picture for the growing to advance is refused with a reason too.
    Files t;
    Write(vmtest::EllipseScene(60, 45, 6), t);
    ExpectCli({
        {matte + " --inner " + Quote(small) + " --outer " + Quote(f.outer), 1, "same size"},
        {matte + " --inner " + Quote(f.outer) + " --outer " + Quote(f.outer), 1, "no unknown band"},
        {matte + " --inner " + Quote(f.dir.File("missing.png")) + " --outer " + Quote(f.outer), 1, "cannot read"},
        {matte + " --inner " + Quote(f.inner), 2, ""},
        {matte + " --trimap " + Quote(f.trimap) + " --inner " + Quote(f.inner), 2, ""},
        {"matte " + Quote(t.photo) + " --trimap " + Quote(t.trimap) + " -o " + Quote(t.out), 1, "too small"},
    });
    EXPECT_FALSE(std::filesystem::exists(t.out));
    EXPECT_FALSE(std::filesystem::exists(f.out));
}

TEST(CliSegment, RegionsInColoursGradientInAlphaAndTheCount)
{
    vmtest::TempDir dir;
    COLImage photo = vmtest::EllipseScene(120, 90, 6).photo, labels;
    const std::string in = vmtest::SavePicture(dir.File("in.png"), photo), out = dir.File("labels.png");
    const std::string said = RunOk("segment " + Quote(in) + " --detail 20 -o " + Quote(out)).output;

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
    EXPECT_NE(said.find("\n" + std::to_string(present.size()) + " regions"), std::string::npos) << said;

    ExpectCli("segment " + Quote(dir.File("none.png")) + " -o " + Quote(dir.File("x.png")), 1, "cannot read");
    EXPECT_FALSE(std::filesystem::exists(dir.File("x.png")));
    ExpectCli("segment " + Quote(in), 2);
}
