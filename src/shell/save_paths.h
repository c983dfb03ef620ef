#pragma once

#include <functional>
#include <string>

#include "imaging/image.h"
#include "shell/save_dlg.h"

class CAppGlobals;
class CDocumentSession;
class IUiServices;
class QWidget;

// Carries out a choice of the save dialog on the live document: the project through the document session, every
// picture through WriteSaveChoice (the export table or the PSD writers, each writing a temporary file that
// replaces the target only when complete). A failure shows the choice's failure text and loses nothing.
class CSavePaths {
public:
    CSavePaths(QWidget* parent, CAppGlobals& app, CDocumentSession& session, IUiServices& services);

    ESaveOutcome Save(ESaveChoice choice, const std::string& path, bool withHistory);

    // The layer exports take this picture (the cut-out of selection mode) instead of the current layer.
    void SetLayerPicture(const COLImage* picture) { m_pLayerPicture = picture; }

    // Asks for the JPEG writer's quality for the picture (the quality dialog by default); false when cancelled.
    std::function<bool(const COLImage& picture, int& writerQuality)> askJpegQuality;

private:
    QWidget* m_pParent;
    CAppGlobals& m_app;
    CDocumentSession& m_session;
    IUiServices& m_services;
    const COLImage* m_pLayerPicture = nullptr;
};
