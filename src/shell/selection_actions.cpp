// The main frame's Select and Edit items that change the selection as a whole or paint it: each asks its
// settings in a dialog and runs the command string, so that the editor and a replay take the same road.

#include <QApplication>
#include <QCursor>
#include <QFileInfo>
#include <QMenu>
#include <QMenuBar>
#include <QProgressBar>
#include <QTextBrowser>
#include <QUrl>

#include "commands/modifier_commands.h"
#include "matting/segment.h"
#include "shell/app_globals.h"
#include "shell/batch_review.h"
#include "shell/contour_cutout.h"
#include "shell/main_frame.h"
#include "shell/selection_dialogs.h"
#include "shell/selection_mode.h"
#include "shell/tab_blue_matting.h"
#include "shell/wizards.h"
#include "shell/tool_bar.h"

namespace {

QString Text(const char* key)
{
    return QString::fromStdString(GetString(key));
}

std::string Hex(uint32_t colour)
{
    char text[8];
    std::snprintf(text, sizeof text, "%06X", unsigned(colour & 0xFFFFFFu));
    return text;
}

// The wait cursor for the life of a scope.
struct BusyCursor {
    BusyCursor() { QApplication::setOverrideCursor(Qt::WaitCursor); }
    ~BusyCursor() { QApplication::restoreOverrideCursor(); }
};

} // namespace

bool CMainFrame::RunFillDialog()
{
    FillSettings settings;
    settings.colour = m_app.CommandContext().foreground | 0xFF000000u;
    if (!AskFill(this, settings)) return true; // cancelled: nothing to do, and nothing to complain about
    BusyCursor busy;
    return FillSelection(m_app.CommandContext(), settings);
}

void CMainFrame::OnExpand(bool expand)
{
    ExpandSettings settings;
    settings.expand = expand ? 1 : 0;
    if (!AskExpand(this, settings)) return;
    BusyCursor busy;
    RunCommand(std::string(expand ? "Doc_SelectExpand('" : "Doc_SelectShrink('") + std::to_string(settings.amount) +
               "')");
}

void CMainFrame::OnFeather()
{
    FeatherSettings settings;
    // A failed blur says so and offers the dialog again with the value the user chose.
    while (AskFeather(this, settings)) {
        int result;
        {
            BusyCursor busy;
            result = m_execute("Doc_SelectFeather('" + std::to_string(settings.value) + "')");
        }
        UpdatePanels();
        if (result == kCommandDone) return;
        ShowMessage("expect");
    }
}

void CMainFrame::OnStroke()
{
    StrokeSettings settings;
    settings.colour = m_app.CommandContext().foreground | 0xFF000000u;
    if (!AskStroke(this, settings)) return;
    BusyCursor busy;
    RunCommand("Doc_StrokeSelection('" + std::to_string(settings.width) + "','" + std::to_string(settings.opacity) +
               "','" + Hex(settings.colour) + "')");
}

void CMainFrame::OnSegmentDeflate()
{
    // The segmentation runs here on the interface thread; its progress goes to the status bar, and the window
    // repaints between reports (user input waits until the run is over).
    struct Progress {
        QProgressBar* bar;
        static void Report(void* context, uint32_t code, int32_t value)
        {
            if (code != 1) return;
            auto* self = static_cast<Progress*>(context);
            self->bar->setValue(value);
            self->bar->setVisible(value > 0 && value < 100);
            QApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
        }
    } progress{m_pProgress};
    CSegmentProcess engine;
    engine.SetProgressCallback({&Progress::Report, &progress});
    engine.SetProgressRange(0, 100);
    const QString before = StatusText();
    SetTip(Text("deflatebusy"));
    bool ok;
    {
        BusyCursor busy;
        QApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
        ok = DeflateSelection(m_app.CommandContext(), &engine);
    }
    m_pProgress->hide();
    SetTip(before);
    if (!ok) ShowMessage("except");
    UpdatePanels();
}

CSelectionDocument* CMainFrame::GetSelectionDocument()
{
    return m_pToolBar && IsSelectionMode() ? &m_pToolBar->Selection() : nullptr;
}

void CMainFrame::OnSelectionFeather()
{
    // Only a result mask with pixels can be feathered (the menu's enabling rule says the same).
    const COLChannel* mask = m_pToolBar->Selection().GetResultMask();
    if (!mask || mask->IsNull() || mask->IsAllZero()) return;
    FeatherRecord record;
    if (!AskSelFeather(this, record)) return;
    BusyCursor busy;
    RunCommand("Doc_SelectFeatherResult('" + std::to_string(record.radius) + "','" + std::to_string(record.keepDetail) +
               "','" + std::to_string(record.shrinkFirst) + "')");
}

void CMainFrame::OnBuildSelection()
{
    if (!IsCommandAvailable(cmd::kBuildSelection)) return;
    const selmode::ESolver solver = m_refinedEdges ? selmode::ESolver::kRefined : selmode::ESolver::kClassic;
    switch (selmode::BuildFromContours(this, m_app, *m_pToolBar, solver, this)) {
    case selmode::EBuildOutcome::kDone:
        // The first look at a cut-out: how to check it, unless the user turned the page off in the settings.
        if (m_app.GetProfileInt("Check Result") != 0) ShowHelpPanelPage("checkresult.htm");
        break;
    case selmode::EBuildOutcome::kFailed:
        ShowMessage("buildselfail");
        break;
    case selmode::EBuildOutcome::kCancelled:
    case selmode::EBuildOutcome::kNotReady:
        break;
    }
    m_pProgress->hide();
    UpdatePanels();
}

void CMainFrame::OnRefinedEdges()
{
    m_refinedEdges = !m_refinedEdges;
    m_app.SetProfileInt("RefinedEdges", m_refinedEdges ? 1 : 0);
}

bool CMainFrame::ShowHelpPanelPage(const char* file)
{
    const QString path = QString::fromStdString(m_app.GetWorkDir()) + QStringLiteral("help/") + QString::fromUtf8(file);
    if (!QFileInfo::exists(path)) return false;
    m_pHelp->setSource(QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()));
    return true;
}

void CMainFrame::OnCreateSelection()
{
    if (!m_pToolBar || IsSelectionMode() || !selmode::CanEnter(*m_pToolBar, *m_pServices)) return;
    switch (selmode::AskMethod(this)) {
    case kMethodChroma:
        if (selmode::EnterChromaKey(*m_pToolBar, *m_pBlueTab, *m_pServices) && m_app.GetProfileInt("PureBk") != 0)
            ShowHelpPanelPage("PureBk.htm");
        break;
    case kMethodInOut:
        if (selmode::Toggle(this, *m_pToolBar, *m_pServices, kMethodInOut) && m_app.GetProfileInt("DbSel") != 0)
            ShowHelpPanelPage("DoubleSel.htm");
        break;
    case kMethodDirect:
        selmode::Toggle(this, *m_pToolBar, *m_pServices, kMethodDirect);
        break;
    case CMethodDlg::kBatch:
        OnBatchKey();
        break;
    default:
        break; // cancelled
    }
}

void CMainFrame::OnBatchKey()
{
    // The review keys each photo with the chroma-key page's settings, as the page stands when the photo comes.
    CTabBlueMatting* page = m_pBlueTab;
    RunBatchKey(this, m_app, *m_pToolBar, m_pView, *m_pServices, DocumentPath(),
                [page] { return page->Picker().CurrentSettings(); });
}

void CMainFrame::RunAfterOpenWizard()
{
    CComposeDocument& doc = m_app.Document();
    if (m_hostMode || !m_pToolBar || IsSelectionMode() || doc.GetLayerCount() != 1 ||
        m_app.GetProfileInt("AfterOpenWizard") == 0)
        return;
    CAfterOpenDlg dialog(this, [this, &doc] {
        const int before = doc.GetLayerCount();
        OnOpenLayer();
        if (doc.GetLayerCount() <= before) return false;
        ShowMessage("isbktip");
        return true;
    });
    dialog.onDontAsk = [this](bool dontAsk) { m_app.SetProfileInt("AfterOpenWizard", dontAsk ? 0 : 1); };
    RunAfterOpenDialog(dialog);
    if (dialog.Answer() != CAfterOpenDlg::kForeground) return;
    ShowMessage("isforetip");
    OnCommand(cmd::kConfirmReturn); // the method question follows
}
