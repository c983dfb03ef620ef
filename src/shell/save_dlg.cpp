#include "shell/save_dlg.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "shell/app_globals.h"
#include "shell/ui_services.h"

namespace {

QString Text(const char* key)
{
    return QString::fromStdString(GetString(key));
}

} // namespace

CSaveDlg::CSaveDlg(QWidget* parent, IUiServices& services, int currentLayerIndex, bool layerOnly, Writer writer)
    : QDialog(parent), m_services(services), m_writer(std::move(writer))
{
    setWindowTitle(Text("save"));
    auto* col = new QVBoxLayout(this);

    auto addButton = [this, currentLayerIndex, layerOnly](QWidget* group, QBoxLayout* row, ESaveChoice choice,
                                                          const QString& text) {
        auto* b = new QPushButton(text, group);
        b->setObjectName(QStringLiteral("savechoice%1").arg(int(choice)));
        b->setEnabled(IsSaveChoiceOffered(choice, layerOnly, currentLayerIndex));
        row->addWidget(b);
        connect(b, &QPushButton::clicked, this, [this, choice] { Choose(choice); });
        return b;
    };

    auto* project = new QGroupBox(Text("saveproject"), this);
    auto* projectRow = new QHBoxLayout(project);
    addButton(project, projectRow, ESaveChoice::kProject, Text("saveprojectbtn"));
    m_pHistoryBox = new QCheckBox(Text("withhistory"), project);
    m_pHistoryBox->setEnabled(!layerOnly);
    projectRow->addWidget(m_pHistoryBox);
    projectRow->addStretch(1);
    project->setEnabled(!layerOnly);
    col->addWidget(project);

    auto* flat = new QGroupBox(Text("savecomposite"), this);
    auto* flatCol = new QVBoxLayout(flat);
    auto* flatRow = new QHBoxLayout();
    flatCol->addLayout(flatRow);
    for (ESaveChoice c : {ESaveChoice::kCompositePng, ESaveChoice::kCompositeJpeg, ESaveChoice::kCompositeBmp,
                          ESaveChoice::kCompositeTiff, ESaveChoice::kCompositeTga, ESaveChoice::kCompositePsd})
        addButton(flat, flatRow, c, QString::fromLatin1(DescribeSaveChoice(c).label));
    auto* layeredRow = new QHBoxLayout();
    flatCol->addLayout(layeredRow);
    addButton(flat, layeredRow, ESaveChoice::kLayeredPsd, Text("savelayeredbtn"));
    layeredRow->addWidget(new QLabel(Text("savelayeredtip"), flat));
    layeredRow->addStretch(1);
    flat->setEnabled(!layerOnly);
    col->addWidget(flat);

    auto* layer = new QGroupBox(Text("savelayer"), this);
    auto* layerRow = new QHBoxLayout(layer);
    for (ESaveChoice c : {ESaveChoice::kLayerPng, ESaveChoice::kLayerPsd})
        addButton(layer, layerRow, c, QString::fromLatin1(DescribeSaveChoice(c).label));
    layerRow->addStretch(1);
    layer->setEnabled(IsSaveChoiceOffered(ESaveChoice::kLayerPng, layerOnly, currentLayerIndex));
    col->addWidget(layer);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    col->addWidget(buttons);
}

bool CSaveDlg::WithHistory() const
{
    return m_pHistoryBox->isChecked();
}

QPushButton* CSaveDlg::Button(ESaveChoice choice) const
{
    return findChild<QPushButton*>(QStringLiteral("savechoice%1").arg(int(choice)));
}

void CSaveDlg::Choose(ESaveChoice choice)
{
    const SaveChoiceInfo& info = DescribeSaveChoice(choice);
    const std::string filter = info.filterIsKey ? GetString(info.filter) : std::string(info.filter);
    const QString path = m_services.GetSaveFileName(filter);
    if (path.isEmpty()) return; // cancelled: choose another
    const ESaveOutcome outcome = m_writer ? m_writer(choice, path.toStdString(), WithHistory()) : ESaveOutcome::kFailed;
    if (outcome == ESaveOutcome::kAbandoned) return;
    m_chosen = true;
    m_choice = choice;
    m_path = path.toStdString();
    m_outcome = outcome;
    if (choice == ESaveChoice::kProject && outcome == ESaveOutcome::kFailed)
        reject();
    else
        accept();
}
