#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "document/compose_document.h"
#include "document/layer.h"
#include "effects/lens_blur_dialog.h"
#include "support/cli_checks.h"
#include "support/pictures.h"

using vmtest::ExpectCli;
using vmtest::Quote;

TEST(CliEffects, LensBlurWritesWhatTheDialogWouldMake)
{
    vmtest::TempDir dir;
    const COLImage src = vmtest::OpaqueNoise(90, 60, 8);
    vmtest::SavePicture(dir.File("in.png"), src);
    vmtest::RunOk("lensblur " + Quote(dir.File("in.png")) + " -o " + Quote(dir.File("out.png")) +
                  " --mode 1 --point 20,45 --focus 25 --aperture circle --radius 9 --highlights 50");

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
    const std::string said =
        ExpectCli(base + " --foreground " + Quote(dir.File("mask.png")), 1, "发生异常，操作失败").output;
    EXPECT_NE(said.find("31 x 20"), std::string::npos) << said;
    for (const char* bad :
         {" --radius 65", " --radius 0", " --mode 3", " --aperture star", " --focus -11", " --point 5"})
        ExpectCli(base + bad, 2);
    EXPECT_FALSE(std::filesystem::exists(dir.File("out.png")));
}
