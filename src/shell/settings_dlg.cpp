#include "shell/settings_dlg.h"

#include <QCheckBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>
#include <vector>

#include "shell/app_globals.h"
#include "shell/app_paths.h"

void RunSettingsDialog(QWidget* parent, CAppGlobals& app)
{
    struct Option {
        const char* key;     // profile key
        const char* textKey; // string key of the check box
    };
    const Option options[] = {
        {"AfterOpenWizard", "setafteropen"},
        {"PureBk", "setpurebk"},
        {"DbSel", "setdbsel"},
        {"Check Result", "setcheckresult"},
    };
    QDialog dialog(parent);
    dialog.setWindowTitle(QString::fromStdString(app.GetString("settings")));
    auto* col = new QVBoxLayout(&dialog);
    std::vector<QCheckBox*> boxes;
    for (const Option& o : options) {
        auto* box = new QCheckBox(QString::fromStdString(app.GetString(o.textKey)), &dialog);
        box->setChecked(app.GetProfileInt(o.key) != 0);
        col->addWidget(box);
        boxes.push_back(box);
    }
    // The companion photo editor: a program name looked up on PATH, or a full path.
    auto* companionRow = new QHBoxLayout();
    companionRow->addWidget(new QLabel(QString::fromStdString(app.GetString("setcompanion")), &dialog));
    auto* companion = new QLineEdit(QString::fromStdString(app.GetProfileStr("OmbraLens", "ombralens")), &dialog);
    companion->setObjectName(QStringLiteral("companion"));
    companionRow->addWidget(companion, 1);
    col->addLayout(companionRow);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    col->addWidget(buttons);
    if (dialog.exec() != QDialog::Accepted) return;
    for (size_t i = 0; i < boxes.size(); ++i)
        app.SetProfileInt(options[i].key, boxes[i]->isChecked() ? 1 : 0);
    const std::string program = companion->text().trimmed().toStdString();
    app.SetProfileStr("OmbraLens", program);
    app.m_companionExe = program.empty() ? std::string() : FindOnPath(program);
}
