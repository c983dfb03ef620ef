#include <QApplication>
#include <QStringList>
#include <vector>

#include "shell/app_globals.h"
#include "shell/command_line.h"
#include "shell/shell_app.h"

int main(int argc, char** argv)
{
    // The application object outlives every window; its end writes the colour and removes the undo logs.
    CAppGlobals globals;
    int code;
    {
        QApplication app(argc, argv);
        QApplication::setApplicationName(QStringLiteral("Velmorando"));
        std::vector<std::string> arguments;
        const QStringList list = QApplication::arguments();
        for (int i = 1; i < list.size(); ++i)
            arguments.push_back(list[i].toStdString());

        CShellApp shell(globals);
        QObject::connect(&shell, &CShellApp::ExitRequested, &app, [](int c) { QApplication::exit(c); });
        shell.Start(JoinArguments(arguments), {});
        code = QApplication::exec();
    }
    return code;
}
