#include "shell/tab_inout.h"

#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "commands/history_log.h"
#include "document/selection_document.h"
#include "matting/contour_optimise.h"
#include "shell/app_globals.h"
#include "shell/tool_bar.h"
#include "shell/ui_services.h"
#include "shell/wait_dialog.h"

namespace {

QString Text(const char* key)
{
    return QString::fromStdString(GetString(key));
}

bool HasData(const COLChannel* plane)
{
    return plane && !plane->IsNull() && !plane->IsAllZero();
}

} // namespace

CTabInout::CTabInout(CAppGlobals& app, CToolBar& bar, IUiServices& services, IStatusProgress* status, QWidget* parent)
    : QWidget(parent), m_app(app), m_bar(bar), m_services(services), m_pStatus(status),
      m_pShowInner(new QCheckBox(Text("showinner"), this)), m_pShowOuter(new QCheckBox(Text("showouter"), this)),
      m_pOptimise(new QPushButton(Text("optimizecontours"), this)), m_pNote(new QLabel(Text("optimizenote"), this))
{
    m_pShowInner->setObjectName(QStringLiteral("showinner"));
    m_pShowOuter->setObjectName(QStringLiteral("showouter"));
    m_pOptimise->setObjectName(QStringLiteral("optimizecontours"));
    m_pOptimise->setToolTip(Text("optimizenote"));
    m_pNote->setWordWrap(true);
    m_pNote->setForegroundRole(QPalette::PlaceholderText);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(8, 6, 8, 6);
    column->setSpacing(4);
    column->addWidget(m_pShowInner);
    column->addWidget(m_pShowOuter);
    column->addWidget(m_pOptimise);
    column->addWidget(m_pNote);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Maximum);

    connect(m_pShowInner, &QCheckBox::toggled, this, [this] { OnShowToggled(); });
    connect(m_pShowOuter, &QCheckBox::toggled, this, [this] { OnShowToggled(); });
    connect(m_pOptimise, &QPushButton::clicked, this, [this] { OptimiseContours(); });
    // The planes change under tools, undo and the cut-out; a second's look keeps the controls honest between
    // the frame's own updates.
    m_timer.setInterval(1000);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        if (isVisible()) SyncControls();
    });
    m_timer.start();
    SyncControls();
}

void CTabInout::SyncControls()
{
    CSelectionDocument& selection = m_bar.Selection();
    const bool noResult = selection.GetResultMask()->IsNull();
    const bool inner = HasData(selection.GetInnerPlane()), outer = HasData(selection.GetOuterPlane());
    m_syncing = true;
    m_pShowInner->setChecked(selection.GetShowInner() != 0);
    m_pShowOuter->setChecked(selection.GetShowOuter() != 0);
    m_syncing = false;
    // With a result the contours are no longer shown or used.
    m_pShowInner->setEnabled(noResult && inner);
    m_pShowOuter->setEnabled(noResult && outer);
    m_pOptimise->setEnabled(noResult && inner && outer);
}

void CTabInout::OnShowToggled()
{
    if (m_syncing) return;
    CSelectionDocument& selection = m_bar.Selection();
    selection.SetShowInner(m_pShowInner->isChecked() ? 1 : 0);
    selection.SetShowOuter(m_pShowOuter->isChecked() ? 1 : 0);
    // A new refresh count makes the canvas trace its outlines again.
    selection.RefreshPreview();
}

CTabInout::EOptimiseOutcome CTabInout::OptimiseContours()
{
    CSelectionDocument& selection = m_bar.Selection();
    CToolManager& manager = m_bar.Manager();
    if (!manager.IsSelectionMode() || manager.GetMethod() != kMethodInOut || !selection.GetResultMask()->IsNull())
        return EOptimiseOutcome::kNotReady;
    if (!CContourOptimiser::CanOptimise(selection.GetInnerPlane(), selection.GetOuterPlane())) {
        m_services.MessageBox(Text("optimizeempty"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
        return EOptimiseOutcome::kEmpty;
    }
    CProcessThread* worker = m_app.Worker();
    CContourOptimiser optimiser;
    if (!worker ||
        optimiser.Prepare(selection.GetWorkingImage(), selection.GetInnerPlane(), selection.GetOuterPlane()) != kOk) {
        m_services.MessageBox(Text("except"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
        return EOptimiseOutcome::kFailed;
    }
    // A contour half drawn by the current tool must not land on planes that change under it: the tool is put
    // down for the run and taken up again, fresh, afterwards.
    CToolBase* tool = manager.GetCurrentTool();
    manager.SetCurrentTool(nullptr);

    const int32_t detail = kDetail;
    bool cancelled = false;
    const long segmented =
        RunProcessWithWait(*worker, optimiser.GetProcess(), &detail, window(), m_pStatus, &cancelled);
    EOptimiseOutcome outcome = EOptimiseOutcome::kCancelled;
    if (!cancelled) {
        // The snap works on copies, so that a failure half-way leaves the drawn contours as they were.
        COLChannel inner, outer;
        if (inner.DuplicateFrom(selection.GetInnerPlane()) && outer.DuplicateFrom(selection.GetOuterPlane()) &&
            optimiser.Finish(segmented, &inner, &outer) == kOk) {
            *selection.GetInnerPlane() = std::move(inner);
            *selection.GetOuterPlane() = std::move(outer);
            // One step holds both planes, so that undo and redo move them together.
            if (CSelectionHistory* log = m_bar.SelectionLog())
                log->AddStep(&selection, kStepChannel, int32_t(kPlaneInner | kPlaneOuter), "inoutoptimize");
            outcome = EOptimiseOutcome::kDone;
        } else {
            outcome = EOptimiseOutcome::kFailed;
        }
    }
    manager.SetCurrentTool(tool);
    selection.RefreshPreview();
    manager.UpdateBars();
    SyncControls();
    if (outcome == EOptimiseOutcome::kFailed)
        m_services.MessageBox(Text("except"), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
    if (outcome == EOptimiseOutcome::kDone) {
        const QString after = Text("afterinoutoptimize");
        if (!after.isEmpty()) Q_EMIT Tip(after);
    }
    Q_EMIT Changed();
    return outcome;
}
