#include "shell/smart_adjust_panel.h"

#include <QColorDialog>
#include <QGridLayout>
#include <QToolButton>

#include "shell/app_globals.h"
#include "tools/smart_adjust_tool.h"

namespace {

QString Text(const char* key)
{
    return QString::fromStdString(GetString(key));
}

} // namespace

CSmartAdjPanel::CSmartAdjPanel(QWidget* parent) : QWidget(parent)
{
    auto* grid = new QGridLayout(this);
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setSpacing(2);
    const char* swatchKeys[2] = {"smartadjfore", "smartadjback"};
    for (int i = 0; i < 2; ++i) {
        m_pSwatches[i] = new QToolButton(this);
        m_pSwatches[i]->setObjectName(QString::fromLatin1(swatchKeys[i]));
        m_pSwatches[i]->setFixedSize(28, 22);
        m_pSwatches[i]->setToolTip(Text(swatchKeys[i]));
        connect(m_pSwatches[i], &QToolButton::clicked, this, [this, i] { ChooseSwatch(i); });
        grid->addWidget(m_pSwatches[i], 0, i * 3, 1, 3);
    }
    const char* modeKeys[3] = {"smartadjboth", "smartadjraise", "smartadjlower"};
    const char* glyphs[3] = {"±", "+", "−"};
    for (int i = 0; i < 3; ++i) {
        m_pModes[i] = new QToolButton(this);
        m_pModes[i]->setObjectName(QString::fromLatin1(modeKeys[i]));
        m_pModes[i]->setCheckable(true);
        m_pModes[i]->setText(QString::fromUtf8(glyphs[i]));
        m_pModes[i]->setToolTip(Text(modeKeys[i]));
        m_pModes[i]->setFixedSize(20, 20);
        connect(m_pModes[i], &QToolButton::clicked, this, [this, i] {
            if (m_pOptions) m_pOptions->SetMode(uint32_t(i));
        });
        grid->addWidget(m_pModes[i], 1, i * 2, 1, 2);
    }
    chooseColour = [this](const QColor& initial) { return QColorDialog::getColor(initial, window()); };
    hide();
}

void CSmartAdjPanel::Show(CToolOptions* options)
{
    auto* next = dynamic_cast<CPropSmartAdj*>(options);
    if (m_pOptions && m_pOptions != next) m_pOptions->onChanged = nullptr;
    m_pOptions = next;
    if (!m_pOptions) {
        hide();
        return;
    }
    // The brush panel follows the same settings: both are told of a change.
    std::function<void()> brush = m_pOptions->onChanged;
    m_pOptions->onChanged = [this, brush] {
        if (brush) brush();
        Sync();
    };
    if (!m_faceMade) {
        m_faceMade = true;
        m_pOptions->ResetFace();
    }
    Sync();
    show();
}

void CSmartAdjPanel::ChooseSwatch(int which)
{
    if (!m_pOptions || !chooseColour) return;
    const CPixel old = which == 0 ? m_pOptions->GetForeColor() : m_pOptions->GetBackColor();
    const QColor chosen = chooseColour(QColor(old.red, old.green, old.blue));
    if (!chosen.isValid()) return;
    const CPixel c{uint8_t(chosen.blue()), uint8_t(chosen.green()), uint8_t(chosen.red()), 255};
    if (which == 0)
        m_pOptions->SetForeColor(c);
    else
        m_pOptions->SetBackColor(c);
}

void CSmartAdjPanel::Sync()
{
    if (!m_pOptions) return;
    for (int i = 0; i < 2; ++i) {
        const bool picked = i == 0 ? m_pOptions->IsForePicked() : m_pOptions->IsBackPicked();
        const CPixel c = i == 0 ? m_pOptions->GetForeColor() : m_pOptions->GetBackColor();
        const QColor shown = picked ? QColor(c.red, c.green, c.blue) : QColor(0x80, 0x80, 0x80);
        m_pSwatches[i]->setStyleSheet(
            QStringLiteral("QToolButton { background: %1; border: 1px solid black; }").arg(shown.name()));
        m_pSwatches[i]->setText(picked ? QString() : QStringLiteral("?"));
    }
    for (int i = 0; i < 3; ++i)
        m_pModes[i]->setChecked(m_pOptions->GetMode() == uint32_t(i));
}
