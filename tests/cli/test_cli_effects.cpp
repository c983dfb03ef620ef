#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "document/compose_document.h"
#include "document/layer.h"
#include "effects/lens_blur_dialog.h"
#include "support/pictures.h"

using vmtest::CliResult;
using vmtest::Quote;
using vmtest::RunCli;

TEST(CliEffects, LensBlurWritesWhatTheDialogWouldMake)
{
    vmtest::TempDir dir;
    const COLImage src = vmtest::OpaqueNoise(90, 60, 8);
    vmtest::SavePicture(dir.File("in.png"), src);
    CliResult r = RunCli("lensblur " + Quote(dir.File("in.png")) + " -o " + Quote(dir.File("out.png")) +
                         " --mode 1 --point 20,45 --focus 25 --aperture circle --radius 9 --highlights 50");
    ASSERT_EQ(r.exitCode, 0) << r.output;

    // The same through the dialog's logic: a click where the dialog shows picture pixel (20, 45).
    CComposeDocument doc(0);
    ASSERT_TRUE(doc.NewDocument(90, 60, 0));
    doc.GetLayer(0)->m_image.DuplicateFrom(&src);
    COLImage aperture;
    ASSERT_EQ(LoadAperturePicture(vmtest::AssetPath("skin/lenblur.png"), aperture), "");
    CLensBlurDlgLogic logic;
    logic.settings.depthMode = kDepthTunnel;
    logic.settings.focus = 25;
    logic.settings.apertureShape = kApertureCircle;
    logic.settings.radius = 9;
    logic.settings.highlightAmplitude = 50;
    ASSERT_TRUE(logic.Init(doc, aperture));
    const CRect t = logic.GetThumbnail();
    logic.ClickDepthPanel(t.Width() * 20 / 90 + t.left, t.Height() * 45 / 60 + t.top);
    ASSERT_EQ(logic.RunFinal(doc, nullptr), kOk);
    EXPECT_TRUE(vmtest::SamePixels(vmtest::Load(dir.File("out.png")), doc.GetLayer(0)->m_image));
}

TEST(CliEffects, LensBlurRefusesBadInput)
{
    vmtest::TempDir dir;
    COLImage src = vmtest::Noise(30, 20, 1), mask;
    vmtest::FillNoise(mask, 31, 20, 2);
    vmtest::SavePicture(dir.File("in.png"), src);
    vmtest::SavePicture(dir.File("mask.png"), mask);
    const std::string base = "lensblur " + Quote(dir.File("in.png")) + " -o " + Quote(dir.File("out.png"));
    CliResult r = RunCli(base + " --foreground " + Quote(dir.File("mask.png")));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.output.find("发生异常，操作失败"), std::string::npos) << r.output;
    EXPECT_NE(r.output.find("31 x 20"), std::string::npos) << r.output;
    for (const char* bad :
         {" --radius 65", " --radius 0", " --mode 3", " --aperture star", " --focus -11", " --point 5"}) {
        r = RunCli(base + bad);
        EXPECT_EQ(r.exitCode, 2) << bad << ": " << r.output;
    }
    EXPECT_FALSE(std::filesystem::exists(dir.File("out.png")));
}
