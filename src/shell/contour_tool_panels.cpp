#include "shell/contour_tool_panels.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSlider>
#include <QToolButton>
#include <QVBoxLayout>

#include "shell/app_globals.h"
#include "tools/bk_picker_tool.h"
#include "tools/contour_tools.h"

namespace {

QString Text(const char* key) { return QString::fromStdString(GetString(key)); }

} // namespace

CBkPickerOptionsPanel::CBkPickerOptionsPanel(QWidget* parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("bkpicker-panel"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(1);
    auto* more = new QLabel(Text("bkpickmore"), this);
    auto* less = new QLabel(Text("bkpickless"), this);
    for (QLabel* l : {more, less}) {
        QFont f = l->font();
        f.setPointSizeF(f.pointSizeF() * 0.75);
        l->setFont(f);
        l->setWordWrap(true);
    }
    // Upwards takes more: the slider stands between its two labels.
    m_pSlider = new QSlider(Qt::Vertical, this);
    m_pSlider->setObjectName(QStringLiteral("bkpicker-strength"));
    m_pSlider->setRange(0, 100);
    m_pSlider->setFixedHeight(70);
    m_pSlider->setToolTip(Text("bkpickstrengthtip"));
    m_pFeather = new QCheckBox(Text("bkpickfeather"), this);
    auto* apply = new QPushButton(Text("blueapply"), this);
    apply->setObjectName(QStringLiteral("bkpicker-apply"));
    column->addWidget(more);
    column->addWidget(m_pSlider, 0, Qt::AlignHCenter);
    column->addWidget(less);
    column->addWidget(m_pFeather);
    column->addWidget(apply);
    connect(m_pSlider, &QSlider::valueChanged, this, [this](int v) {
        if (m_pOptions && m_pOptions->GetSlider() != v) m_pOptions->SetSlider(v);
    });
    connect(m_pFeather, &QCheckBox::clicked, this, [this] {
        if (m_pOptions) m_pOptions->ToggleFeather();
    });
    connect(apply, &QPushButton::clicked, this, [this] {
        if (m_pOptions) m_pOptions->Apply();
    });
    hide();
}

void CBkPickerOptionsPanel::Show(CToolOptions* options)
{
    m_pOptions = dynamic_cast<CPropBkPicker*>(options);
    if (!m_pOptions) {
        hide();
        return;
    }
    m_pSlider->setValue(m_pOptions->GetSlider());
    m_pFeather->setChecked(m_pOptions->GetFeather() != 0);
    show();
}

CZoomOptionsPanel::CZoomOptionsPanel(QWidget* parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("zoom-panel"));
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(1);
    const char* glyphs[3] = {"+", "−", "✥"};
    const char* keys[3] = {"zoomin", "zoomout", "zoompan"};
    for (uint32_t i = 0; i < 3; ++i) {
        m_pModes[i] = new QToolButton(this);
        m_pModes[i]->setCheckable(true);
        m_pModes[i]->setText(QString::fromUtf8(glyphs[i]));
        m_pModes[i]->setFixedSize(20, 20);
        m_pModes[i]->setToolTip(Text(keys[i]));
        m_pModes[i]->setObjectName(QString::fromLatin1(keys[i]));
        connect(m_pModes[i], &QToolButton::clicked, this, [this, i] {
            if (m_pOptions) m_pOptions->SetMode(i);
        });
        row->addWidget(m_pModes[i]);
    }
    hide();
}

void CZoomOptionsPanel::Show(CToolOptions* options)
{
    if (m_pOptions) m_pOptions->onChanged = nullptr;
    m_pOptions = dynamic_cast<CPropZoom*>(options);
    if (!m_pOptions) {
        hide();
        return;
    }
    m_pOptions->onChanged = [this] { Sync(); };
    Sync();
    show();
}

void CZoomOptionsPanel::Sync()
{
    if (!m_pOptions) return;
    for (uint32_t i = 0; i < 3; ++i) m_pModes[i]->setChecked(m_pOptions->GetMode() == i);
}
