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

// A large picture button with its caption (string key `name`, which is also its object name) under the picture
// and the tip beside the pointer.
QToolButton* PictureButton(QWidget* parent, const char* name, const char* picture, const char* tipKey)
{
    auto* button = new QToolButton(parent);
    button->setObjectName(QString::fromLatin1(name));
    button->setText(Text(name).replace(QStringLiteral("\r\n"), QStringLiteral("\n")));
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

// One choice of a wizard's grid of picture buttons.
struct PictureChoice {
    int key;             // what a click chooses
    const char* name;    // object name and caption key
    const char* picture; // skin picture
    const char* tip;     // tip key, or none
};

// A grid, `columns` wide, of buttons made on `parent` for the choices; `made` is told each button with its key,
// and a click calls `chosen` with the key for as long as `owner` lives.
template <class Made, class Chosen>
QGridLayout* ChoiceGrid(QWidget* parent, QObject* owner, std::initializer_list<PictureChoice> choices, int columns,
                        Made made, Chosen chosen)
{
    auto* grid = new QGridLayout;
    int cell = 0;
    for (const PictureChoice& c : choices) {
        QToolButton* button = PictureButton(parent, c.name, c.picture, c.tip);
        made(c.key, button);
        QObject::connect(button, &QToolButton::clicked, owner, [chosen, key = c.key] { chosen(key); });
        grid->addWidget(button, cell / columns, cell % columns);
        ++cell;
    }
    return grid;
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
    m_pForeground = PictureButton(this, "afterfore", "delbk.png", nullptr);
    m_pBackground = PictureButton(this, "afterback", "chbk.png", nullptr);
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
    QGridLayout* grid = ChoiceGrid(
        this, this,
        {{1, "methodpure", "bluesel.png", "puresel"},
         {2, "methodinout", "inoutsel.png", "inoutsel"},
         {4, "methoddiff", "difsel.png", "diffsel"},
         {int(kBatch), "methodbatch", "batchblue.png", "batchpure"}},
        2, [this](int key, QToolButton* button) { m_pButtons[key] = button; },
        [this](int key) {
            m_method = uint32_t(key);
            accept();
        });
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
    const auto add = [this](QGroupBox* box, std::initializer_list<PictureChoice> choices) {
        box->setLayout(ChoiceGrid(
            box, this, choices, 3, [this](int key, QToolButton* button) { m_pButtons[key] = button; },
            [this](int key) { Choose(EBringBack(key)); }));
    };
    auto* byUse = new QGroupBox(Text("wizbyuse"), this);
    add(byUse, {{int(EBringBack::kChangeBackground), "wizchbk", "chbk.png", "chbk"},
                {int(EBringBack::kBlurBackground), "wizblur", "blur.png", "blurbk"}});
    auto* byFunction = new QGroupBox(Text("wizbyfunc"), this);
    add(byFunction, {{int(EBringBack::kApply), "wizdelbk", "delbk.png", "delbk"},
                     {int(EBringBack::kSeparate), "wizsep", "sepbk.png", "sepbk"},
                     {int(EBringBack::kCopy), "wizdup", "dupsel.png", nullptr}});
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
