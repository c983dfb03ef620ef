#include "shell/image_size_dlg.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QRegularExpressionValidator>
#include <QVBoxLayout>

#include "commands/command.h"
#include "document/layer_stack.h"
#include "effects/image_size.h"
#include "imaging/image.h"
#include "shell/app_globals.h"
#include "shell/ui_services.h"

namespace {

QString Text(const char* key)
{
    return QString::fromStdString(GetString(key));
}

// Digits only, a few more than the limit allows, so that a side that is too large can be typed and refused with a
// message rather than swallowed by the field.
QLineEdit* SideField(QWidget* parent, const char* name, int value)
{
    auto* field = new QLineEdit(QString::number(value), parent);
    field->setObjectName(QString::fromLatin1(name));
    field->setValidator(new QRegularExpressionValidator(QRegularExpression(QStringLiteral("[0-9]{0,7}")), field));
    return field;
}

// A side as typed: 0 when it is empty or not a number.
int SideOf(const QLineEdit* field)
{
    bool ok = false;
    const int v = field->text().toInt(&ok);
    return ok ? v : 0;
}

bool LegalSide(int side)
{
    return side >= 1 && side <= int(kMaxImageSide);
}

} // namespace

bool RunImageSizeDialog(QWidget* parent, const CLayerStack& document, IUiServices& services, const CommandRunner& run)
{
    const int W = document.GetWidth(), H = document.GetHeight();
    if (W < 1 || H < 1) return false;
    QDialog dialog(parent);
    dialog.setObjectName(QStringLiteral("imagesize"));
    dialog.setWindowTitle(Text("imagesizedlg"));
    auto* column = new QVBoxLayout(&dialog);
    auto* form = new QFormLayout;
    QLineEdit* width = SideField(&dialog, "width", W);
    QLineEdit* height = SideField(&dialog, "height", H);
    auto* keep = new QCheckBox(Text("keepaspect"), &dialog);
    keep->setObjectName(QStringLiteral("keepAspect"));
    keep->setChecked(true);
    auto* method = new QComboBox(&dialog);
    method->setObjectName(QStringLiteral("method"));
    method->addItems({Text("scalenearest"), Text("scalebilinear"), Text("scalebicubic")});
    method->setCurrentIndex(kScaleBicubic);
    form->addRow(Text("picwidth"), width);
    form->addRow(Text("picheight"), height);
    form->addRow(QString(), keep);
    form->addRow(Text("scalemethod"), method);
    column->addLayout(form);
    auto* warning = new QLabel(Text("imagesizewarn"), &dialog);
    warning->setWordWrap(true);
    column->addWidget(warning);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    column->addWidget(buttons);

    // Only the user's own edits set the other side, so a side written here does not echo back.
    QObject::connect(width, &QLineEdit::textEdited, &dialog, [=] {
        if (keep->isChecked() && SideOf(width) > 0)
            height->setText(QString::number(LinkedSide(uint32_t(SideOf(width)), uint32_t(W), uint32_t(H), true)));
    });
    QObject::connect(height, &QLineEdit::textEdited, &dialog, [=] {
        if (keep->isChecked() && SideOf(height) > 0)
            width->setText(QString::number(LinkedSide(uint32_t(SideOf(height)), uint32_t(W), uint32_t(H), false)));
    });
    bool done = false;
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, [&] {
        const int w = SideOf(width), h = SideOf(height);
        if (!LegalSide(w) || !LegalSide(h)) {
            // Nothing is scaled; the user corrects the field.
            services.MessageBox(Text("sizerange"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
            (LegalSide(w) ? height : width)->setFocus();
            return;
        }
        done = run("Doc_ImageSize('" + std::to_string(w) + "','" + std::to_string(h) + "','" +
                   std::to_string(method->currentIndex()) + "')") == kCommandDone;
        dialog.accept();
    });
    dialog.exec();
    return done;
}
