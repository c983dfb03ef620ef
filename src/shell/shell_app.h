#pragma once

#include <QObject>
#include <QTimer>
#include <memory>
#include <string>

#include "shell/command_line.h"

class CAppGlobals;
class CMainFrame;
class CKeyFilter;
class CSplashWindow;
class IUiServices;
struct AppInitOptions;

// The start of the editor and its end. Start: the application object's Init (folders, settings, texts, the
// logs, the skin), the splash when there is nothing to open, the main frame shown maximised, the key filter,
// and half a second later the command line: a picture or project to open, or a host editor's exchange file.
class CShellApp : public QObject {
    Q_OBJECT
public:
    CShellApp(CAppGlobals& app, IUiServices* services = nullptr);
    ~CShellApp() override;

    // commandText: the program's arguments as one text (JoinArguments). Returns the result of the application
    // object's Init (0 when something it needs is missing; the editor still starts).
    int Start(const std::string& commandText, const AppInitOptions& options, int commandLineDelayMs = 500);

    CMainFrame* Frame() const { return m_pFrame.get(); }
    CSplashWindow* Splash() const { return m_pSplash.get(); }
    const ShellCommandLine& CommandLine() const { return m_commandLine; }
    bool CommandLineHandled() const { return m_handled; }
    // The code the program is to end with once ExitRequested was sent: -1 when a host's exchange file could not
    // be read, 0 at the end of a host's visit.
    int ExitCode() const { return m_exitCode; }

Q_SIGNALS:
    void ExitRequested(int code);

private:
    void HandleCommandLine();

    CAppGlobals& m_app;
    IUiServices* m_pServices;
    std::unique_ptr<CSplashWindow> m_pSplash;
    std::unique_ptr<CMainFrame> m_pFrame;
    CKeyFilter* m_pKeyFilter = nullptr;
    QTimer m_commandLineTimer;
    ShellCommandLine m_commandLine;
    bool m_handled = false;
    int m_exitCode = 0;
};
