#include "shell/print_support.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QPainter>
#include <QPrintDialog>
#include <QPrinter>
#include <QVBoxLayout>

#include "effects/image_size.h"
#include "shell/app_globals.h"
#include "shell/skin.h"

namespace {

QString Text(const char* key)
{
    return QString::fromStdString(GetString(key));
}

// The page in small: paper white, the printable area framed, the picture where it will print.
class CPagePreview : public QWidget {
public:
    CPagePreview(QWidget* parent, const COLImage& picture, const PrintPage& page, const PrintPlacement& placement,
                 double pageWidth, double pageHeight)
        : QWidget(parent), m_picture(ToQImage(picture, true).copy()), m_page(page), m_placement(placement),
          m_pageWidth(pageWidth), m_pageHeight(pageHeight)
    {
        setMinimumSize(220, 260);
    }
    void SetPlacement(const PrintPlacement& placement)
    {
        m_placement = placement;
        update();
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.fillRect(rect(), QColor(0x80, 0x80, 0x80));
        if (m_pageWidth <= 0 || m_pageHeight <= 0) return;
        const double scale = std::min((width() - 16) / m_pageWidth, (height() - 16) / m_pageHeight);
        const QRectF paper((width() - m_pageWidth * scale) / 2, (height() - m_pageHeight * scale) / 2,
                           m_pageWidth * scale, m_pageHeight * scale);
        p.fillRect(paper, Qt::white);
        const QRectF area(paper.left() + m_page.areaLeft * scale, paper.top() + m_page.areaTop * scale,
                          m_page.areaWidth * scale, m_page.areaHeight * scale);
        // The placement in device pixels, brought back to the preview's scale.
        const PrintRect r = PrintTargetRect(m_placement, m_page);
        const QRectF target(area.left() + r.x * scale / m_page.dpiX, area.top() + r.y * scale / m_page.dpiY,
                            r.width * scale / m_page.dpiX, r.height * scale / m_page.dpiY);
        p.save();
        p.setClipRect(paper);
        p.drawImage(target, m_picture);
        p.restore();
        p.setPen(QPen(QColor(0x40, 0x80, 0xC0), 1, Qt::DashLine));
        p.drawRect(area);
    }

private:
    QImage m_picture;
    PrintPage m_page;
    PrintPlacement m_placement;
    double m_pageWidth, m_pageHeight;
};

} // namespace

PrintPage PrintPageOf(const QPrinter& printer)
{
    PrintPage page;
    const QRectF area = printer.pageLayout().paintRect(QPageLayout::Inch);
    page.areaLeft = area.left();
    page.areaTop = area.top();
    page.areaWidth = area.width();
    page.areaHeight = area.height();
    page.dpiX = std::max(1, printer.logicalDpiX());
    page.dpiY = std::max(1, printer.logicalDpiY());
    return page;
}

bool PrintPicture(QPrinter& printer, const COLImage& picture, const PrintPlacement& placement)
{
    if (picture.IsNull() || placement.width <= 0 || placement.height <= 0) return false;
    const PrintPage page = PrintPageOf(printer);
    const PrintRect target = PrintTargetRect(placement, page);
    if (target.width < 1 || target.height < 1) return false;
    int width = 0, height = 0;
    PrintScaledSize(target, page, width, height);
    COLImage scaled;
    if (!ScaleImage(picture, scaled, width, height, kScaleBicubic) || scaled.IsNull()) return false;
    printer.setDocName(QStringLiteral("Ombra Lens Image File"));
    printer.setFullPage(false);
    QPainter painter;
    if (!painter.begin(&printer)) return false;
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    // The painter's origin is the printable area's corner.
    painter.drawImage(QRect(target.x, target.y, target.width, target.height), ToQImage(scaled, true));
    return painter.end();
}

CPrintDlg::CPrintDlg(QWidget* parent, const COLImage& picture, const PrintPage& page)
    : QDialog(parent), m_picture(picture), m_page(page)
{
    setWindowTitle(Text("printpicture"));
    const int pw = int(picture.GetWidth()), ph = int(picture.GetHeight());
    m_placement = FitPrintArea(pw, ph, page);

    auto* row = new QHBoxLayout(this);
    auto* form = new QFormLayout();
    auto makeBox = [this](double value) {
        auto* box = new QDoubleSpinBox(this);
        box->setRange(0.0, kMaxPrintInches);
        box->setDecimals(2);
        box->setSingleStep(0.1);
        box->setValue(value);
        return box;
    };
    m_pWidth = makeBox(m_placement.width);
    m_pHeight = makeBox(m_placement.height);
    form->addRow(Text("printwidth"), m_pWidth);
    form->addRow(Text("printheight"), m_pHeight);
    m_pHorizontal = new QComboBox(this);
    m_pHorizontal->addItems({Text("alignleft"), Text("aligncentre"), Text("alignright")});
    m_pVertical = new QComboBox(this);
    m_pVertical->addItems({Text("aligntop"), Text("aligncentre"), Text("alignbottom")});
    m_pHorizontal->setCurrentIndex(1);
    m_pVertical->setCurrentIndex(1);
    form->addRow(Text("printhalign"), m_pHorizontal);
    form->addRow(Text("printvalign"), m_pVertical);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto* left = new QVBoxLayout();
    left->addLayout(form);
    left->addStretch(1);
    left->addWidget(buttons);
    row->addLayout(left);
    const double pageW = page.areaLeft * 2 + page.areaWidth, pageH = page.areaTop * 2 + page.areaHeight;
    m_pPreview = new CPagePreview(this, picture, page, m_placement, pageW, pageH);
    row->addWidget(m_pPreview, 1);

    connect(m_pWidth, &QDoubleSpinBox::valueChanged, this, &CPrintDlg::OnWidth);
    connect(m_pHeight, &QDoubleSpinBox::valueChanged, this, &CPrintDlg::OnHeight);
    connect(m_pHorizontal, &QComboBox::currentIndexChanged, this, &CPrintDlg::OnAlign);
    connect(m_pVertical, &QComboBox::currentIndexChanged, this, &CPrintDlg::OnAlign);
}

void CPrintDlg::OnWidth(double width)
{
    if (m_linking) return;
    m_linking = true;
    m_placement.width = width;
    m_placement.height = LinkedPrintHeight(width, int(m_picture.GetWidth()), int(m_picture.GetHeight()));
    m_pHeight->setValue(m_placement.height);
    m_linking = false;
    static_cast<CPagePreview*>(m_pPreview)->SetPlacement(m_placement);
}

void CPrintDlg::OnHeight(double height)
{
    if (m_linking) return;
    m_linking = true;
    m_placement.height = height;
    m_placement.width = LinkedPrintWidth(height, int(m_picture.GetWidth()), int(m_picture.GetHeight()));
    m_pWidth->setValue(m_placement.width);
    m_linking = false;
    static_cast<CPagePreview*>(m_pPreview)->SetPlacement(m_placement);
}

void CPrintDlg::OnAlign()
{
    m_placement.horizontal = static_cast<EPrintAlign>(m_pHorizontal->currentIndex());
    m_placement.vertical = static_cast<EPrintAlign>(m_pVertical->currentIndex());
    static_cast<CPagePreview*>(m_pPreview)->SetPlacement(m_placement);
}

bool RunPrint(QWidget* parent, const COLImage& picture, QString& errorText)
{
    QPrinter printer(QPrinter::HighResolution);
    QPrintDialog system(&printer, parent);
    if (system.exec() != QDialog::Accepted) return true;
    CPrintDlg placement(parent, picture, PrintPageOf(printer));
    if (placement.exec() != QDialog::Accepted) return true;
    if (PrintPicture(printer, picture, placement.Placement())) return true;
    errorText = QStringLiteral("Error occurs!");
    return false;
}
