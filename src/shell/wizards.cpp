#include "shell/wizards.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QPixmap>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>

#include "shell/app_globals.h"
#include "shell/skin.h"

namespace {

QString Text(const char* key) { return QString::fromStdString(GetString(key)); }

// A large picture button with its caption under the picture and the tip beside the pointer.
QToolButton* PictureButton(QWidget* parent, const char* name, const char* captionKey, const char* picture,
                           const char* tipKey)
{
    auto* button = new QToolButton(parent);
    button->setObjectName(QString::fromLatin1(name));
    button->setText(Text(captionKey).replace(QStringLiteral("\r\n"), QStringLiteral("\n")));
    const QImage image = LoadSkinPicture(picture);
    if (!image.isNull()) {
        button->setIcon(QPixmap::fromImage(image));
        button->setIconSize(QSize(48, 48));
    }
    button->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    // Wide enough for the caption's longest line: a tool button elides rather than wraps.
    int textWidth = 0;
    for (const QString& line : button->text().split(QLatin1Char('\n')))
        textWidth = std::max(textWidth, button->fontMetrics().horizontalAdvance(line));
    button->setMinimumSize(std::max(150, textWidth + 24), 90);
    button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    if (tipKey) button->setToolTip(Text(tipKey));
    return button;
}

} // namespace

// ---- CAfterOpenDlg -----------------------------------------------------------------------------------------------

namespace {
std::function<void(CAfterOpenDlg&)>& AfterOpenHook()
{
    static std::function<void(CAfterOpenDlg&)> hook;
    return hook;
}
} // namespace

CAfterOpenDlg::CAfterOpenDlg(QWidget* parent, std::function<bool()> openForeground)
    : QDialog(parent), m_openForeground(std::move(openForeground))
{
    setWindowTitle(Text("afteropendlg"));
    m_pForeground = PictureButton(this, "afterfore", "afterfore", "delbk.png", nullptr);
    m_pBackground = PictureButton(this, "afterback", "afterback", "chbk.png", nullptr);
    connect(m_pForeground, &QToolButton::clicked, this, [this] {
        m_answer = kForeground;
        accept();
    });
    connect(m_pBackground, &QToolButton::clicked, this, [this] {
        if (!m_openForeground || !m_openForeground()) return; // nothing opened: the question stays
        m_answer = kBackground;
        accept();
    });
    auto* self = new QPushButton(Text("afterself"), this);
    self->setObjectName(QStringLiteral("afterself"));
    connect(self, &QPushButton::clicked, this, &QDialog::reject);
    m_pDontAsk = new QCheckBox(Text("afterdontask"), this);
    m_pDontAsk->setObjectName(QStringLiteral("afterdontask"));
    connect(m_pDontAsk, &QCheckBox::clicked, this, [this](bool checked) {
        if (onDontAsk) onDontAsk(checked);
    });
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_pForeground);
    buttons->addWidget(m_pBackground);
    auto* bottom = new QHBoxLayout;
    bottom->addWidget(m_pDontAsk);
    bottom->addStretch(1);
    bottom->addWidget(self);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(buttons);
    layout->addLayout(bottom);
}

void SetAfterOpenHook(std::function<void(CAfterOpenDlg&)> hook)
{
    AfterOpenHook() = std::move(hook);
}

void RunAfterOpenDialog(CAfterOpenDlg& dialog)
{
    if (AfterOpenHook())
        AfterOpenHook()(dialog);
    else
        dialog.exec();
}

// ---- CMethodDlg -------------------------------------------------------------------------------------------------

CMethodDlg::CMethodDlg(QWidget* parent) : QDialog(parent)
{
    setWindowTitle(Text("methoddlg"));
    auto* grid = new QGridLayout;
    struct Row {
        uint32_t method;
        const char* name;
        const char* caption;
        const char* picture;
        const char* tip;
    };
    const Row rows[] = {
        {1, "methodpure", "methodpure", "bluesel.png", "puresel"},
        {2, "methodinout", "methodinout", "inoutsel.png", "inoutsel"},
        {4, "methoddiff", "methoddiff", "difsel.png", "diffsel"},
        {kBatch, "methodbatch", "methodbatch", "batchblue.png", "batchpure"},
    };
    int cell = 0;
    for (const Row& row : rows) {
        QToolButton* button = PictureButton(this, row.name, row.caption, row.picture, row.tip);
        m_pButtons[row.method] = button;
        connect(button, &QToolButton::clicked, this, [this, method = row.method] {
            m_method = method;
            accept();
        });
        grid->addWidget(button, cell / 2, cell % 2);
        ++cell;
    }
    auto* cancel = new QPushButton(Text("wizcancel"), this);
    cancel->setObjectName(QStringLiteral("methodcancel"));
    connect(cancel, &QPushButton::clicked, this, [this] {
        m_method = 0;
        reject();
    });
    auto* bottom = new QHBoxLayout;
    bottom->addStretch(1);
    bottom->addWidget(cancel);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(grid);
    layout->addLayout(bottom);
}

QToolButton* CMethodDlg::Button(uint32_t method) const
{
    return method >= 1 && method <= 4 ? m_pButtons[method] : nullptr;
}

// ---- CResultWizard ----------------------------------------------------------------------------------------------

CResultWizard::CResultWizard(QWidget* parent, std::function<bool(const BringBackChoice&)> act)
    : QDialog(parent), m_act(std::move(act))
{
    setWindowTitle(Text("resultwiz"));
    struct Row {
        EBringBack action;
        const char* name;
        const char* caption;
        const char* picture;
        const char* tip;
    };
    const auto add = [this](QGroupBox* box, std::initializer_list<Row> rows) {
        auto* grid = new QGridLayout(box);
        int cell = 0;
        for (const Row& row : rows) {
            QToolButton* button = PictureButton(box, row.name, row.caption, row.picture, row.tip);
            m_pButtons[int(row.action)] = button;
            connect(button, &QToolButton::clicked, this, [this, action = row.action] { Choose(action); });
            grid->addWidget(button, cell / 3, cell % 3);
            ++cell;
        }
    };
    auto* byUse = new QGroupBox(Text("wizbyuse"), this);
    add(byUse, {{EBringBack::kChangeBackground, "wizchbk", "wizchbk", "chbk.png", "chbk"},
                {EBringBack::kBlurBackground, "wizblur", "wizblur", "blur.png", "blurbk"}});
    auto* byFunction = new QGroupBox(Text("wizbyfunc"), this);
    add(byFunction, {{EBringBack::kApply, "wizdelbk", "wizdelbk", "delbk.png", "delbk"},
                     {EBringBack::kSeparate, "wizsep", "wizsep", "sepbk.png", "sepbk"},
                     {EBringBack::kCopy, "wizdup", "wizdup", "dupsel.png", nullptr}});
    m_pKeep = new QCheckBox(Text("wizkeepsel"), this);
    m_pKeep->setObjectName(QStringLiteral("wizkeepsel"));
    auto* keepOnly = new QPushButton(Text("wizkeeponly"), this);
    keepOnly->setObjectName(QStringLiteral("wizkeeponly"));
    connect(keepOnly, &QPushButton::clicked, this, [this] {
        m_pKeep->setChecked(true);
        Choose(EBringBack::kKeep);
    });
    auto* discard = new QPushButton(Text("wizdiscard"), this);
    discard->setObjectName(QStringLiteral("wizdiscard"));
    connect(discard, &QPushButton::clicked, this, [this] {
        m_choice = BringBackChoice(EBringBack::kDiscard, false);
        accept();
    });
    auto* bottom = new QHBoxLayout;
    bottom->addWidget(m_pKeep);
    bottom->addStretch(1);
    bottom->addWidget(keepOnly);
    bottom->addWidget(discard);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(byUse);
    layout->addWidget(byFunction);
    layout->addLayout(bottom);
}

QToolButton* CResultWizard::Button(EBringBack action) const
{
    const int i = int(action);
    return i >= 0 && i < 8 ? m_pButtons[i] : nullptr;
}

void CResultWizard::Choose(EBringBack action)
{
    const BringBackChoice choice(action, m_pKeep->isChecked());
    if (!m_act || !m_act(choice)) return; // the action asked to stay (a cancelled file dialog, say)
    m_choice = choice;
    accept();
}
