#pragma once

#include <QApplication>
#include <QTest>
#include <QElapsedTimer>
#include <QString>
#include <QTimer>
#include <QWidget>
#include <deque>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "shell/app_globals.h"
#include "shell/image_view.h"
#include "shell/main_frame.h"
#include "shell/shell_app.h"
#include "shell/tool_bar.h"
#include "shell/ui_services.h"
#include "support/test_support.h"

namespace vmtest {

// Scripted dialogs: every message is recorded and answered from a queue (Yes, or Discard, when it is empty); file
// dialogs answer the paths queued for them (empty: cancelled).
class CFakeServices : public IUiServices {
public:
    EMsgResult MessageBox(const QString& text, EMsgButtons buttons, EMsgIcon, const QString&) override
    {
        messages.push_back(text.toStdString());
        if (!answers.empty()) {
            EMsgResult r = answers.front();
            answers.pop_front();
            return r;
        }
        if (buttons == EMsgButtons::kSaveDiscardCancel) return EMsgResult::kDiscard;
        return buttons == EMsgButtons::kOk ? EMsgResult::kOk : EMsgResult::kYes;
    }
    QString GetOpenFileName(const std::string& filter) override
    {
        filters.push_back(filter);
        return Next(openPaths);
    }
    QString GetSaveFileName(const std::string& filter) override
    {
        filters.push_back(filter);
        return Next(savePaths);
    }
    bool OpenAddress(const QString& address) override
    {
        addresses.push_back(address.toStdString());
        return true;
    }

    std::vector<std::string> messages;
    std::vector<std::string> filters;
    std::vector<std::string> addresses;
    std::deque<EMsgResult> answers;
    std::deque<std::string> openPaths;
    std::deque<std::string> savePaths;

private:
    static QString Next(std::deque<std::string>& q)
    {
        if (q.empty()) return {};
        std::string p = q.front();
        q.pop_front();
        return QString::fromStdString(p);
    }
};

// Runs the event loop until pred holds or the time is up.
inline bool WaitFor(const std::function<bool()>& pred, int ms = 5000)
{
    QElapsedTimer t;
    t.start();
    while (!pred()) {
        if (t.elapsed() > ms) return false;
        QApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

// Runs action on the first visible top-level widget of type T once it is up: modal dialogs block the caller, so
// the action is queued before the dialog is opened.
template <class T> void OnDialogShown(std::function<void(T*)> action)
{
    auto* timer = new QTimer();
    timer->setInterval(20);
    QObject::connect(timer, &QTimer::timeout, [timer, action] {
        for (QWidget* w : QApplication::topLevelWidgets())
            if (auto* d = qobject_cast<T*>(w); d && d->isVisible()) {
                timer->stop();
                timer->deleteLater();
                action(d);
                return;
            }
    });
    timer->start();
}

// Start-up options for tests: the committed data folder and a profile in a temporary folder.
inline AppInitOptions TestOptions(const TempDir& dir, const std::string& language = "zh")
{
    return {AssetPath(""), dir.File("config/Velmorando.ini"), language};
}

// The fixture of the window tests: an application started without a file (English unless asked), its main window
// shown at the given size once the command line has been handled.
class FrameTest : public ::testing::Test {
protected:
    void StartFrame(int width, int height, const char* language = "en")
    {
        m_shell = std::make_unique<CShellApp>(m_app, &m_services);
        m_shell->Start("", TestOptions(m_dir, language), 0);
        ASSERT_TRUE(WaitFor([&] { return m_shell->CommandLineHandled(); }));
        m_frame = m_shell->Frame();
        if (width > 0) m_frame->resize(width, height);
        m_frame->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(m_frame));
    }

    // A polygon drawn with a tool through the canvas, as a user clicks it: a click on each corner, a double-click
    // on the last.
    void Polygon(CToolBase& tool, const std::vector<CViewPoint>& corners)
    {
        m_frame->ToolBar()->Manager().SetCurrentTool(&tool);
        CImageView* view = m_frame->View();
        auto client = [&](const CViewPoint& p) {
            const CViewPoint c = view->ImageToClient(p.x, p.y);
            return QPoint(c.x, c.y);
        };
        QTest::mousePress(view, Qt::LeftButton, Qt::NoModifier, client(corners[0]));
        for (const CViewPoint& p : corners) {
            QTest::mouseMove(view, client(p));
            QTest::mouseRelease(view, Qt::LeftButton, Qt::NoModifier, client(p));
        }
        QTest::mouseDClick(view, Qt::LeftButton, Qt::NoModifier, client(corners.back()));
    }

    TempDir m_dir;
    CFakeServices m_services;
    CAppGlobals m_app;
    std::unique_ptr<CShellApp> m_shell;
    CMainFrame* m_frame = nullptr;
};

} // namespace vmtest
