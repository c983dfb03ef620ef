#include <gtest/gtest.h>
#include <string>
#include <utility>

#include "commands/command.h"
#include "commands/history_sink.h"
#include "doc_state.h"
#include "document/compose_document.h"
#include "document/compositor.h"
#include "document/layer.h"
#include "effects/flip_rotate.h"
#include "effects/image_size.h"
#include "support/pictures.h"
#include "support/test_support.h"

namespace {

// A base of 40 x 30 and a smaller layer placed partly off the canvas, with a selection and a saved channel.
struct GeometryDoc {
    CComposeDocument doc{0};
    CRecordingHistory history;
    CCommandContext context;

    GeometryDoc()
    {
        EXPECT_TRUE(doc.NewDocument(40, 30, 0xFF102030));
        doc.GetLayer(0)->m_image = vmtest::OpaqueNoise(40, 30, 1);
        CLayer* upper = doc.AddLayer(0, kLayerKindRaster);
        vmtest::FillNoise(upper->m_image, 12, 9, 2);
        upper->m_x = 31;
        upper->m_y = -3;
        upper->m_opacity = 200;
        vmtest::FillNoise(doc.GetSelectionMask(), 40, 30, 3);
        COLChannel* saved = doc.AddChannel();
        vmtest::FillNoise(*saved, 40, 30, 4);
        context.document = &doc;
        context.history = &history;
        context.foreground = 0x00ABCDEF;
    }
    COLImage Composite()
    {
        COLImage out;
        MergeLayers(&doc, &out, 1);
        return out;
    }
};

COLImage Turned(const COLImage& image, bool left)
{
    COLImage out;
    RotateImageQuarter(image, out, left);
    return out;
}

TEST(GeometryCommands, ImageSizeScalesEveryLayerAndItsPlace)
{
    GeometryDoc g;
    ASSERT_EQ(ExecuteCommand(g.context, "Doc_ImageSize('80','15','0')"), kCommandDone);
    EXPECT_EQ(vmtest::Size(g.doc), "80x15");
    const CLayer* upper = g.doc.GetLayer(1);
    EXPECT_EQ(vmtest::Place(*upper), "62,-1");   // -3 x 0.5 truncates toward zero
    EXPECT_EQ(vmtest::Size(upper->m_image), "24x4");
    EXPECT_TRUE(g.doc.GetSelectionMask().IsNull());  // the selection no longer fits
    EXPECT_EQ(g.doc.GetChannel(0)->GetWidth(), 40u); // saved channels are not scaled
    ASSERT_EQ(g.history.Steps().size(), 1u);
    EXPECT_EQ(std::make_pair(g.history.Steps()[0].kind, g.history.Steps()[0].label),
              std::make_pair(int(kStepWholeDocument), std::string("His_ImageSize")));
    // The bicubic filter is the default method.
    ASSERT_EQ(ExecuteCommand(g.context, "Doc_ImageSize('20','20')"), kCommandDone);
    EXPECT_EQ(g.doc.GetLayer(0)->m_image.GetWidth(), 20u);
}

TEST(GeometryCommands, BadSizesAreRefusedAndChangeNothing)
{
    GeometryDoc g;
    const vmtest::DocState before = vmtest::Capture(g.doc);
    for (const char* text : {"Doc_ImageSize('0','10')", "Doc_ImageSize('20001','10')", "Doc_ImageSize('10','10','3')",
                             "Doc_ImageSize('10')", "Doc_ResizeCanvas('20001','30')", "Doc_ResizeCanvas('40','0')",
                             "Doc_ResizeCanvas('40','30','3','0')", "Doc_ExtendCanvas('10001','0','0','0')",
                             "Doc_ExtendCanvas('1','2','3')", "Doc_ExtendCanvas('1','1','1','1','12345')",
                             "Doc_ResizeCanvas('9','9','1','1','GG0000')"})
        EXPECT_EQ(ExecuteCommand(g.context, text), kCommandRefused) << text;
    EXPECT_EQ(vmtest::Capture(g.doc), before);
    EXPECT_TRUE(g.history.Steps().empty());
}

TEST(GeometryCommands, CanvasByMarginsAndByAnchor)
{
    GeometryDoc g;
    ASSERT_EQ(ExecuteCommand(g.context, "Doc_ExtendCanvas('5','-2','3','4')"), kCommandDone);
    EXPECT_EQ(vmtest::Size(g.doc), "48x32");
    EXPECT_EQ(vmtest::Place(*g.doc.GetLayer(1)), "36,-5");
    EXPECT_EQ(g.doc.GetLayer(0)->m_image.GetPixel(0, 0), 0xFFABCDEFu); // the current colour, opaque
    EXPECT_EQ(g.history.Steps().back().label, "His_CavasSize");
    // Margins adding up to less than 1 give a side of 1.
    ASSERT_EQ(ExecuteCommand(g.context, "Doc_ExtendCanvas('-30','0','-30','0')"), kCommandDone);
    EXPECT_EQ(g.doc.GetWidth(), 1);
    ASSERT_EQ(ExecuteCommand(g.context, "Doc_ResizeCanvas('11','42','2','1')"), kCommandDone);
    EXPECT_EQ(vmtest::Size(g.doc), "11x42");
    EXPECT_EQ(g.history.Steps().size(), 3u);
    // An all-zero canvas edit is still a step.
    ASSERT_EQ(ExecuteCommand(g.context, "Doc_ExtendCanvas('0','0','0','0')"), kCommandDone);
    EXPECT_EQ(g.history.Steps().size(), 4u);
}

TEST(GeometryCommands, CanvasTakesTheColourTheDialogChose)
{
    GeometryDoc g;
    ASSERT_EQ(ExecuteCommand(g.context, "Doc_ExtendCanvas('2','0','0','0','123456')"), kCommandDone);
    EXPECT_EQ(g.doc.GetLayer(0)->m_image.GetPixel(0, 0), 0xFF123456u);
    ASSERT_EQ(ExecuteCommand(g.context, "Doc_ResizeCanvas('60','40','0','0','A0B0C0')"), kCommandDone);
    EXPECT_EQ(g.doc.GetLayer(0)->m_image.GetPixel(59, 39), 0xFFA0B0C0u);
    EXPECT_EQ(g.history.Steps().size(), 2u);
}

TEST(GeometryCommands, TurningTheDocumentTurnsItsComposite)
{
    for (bool left : {true, false}) {
        GeometryDoc g;
        const COLImage before = g.Composite();
        COLChannel mask;
        RotateChannelQuarter(g.doc.GetSelectionMask(), mask, left);
        ASSERT_EQ(ExecuteCommand(g.context, left ? "Doc_RotateImageLeft" : "Doc_RotateImageRight"), kCommandDone);
        EXPECT_EQ(vmtest::Size(g.doc), "30x40");
        // Every layer moved with the picture: the new composite is the old one turned, selection included.
        EXPECT_TRUE(vmtest::SamePixels(g.Composite(), Turned(before, left)));
        EXPECT_EQ(vmtest::Bytes(g.doc.GetSelectionMask()), vmtest::Bytes(mask));
        EXPECT_EQ(g.doc.GetChannel(0)->GetWidth(), 30u);
        EXPECT_EQ(g.history.Steps().back().kind, kStepWholeDocument);
        EXPECT_EQ(g.history.Steps().back().label, left ? "His_RotateLeft" : "His_RotateRight");
    }
    // Four turns bring everything back.
    GeometryDoc g;
    const vmtest::DocState before = vmtest::Capture(g.doc);
    for (int i = 0; i < 4; ++i)
        ASSERT_EQ(ExecuteCommand(g.context, "Doc_RotateImageRight"), kCommandDone);
    EXPECT_EQ(vmtest::Capture(g.doc), before);
}

TEST(GeometryCommands, MirroringTheDocumentMirrorsItsComposite)
{
    for (bool horizontal : {true, false}) {
        GeometryDoc g;
        COLImage expected = g.Composite();
        FlipImage(expected, horizontal);
        ASSERT_EQ(ExecuteCommand(g.context, horizontal ? "Doc_FlipImageH" : "Doc_FlipImageV"), kCommandDone);
        EXPECT_TRUE(vmtest::SamePixels(g.Composite(), expected));
        EXPECT_EQ(g.history.Steps().back().label, horizontal ? "His_FlipH" : "His_FlipV");
    }
}

} // namespace
