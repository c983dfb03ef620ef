#include "shell/canvas_size_dlg.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QColorDialog>
#include <QDialog>
#include <QDialogButtonBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QToolButton>
#include <QVBoxLayout>
#include <cstdio>

#include "commands/command.h"
#include "document/layer_stack.h"
#include "effects/image_size.h"
#include "imaging/result.h"
#include "shell/app_globals.h"

namespace {

QString Text(const char* key)
{
    return QString::fromStdString(GetString(key));
}

QSpinBox* Spin(QWidget* parent, const char* name, int low, int high, int value)
{
    auto* spin = new QSpinBox(parent);
    spin->setObjectName(QString::fromLatin1(name));
    spin->setRange(low, high);
    spin->setValue(value);
    return spin;
}

std::string Hex(uint32_t colour)
{
    char text[8];
    std::snprintf(text, sizeof text, "%06X", colour & 0xFFFFFFu);
    return text;
}

std::string Arg(int v)
{
    return "'" + std::to_string(v) + "'";
}

} // namespace

bool RunCanvasSizeDialog(QWidget* parent, const CLayerStack& document, uint32_t currentColour, IUiServices&,
                         const CommandRunner& run)
{
    const int W = document.GetWidth(), H = document.GetHeight();
    if (W < 1 || H < 1) return false;
    constexpr int kMargin = 10000;
    const int maxSide = int(kMaxImageSide);
    uint32_t fill = currentColour | 0xFF000000u;

    QDialog dialog(parent);
    dialog.setObjectName(QStringLiteral("canvassize"));
    dialog.setWindowTitle(Text("canvasdlg"));
    auto* column = new QVBoxLayout(&dialog);

    // By margins.
    auto* byMargins = new QRadioButton(Text("canvasbymargins"), &dialog);
    byMargins->setObjectName(QStringLiteral("bymargins"));
    byMargins->setChecked(true);
    auto* marginBox = new QGroupBox(Text("canvasextend"), &dialog);
    auto* marginGrid = new QGridLayout(marginBox);
    QSpinBox* up = Spin(marginBox, "up", -kMargin, kMargin, 0);
    QSpinBox* left = Spin(marginBox, "left", -kMargin, kMargin, 0);
    QSpinBox* down = Spin(marginBox, "down", -kMargin, kMargin, 0);
    QSpinBox* right = Spin(marginBox, "right", -kMargin, kMargin, 0);
    auto* symmetric = new QCheckBox(Text("canvassymmetric"), marginBox);
    symmetric->setObjectName(QStringLiteral("symmetric"));
    symmetric->setChecked(true);
    marginGrid->addWidget(new QLabel(Text("aligntop"), marginBox), 0, 2);
    marginGrid->addWidget(up, 0, 3);
    marginGrid->addWidget(new QLabel(Text("alignleft"), marginBox), 1, 0);
    marginGrid->addWidget(left, 1, 1);
    marginGrid->addWidget(symmetric, 1, 2, 1, 2, Qt::AlignCenter);
    marginGrid->addWidget(new QLabel(Text("alignright"), marginBox), 1, 4);
    marginGrid->addWidget(right, 1, 5);
    marginGrid->addWidget(new QLabel(Text("alignbottom"), marginBox), 2, 2);
    marginGrid->addWidget(down, 2, 3);

    // By size, with the anchor of the old picture.
    auto* bySize = new QRadioButton(Text("canvasbysize"), &dialog);
    bySize->setObjectName(QStringLiteral("bysize"));
    auto* sizeBox = new QGroupBox(&dialog);
    auto* sizeRow = new QHBoxLayout(sizeBox);
    auto* sizeForm = new QGridLayout;
    QSpinBox* width = Spin(sizeBox, "width", 1, maxSide, W);
    QSpinBox* height = Spin(sizeBox, "height", 1, maxSide, H);
    sizeForm->addWidget(new QLabel(Text("picwidth"), sizeBox), 0, 0);
    sizeForm->addWidget(width, 0, 1);
    sizeForm->addWidget(new QLabel(Text("picheight"), sizeBox), 1, 0);
    sizeForm->addWidget(height, 1, 1);
    sizeRow->addLayout(sizeForm);
    auto* anchorGrid = new QGridLayout;
    anchorGrid->setSpacing(2);
    auto* anchors = new QButtonGroup(&dialog);
    for (int i = 0; i < 9; ++i) {
        auto* b = new QToolButton(sizeBox);
        b->setObjectName(QStringLiteral("anchor%1").arg(i));
        b->setCheckable(true);
        b->setFixedSize(22, 22);
        anchors->addButton(b, i);
        anchorGrid->addWidget(b, i / 3, i % 3);
    }
    anchors->button(4)->setChecked(true);
    sizeRow->addWidget(new QLabel(Text("canvasanchor"), sizeBox));
    sizeRow->addLayout(anchorGrid);
    sizeRow->addStretch(1);

    // The colour of new canvas.
    auto* colourRow = new QHBoxLayout;
    auto* sample = new QLabel(&dialog);
    sample->setObjectName(QStringLiteral("colourSample"));
    sample->setFixedSize(40, 20);
    auto paintSample = [sample, &fill] {
        sample->setStyleSheet(
            QStringLiteral("background: #%1; border: 1px solid gray;").arg(fill & 0xFFFFFFu, 6, 16, QLatin1Char('0')));
    };
    paintSample();
    auto* colourButton = new QPushButton(Text("setcolor"), &dialog);
    colourButton->setObjectName(QStringLiteral("colour"));
    QObject::connect(colourButton, &QPushButton::clicked, &dialog, [&] {
        const QColor chosen = QColorDialog::getColor(QColor::fromRgb(fill & 0xFFFFFFu), &dialog);
        if (!chosen.isValid()) return;
        fill = 0xFF000000u | (uint32_t(chosen.red()) << 16) | (uint32_t(chosen.green()) << 8) | uint32_t(chosen.blue());
        paintSample();
    });
    colourRow->addWidget(new QLabel(Text("canvasfill"), &dialog));
    colourRow->addWidget(sample);
    colourRow->addWidget(colourButton);
    colourRow->addStretch(1);

    auto* newSize = new QLabel(&dialog);
    newSize->setObjectName(QStringLiteral("newsize"));
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    column->addWidget(new QLabel(QString::fromStdString(GetString("canvascurrent")).arg(W).arg(H), &dialog));
    column->addWidget(byMargins);
    column->addWidget(marginBox);
    column->addWidget(bySize);
    column->addWidget(sizeBox);
    column->addLayout(colourRow);
    column->addWidget(newSize);
    column->addWidget(buttons);

    auto target = [&](int& w, int& h) {
        if (bySize->isChecked()) {
            w = width->value();
            h = height->value();
        } else {
            CanvasSizeFromMargins(W, H, left->value(), up->value(), right->value(), down->value(), w, h);
        }
    };
    auto update = [&] {
        marginBox->setEnabled(byMargins->isChecked());
        sizeBox->setEnabled(bySize->isChecked());
        // While symmetric, right and down follow left and up and cannot be edited.
        right->setEnabled(!symmetric->isChecked());
        down->setEnabled(!symmetric->isChecked());
        if (symmetric->isChecked()) {
            right->setValue(left->value());
            down->setValue(up->value());
        }
        int w = 0, h = 0;
        target(w, h);
        newSize->setText(QString::fromStdString(GetString("canvasnewsize")).arg(w).arg(h));
    };
    for (QSpinBox* s : {up, left, down, right, width, height})
        QObject::connect(s, &QSpinBox::valueChanged, &dialog, update);
    for (QAbstractButton* b : {static_cast<QAbstractButton*>(symmetric), static_cast<QAbstractButton*>(byMargins),
                               static_cast<QAbstractButton*>(bySize)})
        QObject::connect(b, &QAbstractButton::toggled, &dialog, update);
    update();

    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    if (dialog.exec() != QDialog::Accepted) return false;
    std::string text;
    if (bySize->isChecked()) {
        const int anchor = anchors->checkedId() < 0 ? 4 : anchors->checkedId();
        text = "Doc_ResizeCanvas(" + Arg(width->value()) + "," + Arg(height->value()) + "," + Arg(anchor % 3) + "," +
               Arg(anchor / 3) + ",'" + Hex(fill) + "')";
    } else {
        text = "Doc_ExtendCanvas(" + Arg(left->value()) + "," + Arg(up->value()) + "," + Arg(right->value()) + "," +
               Arg(down->value()) + ",'" + Hex(fill) + "')";
    }
    return run(text) == kCommandDone;
}
