#include "shell/brush_panel.h"

#include <QDialogButtonBox>
#include <QGridLayout>
#include <QIntValidator>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPainter>
#include <QScreen>
#include <QSlider>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>

#include "shell/app_globals.h"

namespace {

QString Text(const char* key) { return QString::fromStdString(GetString(key)); }

// A plane as a gray picture: 255 - value, so that the brush shows dark on white.
QImage PlaneImage(const COLChannel& plane)
{
    QImage image(int(plane.GetWidth()), int(plane.GetHeight()), QImage::Format_Grayscale8);
    for (int y = 0; y < image.height(); ++y) {
        uchar* row = image.scanLine(y);
        const uint8_t* src = plane.GetBuffer(0, uint32_t(y));
        for (int x = 0; x < image.width(); ++x) row[x] = uchar(255 - src[x]);
    }
    return image;
}

} // namespace

QImage BrushPreview(const COLChannel& stamp, int size, const QColor& face)
{
    QImage preview(30, 30, QImage::Format_RGB32);
    preview.fill(face);
    if (!stamp.IsNull()) {
        QImage shape = PlaneImage(stamp);
        if (shape.width() > 30 || shape.height() > 30)
            shape = shape.scaled(30, 30, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        const int ox = (30 - shape.width()) / 2, oy = (30 - shape.height()) / 2;
        for (int y = 0; y < shape.height(); ++y)
            for (int x = 0; x < shape.width(); ++x) {
                // face x (255 - stamp) / 256, with the stamp stored inverted in the picture.
                const int keep = qGray(shape.pixel(x, y));
                const QRgb f = preview.pixel(x + ox, y + oy);
                preview.setPixel(x + ox, y + oy,
                                 qRgb(qRed(f) * keep / 256, qGreen(f) * keep / 256, qBlue(f) * keep / 256));
            }
    }
    QPainter p(&preview);
    p.setCompositionMode(QPainter::CompositionMode_Multiply);
    QFont font(QStringLiteral("Arial Black"));
    font.setPixelSize(12);
    font.setBold(true);
    p.setFont(font);
    p.setPen(QColor(40, 40, 160));
    p.drawText(QRect(0, 0, 30, 30), Qt::AlignRight | Qt::AlignBottom, QString::number(size));
    return preview;
}

// ---- CBrushDlg ------------------------------------------------------------------------------------------------

CBrushDlg::CBrushDlg(int size, int soft, int alphaPercent, QWidget* parent)
    : QDialog(parent), m_size(std::clamp(size, kBrushSizeMin, kBrushSizeMax)),
      m_hardness(100 - std::clamp(soft, 0, 100)), m_alpha(std::clamp(alphaPercent, 0, 100))
{
    setWindowTitle(Text("brushdlg"));
    setObjectName(QStringLiteral("brushdlg"));
    auto* column = new QVBoxLayout(this);
    auto* grid = new QGridLayout;
    const char* keys[3] = {"brushsize", "brushhard", "brushalpha"};
    const int limits[3] = {kBrushSizeMax, 100, 100};
    for (int i = 0; i < 3; ++i) {
        grid->addWidget(new QLabel(Text(keys[i]), this), i, 0);
        m_pEdits[i] = new QLineEdit(this);
        m_pEdits[i]->setObjectName(QString::fromLatin1(keys[i]) + QStringLiteral("-edit"));
        m_pEdits[i]->setMaxLength(10);
        m_pEdits[i]->setValidator(new QIntValidator(0, limits[i], m_pEdits[i]));
        m_pEdits[i]->setFixedWidth(48);
        grid->addWidget(m_pEdits[i], i, 1);
        m_pSliders[i] = new QSlider(Qt::Horizontal, this);
        m_pSliders[i]->setObjectName(QString::fromLatin1(keys[i]) + QStringLiteral("-slider"));
        m_pSliders[i]->setRange(0, 100);
        m_pSliders[i]->setPageStep(5);
        m_pSliders[i]->setMinimumWidth(160);
        grid->addWidget(m_pSliders[i], i, 2);
        QSlider* slider = m_pSliders[i];
        int* value = i == 0 ? &m_size : i == 1 ? &m_hardness : &m_alpha;
        const bool isSize = i == 0;
        connect(m_pEdits[i], &QLineEdit::textEdited, this, [this, slider, value, isSize](const QString& text) {
            // Digits only; the number moves its slider.
            const int v = std::min(text.toInt(), isSize ? kBrushSizeMax : 100);
            *value = isSize ? std::max(v, kBrushSizeMin) : v;
            m_syncing = true;
            slider->setValue(isSize ? BrushSizeToSlider(*value) : *value);
            m_syncing = false;
        });
        connect(m_pSliders[i], &QSlider::valueChanged, this, [this, value, isSize](int v) {
            if (m_syncing) return;
            *value = isSize ? BrushSliderToSize(v) : v;
            Sync();
        });
    }
    column->addLayout(grid);

    m_pList = new QListWidget(this);
    m_pList->setObjectName(QStringLiteral("brushlist"));
    m_pList->setViewMode(QListView::IconMode);
    m_pList->setIconSize(QSize(31, 31));
    m_pList->setGridSize(QSize(44, 48));
    m_pList->setMovement(QListView::Static);
    m_pList->setFixedSize(5 * 44 + 24, 4 * 48 + 8);
    m_pList->setStyleSheet(QStringLiteral("QListWidget { background: white; }"));
    int count = 0;
    const BrushPreset* presets = BrushPresets(count);
    for (int i = 0; i < count; ++i) {
        COLChannel thumb;
        QPixmap icon(31, 31);
        icon.fill(Qt::white);
        if (BuildBrushStamp(std::min(presets[i].size, 20), 100 - presets[i].hardness, 62, thumb) == kOk) {
            QPainter p(&icon);
            const QImage shape = PlaneImage(thumb).scaled(31, 31, Qt::KeepAspectRatio, Qt::SmoothTransformation);
            p.drawImage((31 - shape.width()) / 2, (31 - shape.height()) / 2, shape);
        }
        auto* item = new QListWidgetItem(QIcon(icon), QString::number(presets[i].size), m_pList);
        item->setData(Qt::UserRole, i);
    }
    connect(m_pList, &QListWidget::itemClicked, this,
            [this](QListWidgetItem* item) { ChoosePreset(item->data(Qt::UserRole).toInt()); });
    column->addWidget(m_pList);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    column->addWidget(buttons);
    Sync();
}

void CBrushDlg::ChoosePreset(int index)
{
    int count = 0;
    const BrushPreset* presets = BrushPresets(count);
    if (index < 0 || index >= count) return;
    // Size and hardness come from the list; the opacity stays.
    m_size = presets[index].size;
    m_hardness = presets[index].hardness;
    Sync();
}

void CBrushDlg::Sync()
{
    m_syncing = true;
    const int values[3] = {m_size, m_hardness, m_alpha};
    for (int i = 0; i < 3; ++i) {
        m_pEdits[i]->setText(QString::number(values[i]));
        m_pSliders[i]->setValue(i == 0 ? BrushSizeToSlider(m_size) : values[i]);
    }
    m_syncing = false;
}

// ---- CBrushOptionsPanel ---------------------------------------------------------------------------------------

CBrushOptionsPanel::CBrushOptionsPanel(QWidget* parent) : QWidget(parent)
{
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(1);
    m_pButton = new QToolButton(this);
    m_pButton->setObjectName(QStringLiteral("brushbutton"));
    m_pButton->setFixedSize(32, 32);
    m_pButton->setIconSize(QSize(30, 30));
    m_pButton->setToolTip(Text("brushbutton"));
    connect(m_pButton, &QToolButton::clicked, this, [this] { OpenDialog(); });
    column->addWidget(m_pButton, 0, Qt::AlignHCenter);
    const char* keys[3] = {"brushsize", "brushhard", "brushalpha"};
    for (int i = 0; i < 3; ++i) {
        // "Size 16": the name and the value on one line, small enough for the narrow bar.
        m_pValues[i] = new QLabel(this);
        QFont small = m_pValues[i]->font();
        small.setPointSizeF(std::max(6.0, small.pointSizeF() - 2));
        m_pValues[i]->setFont(small);
        m_pValues[i]->setProperty("key", QString::fromLatin1(keys[i]));
        column->addWidget(m_pValues[i]);
        m_pSliders[i] = new QSlider(Qt::Horizontal, this);
        m_pSliders[i]->setObjectName(QString::fromLatin1(keys[i]));
        m_pSliders[i]->setRange(0, 100);
        m_pSliders[i]->setPageStep(5);
        m_pSliders[i]->setToolTip(Text(keys[i]));
        connect(m_pSliders[i], &QSlider::valueChanged, this, [this] { Apply(); });
        column->addWidget(m_pSliders[i]);
    }
    hide();
}

void CBrushOptionsPanel::Show(CToolOptions* options)
{
    if (m_pBrush) m_pBrush->onChanged = nullptr;
    m_pBrush = dynamic_cast<CNullProperty*>(options);
    if (!m_pBrush) {
        hide();
        return;
    }
    m_pBrush->onChanged = [this] { Sync(); };
    Sync();
    show();
}

void CBrushOptionsPanel::Apply()
{
    if (m_syncing || !m_pBrush) return;
    m_pBrush->SetValues(BrushSliderToSize(m_pSliders[0]->value()), 100 - m_pSliders[1]->value(),
                        m_pSliders[2]->value());
    Sync();
}

void CBrushOptionsPanel::Sync()
{
    if (!m_pBrush) return;
    m_syncing = true;
    m_pSliders[0]->setValue(BrushSizeToSlider(m_pBrush->GetSize()));
    m_pSliders[1]->setValue(100 - m_pBrush->GetSoft());
    m_pSliders[2]->setValue(m_pBrush->GetAlphaPercent());
    const int values[3] = {m_pBrush->GetSize(), 100 - m_pBrush->GetSoft(), m_pBrush->GetAlphaPercent()};
    for (int i = 0; i < 3; ++i)
        m_pValues[i]->setText(Text(m_pValues[i]->property("key").toString().toLatin1().constData()) +
                              QLatin1Char(' ') + QString::number(values[i]));
    if (const COLChannel* stamp = m_pBrush->GetStamp())
        m_pButton->setIcon(
            QIcon(QPixmap::fromImage(BrushPreview(*stamp, m_pBrush->GetSize(), palette().button().color()))));
    m_syncing = false;
}

void CBrushOptionsPanel::OpenDialog()
{
    if (!m_pBrush) return;
    CBrushDlg dlg(m_pBrush->GetSize(), m_pBrush->GetSoft(), m_pBrush->GetAlphaPercent(), window());
    // The dialog opens at the panel's button, moved left if it would leave the screen.
    QPoint at = m_pButton->mapToGlobal(QPoint(0, 0));
    dlg.adjustSize();
    if (const QScreen* screen = m_pButton->screen()) {
        const QRect desk = screen->availableGeometry();
        if (at.x() + dlg.width() > desk.right()) at.setX(std::max(desk.left(), desk.right() - dlg.width()));
    }
    dlg.move(at);
    if (dlg.exec() != QDialog::Accepted) return;
    m_pBrush->SetValues(dlg.Size(), dlg.Soft(), dlg.AlphaPercent());
    Sync();
}
