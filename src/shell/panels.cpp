#include "shell/panels.h"

#include <QHBoxLayout>
#include <QListWidget>
#include <QPainter>
#include <QToolButton>
#include <QVBoxLayout>
#include <cstring>

#include "commands/history_log.h"
#include "document/compose_document.h"
#include "document/compositor.h"
#include "document/layer.h"
#include "filters/resample.h"
#include "imaging/gbk_text.h"
#include "shell/app_globals.h"
#include "shell/skin.h"

QString FromGbk(const char* gbk)
{
    std::string utf8;
    if (gbk && GbkToUtf8(gbk, utf8)) return QString::fromStdString(utf8);
    return QString::fromStdString(GbkForDisplay(gbk ? gbk : ""));
}

namespace {

QString Text(const char* key)
{
    return QString::fromStdString(GetString(key));
}

// A small picture of a layer on a checkerboard, the base layer drawn opaque as the compositor draws it.
QIcon LayerThumbnail(const CLayer& layer, bool base, int docWidth, int docHeight)
{
    const int boxW = 44, boxH = 34;
    QImage canvas(boxW, boxH, QImage::Format_ARGB32);
    canvas.fill(QColor(0x80, 0x80, 0x80));
    QPainter p(&canvas);
    const double s = std::min(double(boxW - 2) / std::max(1, docWidth), double(boxH - 2) / std::max(1, docHeight));
    const int dw = std::max(1, int(docWidth * s)), dh = std::max(1, int(docHeight * s));
    const QRect doc((boxW - dw) / 2, (boxH - dh) / 2, dw, dh);
    for (int y = doc.top(); y <= doc.bottom(); y += 4)
        for (int x = doc.left(); x <= doc.right(); x += 4)
            p.fillRect(QRect(x, y, 4, 4).intersected(doc),
                       ((x - doc.left()) / 4 + (y - doc.top()) / 4) % 2 ? QColor(0xC0, 0xC0, 0xC0) : Qt::white);
    if (!layer.m_image.IsNull()) {
        const int lw = std::max(1, int(layer.m_image.GetWidth() * s));
        const int lh = std::max(1, int(layer.m_image.GetHeight() * s));
        COLImage small;
        if (ResampleImage(&layer.m_image, &small, lw, lh)) {
            p.setClipRect(doc);
            p.drawImage(QPoint(doc.left() + int(layer.m_x * s), doc.top() + int(layer.m_y * s)), ToQImage(small, base));
        }
    }
    p.end();
    return QIcon(QPixmap::fromImage(canvas));
}

QToolButton* MakeButton(QWidget* parent, const QString& text, const char* tipKey)
{
    auto* b = new QToolButton(parent);
    b->setText(text);
    b->setToolTip(Text(tipKey));
    b->setAutoRaise(true);
    b->setMinimumWidth(28);
    return b;
}

} // namespace

QString HistoryLabelText(const char* label)
{
    // A log written without texts (by the command line front end) holds the keys themselves. Only a key spelt
    // exactly so counts: the English text "Open" must not turn into the text of the key "open".
    if (CAppGlobals* app = AppGlobals())
        if (const StringRow* row = FindStringRow(app->GetStringTable(), label); row && row->m_key == label)
            return QString::fromStdString(row->m_text);
    return FromGbk(label);
}

CPanelTitle::CPanelTitle(const QString& text, QWidget* parent) : QWidget(parent), m_text(text)
{
    setFixedHeight(20);
}

void CPanelTitle::paintEvent(QPaintEvent*)
{
    static const QImage bar = LoadSkinPicture("bar.png");
    QPainter p(this);
    if (!bar.isNull())
        p.drawImage(rect(), bar);
    else
        p.fillRect(rect(), QColor(0x2F, 0x5F, 0x98));
    p.setPen(Qt::white);
    QFont f = font();
    f.setBold(true);
    p.setFont(f);
    p.drawText(rect().adjusted(6, 0, -4, 0), Qt::AlignVCenter | Qt::AlignLeft, m_text);
}

CLayersPanel::CLayersPanel(QWidget* parent) : QWidget(parent), m_pList(new QListWidget(this))
{
    m_pList->setIconSize(QSize(44, 34));
    m_pList->setSelectionMode(QAbstractItemView::SingleSelection);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addWidget(m_pList, 1);
    auto* buttons = new QHBoxLayout;
    buttons->setContentsMargins(4, 0, 4, 2);
    m_pNew = MakeButton(this, QStringLiteral("+"), "TL_new");
    m_pOpen = MakeButton(this, QStringLiteral("\u2026"), "TL_open");
    m_pMerge = MakeButton(this, QStringLiteral("\u2193"), "TL_mergedown");
    m_pDelete = MakeButton(this, QStringLiteral("\u2715"), "TL_delete");
    for (QToolButton* b : {m_pNew, m_pOpen, m_pMerge, m_pDelete})
        buttons->addWidget(b);
    buttons->addStretch(1);
    layout->addLayout(buttons);

    connect(m_pList, &QListWidget::currentRowChanged, this, &CLayersPanel::OnCurrentRowChanged);
    connect(m_pList, &QListWidget::itemChanged, this, &CLayersPanel::OnItemChanged);
    connect(m_pNew, &QToolButton::clicked, this, [this] {
        // The new layer goes above the current one, or on top when none is current.
        const int at = (m_currentIndex >= 0 && m_currentIndex < m_layerCount) ? m_currentIndex : 0;
        Q_EMIT Command(QStringLiteral("Doc_NewLayer('%1')").arg(at));
    });
    connect(m_pOpen, &QToolButton::clicked, this, [this] { Q_EMIT OpenLayerRequested(); });
    connect(m_pMerge, &QToolButton::clicked, this,
            [this] { Q_EMIT Command(QStringLiteral("Doc_MergeDownLayer('%1')").arg(m_currentIndex)); });
    connect(m_pDelete, &QToolButton::clicked, this,
            [this] { Q_EMIT Command(QStringLiteral("Doc_DeleteLayer('%1')").arg(m_currentIndex)); });
}

int CLayersPanel::RowOfLayer(int index) const
{
    return m_layerCount - 1 - index;
}
int CLayersPanel::LayerOfRow(int row) const
{
    return m_layerCount - 1 - row;
}

void CLayersPanel::Rebuild(const CComposeDocument& document)
{
    m_rebuilding = true;
    m_layerCount = document.GetLayerCount();
    m_currentIndex = document.GetCurrentIndex();
    m_pList->clear();
    for (int row = 0; row < m_layerCount; ++row) {
        const int index = LayerOfRow(row);
        const CLayer* layer = document.GetLayer(index);
        if (!layer) continue;
        auto* item = new QListWidgetItem(LayerThumbnail(*layer, index == 0, document.GetWidth(), document.GetHeight()),
                                         FromGbk(layer->m_name));
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
        item->setCheckState(layer->m_visible ? Qt::Checked : Qt::Unchecked);
        QString tip = QStringLiteral("%1 x %2").arg(layer->m_image.GetWidth()).arg(layer->m_image.GetHeight());
        if (layer->m_opacity != 255) tip += QStringLiteral(", %1%").arg(layer->m_opacity * 100 / 255);
        tip += QStringLiteral(", ") + Text(BlendModeKey(layer->m_blendMode));
        item->setToolTip(tip);
        m_pList->addItem(item);
    }
    if (m_currentIndex >= 0 && m_currentIndex < m_layerCount) m_pList->setCurrentRow(RowOfLayer(m_currentIndex));
    m_pNew->setEnabled(m_layerCount > 0);
    m_pOpen->setEnabled(m_layerCount > 0);
    m_pMerge->setEnabled(m_layerCount >= 2 && m_currentIndex > 0);
    m_pDelete->setEnabled(m_layerCount > 1 && m_currentIndex > 0);
    m_rebuilding = false;
}

void CLayersPanel::OnCurrentRowChanged(int row)
{
    if (m_rebuilding || row < 0) return;
    const int index = LayerOfRow(row);
    if (index != m_currentIndex) Q_EMIT Command(QStringLiteral("Doc_SetCurLayer('%1')").arg(index));
}

void CLayersPanel::OnItemChanged(QListWidgetItem* item)
{
    if (m_rebuilding) return;
    const int index = LayerOfRow(m_pList->row(item));
    Q_EMIT Command(QStringLiteral("Doc_LayerPropertyChange('%1','1','%2')")
                       .arg(index)
                       .arg(item->checkState() == Qt::Checked ? 1 : 0));
}

CHistoryPanel::CHistoryPanel(QWidget* parent) : QWidget(parent), m_pList(new QListWidget(this))
{
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_pList);
    connect(m_pList, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) {
        if (m_rebuilding) return;
        Q_EMIT Command(QStringLiteral("UI_HistoryJumpTo('%1')").arg(m_pList->row(item) + 1));
    });
}

void CHistoryPanel::Rebuild(const CComposeHistory* history)
{
    m_rebuilding = true;
    m_pList->clear();
    if (history) {
        for (int i = 0; i < history->GetCount(); ++i) {
            const CHistoryRecord* r = history->GetRecord(i);
            char label[33] = {};
            std::memcpy(label, r->label, 32);
            auto* item = new QListWidgetItem(HistoryLabelText(label));
            // Steps after the current one are the redo tail: shown greyed.
            if (i >= history->GetCurrentStep()) item->setForeground(QColor(0x90, 0x90, 0x90));
            m_pList->addItem(item);
        }
        if (history->GetCurrentStep() > 0) m_pList->setCurrentRow(history->GetCurrentStep() - 1);
    }
    m_rebuilding = false;
}
