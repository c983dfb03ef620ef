#include "shell/crop_panel.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QAbstractItemView>
#include <QSpinBox>
#include <QVBoxLayout>

#include "shell/app_globals.h"

namespace {

QString Text(const char* key) { return QString::fromStdString(GetString(key)); }

} // namespace

CCropRatioDlg::CCropRatioDlg(int width, int height, QWidget* parent)
    : QDialog(parent), m_pWidth(new QSpinBox(this)), m_pHeight(new QSpinBox(this))
{
    setWindowTitle(Text("cropratiotitle"));
    auto* form = new QFormLayout(this);
    for (QSpinBox* box : {m_pWidth, m_pHeight}) box->setRange(1, 20000);
    m_pWidth->setValue(width);
    m_pHeight->setValue(height);
    m_pWidth->setObjectName(QStringLiteral("ratio-width"));
    m_pHeight->setObjectName(QStringLiteral("ratio-height"));
    form->addRow(Text("cropwidth"), m_pWidth);
    form->addRow(Text("cropheight"), m_pHeight);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    form->addRow(buttons);
}

int CCropRatioDlg::RatioWidth() const { return m_pWidth->value(); }
int CCropRatioDlg::RatioHeight() const { return m_pHeight->value(); }

CCropOptionsPanel::CCropOptionsPanel(QWidget* parent) : QWidget(parent)
{
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(3);
    // The bar is narrow: the check box's text goes in a label beside it that may wrap.
    auto* freeRow = new QHBoxLayout;
    freeRow->setSpacing(2);
    m_pFree = new QCheckBox(this);
    m_pFree->setObjectName(QStringLiteral("crop-free"));
    m_pFree->setToolTip(Text("cropfree"));
    auto* freeLabel = new QLabel(Text("cropfree"), this);
    freeLabel->setWordWrap(true);
    freeLabel->setBuddy(m_pFree);
    freeRow->addWidget(m_pFree, 0, Qt::AlignTop);
    freeRow->addWidget(freeLabel, 1);
    m_pRatio = new QComboBox(this);
    m_pRatio->setObjectName(QStringLiteral("crop-ratio"));
    // The tool bar is 70 pixels wide: the list shows short names in a slightly smaller font, and each entry's tool
    // tip gives the whole text.
    const char* shortKeys[] = {"cropnoratioshort", "croporiginalshort", nullptr, nullptr, nullptr, nullptr,
                               "cropcustom"};
    const char* keys[] = {"cropnoratio", "croporiginal", nullptr, nullptr, nullptr, nullptr, "cropcustom"};
    const char* plain[] = {"", "", "4:3", "3:4", "3:2", "2:3", ""};
    for (int i = 0; i < 7; ++i) {
        m_pRatio->addItem(shortKeys[i] ? Text(shortKeys[i]) : QString::fromLatin1(plain[i]));
        if (keys[i]) m_pRatio->setItemData(i, Text(keys[i]), Qt::ToolTipRole);
    }
    QFont small = m_pRatio->font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    m_pRatio->setFont(small);
    m_pRatio->setStyleSheet(QStringLiteral("QComboBox { padding: 1px 0px 1px 3px; }"
                                           "QComboBox::drop-down { width: 11px; }"));
    m_pRatio->view()->setMinimumWidth(m_pRatio->view()->sizeHintForColumn(0) + 8);
    column->addLayout(freeRow);
    column->addWidget(m_pRatio);
    connect(m_pFree, &QCheckBox::toggled, this, [this](bool on) {
        if (!m_syncing && m_pOptions) m_pOptions->SetFreeShape(on);
        Sync();
    });
    connect(m_pRatio, &QComboBox::activated, this, [this](int index) { OnRatioChosen(index); });
    askCustom = [this](int& width, int& height) {
        CCropRatioDlg dlg(width, height, window());
        if (dlg.exec() != QDialog::Accepted) return false;
        width = dlg.RatioWidth();
        height = dlg.RatioHeight();
        return true;
    };
    hide();
}

void CCropOptionsPanel::OnRatioChosen(int index)
{
    if (m_syncing || !m_pOptions) return;
    if (index == CPropCrop::kRatioCustom) {
        int w = m_pOptions->GetCustomWidth(), h = m_pOptions->GetCustomHeight();
        if (askCustom && askCustom(w, h)) m_pOptions->SetCustomRatio(w, h);
    } else {
        m_pOptions->SetRatioChoice(index);
    }
    Sync();
}

void CCropOptionsPanel::Show(CToolOptions* options)
{
    if (m_pOptions) m_pOptions->onChanged = nullptr;
    m_pOptions = dynamic_cast<CPropCrop*>(options);
    if (!m_pOptions) {
        hide();
        return;
    }
    m_pOptions->onChanged = [this] { Sync(); };
    Sync();
    show();
}

void CCropOptionsPanel::Sync()
{
    if (!m_pOptions) return;
    m_syncing = true;
    m_pFree->setChecked(m_pOptions->GetFreeShape());
    m_pFree->setEnabled(m_pOptions->IsFreeShapeEnabled());
    m_pRatio->setCurrentIndex(m_pOptions->GetRatioChoice());
    m_pRatio->setEnabled(m_pOptions->IsRatioEnabled());
    m_pRatio->setToolTip(m_pRatio->currentText());
    m_syncing = false;
}
