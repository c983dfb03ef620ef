#include "shell/companion_round_trip.h"

#include <QDir>
#include <QEventLoop>
#include <QProcess>
#include <QTemporaryDir>
#include <QWidget>
#include <ctime>
#include <filesystem>

#include "commands/history_log.h"
#include "commands/history_sink.h"
#include "commands/project_stream.h"
#include "document/layer.h"
#include "imaging/codec.h"
#include "interchange/companion.h"
#include "shell/app_globals.h"
#include "shell/ui_services.h"

namespace {

void Tell(IUiServices& services, const char* key)
{
    services.MessageBox(QString::fromStdString(GetString(key)), EMsgButtons::kOk, EMsgIcon::kWarning, QString());
}

} // namespace

ECompanionOutcome RunCompanionRoundTrip(CAppGlobals& app, const std::string& program, QWidget* mainWindow,
                                        IUiServices& services)
{
    CComposeDocument& doc = app.Document();
    if (doc.GetLayerCount() < 1 || !doc.GetCurrentLayer()) return ECompanionOutcome::kNothingToEdit;

    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    // Each round trip gets a folder of its own in the temporary folder: two windows (or two programs) handing a
    // picture over in the same second would otherwise share the time-stamped name and remove each other's files.
    QTemporaryDir folder(QDir::tempPath() + QStringLiteral("/velmorando-XXXXXX"));
    if (!folder.isValid()) {
        Tell(services, "saveerr");
        return ECompanionOutcome::kWriteFailed;
    }
    const std::string exchange = CompanionExchangePath(folder.path().toStdString() + "/", local);
    const std::string result = CompanionResultPath(exchange);
    auto removeFiles = [&] {
        std::error_code ec;
        std::filesystem::remove(exchange, ec);
        std::filesystem::remove(result, ec);
    };
    {
        CStackLock lock(doc);
        if (SaveProject(doc, nullptr, exchange.c_str(), 0) != 1) {
            removeFiles();
            Tell(services, "saveerr");
            return ECompanionOutcome::kWriteFailed;
        }
    }

    QProcess editor;
    editor.setProgram(QString::fromStdString(program));
    editor.setArguments({QStringLiteral("-i"), QString::fromStdString(exchange)});
    if (mainWindow) mainWindow->hide();
    editor.start();
    bool started = editor.waitForStarted(10000);
    if (started && editor.state() != QProcess::NotRunning) {
        // The window is hidden while the editor has the picture; events still run, so the desktop does not take
        // this program for hung.
        QEventLoop loop;
        QObject::connect(&editor, &QProcess::finished, &loop, &QEventLoop::quit);
        QObject::connect(&editor, &QProcess::errorOccurred, &loop, &QEventLoop::quit);
        if (editor.state() != QProcess::NotRunning) loop.exec();
    }
    started = started && editor.error() != QProcess::FailedToStart;
    if (mainWindow) mainWindow->show();
    if (!started) {
        removeFiles();
        Tell(services, "olfailed");
        return ECompanionOutcome::kStartFailed;
    }

    COLImage edited;
    const bool loaded = std::filesystem::exists(result) && COLImageCodec().LoadFile(result.c_str(), &edited) != 0;
    removeFiles();
    if (!loaded) return ECompanionOutcome::kNoResult;
    CLayer* layer = doc.GetCurrentLayer();
    if (!layer || edited.GetWidth() != layer->m_image.GetWidth() || edited.GetHeight() != layer->m_image.GetHeight()) {
        Tell(services, "olwarning");
        return ECompanionOutcome::kSizeChanged;
    }
    {
        CStackLock lock(doc);
        const COLChannel& mask = doc.GetSelectionMask();
        ApplyCompanionEdit(*layer, edited, mask.GetBuffer() ? &mask : nullptr);
    }
    if (CComposeHistory* history = app.ComposeHistory())
        history->AddStep(&doc, kStepLayerRegion, doc.GetCurrentIndex(), "Ombra Lens");
    doc.Refresh();
    return ECompanionOutcome::kApplied;
}
