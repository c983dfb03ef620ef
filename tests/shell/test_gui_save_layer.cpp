// The save dialog opened for the current layer alone (the layer menu's export) and for the cut-out of selection
// mode: which choices it offers, and that what it writes is what the core writers write for that picture.

#include <QCheckBox>
#include <QPushButton>
#include <filesystem>
#include <gtest/gtest.h>

#include "document/layer.h"
#include "gui_support.h"
#include "interchange/save_choice.h"
#include "runtime/status.h"
#include "shell/save_dlg.h"

using namespace vmtest;

namespace {

class SaveForLayer : public FrameTest {
protected:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(StartFrame(900, 700));
        // Opaque, so that selection mode takes it; the colours tell every pixel apart.
        OpenPicture(Gradient(160, 120), "in.png");
    }

    // What the core writer writes for the choice and the picture, read back.
    std::vector<uint8_t> CoreBytes(ESaveChoice choice, const COLImage& picture, const char* gbkName)
    {
        SaveSources sources;
        sources.layerPicture = &picture;
        sources.gbkLayerName = gbkName;
        const std::string path = m_dir.File(std::string("core.") + DescribeSaveChoice(choice).extension);
        EXPECT_EQ(WriteSaveChoice(choice, path, sources), kOk);
        return ReadAll(path);
    }
};

void ExpectLayerOnly(const SaveOffer& offer)
{
    EXPECT_FALSE(offer.project);
    EXPECT_FALSE(offer.history);
    EXPECT_FALSE(offer.composite);
    EXPECT_FALSE(offer.layered);
    EXPECT_TRUE(offer.layerPng);
    EXPECT_TRUE(offer.layerPsd);
}

} // namespace

TEST_F(SaveForLayer, TheLayerExportOffersTheLayerAloneEvenOnTheBackground)
{
    const CLayer& base = *m_app.Document().GetLayer(0);
    const std::string psd = m_dir.File("layer.psd");
    ExpectLayerOnly(SaveThrough(cmd::kExportLayer, ESaveChoice::kLayerPsd, psd));
    EXPECT_EQ(m_services.filters.back(), "PNG File(*.psd)|*.psd||");
    EXPECT_EQ(ReadAll(psd), CoreBytes(ESaveChoice::kLayerPsd, base.m_image, base.m_name));

    const std::string png = m_dir.File("layer.png");
    SaveThrough(cmd::kExportLayer, ESaveChoice::kLayerPng, png);
    EXPECT_EQ(ReadAll(png), CoreBytes(ESaveChoice::kLayerPng, base.m_image, base.m_name));
    EXPECT_TRUE(m_services.messages.empty());
    // Save itself still offers the whole document, and no layer export on the background.
    const SaveOffer whole = SaveThrough(cmd::kSave, ESaveChoice::kLayerPng, m_dir.File("never.png"));
    EXPECT_TRUE(whole.project && whole.composite && whole.layered);
    EXPECT_FALSE(whole.layerPng || whole.layerPsd);
    EXPECT_FALSE(std::filesystem::exists(m_dir.File("never.png")));
}

TEST_F(SaveForLayer, SavingInSelectionModeWritesTheCutOut)
{
    m_frame->OnCommand(cmd::kConfirmReturn);
    ASSERT_TRUE(m_frame->IsSelectionMode());
    Polygon(Manager().GetModifyPolygonTool(), {{30, 20}, {120, 25}, {110, 95}, {35, 90}});
    CSelectionDocument& selection = Sel();
    ASSERT_FALSE(selection.GetResultMask()->IsNull());
    COLImage cutout;
    ASSERT_TRUE(BuildSelectionExport(*selection.GetWorkingImage(), *selection.GetResultMask(), cutout));

    const std::string png = m_dir.File("cut.png");
    ExpectLayerOnly(SaveThrough(cmd::kSave, ESaveChoice::kLayerPng, png));
    EXPECT_EQ(ReadAll(png), CoreBytes(ESaveChoice::kLayerPng, cutout, nullptr));
    const std::string psd = m_dir.File("cut.psd");
    SaveThrough(cmd::kSave, ESaveChoice::kLayerPsd, psd);
    EXPECT_EQ(ReadAll(psd), CoreBytes(ESaveChoice::kLayerPsd, cutout, nullptr));
    // The file holds the cut-out, not the opaque layer: the mask is its alpha.
    const COLImage back = Load(png);
    ASSERT_FALSE(back.IsNull());
    EXPECT_EQ(back.GetPixel2(70, 60).alpha, 255);
    EXPECT_EQ(back.GetPixel2(5, 5).alpha, 0);
    EXPECT_TRUE(m_frame->IsSelectionMode());
    EXPECT_TRUE(m_services.messages.empty());
}
