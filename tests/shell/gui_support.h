#pragma once

#include <QApplication>
#include <QElapsedTimer>
#include <QString>
#include <QTimer>
#include <QWidget>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "shell/app_globals.h"
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

} // namespace vmtest
