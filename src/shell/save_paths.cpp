#include "shell/save_paths.h"

#include "document/layer.h"
#include "runtime/status.h"
#include "shell/app_globals.h"
#include "shell/document_session.h"
#include "shell/jpeg_quality_dlg.h"
#include "shell/ui_services.h"

CSavePaths::CSavePaths(QWidget* parent, CAppGlobals& app, CDocumentSession& session, IUiServices& services)
    : m_pParent(parent), m_app(app), m_session(session), m_services(services)
{
    askJpegQuality = [this](const COLImage& picture, int& writerQuality) {
        CJpegDlg dialog(m_pParent, picture, m_app.Worker());
        if (dialog.exec() != QDialog::Accepted) return false;
        writerQuality = dialog.WriterQuality();
        return true;
    };
}

ESaveOutcome CSavePaths::Save(ESaveChoice choice, const std::string& path, bool withHistory)
{
    const SaveChoiceInfo& info = DescribeSaveChoice(choice);
    // The document session shows its own failure text.
    if (info.writer == ESaveWriter::kProject)
        return m_session.SaveProject(path, withHistory) ? ESaveOutcome::kWritten : ESaveOutcome::kFailed;

    CComposeDocument& doc = m_app.Document();
    auto fail = [this, &info] {
        m_services.MessageBox(QString::fromStdString(GetString(info.failureKey)), EMsgButtons::kOk, EMsgIcon::kWarning,
                              QString());
        return ESaveOutcome::kFailed;
    };
    SaveSources sources;
    COLImage composite;
    const CLayer* layer = doc.GetCurrentLayer();
    {
        // The merge thread must not change the layers while they are read.
        CStackLock lock(doc);
        if (info.source == ESaveSource::kComposite) {
            if (!ComposeForSave(doc, composite)) return fail();
            sources.composite = &composite;
        } else if (info.source == ESaveSource::kDocument) {
            sources.stack = &doc;
        } else if (m_pLayerPicture) {
            sources.layerPicture = m_pLayerPicture;
        } else if (layer) {
            sources.layerPicture = &layer->m_image;
            sources.gbkLayerName = layer->m_name;
        }
    }
    ExportOptions options;
    if (choice == ESaveChoice::kCompositeJpeg) {
        int quality = 0;
        if (!askJpegQuality || !askJpegQuality(composite, quality)) return ESaveOutcome::kAbandoned;
        options.jpegQuality = quality;
    }
    long result;
    {
        CStackLock lock(doc);
        result = WriteSaveChoice(choice, path, sources, options);
    }
    return result == kOk ? ESaveOutcome::kWritten : fail();
}
