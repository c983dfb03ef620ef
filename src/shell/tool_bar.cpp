#include "shell/tool_bar.h"

#include <QHelpEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QToolButton>
#include <QToolTip>
#include <QVBoxLayout>

#include "shell/app_globals.h"
#include "shell/brush_panel.h"
#include "shell/contour_tool_panels.h"
#include "shell/crop_panel.h"
#include "shell/image_view.h"
#include "shell/skin.h"
#include "shell/smart_adjust_panel.h"
#include "shell/string_table.h"

namespace {

QString Text(const char* key) { return QString::fromStdString(GetString(key)); }

// A small drawing of the tool's shape, for skins without its icon.
void DrawGlyph(QPainter& p, const CToolBase* tool, const QRect& r)
{
    const std::string key = tool->GetTipKey();
    const QRectF box = QRectF(r).adjusted(3, 3, -3, -3);
    p.setRenderHint(QPainter::Antialiasing, true);
    QPen pen(QColor(30, 30, 30), 1.3);
    if (key == "outpolygonseltip") pen.setColor(QColor(200, 40, 40));
    if (key == "inpolygonseltip") pen.setColor(QColor(40, 150, 40));
    if (key == "modifypolygonseltip") pen.setColor(QColor(40, 70, 200));
    p.setPen(pen);
    p.setBrush(Qt::NoBrush);
    // The brushes: a round tip on a slanted handle, the tip's colour saying what it does.
    auto brush = [&](const QColor& tip) {
        p.drawLine(QPointF(box.right(), box.top()), QPointF(box.center().x() + 1, box.center().y() - 1));
        p.setBrush(tip);
        p.drawEllipse(QPointF(box.left() + 4, box.bottom() - 4), 3.5, 3.5);
        p.setBrush(Qt::NoBrush);
    };
    if (key == "freepaint") {
        brush(QColor(220, 60, 40));
    } else if (key == "forepainttip") {
        brush(QColor(250, 250, 250));
    } else if (key == "innerbrushtip") {
        brush(QColor(60, 170, 60));
    } else if (key == "outerbrushtip") {
        brush(QColor(210, 50, 50));
    } else if (key == "smartadjtip") {
        // Half foreground, half background: the brush that works between the two.
        brush(QColor(250, 250, 250));
        p.setBrush(QColor(40, 40, 40));
        p.drawPie(QRectF(box.left() + 0.5, box.bottom() - 7.5, 7, 7), 90 * 16, 180 * 16);
        p.setBrush(Qt::NoBrush);
    } else if (key == "desattip") {
        brush(QColor(128, 128, 128));
    } else if (key == "erase" || key == "erasesel") {
        // An eraser block, tilted; the selection eraser's is blue.
        const QPointF pts[4] = {{box.left() + 1, box.bottom() - 4}, {box.right() - 4, box.top() + 1},
                                {box.right(), box.top() + 5}, {box.left() + 5, box.bottom()}};
        p.setBrush(key == "erase" ? QColor(240, 170, 170) : QColor(150, 180, 240));
        p.drawPolygon(pts, 4);
        p.setBrush(Qt::NoBrush);
    } else if (key == "cameratooltip") {
        // A stamp: handle, body and the print line.
        p.drawEllipse(QPointF(box.center().x(), box.top() + 2.5), 2.5, 2.5);
        p.drawLine(QPointF(box.center().x(), box.top() + 5), QPointF(box.center().x(), box.center().y() + 1));
        p.drawRect(QRectF(box.left() + 1, box.center().y() + 1, box.width() - 2, 3.5));
        p.drawLine(QPointF(box.left(), box.bottom()), QPointF(box.right(), box.bottom()));
    } else if (key == "pickertip") {
        p.drawLine(QPointF(box.left() + 1, box.bottom() - 1), QPointF(box.right() - 3, box.top() + 3));
        p.setBrush(QColor(30, 30, 30));
        p.drawEllipse(QPointF(box.right() - 2.5, box.top() + 2.5), 2.5, 2.5);
        p.setBrush(Qt::NoBrush);
    } else if (key == "pickbkcolor") {
        // The backdrop picker: a dropper whose bulb has the green of a backdrop.
        p.drawLine(QPointF(box.left() + 1, box.bottom() - 1), QPointF(box.right() - 3, box.top() + 3));
        p.setBrush(QColor(40, 170, 60));
        p.drawEllipse(QPointF(box.right() - 2.5, box.top() + 2.5), 2.5, 2.5);
        p.setBrush(Qt::NoBrush);
    } else if (key == "injecttip") {
        // Inject: a single green point with a plus beside it.
        p.setBrush(QColor(40, 150, 40));
        p.drawEllipse(QPointF(box.left() + 3.5, box.bottom() - 3.5), 2.5, 2.5);
        p.setBrush(Qt::NoBrush);
        p.drawLine(QPointF(box.right() - 4, box.top()), QPointF(box.right() - 4, box.top() + 8));
        p.drawLine(QPointF(box.right() - 8, box.top() + 4), QPointF(box.right(), box.top() + 4));
    } else if (key == "zoom") {
        // A magnifying glass.
        const QPointF centre(box.left() + box.width() * 0.4, box.top() + box.height() * 0.4);
        const double radius = box.width() * 0.32;
        p.drawEllipse(centre, radius, radius);
        QPen handle = pen;
        handle.setWidthF(2.2);
        p.setPen(handle);
        p.drawLine(centre + QPointF(radius * 0.7, radius * 0.7), QPointF(box.right(), box.bottom()));
        p.setPen(pen);
    } else if (key == "croptip") {
        // The two crop angles, crossing at opposite corners.
        const double l = box.left(), t = box.top(), r = box.right(), b = box.bottom();
        p.drawLine(QPointF(l + 3, t), QPointF(l + 3, b - 3));
        p.drawLine(QPointF(l + 3, b - 3), QPointF(r, b - 3));
        p.drawLine(QPointF(l, t + 3), QPointF(r - 3, t + 3));
        p.drawLine(QPointF(r - 3, t + 3), QPointF(r - 3, b));
    } else if (key == "transtip") {
        // A tilted frame with square handles at its corners.
        const QPointF c[4] = {{box.left() + 3, box.top() + 1}, {box.right(), box.top() + 4},
                              {box.right() - 3, box.bottom()}, {box.left(), box.bottom() - 3}};
        p.drawPolygon(c, 4);
        p.setBrush(QColor(250, 250, 250));
        for (const QPointF& k : c) p.drawRect(QRectF(k.x() - 1.5, k.y() - 1.5, 3, 3));
        p.setBrush(Qt::NoBrush);
    } else if (key == "movtooltip") {
        // Four arrows from the middle.
        const QPointF m = box.center();
        const double a = box.width() / 2;
        p.drawLine(QPointF(m.x() - a, m.y()), QPointF(m.x() + a, m.y()));
        p.drawLine(QPointF(m.x(), m.y() - a), QPointF(m.x(), m.y() + a));
        for (int i = 0; i < 4; ++i) {
            const double dx = i == 0 ? -1 : i == 1 ? 1 : 0, dy = i == 2 ? -1 : i == 3 ? 1 : 0;
            const QPointF tip(m.x() + dx * a, m.y() + dy * a);
            p.drawLine(tip, QPointF(tip.x() - dx * 2.5 + dy * 2.5, tip.y() - dy * 2.5 + dx * 2.5));
            p.drawLine(tip, QPointF(tip.x() - dx * 2.5 - dy * 2.5, tip.y() - dy * 2.5 - dx * 2.5));
        }
    } else if (key == "rectseltip") {
        pen.setStyle(Qt::DashLine);
        p.setPen(pen);
        p.drawRect(box);
    } else if (key == "roundseltip") {
        pen.setStyle(Qt::DashLine);
        p.setPen(pen);
        p.drawEllipse(box);
    } else if (key == "freeseltip") {
        QPainterPath path(QPointF(box.left() + 2, box.bottom() - 2));
        path.cubicTo(box.left() - 2, box.top(), box.right(), box.top() - 2, box.right() - 1, box.center().y());
        path.cubicTo(box.right(), box.bottom(), box.center().x(), box.bottom() - 3, box.left() + 2, box.bottom() - 2);
        p.drawPath(path);
    } else if (key == "magicseltip") {
        p.drawLine(QPointF(box.left() + 1, box.bottom() - 1), QPointF(box.center().x() + 2, box.center().y() - 2));
        p.drawLine(QPointF(box.right() - 2, box.top()), QPointF(box.right() - 2, box.top() + 5));
        p.drawLine(QPointF(box.right() - 4.5, box.top() + 2.5), QPointF(box.right() + 0.5, box.top() + 2.5));
    } else {
        const QPointF pts[5] = {{box.left() + 1, box.top() + 3}, {box.right() - 1, box.top()},
                                {box.right(), box.bottom() - 3}, {box.center().x(), box.bottom()},
                                {box.left(), box.bottom() - 5}};
        p.drawPolygon(pts, 5);
    }
}

} // namespace

// ---- CSelOptionsPanel -------------------------------------------------------------------------------------------

CSelOptionsPanel::CSelOptionsPanel(QWidget* parent) : QWidget(parent)
{
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(2);
    auto* modes = new QHBoxLayout;
    modes->setSpacing(1);
    const char* labels[3] = {"new", "add", "subtract"};
    const char* glyphs[3] = {"□", "+", "−"};
    for (int i = 0; i < 3; ++i) {
        m_pModes[i] = new QToolButton(this);
        m_pModes[i]->setCheckable(true);
        m_pModes[i]->setText(QString::fromUtf8(glyphs[i]));
        m_pModes[i]->setFixedSize(20, 20);
        m_pModes[i]->setToolTip(QString::fromLatin1(labels[i]));
        m_pModes[i]->setObjectName(QString::fromLatin1("mode-") + QString::fromLatin1(labels[i]));
        connect(m_pModes[i], &QToolButton::clicked, this, [this, i] {
            if (m_pOptions) m_pOptions->SetMode(i);
        });
        modes->addWidget(m_pModes[i]);
    }
    column->addLayout(modes);
    auto* tolerance = new QHBoxLayout;
    auto* label = new QLabel(Text("Magic_tolerance"), this);
    label->setObjectName(QStringLiteral("tolerance-label"));
    m_pTolerance = new QLineEdit(this);
    m_pTolerance->setObjectName(QStringLiteral("tolerance"));
    m_pTolerance->setMaxLength(2);
    m_pTolerance->setFixedWidth(24);
    m_pTolerance->setAlignment(Qt::AlignRight);
    m_pTolerance->setInputMask(QStringLiteral("09"));
    connect(m_pTolerance, &QLineEdit::textEdited, this, [this](const QString& text) {
        if (auto* magic = dynamic_cast<CPropMagicSel*>(m_pOptions)) magic->SetTolerance(text.toStdString());
    });
    tolerance->addWidget(label);
    tolerance->addWidget(m_pTolerance);
    column->addLayout(tolerance);
    hide();
}

void CSelOptionsPanel::Show(CToolOptions* options)
{
    if (m_pOptions) m_pOptions->onChanged = nullptr;
    m_pOptions = dynamic_cast<CPropSel*>(options);
    if (!m_pOptions) {
        hide();
        return;
    }
    m_pOptions->onChanged = [this] { Sync(); };
    Sync();
    show();
}

void CSelOptionsPanel::Sync()
{
    if (!m_pOptions) return;
    for (int i = 0; i < 3; ++i) m_pModes[i]->setChecked(m_pOptions->GetMode() == uint32_t(i));
    m_pModes[0]->setEnabled(m_pOptions->GetAllowNew() != 0);
    auto* magic = dynamic_cast<CPropMagicSel*>(m_pOptions);
    m_pTolerance->setVisible(magic != nullptr);
    findChild<QLabel*>(QStringLiteral("tolerance-label"))->setVisible(magic != nullptr);
    if (magic && m_pTolerance->text().toStdString() != magic->GetToleranceText())
        m_pTolerance->setText(QString::fromStdString(magic->GetToleranceText()));
}

// ---- CToolBar -----------------------------------------------------------------------------------------------

CToolBar::CToolBar(CAppGlobals& app, CImageView* view, QWidget* parent) : QWidget(parent), m_app(app)
{
    setMouseTracking(true);
    setMinimumSize(70, 240);
    m_context.document = &app.Document();
    m_context.composeHistory = app.ComposeHistory();
    m_context.selection = &m_selection;
    m_context.selectionHistory = app.SelectionHistory();
    m_context.text = [](const char* key) { return GetString(key); };
    m_context.foreground = [&app] { return app.m_foreColor; };
    m_context.setForeground = [&app](CPixel colour) {
        app.m_foreColor = colour;
        app.CommandContext().foreground = colour.Word();
    };
    m_context.message = [this](const char* key) {
        if (onMessage) onMessage(key);
    };
    m_context.profileInt = [&app](const std::string& key, int def) { return app.GetProfileInt(key, def); };
    m_context.status = [this](const std::string& text) {
        if (onStatus) onStatus(QString::fromStdString(text));
    };
    m_pManager = std::make_unique<CToolManager>(m_context);
    m_pManager->SetView(view);
    m_pManager->SetHost(this);
    m_selection.SetView(view);
    m_pPanel = new CSelOptionsPanel(this);
    m_pPanel->setGeometry(4, 200, 64, 48);
    m_pBrushPanel = new CBrushOptionsPanel(this);
    m_pBrushPanel->setGeometry(2, 200, 66, 150);
    m_pBkPickerPanel = new CBkPickerOptionsPanel(this);
    m_pBkPickerPanel->setGeometry(2, 200, 66, 190);
    m_pZoomPanel = new CZoomOptionsPanel(this);
    m_pZoomPanel->setGeometry(4, 200, 64, 22);
    m_pSmartPanel = new CSmartAdjPanel(this);
    m_pSmartPanel->setGeometry(2, 350, 66, 46);
    m_pCropPanel = new CCropOptionsPanel(this);
    m_pCropPanel->setGeometry(2, 200, 66, 60);
}

CToolBar::~CToolBar()
{
    m_pManager->SetHost(nullptr);
    m_pManager->SetView(nullptr);
    m_pManager->SetCurrentTool(nullptr);
}

CComposeDocument& CToolBar::Document()
{
    return m_app.Document();
}

void CToolBar::ShowHelp(const std::string& text)
{
    if (onHelp) onHelp(QString::fromStdString(text));
}

void CToolBar::ShowOptionPanel(CToolOptions* panel)
{
    m_pPanel->Show(panel);
    m_pBrushPanel->Show(panel);
    m_pBkPickerPanel->Show(panel);
    m_pZoomPanel->Show(panel);
    m_pSmartPanel->Show(panel);
    m_pCropPanel->Show(panel);
    // Below the last row of buttons.
    const int rows = (int(m_pManager->GetShownTools().size()) + 2) / 3;
    m_pPanel->move(4, Cell(rows * 3).top + 6);
    m_pBrushPanel->move(2, Cell(rows * 3).top + 6);
    m_pBkPickerPanel->move(2, Cell(rows * 3).top + 6);
    m_pZoomPanel->move(4, Cell(rows * 3).top + 6);
    m_pSmartPanel->move(2, Cell(rows * 3).top + 6 + m_pBrushPanel->height() + 2);
    m_pCropPanel->move(2, Cell(rows * 3).top + 6);
}

void CToolBar::RedrawBar()
{
    update();
    if (onBarsChanged) onBarsChanged();
}

void CToolBar::OnModeChanged(bool selectionMode)
{
    if (onMode) onMode(selectionMode);
    update();
}

CRect CToolBar::Cell(int index) const
{
    // The manager's cells count from the top of the tool window, whose first 75 pixels hold the large
    // button; here that button is the frame's, above this bar.
    CRect r = m_pManager->GetButtonRect(index);
    r.top -= kTop - 4;
    r.bottom -= kTop - 4;
    return r;
}

CToolBase* CToolBar::Hit(const QPoint& p) const
{
    const auto& tools = m_pManager->GetShownTools();
    for (size_t i = 0; i < tools.size(); ++i)
        if (tools[i]->IsEnabled() && Cell(int(i)).Contains(p.x(), p.y())) return tools[i];
    return nullptr;
}

void CToolBar::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    const auto& tools = m_pManager->GetShownTools();
    for (size_t i = 0; i < tools.size(); ++i) {
        CToolBase* tool = tools[i];
        if (!tool->IsEnabled()) continue;
        const CRect c = Cell(int(i));
        const QRect r(c.left, c.top, c.Width() + 1, c.Height() + 1);
        const bool current = tool == m_pManager->GetCurrentTool(), hot = tool == m_pManager->GetHotTool();
        p.fillRect(r, current ? palette().dark() : palette().button());
        // Sunken for the current tool, raised under the pointer, flat otherwise.
        if (current || hot) {
            p.setPen(current ? palette().shadow().color() : palette().light().color());
            p.drawLine(r.topLeft(), r.topRight());
            p.drawLine(r.topLeft(), r.bottomLeft());
            p.setPen(current ? palette().light().color() : palette().shadow().color());
            p.drawLine(r.bottomLeft(), r.bottomRight());
            p.drawLine(r.topRight(), r.bottomRight());
        }
        // The skin's pictures are read once; a missing one is remembered as missing.
        auto found = m_icons.find(tool->GetTipKey());
        if (found == m_icons.end())
            found = m_icons.emplace(tool->GetTipKey(), LoadSkinPicture(std::string("icons/") + tool->GetTipKey() + ".png"))
                        .first;
        const QImage& icon = found->second;
        const QRect inner(r.left() + 2, r.top() + 2, 16, 16);
        if (!icon.isNull())
            p.drawImage(inner, icon);
        else
            DrawGlyph(p, tool, inner);
    }
}

void CToolBar::mouseMoveEvent(QMouseEvent* event)
{
    CToolBase* hit = Hit(event->position().toPoint());
    if (hit == m_pManager->GetHotTool()) return;
    m_pManager->SetHotTool(hit);
    if (onStatus) onStatus(hit && hit->IsEnabled() ? Text(hit->GetTipKey()) : QString());
    update();
}

void CToolBar::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton) return;
    m_pManager->SetCurrentTool(Hit(event->position().toPoint()));
    update();
}

void CToolBar::leaveEvent(QEvent*)
{
    m_pManager->SetHotTool(nullptr);
    update();
}

bool CToolBar::event(QEvent* event)
{
    if (event->type() == QEvent::ToolTip) {
        auto* help = static_cast<QHelpEvent*>(event);
        if (CToolBase* hit = Hit(help->pos()))
            QToolTip::showText(mapToGlobal(QPoint(width() + 1, help->pos().y())), Text(hit->GetTipKey()), this);
        else
            QToolTip::hideText();
        return true;
    }
    return QWidget::event(event);
}
