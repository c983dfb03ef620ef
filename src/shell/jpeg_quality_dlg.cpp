#include "shell/jpeg_quality_dlg.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPixmap>
#include <QScrollArea>
#include <QSlider>
#include <QSpinBox>
#include <QThread>
#include <QVBoxLayout>

#include "interchange/save_choice.h"
#include "runtime/status.h"
#include "shell/app_globals.h"
#include "shell/skin.h"

namespace {

QString Text(const char* key)
{
    return QString::fromStdString(GetString(key));
}

} // namespace

CJpegDlg::CJpegDlg(QWidget* parent, const COLImage& picture, CProcessThread* worker)
    : QDialog(parent), m_picture(picture), m_pWorker(worker)
{
    setWindowTitle(Text("jpegquality"));
    auto* col = new QVBoxLayout(this);

    auto* qualityRow = new QHBoxLayout();
    qualityRow->addWidget(new QLabel(Text("jpegqualitylabel"), this));
    m_pSlider = new QSlider(Qt::Horizontal, this);
    m_pSlider->setRange(0, 100);
    m_pSlider->setValue(80);
    qualityRow->addWidget(m_pSlider, 1);
    m_pSpin = new QSpinBox(this);
    m_pSpin->setRange(0, 100);
    m_pSpin->setValue(80);
    qualityRow->addWidget(m_pSpin);
    m_pPercent = new QLabel(QStringLiteral("80%"), this);
    m_pPercent->setMinimumWidth(m_pPercent->fontMetrics().horizontalAdvance(QStringLiteral("100%")));
    qualityRow->addWidget(m_pPercent);
    col->addLayout(qualityRow);

    auto* optionRow = new QHBoxLayout();
    m_pHighColour = new QCheckBox(Text("highcolour"), this);
    m_pHighColour->setChecked(true);
    optionRow->addWidget(m_pHighColour);
    optionRow->addStretch(1);
    m_pSize = new QLabel(this);
    optionRow->addWidget(m_pSize);
    col->addLayout(optionRow);

    m_pScroll = new QScrollArea(this);
    m_pPreview = new QLabel(m_pScroll);
    m_pPreview->setAlignment(Qt::AlignCenter);
    m_pScroll->setWidget(m_pPreview);
    m_pScroll->setWidgetResizable(true);
    m_pScroll->setMinimumSize(480, 320);
    col->addWidget(m_pScroll, 1);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    col->addWidget(buttons);

    // The slider measures when it is let go (or moved by the keyboard), the box on every change; both show the
    // same value.
    connect(m_pSlider, &QSlider::valueChanged, this, [this](int v) {
        m_pPercent->setText(QStringLiteral("%1%").arg(v));
        if (m_pSpin->value() != v) m_pSpin->setValue(v);
    });
    connect(m_pSlider, &QSlider::sliderReleased, this, &CJpegDlg::RequestUpdate);
    connect(m_pSlider, &QSlider::actionTriggered, this, [this](int action) {
        if (action != QAbstractSlider::SliderMove)
            QMetaObject::invokeMethod(
                this, [this] { RequestUpdate(); }, Qt::QueuedConnection);
    });
    connect(m_pSpin, &QSpinBox::valueChanged, this, [this](int v) {
        if (m_pSlider->value() != v) m_pSlider->setValue(v);
        if (!m_pSlider->isSliderDown()) RequestUpdate();
    });
    connect(m_pHighColour, &QCheckBox::toggled, this, [this] { RequestUpdate(); });

    resize(720, 560);
    RequestUpdate();
}

CJpegDlg::~CJpegDlg()
{
    StopWorker();
}

int CJpegDlg::Quality() const
{
    return std::max(1, m_pSlider->value());
}

bool CJpegDlg::HighColour() const
{
    return m_pHighColour->isChecked();
}

int CJpegDlg::WriterQuality() const
{
    return JpegWriterQuality(m_pSlider->value(), HighColour());
}

QString CJpegDlg::SizeText() const
{
    return m_pSize->text();
}

void CJpegDlg::RequestUpdate()
{
    if (m_running) {
        // The running quality is stale: stop it and start again when it has returned.
        m_pending = true;
        if (m_pProcess) m_pProcess->RequestCancel();
        return;
    }
    StartRun();
}

void CJpegDlg::StartRun()
{
    m_pending = false;
    m_params.quality = WriterQuality();
    m_pProcess = std::make_unique<CCompressTestProcess>();
    m_pProcess->SetImages(const_cast<COLImage*>(&m_picture), &m_result);
    const uint64_t run = ++m_runId;
    // The size goes to the screen as soon as it is known, before the preview is decoded.
    m_pProcess->m_onSize = [this, run](size_t bytes) {
        QMetaObject::invokeMethod(
            this,
            [this, run, bytes] {
                if (run == m_runId) ShowSize(bytes);
            },
            Qt::QueuedConnection);
    };
    m_pSize->setText(Text("jpegmeasuring"));
    m_running = true;
    if (m_pWorker) {
        m_pWorker->StartImageProcess(this, m_pProcess.get(), &m_params, 0, 0, 100, 1);
    } else {
        const long result = m_pProcess->Process(&m_params);
        QMetaObject::invokeMethod(
            this, [this, result] { OnRunDone(result); }, Qt::QueuedConnection);
    }
}

void CJpegDlg::PostProcessEvent(uint32_t first, int32_t)
{
    if (first != 1) return; // progress: the size text says enough
    // The worker keeps the run's result; it is read back on this dialog's thread.
    QMetaObject::invokeMethod(
        this, [this] { OnRunDone(m_pWorker ? m_pWorker->GetLastResult() : kFail); }, Qt::QueuedConnection);
}

void CJpegDlg::OnRunDone(long result)
{
    if (!m_running) return;
    // The end of the run is posted before the worker has let go of the process and its pictures; the next run
    // replaces both, so wait for the worker first (it is already on its way out).
    if (m_pWorker) m_pWorker->WaitDone();
    m_running = false;
    if (m_pending) {
        StartRun();
        return;
    }
    if (result != kOk) {
        m_pSize->setText(Text("except"));
        return;
    }
    ShowSize(m_pProcess->m_compressedSize);
    m_shown = std::move(m_result);
    m_pPreview->setPixmap(QPixmap::fromImage(ToQImage(m_shown, true)));
}

void CJpegDlg::ShowSize(size_t bytes)
{
    m_shownSize = bytes;
    m_pSize->setText(QString::asprintf(GetString("compressed").c_str(), CompressedKilobytes(bytes)));
}

void CJpegDlg::StopWorker()
{
    if (!m_running || !m_pWorker) return;
    // The run holds this dialog's images: cancel it and wait, in steps, until the worker has let go of them.
    m_pProcess->RequestCancel();
    while (m_pWorker->IsBusy())
        QThread::msleep(100);
    m_pWorker->WaitDone();
    m_running = false;
}

void CJpegDlg::done(int result)
{
    StopWorker();
    QDialog::done(result);
}
