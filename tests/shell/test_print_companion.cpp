#include <QDoubleSpinBox>
#include <QPrinter>
#include <QTest>
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>

#include "document/layer.h"
#include "gui_support.h"
#include "imaging/codec.h"
#include "shell/companion_round_trip.h"
#include "shell/main_frame.h"
#include "shell/print_layout.h"
#include "shell/print_support.h"
#include "shell/shell_app.h"

using namespace vmtest;

namespace {

// Letter paper with half-inch margins at 600 dpi.
PrintPage Letter()
{
    PrintPage page;
    page.areaLeft = page.areaTop = 0.5;
    page.areaWidth = 7.5;
    page.areaHeight = 10;
    page.dpiX = page.dpiY = 600;
    return page;
}

TEST(PrintLayout, FitsTheAreaAlignsAndCapsTheResolution)
{
    const PrintPage page = Letter();
    // A wide picture is as wide as the area; a tall one as high.
    PrintPlacement wide = FitPrintArea(3000, 1000, page);
    EXPECT_DOUBLE_EQ(wide.width, 7.5);
    EXPECT_DOUBLE_EQ(wide.height, 2.5);
    PrintPlacement tall = FitPrintArea(1000, 4000, page);
    EXPECT_DOUBLE_EQ(tall.height, 10);
    EXPECT_DOUBLE_EQ(tall.width, 2.5);
    EXPECT_DOUBLE_EQ(LinkedPrintHeight(3, 3000, 1000), 1);
    EXPECT_DOUBLE_EQ(LinkedPrintWidth(2, 3000, 1000), 6);
    EXPECT_DOUBLE_EQ(LinkedPrintWidth(60, 3000, 1000), 100); // the fields stop at 100 inches
    EXPECT_DOUBLE_EQ(LinkedPrintHeight(-1, 3000, 1000), 0);

    // 2.5 x 2 inches in the 4500 x 6000 pixel area.
    PrintPlacement p{2.5, 2, EPrintAlign::kStart, EPrintAlign::kStart};
    PrintRect r = PrintTargetRect(p, page);
    EXPECT_EQ(r.x, 0);
    EXPECT_EQ(r.y, 0);
    EXPECT_EQ(r.width, 1500);
    EXPECT_EQ(r.height, 1200);
    p.horizontal = EPrintAlign::kCentre;
    p.vertical = EPrintAlign::kEnd;
    r = PrintTargetRect(p, page);
    EXPECT_EQ(r.x, (4500 - 1500) / 2);
    EXPECT_EQ(r.y, 6000 - 1200);
    // Larger than the area: it starts at the corner whatever the alignment.
    p.width = 9;
    r = PrintTargetRect(p, page);
    EXPECT_EQ(r.x, 0);

    // 600 dpi: the picture is scaled for 300 dpi and stretched by the device; 300 dpi and below: to the target.
    int w = 0, h = 0;
    PrintScaledSize({0, 0, 1500, 1201}, page, w, h);
    EXPECT_EQ(w, 750);
    EXPECT_EQ(h, 600); // truncated
    PrintPage coarse = page;
    coarse.dpiX = coarse.dpiY = 300;
    PrintScaledSize({0, 0, 1500, 1201}, coarse, w, h);
    EXPECT_EQ(w, 1500);
    EXPECT_EQ(h, 1201);
}

// A picture with a dark disc on light grey, printed at the largest size on A4 into a PDF: the page is A4 and shows
// the picture (dark pixels in the middle of the page).
TEST(Print, APdfPageHasThePaperSizeAndThePicture)
{
    TempDir dir;
    const COLImage picture = Picture(300, 200, [](uint32_t x, uint32_t y) {
        const int dx = int(x) - 150, dy = int(y) - 100;
        return dx * dx + dy * dy < 80 * 80 ? CPixel::Make(20, 30, 140, 255) : CPixel::Make(220, 220, 220, 255);
    });
    QPrinter printer(QPrinter::HighResolution);
    printer.setOutputFormat(QPrinter::PdfFormat);
    const QString pdf = QString::fromStdString(dir.File("page.pdf"));
    printer.setOutputFileName(pdf);
    printer.setPageSize(QPageSize(QPageSize::A4));
    const PrintPage page = PrintPageOf(printer);
    EXPECT_GT(page.areaWidth, 7.0);
    CPrintDlg dialog(nullptr, picture, page);
    const PrintPlacement placement = dialog.Placement();
    EXPECT_NEAR(placement.width, page.areaWidth, 1e-9); // the largest size that fits
    EXPECT_NEAR(dialog.HeightBox()->value(), placement.height, 0.01);
    dialog.WidthBox()->setValue(3); // linked
    EXPECT_NEAR(dialog.HeightBox()->value(), 2, 0.01);
    ASSERT_TRUE(PrintPicture(printer, picture, placement));
    ASSERT_TRUE(std::filesystem::file_size(pdf.toStdString()) > 0);

    if (std::system("pdftoppm -v > /dev/null 2>&1") != 0 || std::system("pdfinfo -v > /dev/null 2>&1") != 0)
        GTEST_SKIP() << "pdftoppm/pdfinfo (poppler-utils) are not installed: the page is not looked at";
    const std::string info = dir.File("info.txt");
    ASSERT_EQ(std::system(("pdfinfo '" + pdf.toStdString() + "' > '" + info + "'").c_str()), 0);
    const std::string s = ReadText(info);
    EXPECT_NE(s.find("Pages:           1"), std::string::npos) << s;
    // A4 is 595.28 x 841.89 points; the PDF writer gives whole points.
    EXPECT_NE(s.find("Page size:       595 x 842 pts (A4)"), std::string::npos) << s;
    const std::string png = dir.File("page");
    ASSERT_EQ(std::system(("pdftoppm -r 20 -png -singlefile '" + pdf.toStdString() + "' '" + png + "'").c_str()), 0);
    const COLImage shown = Load(png + ".png");
    ASSERT_FALSE(shown.IsNull());
    // 20 dpi: about 165 x 233 pixels. The centre is the disc; the corners are paper.
    const CPixel centre = shown.GetBuffer(shown.GetWidth() / 2, shown.GetHeight() / 2)[0];
    EXPECT_LT(centre.red, 80);
    EXPECT_GT(centre.blue, 100);
    EXPECT_EQ(shown.GetBuffer(1, 1)[0].Word() & 0xFFFFFF, 0xFFFFFFu);
}

// The companion editor, played by a script: it checks that it got "-i" and a project, and leaves a picture next to
// it as the editor does.
class Companion : public FrameTest {
protected:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(Launch());
        OpenPicture(Picture(24, 16, [](uint32_t x, uint32_t y) { return CPixel::Make(x * 9, y * 11, 60, 255); }));
    }

    // The editor's picture, and a script that hands it back.
    void Editor(uint32_t w, uint32_t h)
    {
        SavePicture(m_dir.File("edited.bmp"), Solid(w, h, CPixel::Make(10, 200, 30, 255)));
        const std::string script = m_dir.File("editor.sh");
        const std::string body = "#!/bin/sh\n[ \"$1\" = -i ] || exit 2\nhead -c 4 \"$2\" | grep -q VMPD || exit 3\n"
                                 "echo \"$2\" > '" +
                                 m_dir.File("seen.txt") + "'\ncp '" + m_dir.File("edited.bmp") + "' \"$2.bmp\"\n";
        WriteText(script, body);
        std::filesystem::permissions(script, std::filesystem::perms::owner_all);
        m_app.m_companionExe = script;
    }
};

} // namespace

TEST_F(Companion, TheEditorsColoursComeBackWhereSelectedWithAStep)
{
    Editor(24, 16);
    // Select the left half, softly at its edge.
    m_app.Document().GetSelectionMask() =
        PlaneOf(24, 16, [](uint32_t x, uint32_t) { return x < 11 ? 255 : x == 11 ? 128 : 0; });
    const CPixel before = m_app.Document().GetLayer(0)->m_image.GetBuffer(11, 3)[0];
    const int steps = m_app.ComposeHistory()->GetCount();
    m_frame->OnCommand(cmd::kCompanion);
    EXPECT_TRUE(m_services.messages.empty());
    EXPECT_TRUE(m_frame->isVisible());
    const COLImage& layer = m_app.Document().GetLayer(0)->m_image;
    EXPECT_EQ(layer.GetBuffer(2, 2)[0].Word(), CPixel::Make(10, 200, 30, 255).Word());
    EXPECT_EQ(layer.GetBuffer(11, 3)[0].red, (10 * 128 + before.red * 127) / 255);
    EXPECT_EQ(layer.GetBuffer(20, 5)[0].red, 20 * 9);
    EXPECT_EQ(m_app.ComposeHistory()->GetCount(), steps + 1);
    // The exchange file and the editor's picture are gone.
    std::string exchange = ReadText(m_dir.File("seen.txt"));
    while (!exchange.empty() && exchange.back() == '\n')
        exchange.pop_back();
    EXPECT_NE(exchange.find("/V"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(exchange));
    EXPECT_FALSE(std::filesystem::exists(exchange + ".bmp"));
    // Undo brings the layer back.
    m_frame->OnCommand(cmd::kUndo);
    EXPECT_EQ(m_app.Document().GetLayer(0)->m_image.GetBuffer(2, 2)[0].red, 2 * 9);
}

TEST_F(Companion, AChangedSizeIsDroppedWithTheWarningAndAMissingProgramIsSaid)
{
    Editor(25, 16);
    m_frame->OnCommand(cmd::kCompanion);
    EXPECT_EQ(m_services.messages, std::vector<std::string>{GetString("olwarning")});
    EXPECT_EQ(m_app.Document().GetLayer(0)->m_image.GetBuffer(2, 2)[0].red, 2 * 9);

    m_services.messages.clear();
    m_app.m_companionExe = m_dir.File("no-such-editor");
    m_frame->OnCommand(cmd::kCompanion);
    EXPECT_EQ(m_services.messages, std::vector<std::string>{GetString("olfailed")});
    EXPECT_TRUE(m_frame->isVisible());
}
