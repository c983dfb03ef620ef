#include "shell/panels.h"

#include <QApplication>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QListWidget>
#include <QPainter>
#include <QSlider>
#include <QSpinBox>
#include <QTimer>
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

// Item data: the name the layer has (to tell a rename from a click on the eye).
constexpr int kNameRole = Qt::UserRole;

QByteArray Latin(const QString& text)
{
    return text.toLatin1();
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

const int CLayersPanel::kBlendModes[6] = {kBlendNormal,   kBlendDarken, kBlendLighten,
                                          kBlendMultiply, kBlendScreen, kBlendDifference};

CLayersPanel::CLayersPanel(QWidget* parent)
    : QWidget(parent), m_pList(new QListWidget(this)), m_pBlend(new QComboBox(this)),
      m_pOpacitySlider(new QSlider(Qt::Horizontal, this)), m_pOpacity(new QSpinBox(this))
{
    m_pList->setIconSize(QSize(44, 34));
    m_pList->setSelectionMode(QAbstractItemView::SingleSelection);
    // Renaming starts with a double-click only: a single click chooses the layer.
    m_pList->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_pList->setDragDropMode(QAbstractItemView::InternalMove);
    m_pList->setDefaultDropAction(Qt::MoveAction);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addWidget(m_pList, 1);

    // The current layer's blend mode and opacity; the base has neither.
    auto* properties = new QFormLayout;
    properties->setContentsMargins(4, 0, 4, 0);
    for (int mode : kBlendModes)
        m_pBlend->addItem(Text(BlendModeKey(mode)), mode);
    properties->addRow(Text("blendmode"), m_pBlend);
    m_pOpacitySlider->setRange(0, 255);
    m_pOpacity->setRange(0, 255);
    // One step per finished change, not one per key or pixel of a drag.
    m_pOpacity->setKeyboardTracking(false);
    auto* opacityRow = new QHBoxLayout;
    opacityRow->addWidget(m_pOpacitySlider, 1);
    opacityRow->addWidget(m_pOpacity);
    properties->addRow(Text("opacity"), opacityRow);
    layout->addLayout(properties);

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
    connect(m_pList, &QListWidget::itemDoubleClicked, this, [this](QListWidgetItem* item) {
        if (!m_rebuilding && item) m_pList->editItem(item);
    });
    connect(m_pList->model(), &QAbstractItemModel::rowsMoved, this,
            [this](const QModelIndex&, int start, int, const QModelIndex&, int row) {
                // row is where the item was put before, counted before the move.
                OnRowsMoved(start, row > start ? row - 1 : row);
            });
    connect(m_pBlend, &QComboBox::activated, this, [this](int i) { SendProperty(4, m_pBlend->itemData(i).toInt()); });
    connect(m_pOpacitySlider, &QSlider::valueChanged, this, [this](int v) {
        const QSignalBlocker block(m_pOpacity);
        m_pOpacity->setValue(v);
        if (!m_pOpacitySlider->isSliderDown()) SendProperty(3, v); // a click on the groove or a key
    });
    connect(m_pOpacitySlider, &QSlider::sliderReleased, this, [this] { SendProperty(3, m_pOpacitySlider->value()); });
    connect(m_pOpacity, &QSpinBox::valueChanged, this, [this](int v) {
        const QSignalBlocker block(m_pOpacitySlider);
        m_pOpacitySlider->setValue(v);
        SendProperty(3, v);
    });
    connect(m_pNew, &QToolButton::clicked, this, [this] { Q_EMIT NewLayerRequested(); });
    connect(m_pOpen, &QToolButton::clicked, this, [this] { Q_EMIT OpenLayerRequested(); });
    connect(m_pMerge, &QToolButton::clicked, this,
            [this] { Q_EMIT Command(Latin(QStringLiteral("Doc_MergeDownLayer('%1')").arg(m_currentIndex))); });
    connect(m_pDelete, &QToolButton::clicked, this,
            [this] { Q_EMIT Command(Latin(QStringLiteral("Doc_DeleteLayer('%1')").arg(m_currentIndex))); });
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
    m_pDocument = &document;
    m_layerCount = document.GetLayerCount();
    m_currentIndex = document.GetCurrentIndex();
    m_pList->clear();
    for (int row = 0; row < m_layerCount; ++row) {
        const int index = LayerOfRow(row);
        const CLayer* layer = document.GetLayer(index);
        if (!layer) continue;
        const QString name = FromGbk(layer->m_name);
        auto* item =
            new QListWidgetItem(LayerThumbnail(*layer, index == 0, document.GetWidth(), document.GetHeight()), name);
        Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable | Qt::ItemIsEditable;
        // The base does not move. No row takes a drop onto itself: a drop lands between rows.
        if (index > 0) flags |= Qt::ItemIsDragEnabled;
        item->setFlags(flags);
        item->setData(kNameRole, name);
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
    ShowCurrentProperties();
    m_rebuilding = false;
}

void CLayersPanel::ShowCurrentProperties()
{
    const CLayer* layer = m_pDocument ? m_pDocument->GetLayer(m_currentIndex) : nullptr;
    const bool upper = layer && m_currentIndex > 0;
    for (QWidget* w :
         {static_cast<QWidget*>(m_pBlend), static_cast<QWidget*>(m_pOpacitySlider), static_cast<QWidget*>(m_pOpacity)})
        w->setEnabled(upper);
    const QSignalBlocker b1(m_pBlend), b2(m_pOpacitySlider), b3(m_pOpacity);
    // A mode the menu does not carry shows as normal, its name too.
    const int found = layer ? m_pBlend->findData(int(layer->m_blendMode)) : 0;
    m_pBlend->setCurrentIndex(found < 0 ? 0 : found);
    m_pOpacitySlider->setValue(layer ? layer->m_opacity : 255);
    m_pOpacity->setValue(layer ? layer->m_opacity : 255);
}

void CLayersPanel::SendProperty(int property, int value)
{
    if (m_rebuilding || !m_pDocument) return;
    const CLayer* layer = m_pDocument->GetLayer(m_currentIndex);
    if (!layer || m_currentIndex < 1) return;
    // Nothing changed, nothing recorded.
    if ((property == 3 && layer->m_opacity == value) || (property == 4 && layer->m_blendMode == value)) return;
    Q_EMIT Command(
        Latin(QStringLiteral("Doc_LayerPropertyChange('%1','%2','%3')").arg(m_currentIndex).arg(property).arg(value)));
}

void CLayersPanel::OnCurrentRowChanged(int row)
{
    if (m_rebuilding || row < 0) return;
    const int index = LayerOfRow(row);
    if (index != m_currentIndex) Q_EMIT Command(Latin(QStringLiteral("Doc_SetCurLayer('%1')").arg(index)));
}

void CLayersPanel::OnItemChanged(QListWidgetItem* item)
{
    if (m_rebuilding) return;
    const int index = LayerOfRow(m_pList->row(item));
    if (item->text() != item->data(kNameRole).toString()) {
        Rename(index, item->text());
        return;
    }
    Q_EMIT Command(Latin(QStringLiteral("Doc_LayerPropertyChange('%1','1','%2')")
                             .arg(index)
                             .arg(item->checkState() == Qt::Checked ? 1 : 0)));
}

void CLayersPanel::Rename(int index, const QString& typed)
{
    // The command language quotes its arguments with "'": a typed one becomes the typographic apostrophe.
    QString name = typed.trimmed();
    name.replace(QLatin1Char('\''), QChar(0x2019));
    std::string gbk;
    const bool fits = Utf8ToGbk(name.toStdString(), gbk) && gbk.size() < kLayerNameBytes;
    if (!name.isEmpty() && !fits) Q_EMIT MessageRequested("Ciop_namelimit");
    // Sent once the list has finished with its editor: the answer rebuilds the list.
    if (name.isEmpty() || !fits) {
        // The old name comes back.
        QTimer::singleShot(0, this, [this] {
            if (m_pDocument) Rebuild(*m_pDocument);
        });
        return;
    }
    const QByteArray text = QByteArray("Doc_LayerPropertyChange('") + QByteArray::number(index) + "','2','" +
                            QByteArray::fromStdString(gbk) + "')";
    QTimer::singleShot(0, this, [this, text] { Q_EMIT Command(text); });
}

void CLayersPanel::OnRowsMoved(int fromRow, int toRow)
{
    if (m_rebuilding) return;
    const int from = LayerOfRow(fromRow), to = LayerOfRow(toRow);
    // Sent once the drop is over, as the answer rebuilds the list. Nothing moves below the base; a drop back on
    // its own place changes nothing and records nothing.
    QTimer::singleShot(0, this, [this, from, to] {
        if (from >= 1 && to >= 1 && from != to)
            Q_EMIT Command(Latin(QStringLiteral("Doc_LayerLocateChange('%1','%2')").arg(from).arg(to)));
        else if (m_pDocument)
            Rebuild(*m_pDocument);
    });
}

CHistoryPanel::CHistoryPanel(QWidget* parent) : QWidget(parent), m_pList(new QListWidget(this))
{
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_pList);
    connect(m_pList, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) {
        if (m_rebuilding) return;
        Q_EMIT Command(QStringLiteral("UI_HistoryJumpTo('%1')").arg(m_pList->row(item) + 1).toLatin1());
    });
    auto* poll = new QTimer(this);
    poll->setInterval(200);
    connect(poll, &QTimer::timeout, this, [this] {
        if (!(QApplication::mouseButtons() & Qt::LeftButton)) Poll();
    });
    poll->start();
}

CHistoryPanel::Shown CHistoryPanel::Look(const CHistoryLog* history)
{
    Shown s;
    s.log = history;
    if (history) {
        s.count = history->GetCount();
        s.current = history->GetCurrentStep();
        // A step replaced after an undo keeps count and position: its record offset tells it apart.
        if (s.count > 0) s.written = history->GetRecord(s.count - 1)->offset;
    }
    return s;
}

bool CHistoryPanel::Poll()
{
    if (!m_source) return false;
    const CHistoryLog* history = m_source();
    if (Look(history) == m_shown) return false;
    Rebuild(history);
    return true;
}

void CHistoryPanel::Rebuild(const CHistoryLog* history)
{
    m_rebuilding = true;
    m_shown = Look(history);
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
