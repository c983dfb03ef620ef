#include "shell/new_picture_dlg.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QSpinBox>

#include "imaging/image.h"
#include "shell/app_globals.h"

bool AskNewPictureSize(QWidget* parent, int& width, int& height)
{
    QDialog dialog(parent);
    dialog.setWindowTitle(QString::fromStdString(GetString("newpicture")));
    auto* form = new QFormLayout(&dialog);
    auto* w = new QSpinBox(&dialog);
    auto* h = new QSpinBox(&dialog);
    for (QSpinBox* s : {w, h})
        s->setRange(1, int(kMaxImageSide));
    w->setValue(800);
    h->setValue(600);
    form->addRow(QString::fromStdString(GetString("picwidth")), w);
    form->addRow(QString::fromStdString(GetString("picheight")), h);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    form->addRow(buttons);
    if (dialog.exec() != QDialog::Accepted) return false;
    width = w->value();
    height = h->value();
    return true;
}
