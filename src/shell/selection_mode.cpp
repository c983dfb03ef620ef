#include "shell/selection_mode.h"

#include <QAction>
#include <QMainWindow>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>

#include "commands/command.h"
#include "document/compose_document.h"
#include "document/selection_document.h"
#include "shell/app_globals.h"
#include "shell/tool_bar.h"
#include "shell/ui_services.h"

namespace selmode {

namespace {

QString Text(const char* key) { return QString::fromStdString(GetString(key)); }

} // namespace

void Toggle(CToolBar& bar, IUiServices& services)
{
    CToolManager& manager = bar.Manager();
    if (manager.IsSelectionMode() && bar.Selection().GetResultMask()->IsNull()) {
        // Nothing to bring back yet: the contours alone are no result. Leaving drops them.
        const EMsgResult answer =
            services.MessageBox(QStringLiteral("There is no result yet. Leave selection mode and drop the contours?"),
                                EMsgButtons::kYesNo, EMsgIcon::kQuestion, Text("Tittle"));
        if (answer != EMsgResult::kYes) return;
    }
    manager.EnterOrLeaveSelectionMode(!manager.IsSelectionMode(), kMethodInOut, true);
}

bool RunResultDialog(QWidget* parent, CSelectionDocument& selection, CComposeDocument& document)
{
    if (selection.GetResultMask()->IsNull()) return false;
    QMessageBox box(parent);
    box.setWindowTitle(Text("Tittle"));
    box.setText(QStringLiteral("What should become of the result?"));
    QPushButton* apply = box.addButton(QStringLiteral("Apply to the layer"), QMessageBox::AcceptRole);
    QPushButton* separate = box.addButton(QStringLiteral("Separate to a new layer"), QMessageBox::AcceptRole);
    QPushButton* keep = box.addButton(QStringLiteral("Keep as selection"), QMessageBox::AcceptRole);
    box.addButton(QMessageBox::Cancel);
    box.exec();
    int result = kBringBackFailed;
    if (box.clickedButton() == apply) result = selection.ApplyToLayer(document);
    if (box.clickedButton() == separate) result = selection.SeparateToLayer(document);
    if (box.clickedButton() == keep) result = selection.KeepAsSelection(document);
    if (result == kBringBackIsBase) {
        // The base cannot lose its background; the result stays as the selection instead.
        QMessageBox::warning(parent, QStringLiteral("Warning"), Text("isbkwarning"));
        result = selection.KeepAsSelection(document);
    }
    return result == kBringBackDone;
}

void BuildMenus(QMainWindow& frame, CToolBar& bar, IUiServices& services)
{
    QMenuBar* menus = frame.menuBar();
    menus->clear();
    QMenu* selectionMenu = menus->addMenu(QStringLiteral("&Selection"));
    QAction* back = selectionMenu->addAction(QStringLiteral("Confirm and &return to compose"));
    back->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Return));
    QObject::connect(back, &QAction::triggered, &frame, [&bar, &services] { Toggle(bar, services); });
    selectionMenu->addSeparator();
    QAction* undo = selectionMenu->addAction(QStringLiteral("&Undo"));
    undo->setShortcut(QKeySequence::Undo);
    QAction* redo = selectionMenu->addAction(QStringLiteral("&Redo"));
    redo->setShortcut(QKeySequence::Redo);
    // A half-made polygon must not enter the log: the tool is left first.
    QObject::connect(undo, &QAction::triggered, &frame, [&bar] {
        bar.Manager().SetCurrentTool(nullptr);
        if (CSelectionHistory* log = bar.SelectionLog(); log && log->Backward()) bar.Selection().RefreshPreview();
    });
    QObject::connect(redo, &QAction::triggered, &frame, [&bar] {
        bar.Manager().SetCurrentTool(nullptr);
        if (CSelectionHistory* log = bar.SelectionLog(); log && log->Forward()) bar.Selection().RefreshPreview();
    });

    QMenu* view = menus->addMenu(QStringLiteral("&Background"));
    const struct {
        const char* label;
        int mode;
    } backgrounds[] = {{"&Checkerboard", kShowChecker}, {"&White", kShowColour}, {"&Mask (black and white)", kShowMask},
                       {"&Original picture", kShowSource}};
    for (const auto& b : backgrounds) {
        QAction* a = view->addAction(QString::fromUtf8(b.label));
        a->setCheckable(true);
        a->setChecked(bar.Selection().GetDisplayMode() == b.mode);
        const int mode = b.mode;
        QObject::connect(a, &QAction::triggered, &frame, [&bar, view, a, mode] {
            bar.Selection().SetDisplayMode(mode);
            if (mode == kShowColour) bar.Selection().SetBackgroundColour(0xFFFFFFFF);
            for (QAction* other : view->actions()) other->setChecked(other == a);
            bar.Selection().RefreshPreview();
        });
    }
}

} // namespace selmode
