#include "shell/wait_dialog.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QLabel>
#include <QProgressBar>
#include <QVBoxLayout>
#include <algorithm>

#include "shell/app_globals.h"

CWaitDialog::CWaitDialog(QWidget* parent) : QDialog(parent, Qt::Dialog | Qt::FramelessWindowHint)
{
    setModal(true);
    setObjectName(QStringLiteral("waitdialog"));
    // Without a window frame: a thin line of its own keeps it apart from the canvas.
    setStyleSheet(QStringLiteral("QDialog#waitdialog { border: 1px solid #5a5a5a; }"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(16, 12, 16, 12);
    m_pText = new QLabel(QString::fromStdString(GetString("inpaintwait")), this);
    m_pBar = new QProgressBar(this);
    m_pBar->setRange(0, 100);
    m_pBar->setValue(0);
    m_pBar->setMinimumWidth(280);
    column->addWidget(m_pText);
    column->addWidget(m_pBar);
}

void CWaitDialog::RunModal(CProcessWaitDlg& dialog)
{
    m_pLogic.store(&dialog);
    // The run may have ended before the loop starts: then there is nothing to wait for.
    if (dialog.IsOpen()) {
        m_pBar->setValue(0);
        exec();
    }
    m_pLogic.store(nullptr);
}

void CWaitDialog::EndModal()
{
    // From the worker: closed on this thread, once the logic says its run is over. A late message of an earlier
    // run finds the logic open for the next one and does nothing.
    QMetaObject::invokeMethod(
        this,
        [this] {
            CProcessWaitDlg* logic = m_pLogic.load();
            if (isVisible() && logic && !logic->IsOpen()) done(QDialog::Accepted);
        },
        Qt::QueuedConnection);
}

void CWaitDialog::PostProgress(int percent)
{
    QMetaObject::invokeMethod(
        this, [this, percent] { m_pBar->setValue(std::clamp(percent, 0, 100)); }, Qt::QueuedConnection);
}

void CWaitDialog::reject()
{
    // Esc: the logic cancels, waits for the engine to return, and ends the dialog through EndModal.
    if (CProcessWaitDlg* logic = m_pLogic.load()) logic->OnEscape();
}

void CWaitDialog::closeEvent(QCloseEvent* event)
{
    event->ignore();   // only the end of the run or Esc closes it
}

void CWaitDialog::showEvent(QShowEvent* event)
{
    QDialog::showEvent(event);
    if (onShown) QMetaObject::invokeMethod(this, [this] { if (onShown) onShown(*this); }, Qt::QueuedConnection);
}

namespace {

class CWaitListener : public IProcessListener {
public:
    explicit CWaitListener(CWaitDialog& dialog) : m_dialog(dialog) {}
    void OnProcessEvent(uint32_t event, int32_t value) override
    {
        if (event == 0) m_dialog.PostProgress(value);
    }

private:
    CWaitDialog& m_dialog;
};

} // namespace

long RunProcessWithWait(CProcessThread& worker, CImageProcess& process, const void* params, QWidget* parent,
                        IStatusProgress* status, bool* cancelled, const std::function<void(CWaitDialog&)>& onShown)
{
    CWaitDialog dialog(parent);
    dialog.onShown = onShown;
    CWaitListener listener(dialog);
    worker.WaitIdle();
    worker.GetWaitDialog().SetHost(&dialog);
    worker.SetListener(&listener);
    const long ended = worker.StartImageProcess(nullptr, &process, params, 0, 0, 100, 0);
    // The completion has gone out to the listener before it goes away.
    worker.WaitDone();
    worker.GetWaitDialog().SetHost(nullptr);
    if (status) status->PostStatusProgress(0);
    if (cancelled) *cancelled = ended == CProcessWaitDlg::kEndedByEscape;
    return worker.GetLastResult();
}

void CQtUiPoster::Post(std::function<void()> task)
{
    QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(task), Qt::QueuedConnection);
}
