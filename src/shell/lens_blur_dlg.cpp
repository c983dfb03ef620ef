#include "shell/lens_blur_dlg.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QSlider>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>

#include "document/layer.h"
#include "document/selection_document.h"
#include "shell/app_globals.h"
#include "shell/skin.h"
#include "shell/ui_services.h"
#include "shell/wait_dialog.h"

namespace {

QString Text(const char* key)
{
    return QString::fromStdString(GetString(key));
}

QRect ToQRect(const CRect& r)
{
    return QRect(r.left, r.top, r.Width(), r.Height());
}

// The space the depth panel's widget takes: the panel and the margin of its position on each side.
constexpr int kPanelWidgetWidth = kDepthPanel.right + kDepthPanel.left;
constexpr int kPanelWidgetHeight = kDepthPanel.bottom + kDepthPanel.top;

// How long the controls must rest before a new preview starts: short enough to follow a drag.
constexpr int kRestartDelayMs = 60;

QSlider* Slider(QWidget* parent, const char* name, int low, int high, int page, int value)
{
    auto* slider = new QSlider(Qt::Horizontal, parent);
    slider->setObjectName(QString::fromLatin1(name));
    slider->setRange(low, high);
    if (page > 0) slider->setPageStep(page);
    slider->setValue(value);
    return slider;
}

// A slider with its value written beside it.
QWidget* WithValue(QWidget* parent, QSlider* slider)
{
    auto* row = new QWidget(parent);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* value = new QLabel(QString::number(slider->value()), row);
    value->setObjectName(slider->objectName() + QStringLiteral("Value"));
    value->setMinimumWidth(30);
    QObject::connect(slider, &QSlider::valueChanged, value, [value](int v) { value->setText(QString::number(v)); });
    slider->setParent(row);
    layout->addWidget(slider, 1);
    layout->addWidget(value);
    return row;
}

} // namespace

// ---- CDepthPanel -------------------------------------------------------------------------------------------------

CDepthPanel::CDepthPanel(CLensBlurDlgLogic& logic, QWidget* parent) : QWidget(parent), m_logic(logic)
{
    setObjectName(QStringLiteral("depthpanel"));
    setFixedSize(kPanelWidgetWidth, kPanelWidgetHeight);
}

QSize CDepthPanel::sizeHint() const
{
    return {kPanelWidgetWidth, kPanelWidgetHeight};
}

void CDepthPanel::paintEvent(QPaintEvent*)
{
    QImage canvas(size(), QImage::Format_RGB32);
    canvas.fill(palette().color(QPalette::Window));
    const QRect panel = ToQRect(kDepthPanel);
    const int mode = m_logic.settings.depthMode;
    {
        QPainter p(&canvas);
        p.setPen(QColor(0x80, 0x80, 0x80));
        p.drawRect(panel.adjusted(0, 0, -1, -1));
        p.fillRect(panel.adjusted(1, 1, -1, -1), Qt::white);
        p.setClipRect(panel.adjusted(1, 1, -1, -1));
        if (mode == kDepthFlat) {
            // A grid of 10-pixel cells, centred in the panel.
            p.setPen(QColor(0xC8, 0xC8, 0xC8));
            const int x0 = panel.left() + (panel.width() % 10) / 2, y0 = panel.top() + (panel.height() % 10) / 2;
            for (int x = x0; x <= panel.right(); x += 10)
                p.drawLine(x, panel.top(), x, panel.bottom());
            for (int y = y0; y <= panel.bottom(); y += 10)
                p.drawLine(panel.left(), y, panel.right(), y);
        } else if (!m_thumbnail.isNull()) {
            p.drawImage(ToQRect(m_logic.GetThumbnail()).topLeft(), m_thumbnail);
        }
    }
    if (mode != kDepthFlat) {
        // The perspective figure in inverting ink, so that it shows over any picture.
        QPainter p(&canvas);
        p.setClipRect(panel.adjusted(1, 1, -1, -1));
        p.setCompositionMode(QPainter::RasterOp_SourceXorDestination);
        p.setPen(QColor(0xFF, 0xFF, 0xFF));
        const double L = panel.left(), T = panel.top(), R = panel.right(), B = panel.bottom();
        if (mode == kDepthTunnel) {
            const double vx = m_logic.GetVanishX(), vy = m_logic.GetVanishY();
            for (const QPointF& corner : {QPointF(L, T), QPointF(R, T), QPointF(L, B), QPointF(R, B)})
                p.drawLine(corner, QPointF(vx, vy));
            for (double t : {0.75, 0.5, 0.3, 0.15})
                p.drawRect(QRectF(QPointF(vx + (L - vx) * t, vy + (T - vy) * t),
                                  QPointF(vx + (R - vx) * t, vy + (B - vy) * t)));
        } else {
            const CRect& thumb = m_logic.GetThumbnail();
            const int rows = std::max(m_logic.GetPreviewDocument().GetHeight(), 1);
            const double hy = thumb.top + double(m_logic.GetHorizonRow()) * thumb.Height() / rows;
            const double cx = (L + R) / 2;
            p.drawLine(QPointF(L, hy), QPointF(R, hy));
            for (int i = 0; i < 8; ++i) {
                const double bx = cx + (i - 3.5) * (R - L) / 3.0;
                p.drawLine(QPointF(cx, hy), QPointF(bx, B));
            }
            // Rows of the ground at growing distances: near ones far apart, far ones bunched under the horizon.
            for (double d : {1.5, 3.0, 4.5, 6.75, 10.0, 15.0, 23.0, 34.0}) {
                const double y = hy + (B - hy) * 1.5 / d;
                p.drawLine(QPointF(L, y), QPointF(R, y));
            }
        }
    }
    QPainter(this).drawImage(0, 0, canvas);
}

void CDepthPanel::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton || m_logic.settings.depthMode == kDepthFlat) return;
    const QPoint at = event->position().toPoint();
    if (!ToQRect(kDepthPanel).contains(at)) return;
    Q_EMIT Clicked(at.x(), at.y());
}

// ---- CLensPreview ------------------------------------------------------------------------------------------------

CLensPreview::CLensPreview(QWidget* parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("lenspreview"));
    setMinimumSize(320, 240);
}

QSize CLensPreview::sizeHint() const
{
    return {520, 400};
}

void CLensPreview::SetPicture(const QImage& picture)
{
    m_picture = picture;
    update();
}

void CLensPreview::SetProgress(int percent)
{
    m_progress = percent;
    update();
}

void CLensPreview::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.fillRect(rect(), QColor(0x40, 0x40, 0x40));
    if (!m_picture.isNull()) {
        const QSize fit = m_picture.size().scaled(size(), Qt::KeepAspectRatio);
        const QRect place(QPoint((width() - fit.width()) / 2, (height() - fit.height()) / 2), fit);
        p.setRenderHint(QPainter::SmoothPixmapTransform);
        p.drawImage(place, m_picture);
    }
    if (m_progress > 0 && m_progress < 100) {
        const int h = 16;
        p.fillRect(QRect(0, height() - h, width() * m_progress / 100, h), QColor(0x80, 0x80, 0x80));
        p.setPen(QColor(0xC8, 0xC8, 0xC8));
        p.drawText(QRect(0, height() - h, width(), h), Qt::AlignCenter, QStringLiteral("%1%").arg(m_progress));
    }
}

// ---- CLensBlurDlg ------------------------------------------------------------------------------------------------

CLensBlurDlg::CLensBlurDlg(QWidget* parent, CAppGlobals& app, IUiServices& services, IStatusProgress* status,
                           const LensBlurSettings& settings)
    : QDialog(parent), m_app(app), m_services(services), m_pStatus(status)
{
    m_logic.settings = settings;
    setObjectName(QStringLiteral("lensblur"));
    setWindowTitle(Text("lensblurdlg"));
    const LensBlurSettings& s = m_logic.settings;

    auto* controls = new QWidget(this);
    auto* left = new QVBoxLayout(controls);
    left->setContentsMargins(0, 0, 0, 0);
    m_pDepth = new CDepthPanel(m_logic, controls);
    left->addWidget(m_pDepth);
    m_pHint = new QLabel(Text("lbpointhint"), controls);
    m_pHint->setWordWrap(true);
    m_pHint->setMaximumWidth(kPanelWidgetWidth);
    left->addWidget(m_pHint);
    auto* form = new QFormLayout;
    m_pMode = new QComboBox(controls);
    m_pMode->setObjectName(QStringLiteral("depthmode"));
    m_pMode->addItems({Text("lbflat"), Text("lbtunnel"), Text("lbhorizon")});
    m_pMode->setCurrentIndex(s.depthMode);
    m_pShape = new QComboBox(controls);
    m_pShape->setObjectName(QStringLiteral("aperture"));
    m_pShape->addItems({Text("lboctagon"), Text("lbhexagon"), Text("lbcircle")});
    m_pShape->setCurrentIndex(s.apertureShape);
    m_pFocus = Slider(controls, "focus", kFocusMin, kFocusMax, 5, s.focus);
    auto* focusRow = new QWidget(controls);
    auto* focusLayout = new QHBoxLayout(focusRow);
    focusLayout->setContentsMargins(0, 0, 0, 0);
    focusLayout->addWidget(new QLabel(Text("lbnear"), focusRow));
    focusLayout->addWidget(WithValue(focusRow, m_pFocus), 1);
    focusLayout->addWidget(new QLabel(Text("lbfar"), focusRow));
    m_pRadius = Slider(controls, "radius", kRadiusMin, kRadiusMax, 4, s.radius);
    m_pThreshold = Slider(controls, "threshold", kThresholdMin, kThresholdMax, 0, s.highlightThreshold);
    m_pAmplitude = Slider(controls, "amplitude", kAmplitudeMin, kAmplitudeMax, 0, s.highlightAmplitude);
    form->addRow(Text("lbdepth"), m_pMode);
    form->addRow(Text("lbfocus"), focusRow);
    form->addRow(Text("lbaperture"), m_pShape);
    form->addRow(Text("lbradius"), WithValue(controls, m_pRadius));
    form->addRow(Text("lbthreshold"), WithValue(controls, m_pThreshold));
    form->addRow(new QLabel(Text("lbamplitude"), controls));
    form->addRow(WithValue(controls, m_pAmplitude));
    left->addLayout(form);
    left->addStretch(1);

    auto* divider = new QFrame(this);
    divider->setFrameShape(QFrame::VLine);
    divider->setFrameShadow(QFrame::Sunken);
    m_pPreview = new CLensPreview(this);

    auto* row = new QHBoxLayout;
    row->addWidget(controls);
    row->addWidget(divider);
    row->addWidget(m_pPreview, 1);
    auto* column = new QVBoxLayout(this);
    column->addLayout(row, 1);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &CLensBlurDlg::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &CLensBlurDlg::reject);
    column->addWidget(buttons);

    // Every change restarts the preview once the control has rested a moment; a release restarts it at once.
    m_pRestart = new QTimer(this);
    m_pRestart->setSingleShot(true);
    connect(m_pRestart, &QTimer::timeout, this, &CLensBlurDlg::StartPreview);
    for (QSlider* slider : {m_pFocus, m_pRadius, m_pThreshold, m_pAmplitude}) {
        connect(slider, &QSlider::valueChanged, this, [this] { m_pRestart->start(kRestartDelayMs); });
        connect(slider, &QSlider::sliderReleased, this, [this] {
            m_pRestart->stop();
            StartPreview();
        });
    }
    for (QComboBox* combo : {m_pMode, m_pShape})
        connect(combo, &QComboBox::currentIndexChanged, this, [this] {
            UpdateControls();
            m_pRestart->stop();
            StartPreview();
        });
    connect(m_pDepth, &CDepthPanel::Clicked, this, [this](int x, int y) {
        ReadControls();
        m_logic.ClickDepthPanel(x, y);
        m_pRestart->stop();
        StartPreview();
    });
    UpdateControls();
}

CLensBlurDlg::~CLensBlurDlg()
{
    // The worker must let go of the process and its params before they go.
    StopPreview();
}

bool CLensBlurDlg::Init()
{
    COLImage aperture;
    if (!LoadAperturePicture(m_app.GetSkinPath("lenblur.png"), aperture).empty()) return false;
    if (!m_logic.Init(m_app.Document(), aperture)) return false;
    const CLayer* current = m_logic.GetPreviewDocument().GetCurrentLayer();
    COLImage thumbnail;
    if (current && MakeDepthThumbnail(current->m_image, m_logic.GetThumbnail(), thumbnail))
        m_pDepth->SetThumbnail(ToQImage(thumbnail, true));
    ShowPreview();
    // The first preview shows what the settings do before anything is touched.
    QTimer::singleShot(0, this, &CLensBlurDlg::StartPreview);
    return true;
}

void CLensBlurDlg::ReadControls()
{
    LensBlurSettings& s = m_logic.settings;
    s.depthMode = m_pMode->currentIndex();
    s.apertureShape = m_pShape->currentIndex();
    s.focus = m_pFocus->value();
    s.radius = m_pRadius->value();
    s.highlightThreshold = m_pThreshold->value();
    s.highlightAmplitude = m_pAmplitude->value();
}

void CLensBlurDlg::UpdateControls()
{
    const bool points = m_pMode->currentIndex() != kDepthFlat;
    // The focus keeps its value in flat depth, where it has no say (but for 100, see BuildDepthMap).
    m_pFocus->setEnabled(points);
    m_pHint->setVisible(points);
    ReadControls();
    m_pDepth->update();
}

void CLensBlurDlg::ShowPreview()
{
    CComposeDocument& preview = m_logic.PreviewDocument();
    if (preview.GetComposite()->IsNull()) preview.MergeNow();
    m_pPreview->SetPicture(ToQImage(*preview.GetComposite(), true));
}

void CLensBlurDlg::StartPreview()
{
    if (m_finalRunning) return;
    ReadControls();
    m_pDepth->update();
    if (m_running) {
        // The run that is going shows old settings: it is stopped and the new one follows when it has returned.
        m_rerunPending = true;
        m_logic.GetProcess().RequestCancel();
        return;
    }
    CProcessThread* worker = m_app.Worker();
    if (!worker) return;
    if (worker->IsBusy()) {
        // Some other run still holds the worker: look again shortly rather than wait here.
        m_pRestart->start(100);
        return;
    }
    if (!m_logic.PreparePreview(m_params)) return;
    m_running = true;
    m_rerunPending = false;
    m_pPreview->SetProgress(0);
    worker->StartImageProcess(this, &m_logic.GetProcess(), &m_params, 0, 0, 100, 1);
}

void CLensBlurDlg::PostProcessEvent(uint32_t first, int32_t second)
{
    // From the worker thread: everything happens on the interface thread, and not at all once the dialog is gone.
    if (first == 0) {
        m_lastProgress.store(second);
        QMetaObject::invokeMethod(
            this,
            [this] {
                if (m_running) m_pPreview->SetProgress(m_lastProgress.load());
            },
            Qt::QueuedConnection);
    } else {
        QMetaObject::invokeMethod(this, &CLensBlurDlg::OnRunEnded, Qt::QueuedConnection);
    }
}

void CLensBlurDlg::OnRunEnded()
{
    if (!m_running) return;
    CProcessThread* worker = m_app.Worker();
    // The completion message leaves the worker before its bookkeeping ends.
    worker->WaitDone();
    m_running = false;
    m_pPreview->SetProgress(-1);
    if (m_pStatus) m_pStatus->PostStatusProgress(0);
    // A run that was asked to stop shows old settings (or nothing): only a whole current run is shown.
    if (!m_rerunPending && worker->GetLastResult() == kOk) {
        m_logic.FinishPreview();
        ShowPreview();
        ++m_previewsFinished;
    }
    if (m_rerunPending) {
        m_rerunPending = false;
        StartPreview();
    }
}

void CLensBlurDlg::StopPreview()
{
    m_pRestart->stop();
    m_rerunPending = false;
    if (!m_running) return;
    m_logic.GetProcess().RequestCancel();
    if (CProcessThread* worker = m_app.Worker()) worker->WaitDone();
    m_running = false;
    m_pPreview->SetProgress(-1);
}

void CLensBlurDlg::accept()
{
    if (m_finalRunning) return;
    StopPreview();
    ReadControls();
    CProcessThread* worker = m_app.Worker();
    CComposeDocument& document = m_app.Document();
    LensBlurParams params;
    if (!worker || !m_logic.PrepareFinal(document, params)) {
        m_services.MessageBox(Text("except"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
        return;
    }
    m_finalRunning = true;
    bool cancelled = false;
    const long result = RunProcessWithWait(*worker, m_logic.GetProcess(), &params, this, m_pStatus, &cancelled);
    m_finalRunning = false;
    // Esc: the document stays as it was and the dialog stays open with its settings.
    if (cancelled) return;
    if (result != kOk || m_logic.FinishFinal(document, m_app.CommandContext().history) != kOk) {
        m_services.MessageBox(Text("except"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
        return;
    }
    QDialog::accept();
}

void CLensBlurDlg::reject()
{
    if (m_finalRunning) return;
    StopPreview();
    QDialog::reject();
}

// ---- entries -----------------------------------------------------------------------------------------------------

bool RunLensBlurDialog(QWidget* parent, CAppGlobals& app, IUiServices& services, IStatusProgress* status)
{
    CLensBlurDlg dialog(parent, app, services, status, MenuEntrySettings());
    if (!dialog.Init()) {
        services.MessageBox(Text("except"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
        return false;
    }
    return dialog.exec() == QDialog::Accepted;
}

bool BlurBackgroundAfterCutout(QWidget* parent, CAppGlobals& app, IUiServices& services, CSelectionDocument& selection,
                               IStatusProgress* status)
{
    CComposeDocument& document = app.Document();
    const int index = document.IndexOfImage(selection.GetSourceImage());
    const COLChannel& mask = *selection.GetResultMask();
    const COLImage& working = *selection.GetWorkingImage();
    if (index < 0 || mask.IsNull() || working.IsNull()) return false;
    // The cut-out stays as the selection: it is the foreground the blur keeps out.
    if (selection.KeepAsSelection(document) != kBringBackDone) return false;
    // A copy of the layer above it, with the cut-out as its alpha, no offset; it becomes current.
    if (selection.CopyToLayer(document, false) != kBringBackDone) {
        CStackLock lock(document);
        document.GetSelectionMask().Free();
        return false;
    }
    int saved = 0;
    if (BeginWizardEntry(document, saved)) {
        CLensBlurDlg dialog(parent, app, services, status, WizardEntrySettings());
        if (dialog.Init())
            dialog.exec();
        else
            services.MessageBox(Text("except"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
        EndWizardEntry(document, saved);
    }
    return true;
}
