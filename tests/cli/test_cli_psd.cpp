#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "commands/project_stream.h"
#include "document/layer.h"
#include "document/layer_stack.h"
#include "imaging/image.h"
#include "support/cli_checks.h"
#include "support/pictures.h"

using vmtest::ExpectCli;
using vmtest::Quote;
using vmtest::RunOk;

TEST(CliPsd, ConvertWritesAndReadsOneLayerPsdKeepingAlpha)
{
    vmtest::TempDir dir;
    COLImage picture = vmtest::Noise(11, 5, 2);
    const std::string png = vmtest::SavePicture(dir.File("in.png"), picture);
    const std::string psd = dir.File("out.psd"), back = dir.File("back.png");
    RunOk("convert " + Quote(png) + " " + Quote(psd));
    const std::string info = RunOk("info " + Quote(psd), "11 x 5, 1 layer(s)").output;
    EXPECT_NE(info.find("layer 0: \"\xE8\x83\x8C\xE6\x99\xAF\" at (0, 0), 11 x 5, opacity 255, blend norm"),
              std::string::npos)
        << info;
    RunOk("convert " + Quote(psd) + " " + Quote(back));
    EXPECT_TRUE(vmtest::SamePixels(vmtest::Load(back), picture));
}

TEST(CliPsd, LayeredConvertOfAProjectListsEveryLayer)
{
    vmtest::TempDir dir;
    CLayerStack doc;
    ASSERT_EQ(doc.NewDocument(12, 9, 0xFF336699u), 1);
    auto* layer = new CLayer();
    vmtest::FillNoise(layer->m_image, 5, 4, 7);
    layer->m_x = -1;
    layer->m_y = 6;
    layer->m_opacity = 200;
    layer->m_blendMode = 10;
    layer->m_visible = 0;
    std::strcpy(layer->m_name, "Over");
    ASSERT_TRUE(doc.InsertLayer(layer, 0));
    const std::string project = dir.File("p.vmpd"), psd = dir.File("p.psd");
    ASSERT_EQ(SaveProject(doc, nullptr, project.c_str(), 0), 1);
    RunOk("convert " + Quote(project) + " " + Quote(psd) + " --layered");
    const std::string info = RunOk("info " + Quote(psd), "12 x 9, 2 layer(s)").output;
    EXPECT_NE(info.find("layer 1: \"Over\" at (-1, 6), 5 x 4, opacity 200, blend diff (mode 10), hidden"),
              std::string::npos)
        << info;
    // --layered only makes a PSD; a damaged PSD is named as such.
    ExpectCli("convert " + Quote(project) + " " + Quote(dir.File("p.png")) + " --layered", 2);
    std::vector<uint8_t> bytes = vmtest::ReadAll(psd);
    bytes.resize(60);
    vmtest::WriteAll(dir.File("cut.psd"), bytes);
    ExpectCli("info " + Quote(dir.File("cut.psd")), 1, "cut.psd: the layer section runs past the end of the file");
}
