#include "shell/batch_review.h"

#include <QApplication>
#include <QFileInfo>
#include <QLabel>
#include <QMainWindow>
#include <QTimer>
#include <QToolButton>

#include "commands/history_sink.h"
#include "document/layer.h"
#include "document/selection_document.h"
#include "imaging/codec.h"
#include "shell/app_globals.h"
#include "shell/batch_dlg.h"
#include "shell/image_view.h"
#include "shell/tool_bar.h"
#include "shell/ui_services.h"

namespace {

QString Text(const char* key)
{
    return QString::fromStdString(GetString(key));
}

std::function<void(CBatchDlg&)>& DialogHook()
{
    static std::function<void(CBatchDlg&)> hook;
    return hook;
}

CBatchReview*& Current()
{
    static CBatchReview* review = nullptr;
    return review;
}

} // namespace

CBatchReview::CBatchReview(QMainWindow* frame, CAppGlobals& app, CToolBar& bar, CImageView* view, IUiServices& services,
                           std::vector<std::string> files, batchkey::Settings settings)
    : QToolBar(frame), m_app(app), m_bar(bar), m_pView(view), m_services(services), m_files(std::move(files)),
      m_settings(std::move(settings))
{
    setObjectName(QStringLiteral("batchreview"));
    setMovable(false);
    m_pLabel = new QLabel(this);
    m_pLabel->setObjectName(QStringLiteral("batchfile"));
    addWidget(m_pLabel);
    m_pNext = new QToolButton(this);
    m_pNext->setObjectName(QStringLiteral("batnext"));
    m_pNext->setToolButtonStyle(Qt::ToolButtonTextOnly);
    m_pNext->setEnabled(false);
    addWidget(m_pNext);
    connect(m_pNext, &QToolButton::clicked, this, &CBatchReview::Next);
    // Leaving selection mode by its own ways (cancel and return) ends the batch.
    auto* watch = new QTimer(this);
    connect(watch, &QTimer::timeout, this, [this] {
        if (!m_keying && !m_ended && !m_bar.Manager().IsSelectionMode()) End(false);
    });
    watch->start(500);
    frame->addToolBar(Qt::TopToolBarArea, this);
    show();
    m_pBarAlive = &bar;
    Current() = this;
}

CBatchReview::~CBatchReview()
{
    if (m_keying && m_app.Worker()) {
        // The run holds this object's process and record.
        m_app.Worker()->WaitIdle();
        m_app.Worker()->WaitDone();
    }
    if (m_pBarAlive && m_bar.Selection().GetSourceImage() == &m_source) m_bar.Selection().SetSourceImage(nullptr);
    if (Current() == this) Current() = nullptr;
}

bool CBatchReview::Start()
{
    if (m_files.empty()) return false;
    if (!m_bar.Manager().IsSelectionMode() && !m_bar.Manager().EnterOrLeaveSelectionMode(true, kMethodChroma, true))
        return false;
    m_index = 0;
    ProcessBatchFile();
    return true;
}

void CBatchReview::ProcessBatchFile()
{
    m_pNext->setEnabled(false);
    m_pLabel->setText(QStringLiteral("(%1/%2) %3 ")
                          .arg(m_index + 1)
                          .arg(m_files.size())
                          .arg(QFileInfo(QString::fromStdString(m_files[m_index])).fileName()));
    // The canvas may change its size: no tool keeps buffers of the old one.
    m_bar.Manager().SetCurrentTool(nullptr);
    m_params = BatchFileParams{};
    m_params.path = m_files[m_index];
    m_params.settings = m_settings;
    m_params.write = false;
    m_params.review = reviewSettings ? reviewSettings() : ChromaKeySettings{};
    m_pProcess = std::make_unique<CBatchFileProcess>();
    m_keying = true;
    const uint64_t run = ++m_runId;
    if (CProcessThread* worker = m_app.Worker()) {
        worker->WaitIdle();
        worker->StartImageProcess(this, m_pProcess.get(), &m_params, uint32_t(m_index), 0, 100, 1);
    } else {
        m_pProcess->Process(&m_params);
        QMetaObject::invokeMethod(
            this, [this, run] { OnKeyed(run); }, Qt::QueuedConnection);
    }
}

void CBatchReview::PostProcessEvent(uint32_t first, int32_t)
{
    if (first != 1) return; // the frame's status bar shows the worker's progress
    const uint64_t run = m_runId.load();
    QMetaObject::invokeMethod(
        this, [this, run] { OnKeyed(run); }, Qt::QueuedConnection);
}

void CBatchReview::OnKeyed(uint64_t run)
{
    if (run != m_runId || !m_keying) return;
    if (CProcessThread* worker = m_app.Worker()) worker->WaitDone();
    m_keying = false;
    if (m_ended) return;
    if (!m_pProcess->GetReason().empty()) {
        // Nothing to review: the photo is named and skipped.
        m_failures.push_back({m_files[m_index], m_pProcess->GetReason()});
        if (++m_index < m_files.size())
            ProcessBatchFile();
        else
            End(true);
        return;
    }
    if (!m_bar.Manager().IsSelectionMode()) {
        End(false);
        return;
    }
    // The photo becomes the selection document's picture, its key the working image and the result mask.
    CSelectionDocument& selection = m_bar.Selection();
    m_source = std::move(m_pProcess->Source());
    COLImage* working = selection.GetWorkingImage();
    *working = std::move(m_pProcess->Result());
    selection.SetSourceImage(&m_source);
    selection.GetInnerPlane()->Free();
    selection.GetOuterPlane()->Free();
    COLChannel* mask = selection.GetResultMask();
    mask->ExtractFrom(working, 3);
    if (CSelectionHistory* log = m_app.SelectionHistory()) {
        // Undo stays within this photo.
        log->Reset();
        log->AddStep(&selection, kStepWholeDocument, 0, "His_bkpicker");
    }
    if (m_pView) m_pView->ZoomFit();
    selection.RefreshPreview();
    m_bar.Manager().UpdateBars();
    UpdateButton();
}

void CBatchReview::UpdateButton()
{
    const bool last = m_index + 1 >= m_files.size();
    m_pNext->setText(last ? Text("lastbat")
                          : QStringLiteral("(%1/%2)%3").arg(m_index + 1).arg(m_files.size()).arg(Text("batnext")));
    m_pNext->setEnabled(!m_keying && !m_bar.Selection().GetResultMask()->IsNull());
}

void CBatchReview::Next()
{
    if (m_keying || m_ended || m_index >= m_files.size()) return;
    CSelectionDocument& selection = m_bar.Selection();
    const COLImage& working = *selection.GetWorkingImage();
    const COLChannel& mask = *selection.GetResultMask();
    if (working.IsNull() || mask.IsNull()) return;
    // A tool still holding a stroke or a polygon finishes first.
    m_bar.Manager().SetCurrentTool(nullptr);
    // The cut-out as the canvas shows it: the working colours with the result mask as alpha.
    COLImage cutout;
    bool saved = cutout.DuplicateFrom(&working) && cutout.ChannelFrom(&mask, 3);
    const std::string output =
        batchkey::OutputPath(m_settings.outputDir, m_files[m_index], m_settings.affix, m_settings.affixIsPrefix);
    if (saved) {
        QApplication::setOverrideCursor(Qt::WaitCursor);
        saved = COLImageCodec().SaveFileWithAlpha(output.c_str(), &cutout) != 0;
        QApplication::restoreOverrideCursor();
    }
    if (!saved) {
        // The result stays on screen: the user can free room or choose another folder and press again.
        m_services.MessageBox(Text("saveerr") + QStringLiteral("\n") + QString::fromStdString(output), EMsgButtons::kOk,
                              EMsgIcon::kWarning, Text("batchdlg"));
        return;
    }
    if (++m_index < m_files.size())
        ProcessBatchFile();
    else
        End(true);
}

void CBatchReview::End(bool finished)
{
    if (m_ended) return;
    m_ended = true;
    m_pNext->setEnabled(false);
    if (finished) {
        QString text = Text("batover");
        if (!m_failures.empty()) {
            text += QStringLiteral("\n\n") + Text("batfailed");
            for (const batchkey::Failure& f : m_failures)
                text += QStringLiteral("\n") + QFileInfo(QString::fromStdString(f.path)).fileName() +
                        QStringLiteral(": ") + QString::fromStdString(f.reason);
        }
        m_services.MessageBox(text, EMsgButtons::kOk, m_failures.empty() ? EMsgIcon::kInformation : EMsgIcon::kWarning,
                              Text("batchdlg"));
    }
    CToolManager& manager = m_bar.Manager();
    if (manager.IsSelectionMode()) {
        // Back to composing with the document as it was: the results went to their files.
        std::function<bool()> wizard = std::move(m_bar.onResultWizard);
        m_bar.onResultWizard = [] { return false; };
        manager.EnterOrLeaveSelectionMode(false, 0, true);
        m_bar.onResultWizard = std::move(wizard);
    }
    if (m_bar.Selection().GetSourceImage() == &m_source) m_bar.Selection().SetSourceImage(nullptr);
    if (Current() == this) Current() = nullptr;
    hide();
    deleteLater();
}

void SetBatchDialogHook(std::function<void(CBatchDlg&)> hook)
{
    DialogHook() = std::move(hook);
}

CBatchReview* CurrentBatchReview()
{
    return Current();
}

void RunBatchKey(QMainWindow* frame, CAppGlobals& app, CToolBar& bar, CImageView* view, IUiServices& services,
                 const std::string& documentPath, std::function<ChromaKeySettings()> reviewSettings)
{
    if (Current() || bar.Manager().IsSelectionMode()) return;
    const CLayer* layer = app.Document().GetCurrentLayer();
    CBatchDlg dialog(frame, services, app.Worker(), layer ? &layer->m_image : nullptr, documentPath);
    if (DialogHook()) DialogHook()(dialog);
    dialog.exec();
    if (dialog.Outcome() != CBatchDlg::kReview) return;
    auto* review = new CBatchReview(frame, app, bar, view, services, dialog.Files(), dialog.GetSettings());
    review->reviewSettings = std::move(reviewSettings);
    if (!review->Start()) {
        services.MessageBox(Text("except"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
        review->deleteLater();
        if (Current() == review) Current() = nullptr;
    }
}
