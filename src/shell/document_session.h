#pragma once

#include <cstdint>
#include <string>

class CAppGlobals;

// The three answers to the question before the document is replaced or the program ends.
enum class EDiscardChoice { kSave, kDiscard, kCancel };

// What the session asks of the window: the user's answers and the messages. The main frame shows real dialogs;
// tests answer from a script.
class ISessionPrompts {
public:
    // The "savewar" question, offering Save, Discard and Cancel. Closing the box counts as Cancel.
    virtual EDiscardChoice AskDiscard() = 0;
    // The project file to save to before the document goes; false when cancelled.
    virtual bool AskProjectPath(std::string& path) = 0;
    // A message box with the text of a string key.
    virtual void ShowMessage(const char* key) = 0;

protected:
    ~ISessionPrompts() = default;
};

// The open document as a file: open, new picture, the host's picture, close, save as a project, and whether
// anything would be lost. It works on the application's document, logs and command context and knows no window;
// the frame shows the result (canvas, menus, title) after each call.
class CDocumentSession {
public:
    CDocumentSession(CAppGlobals& app, ISessionPrompts& prompts);

    bool HasDocument() const;
    // The file the document came from or was saved to; empty for a new or the host's picture.
    const std::string& Path() const;

    // A change since the last open, new picture or save. Undoing back to that state is no change; a different
    // step made after an undo is one, even with the same number of steps.
    bool IsModified() const;
    void MarkUnmodified();

    // True when the document may be replaced: nothing would be lost, the user chose Discard, or chose Save and the
    // project was written. False for Cancel and after a failed or cancelled save.
    bool CheckDiscard();

    // These replace the document without a question; ask CheckDiscard first. Each reports its failure itself.
    // A picture or project as the document. An unreadable picture leaves the open document as it was.
    bool Open(const std::string& path);
    // A white picture of the given size.
    bool NewPicture(int width, int height);
    // The host plug-in's exchange file; the file is deleted whatever happens. bytesPerPixel, when given, gets
    // the file's 3 or 4 (the form the host wants its result in).
    bool OpenHostImage(const std::string& path, uint32_t* bytesPerPixel = nullptr);
    // Empties the document and both logs.
    void Close();

    // Writes the project; its path becomes the document's. False after the "saveerr" message.
    bool SaveProject(const std::string& path, bool withHistory);

private:
    // The state the history is in: the current step and where that step's record lies in the log.
    struct Mark {
        int step = 0;
        uint32_t offset = 0;
    };
    Mark CurrentMark() const;
    void Started(); // a fresh document: the log holds its one opening step, and nothing is modified

    CAppGlobals& m_app;
    ISessionPrompts& m_prompts;
    Mark m_mark;
};
