#include "shell/selection_dialogs.h"

#include <QCheckBox>
#include <QColorDialog>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QIntValidator>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QVBoxLayout>

#include "shell/app_globals.h"
#include "shell/string_table.h"

namespace {

QString Text(const char* key)
{
    return QString::fromStdString(GetString(key));
}

// A dialog with a form and OK / Cancel below it.
struct FormDialog {
    QDialog dialog;
    QFormLayout* form;
    FormDialog(QWidget* parent, const QString& title) : dialog(parent)
    {
        dialog.setWindowTitle(title);
        auto* column = new QVBoxLayout(&dialog);
        form = new QFormLayout;
        column->addLayout(form);
        auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
        QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
        QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
        column->addWidget(buttons);
    }
    bool Run() { return dialog.exec() == QDialog::Accepted; }
};

QSpinBox* Spin(QWidget* parent, const char* name, int low, int high, int value)
{
    auto* spin = new QSpinBox(parent);
    spin->setObjectName(QString::fromLatin1(name));
    spin->setRange(low, high);
    spin->setValue(value);
    return spin;
}

// A sample of the colour and the button that opens the colour dialog; a chosen colour has alpha 255.
QWidget* ColourChooser(QWidget* parent, uint32_t& colour)
{
    auto* row = new QWidget(parent);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* sample = new QLabel(row);
    sample->setObjectName(QStringLiteral("colourSample"));
    sample->setFixedSize(40, 20);
    auto paint = [sample, &colour] {
        sample->setStyleSheet(QStringLiteral("background: #%1; border: 1px solid gray;")
                                  .arg(colour & 0xFFFFFFu, 6, 16, QLatin1Char('0')));
    };
    paint();
    auto* button = new QPushButton(Text("setcolor"), row);
    button->setObjectName(QStringLiteral("colour"));
    QObject::connect(button, &QPushButton::clicked, row, [row, &colour, paint] {
        const QColor chosen = QColorDialog::getColor(QColor::fromRgb(colour & 0xFFFFFFu), row);
        if (!chosen.isValid()) return;
        colour =
            0xFF000000u | (uint32_t(chosen.red()) << 16) | (uint32_t(chosen.green()) << 8) | uint32_t(chosen.blue());
        paint();
    });
    layout->addWidget(sample);
    layout->addWidget(button);
    layout->addStretch(1);
    return row;
}

} // namespace

bool AskExpand(QWidget* parent, ExpandSettings& settings)
{
    FormDialog d(parent, Text(settings.CaptionKey()));
    QSpinBox* amount = Spin(&d.dialog, "amount", ExpandSettings::kMinAmount, ExpandSettings::kMaxAmount,
                            ExpandSettings::ClampAmount(settings.amount));
    d.form->addRow(Text("amountpx"), amount);
    if (!d.Run()) return false;
    settings.amount = ExpandSettings::ClampAmount(amount->value());
    return true;
}

bool AskFeather(QWidget* parent, FeatherSettings& settings)
{
    FormDialog d(parent, Text("featherdlg"));
    auto* value = new QLineEdit(QString::number(settings.value), &d.dialog);
    value->setObjectName(QStringLiteral("value"));
    value->setMaxLength(3);
    value->setValidator(new QIntValidator(FeatherSettings::kMinValue, FeatherSettings::kMaxValue, value));
    auto* slider = new QSlider(Qt::Horizontal, &d.dialog);
    slider->setObjectName(QStringLiteral("slider"));
    slider->setRange(0, FeatherSettings::kSliderMax);
    slider->setPageStep(FeatherSettings::kSliderPage);
    slider->setTickInterval(FeatherSettings::kSliderTick);
    slider->setTickPosition(QSlider::TicksBelow);
    slider->setValue(FeatherSettings::SliderPosition(settings.value));
    // The slider writes the field; an edit of the field moves the slider, which stays at its end above 256.
    QObject::connect(slider, &QSlider::sliderMoved, value, [value](int v) { value->setText(QString::number(v)); });
    QObject::connect(value, &QLineEdit::textEdited, slider,
                     [slider](const QString& t) { slider->setValue(FeatherSettings::SliderPosition(t.toInt())); });
    d.form->addRow(Text("featherpx"), value);
    d.form->addRow(QString(), slider);
    auto* ok = d.dialog.findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok);
    auto check = [ok, value] { ok->setEnabled(FeatherSettings::IsValid(value->text().toInt())); };
    QObject::connect(value, &QLineEdit::textChanged, ok, check);
    check();
    if (!d.Run()) return false;
    settings.value = value->text().toInt();
    return FeatherSettings::IsValid(settings.value);
}

bool AskSelFeather(QWidget* parent, FeatherRecord& record)
{
    FormDialog d(parent, Text("selfeatherdlg"));
    QSpinBox* radius = Spin(&d.dialog, "radius", 0, CFeatherProcess::kMaxRadius, record.radius);
    auto* keep = new QCheckBox(Text("keepdetail"), &d.dialog);
    keep->setObjectName(QStringLiteral("keepDetail"));
    keep->setChecked(record.keepDetail != 0);
    auto* shrink = new QCheckBox(Text("shrinkfirst"), &d.dialog);
    shrink->setObjectName(QStringLiteral("shrinkFirst"));
    shrink->setChecked(record.shrinkFirst != 0);
    d.form->addRow(Text("featherpx"), radius);
    d.form->addRow(keep);
    d.form->addRow(shrink);
    if (!d.Run()) return false;
    record = FeatherRecord{radius->value(), keep->isChecked() ? 1 : 0, shrink->isChecked() ? 1 : 0};
    return true;
}

bool AskFill(QWidget* parent, FillSettings& settings)
{
    FormDialog d(parent, Text("filldlg"));
    d.form->addRow(QString(), ColourChooser(&d.dialog, settings.colour));
    auto* row = new QWidget(&d.dialog);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* slider = new QSlider(Qt::Horizontal, row);
    slider->setObjectName(QStringLiteral("opacity"));
    slider->setRange(FillSettings::kMinOpacity, FillSettings::kMaxOpacity);
    slider->setValue(settings.opacity);
    auto* text = new QLabel(row);
    text->setObjectName(QStringLiteral("opacityText"));
    text->setMinimumWidth(40);
    auto show = [text](int v) {
        char buffer[16];
        FillSettings::OpacityText(v, buffer);
        text->setText(QString::fromLatin1(buffer));
    };
    show(settings.opacity);
    QObject::connect(slider, &QSlider::valueChanged, text, show);
    layout->addWidget(slider, 1);
    layout->addWidget(text);
    d.form->addRow(Text("opacity"), row);
    if (!d.Run()) return false;
    settings.opacity = slider->value();
    return true;
}

bool AskStroke(QWidget* parent, StrokeSettings& settings)
{
    FormDialog d(parent, Text("stroke"));
    QSpinBox* width = Spin(&d.dialog, "width", StrokeSettings::kMinWidth, StrokeSettings::kMaxWidth, settings.width);
    QSpinBox* opacity =
        Spin(&d.dialog, "opacity", StrokeSettings::kMinOpacity, StrokeSettings::kMaxOpacity, settings.opacity);
    opacity->setSuffix(QStringLiteral("%"));
    d.form->addRow(Text("strokewidth"), width);
    d.form->addRow(Text("opacity"), opacity);
    d.form->addRow(QString(), ColourChooser(&d.dialog, settings.colour));
    if (!d.Run()) return false;
    settings.width = width->value();
    settings.opacity = opacity->value();
    return true;
}
