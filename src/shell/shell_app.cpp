#include "shell/shell_app.h"

#include <QApplication>
#include <QScreen>

#include "shell/app_globals.h"
#include "shell/key_filter.h"
#include "shell/main_frame.h"
#include "shell/splash.h"

CShellApp::CShellApp(CAppGlobals& app, IUiServices* services) : m_app(app), m_pServices(services)
{
    m_commandLineTimer.setSingleShot(true);
    connect(&m_commandLineTimer, &QTimer::timeout, this, &CShellApp::HandleCommandLine);
}

CShellApp::~CShellApp()
{
    if (m_pKeyFilter) qApp->removeEventFilter(m_pKeyFilter);
}

int CShellApp::Start(const std::string& commandText, const AppInitOptions& options, int commandLineDelayMs)
{
    const int init = m_app.Init(options);
    m_commandLine = ParseCommandLine(commandText);

    // The splash, only when there is nothing to open; a missing picture just means no splash.
    m_pSplash = std::make_unique<CSplashWindow>();
    if (m_pSplash->LoadPicture(m_app.GetSkinPath("start.lgb")) && m_commandLine.path.empty()) m_pSplash->ShowCentred();

    m_pFrame = std::make_unique<CMainFrame>(m_app, m_pServices);
    // The end of a host's visit ends the program.
    connect(m_pFrame.get(), &CMainFrame::HostFinished, this, [this](int code) {
        m_exitCode = code;
        Q_EMIT ExitRequested(code);
    });
    m_pKeyFilter = new CKeyFilter(m_pFrame.get());
    qApp->installEventFilter(m_pKeyFilter);
    // Without a window manager (a bare X server) maximising does nothing: start with the whole screen anyway.
    if (QScreen* screen = QGuiApplication::primaryScreen()) m_pFrame->setGeometry(screen->availableGeometry());
    m_pFrame->showMaximized();
    if (m_pSplash->isVisible() && QGuiApplication::platformName() != QLatin1String("offscreen")) m_pSplash->raise();

    m_commandLineTimer.start(commandLineDelayMs);
    return init;
}

void CShellApp::HandleCommandLine()
{
    m_handled = true;
    if (!m_commandLine.path.empty()) {
        m_pFrame->SetHostMode(m_commandLine.pluginMode);
        if (m_commandLine.pluginMode) {
            if (!m_pFrame->LoadHostImage(m_commandLine.path)) {
                m_pFrame->ShowMessage("can't open");
                m_exitCode = -1;
                Q_EMIT ExitRequested(-1);
                return;
            }
            m_pFrame->ShowTopBar(false);
            // The host asked for a matting method by digit: its selection mode is the visit.
            m_pFrame->EnterHostMethod(m_commandLine.methodDigit);
        } else {
            m_pFrame->OpenDocumentAt(m_commandLine.path);
        }
    }
    m_pSplash->hide();
}
