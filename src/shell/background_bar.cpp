#include "shell/background_bar.h"

#include <QColorDialog>
#include <QGridLayout>
#include <QPainter>
#include <QToolButton>

#include "document/selection_document.h"
#include "shell/app_globals.h"
#include "shell/menu_table.h"
#include "shell/selection_mode.h"
#include "shell/skin.h"
#include "shell/tool_bar.h"

namespace {

QString Text(const char* key)
{
    return QString::fromStdString(GetString(key));
}

constexpr QSize kFace(39, 14);

QToolButton* MakeButton(QWidget* parent, const char* name, const char* tipKey, int width)
{
    auto* b = new QToolButton(parent);
    b->setObjectName(QString::fromLatin1(name));
    b->setToolTip(Text(tipKey));
    b->setStatusTip(Text(tipKey));
    b->setFixedSize(width, 20);
    b->setIconSize(kFace);
    return b;
}

QColor FromWord(uint32_t colour)
{
    return QColor((colour >> 16) & 0xFF, (colour >> 8) & 0xFF, colour & 0xFF);
}

// The checkerboard's face: 4-pixel squares of the two shades the canvas will use.
QIcon CheckerFace(int style)
{
    QImage face(kFace, QImage::Format_RGB32);
    const QRgb light = style ? qRgb(0xC0, 0xC0, 0xC0) : qRgb(0x60, 0x60, 0x60);
    const QRgb dark = style ? qRgb(0xFF, 0xFF, 0xFF) : qRgb(0, 0, 0);
    for (int y = 0; y < face.height(); ++y)
        for (int x = 0; x < face.width(); ++x)
            face.setPixel(x, y, ((x >> 2) + (y >> 2)) % 2 ? dark : light);
    return QIcon(QPixmap::fromImage(face));
}

QIcon ColourFace(uint32_t colour)
{
    QPixmap face(kFace);
    face.fill(FromWord(colour));
    QPainter p(&face);
    p.setPen(QColor(0x60, 0x60, 0x60));
    p.drawRect(face.rect().adjusted(0, 0, -1, -1));
    return QIcon(face);
}

QIcon SkinFace(const char* picture)
{
    const QImage img = LoadSkinPicture(picture);
    return img.isNull() ? QIcon() : QIcon(QPixmap::fromImage(img));
}

} // namespace

CBackgroundBar::CBackgroundBar(CAppGlobals& app, CToolBar& bar, IUiServices& services, QWidget* parent)
    : QWidget(parent), m_bar(bar), m_services(services)
{
    // The colour and the checkerboard start as the profile says; changes last for the session only.
    CSelectionDocument& selection = m_bar.Selection();
    selection.SetBackgroundColour(0xFF000000u | uint32_t(app.GetProfileInt("bkcolor")));
    selection.SetCheckerStyle(app.GetProfileInt("bkblocktype") != 0 ? 1 : 0);

    chooseColour = [](const QColor& initial, QWidget* parent) {
        return QColorDialog::getColor(initial, parent, Text("bkmodecolor"));
    };

    // The pressed choice must stand out although its face fills the button: a frame in the highlight colour.
    setStyleSheet(QStringLiteral("QToolButton { border: 1px solid palette(mid); border-radius: 2px; padding: 0px; "
                                 "background: palette(button); }"
                                 "QToolButton:checked { border: 2px solid palette(highlight); "
                                 "background: palette(highlight); }"
                                 "QToolButton:pressed { background: palette(mid); }"));
    auto* grid = new QGridLayout(this);
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setSpacing(0);
    m_pOriginal = MakeButton(this, "orgshow", "orgshowtip", 45);
    m_pOriginal->setText(Text("orgshow"));
    m_pOriginal->setToolButtonStyle(Qt::ToolButtonTextOnly);
    QFont small = m_pOriginal->font();
    small.setPointSizeF(small.pointSizeF() * 0.8);
    m_pOriginal->setFont(small);
    grid->addWidget(m_pOriginal, 0, 0);
    const char* names[4] = {"bkmodecolor", "bkmodeblock", "bkmodeimage", "bkmodemask"};
    for (int i = 0; i < 4; ++i) {
        m_pModes[i] = MakeButton(this, names[i], names[i], 45);
        m_pModes[i]->setCheckable(true);
        grid->addWidget(m_pModes[i], i + 1, 0);
        connect(m_pModes[i], &QToolButton::clicked, this, [this, i] { ChooseMode(i + 1); });
    }
    m_pModes[2]->setIcon(SkinFace("bkimage.png"));
    m_pModes[3]->setIcon(SkinFace("bkmask.png"));
    const char* helpers[3] = {"bkcolorpick", "bkblockswitch", "bkimagepick"};
    for (int i = 0; i < 3; ++i) {
        m_pHelpers[i] = MakeButton(this, helpers[i], helpers[i], 15);
        m_pHelpers[i]->setText(i == 1 ? QStringLiteral("\u25D1") : QStringLiteral("\u2026"));
        grid->addWidget(m_pHelpers[i], i + 1, 1);
    }
    connect(m_pHelpers[0], &QToolButton::clicked, this, [this] { ChooseColour(); });
    connect(m_pHelpers[1], &QToolButton::clicked, this, [this] { ToggleChecker(); });
    connect(m_pHelpers[2], &QToolButton::clicked, this, [this] { ChoosePicture(); });
    connect(m_pOriginal, &QToolButton::pressed, this, [this] { HoldOriginal(true); });
    connect(m_pOriginal, &QToolButton::released, this, [this] { HoldOriginal(false); });
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    Sync();
}

QToolButton* CBackgroundBar::ModeButton(int mode) const
{
    return mode >= 1 && mode <= 4 ? m_pModes[mode - 1] : nullptr;
}

void CBackgroundBar::Sync()
{
    CSelectionDocument& selection = m_bar.Selection();
    // While "Original" is held the choice underneath stays pressed.
    const int mode = m_heldMode ? m_heldMode : selection.GetDisplayMode();
    for (int i = 0; i < 4; ++i)
        m_pModes[i]->setChecked(mode == i + 1);
    m_pModes[0]->setIcon(ColourFace(selection.GetBackgroundColour()));
    m_pModes[1]->setIcon(CheckerFace(selection.GetCheckerStyle()));
}

void CBackgroundBar::Redraw()
{
    m_bar.Selection().RefreshPreview();
    Sync();
    Q_EMIT Changed();
}

void CBackgroundBar::ChooseMode(int mode)
{
    CSelectionDocument& selection = m_bar.Selection();
    // A picture background without a picture asks for one first.
    if (mode == kShowPicture && selection.GetBackgroundPicture()->IsNull()) {
        ChoosePicture();
        return;
    }
    selection.SetDisplayMode(mode);
    Redraw();
}

void CBackgroundBar::ChooseColour()
{
    CSelectionDocument& selection = m_bar.Selection();
    const QColor chosen = chooseColour ? chooseColour(FromWord(selection.GetBackgroundColour()), window()) : QColor();
    if (chosen.isValid()) {
        selection.SetBackgroundColour(0xFF000000u | uint32_t(chosen.red()) << 16 | uint32_t(chosen.green()) << 8 |
                                      uint32_t(chosen.blue()));
        selection.SetDisplayMode(kShowColour);
    }
    Redraw();
}

void CBackgroundBar::ChoosePicture()
{
    // The same road as the Background menu's picture item: file dialog, a clear message for an unreadable file.
    selmode::ChooseBackground(window(), m_bar, m_services, cmd::kBackPicture);
    Redraw();
}

void CBackgroundBar::ToggleChecker()
{
    CSelectionDocument& selection = m_bar.Selection();
    selection.SetCheckerStyle(selection.GetCheckerStyle() ? 0 : 1);
    Redraw();
}

void CBackgroundBar::HoldOriginal(bool down)
{
    CSelectionDocument& selection = m_bar.Selection();
    if (down && !m_heldMode) {
        m_heldMode = selection.GetDisplayMode();
        selection.SetDisplayMode(kShowSource);
    } else if (!down && m_heldMode) {
        selection.SetDisplayMode(m_heldMode);
        m_heldMode = 0;
    } else {
        return;
    }
    Redraw();
}

void CBackgroundBar::hideEvent(QHideEvent* event)
{
    // Hidden while held (the result went away by undo, the mode was left): the choice comes back.
    HoldOriginal(false);
    QWidget::hideEvent(event);
}
