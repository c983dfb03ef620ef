#include "shell/save_dlg.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QGroupBox>
#include <QHBoxLayout>
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

CSaveDlg::CSaveDlg(QWidget* parent, IUiServices& services, bool layerExport) : QDialog(parent), m_services(services)
{
    setWindowTitle(Text("save"));
    auto* col = new QVBoxLayout(this);

    auto* project = new QGroupBox(Text("saveproject"), this);
    auto* projectRow = new QHBoxLayout(project);
    auto* projectButton = new QPushButton(Text("saveprojectbtn"), project);
    m_pHistoryBox = new QCheckBox(Text("withhistory"), project);
    projectRow->addWidget(projectButton);
    projectRow->addWidget(m_pHistoryBox);
    projectRow->addStretch(1);
    col->addWidget(project);
    connect(projectButton, &QPushButton::clicked, this,
            [this] { Choose(EWhat::kProject, GetString("vmdoc"), "vmpd"); });

    // The file filters are the program's own texts and stay as they are written.
    struct Export {
        const char* label;
        const char* filter;
        const char* extension;
    };
    const Export exports[] = {{"JPEG...", "Jpeg File(*.jpg)|*.jpg||", "jpg"},
                              {"Bitmap...", "Bitmap File(*.bmp)|*.bmp||", "bmp"},
                              {"TIFF...", "Tiff File(*.tif)|*.tif||", "tif"},
                              {"TGA...", "TGA File(*.tga)|*.tga||", "tga"}};
    auto* flat = new QGroupBox(Text("savecomposite"), this);
    auto* flatRow = new QHBoxLayout(flat);
    for (const Export& e : exports) {
        auto* b = new QPushButton(QString::fromLatin1(e.label), flat);
        flatRow->addWidget(b);
        connect(b, &QPushButton::clicked, this, [this, e] { Choose(EWhat::kComposite, e.filter, e.extension); });
    }
    col->addWidget(flat);

    auto* layer = new QGroupBox(Text("savelayer"), this);
    auto* layerRow = new QHBoxLayout(layer);
    auto* png = new QPushButton(QStringLiteral("PNG..."), layer);
    layerRow->addWidget(png);
    layerRow->addStretch(1);
    layer->setEnabled(layerExport);
    col->addWidget(layer);
    connect(png, &QPushButton::clicked, this, [this] { Choose(EWhat::kLayer, "PNG File(*.png)|*.png||", "png"); });

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    col->addWidget(buttons);
}

void CSaveDlg::Choose(EWhat what, const std::string& filter, const char* extension)
{
    const QString path = m_services.GetSaveFileName(filter);
    if (path.isEmpty()) return; // cancelled: choose another
    m_what = what;
    m_path = path.toStdString();
    m_extension = extension;
    m_withHistory = m_pHistoryBox->isChecked();
    accept();
}
