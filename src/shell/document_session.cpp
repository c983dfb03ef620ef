#include "shell/document_session.h"

#include <cstdio>

#include "commands/project_stream.h"
#include "document/layer.h"
#include "imaging/codec.h"
#include "shell/app_globals.h"
#include "shell/command_line.h"

CDocumentSession::CDocumentSession(CAppGlobals& app, ISessionPrompts& prompts) : m_app(app), m_prompts(prompts) {}

bool CDocumentSession::HasDocument() const
{
    return m_app.Document().GetLayerCount() > 0;
}

const std::string& CDocumentSession::Path() const
{
    return m_app.CommandContext().documentPath;
}

CDocumentSession::Mark CDocumentSession::CurrentMark() const
{
    CComposeHistory* h = m_app.ComposeHistory();
    // Without a log only the document's own change counter can tell.
    if (!h) return {0, m_app.Document().GetModificationCount()};
    Mark m;
    m.step = h->GetCurrentStep();
    // A step made after an undo lands at a new place in the log, so the same step number with another offset is
    // another state.
    const CHistoryRecord* r = m.step > 0 ? h->GetRecord(m.step - 1) : nullptr;
    m.offset = r ? r->offset : 0;
    return m;
}

bool CDocumentSession::IsModified() const
{
    const Mark now = CurrentMark();
    return now.step != m_mark.step || now.offset != m_mark.offset;
}

void CDocumentSession::MarkUnmodified()
{
    m_mark = CurrentMark();
}

bool CDocumentSession::CheckDiscard()
{
    if (!HasDocument() || !IsModified()) return true;
    switch (m_prompts.AskDiscard()) {
    case EDiscardChoice::kDiscard:
        return true;
    case EDiscardChoice::kCancel:
        return false;
    case EDiscardChoice::kSave:
        break;
    }
    // Saved as a project, the only file that keeps everything. The document's own file is reused only when it is
    // one: a photo opened from a JPEG must not be overwritten by a project.
    std::string path = Path();
    if (path.empty() || COLImageCodec::GetFileType(path.c_str()) != kFileProject) {
        path.clear();
        if (!m_prompts.AskProjectPath(path) || path.empty()) return false;
    }
    return SaveProject(path, false);
}

void CDocumentSession::Started()
{
    CComposeDocument& doc = m_app.Document();
    if (CComposeHistory* h = m_app.ComposeHistory()) {
        h->Reset();
        h->AddStep(&doc, kStepWholeDocument, 0, "His_open");
    }
    doc.Refresh();
    MarkUnmodified();
}

bool CDocumentSession::Open(const std::string& path)
{
    CCommandContext& context = m_app.CommandContext();
    const uint32_t type = COLImageCodec::GetFileType(path.c_str());
    // Opening a picture clears the document first: a picture that turns out unreadable must not cost the open
    // one. (The project reader checks the whole file before it replaces anything.)
    if (type != kFileProject && HasDocument()) {
        COLImage probe;
        if (!COLImageCodec().LoadFile(path.c_str(), &probe)) {
            m_prompts.ShowMessage("can't open");
            return false;
        }
    }
    const std::string oldPath = Path();
    // The session says "can't open" itself, once, whoever the command's host is.
    ICommandHost* host = context.host;
    context.host = nullptr;
    const bool ok = OpenDocumentFile(context, path.c_str()) == kCommandDone;
    context.host = host;
    if (!ok) {
        // A failed project left the document as it was, and with it its file.
        if (HasDocument()) context.documentPath = oldPath;
        m_prompts.ShowMessage("can't open");
        return false;
    }
    context.documentPath = path;
    MarkUnmodified();
    return true;
}

bool CDocumentSession::NewPicture(int width, int height)
{
    CComposeDocument& doc = m_app.Document();
    bool ok;
    {
        CStackLock lock(doc);
        doc.Clear();
        ok = doc.NewDocument(width, height, 0xFFFFFFFFu) == 1;
    }
    m_app.CommandContext().documentPath.clear();
    if (!ok) {
        Close();
        m_prompts.ShowMessage("except");
        return false;
    }
    Started();
    return true;
}

bool CDocumentSession::OpenHostImage(const std::string& path, uint32_t* bytesPerPixelOut)
{
    CComposeDocument& doc = m_app.Document();
    COLImage picture;
    uint32_t bytesPerPixel = 3;
    const bool read = ReadHostImage(path, picture, m_app.m_foreColor.Word(), bytesPerPixel);
    std::remove(path.c_str()); // the host's exchange file goes whatever happened
    if (!read) return false;
    if (bytesPerPixelOut) *bytesPerPixelOut = bytesPerPixel;
    {
        CStackLock lock(doc);
        doc.Clear();
        if (!doc.NewDocument(int(picture.GetWidth()), int(picture.GetHeight()), m_app.m_foreColor.Word())) return false;
        doc.GetLayer(0)->m_image = std::move(picture);
        doc.SyncSizeToBase();
    }
    m_app.CommandContext().documentPath.clear();
    Started();
    return true;
}

void CDocumentSession::Close()
{
    CComposeDocument& doc = m_app.Document();
    {
        CStackLock lock(doc);
        doc.Clear();
    }
    doc.Refresh();
    if (CComposeHistory* h = m_app.ComposeHistory()) h->Reset();
    if (CSelectionHistory* h = m_app.SelectionHistory()) h->Reset();
    m_app.CommandContext().documentPath.clear();
    MarkUnmodified();
}

bool CDocumentSession::SaveProject(const std::string& path, bool withHistory)
{
    if (::SaveProject(m_app.Document(), m_app.ComposeHistory(), path.c_str(), withHistory ? 1 : 0) != 1) {
        m_prompts.ShowMessage("saveerr");
        return false;
    }
    m_app.CommandContext().documentPath = path;
    MarkUnmodified();
    return true;
}
