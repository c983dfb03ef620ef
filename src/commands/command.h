#pragma once

#include <cstdint>
#include <string>
#include <vector>

class CComposeDocument;
class CSelectionDocument;
class IHistorySink;
class IHistoryNavigator;

// Results of ExecuteCommand.
inline constexpr int kCommandDone = 0;         // executed, or a well-formed name that matched nothing
inline constexpr int kCommandUnparsable = -1;
inline constexpr int kCommandRefused = static_cast<int>(0x80004005u);

inline constexpr size_t kCommandTextLimit = 512;   // texts must be shorter
inline constexpr size_t kCommandNameLimit = 63;    // bytes of the name
inline constexpr size_t kCommandArgLimit = 32;     // characters of one argument

// A command text parsed: "Name('arg1','arg2')". The name is upper-cased by ExecuteCommand.
struct CCommand {
    std::string name;
    std::vector<std::string> args;
};

// Parses a command text; false when it does not follow the grammar. Any earlier arguments are dropped.
bool ParseCommand(const char* text, CCommand& command);

// Lenient number reading: skips to the first digit, takes a "+" or "-" right before it, then the digits.
// "x12" reads as 12. False without a digit or when the number does not fit an int.
bool ParseIntField(const char* text, int& out);

// What commands need from the application around the document: dialogs, clipboard, view and tools. The Qt shell
// implements it; commands whose work needs a missing piece are refused.
class ICommandHost {
public:
    // The clipboard: copy the current visible layer; paste as a new layer (adds its own history step).
    virtual bool CopyToClipboard(CComposeDocument& document) = 0;
    virtual bool PasteFromClipboard(CComposeDocument& document, IHistorySink* history) = 0;
    // The open dialogs. documentFilter: any document (projects too); else plain pictures. False when cancelled.
    virtual bool AskOpenPath(bool documentFilter, std::string& path) = 0;
    // Modal dialogs that add their own history step; false when cancelled or failed.
    virtual bool RunFillDialog() = 0;
    virtual bool RunInpaintDialog() = 0;
    // A message box with the text of a string key.
    virtual void ShowMessage(const char* key) = 0;
    // Zoom of the canvas: +1 one stage in, -1 one stage out, 0 fit the picture.
    virtual bool Zoom(int direction) = 0;
    // Cancels the active tool as Escape does.
    virtual void CancelTool() = 0;
    // True while the canvas shows the selection document rather than the compose document.
    virtual bool IsSelectionMode() = 0;
    // The selection-mode history and the refresh of the selection document.
    virtual IHistoryNavigator* GetSelectionHistory() = 0;
    virtual void RefreshSelectionDocument() = 0;
    // Panels show the new layer list and history.
    virtual void UpdatePanels() = 0;
    // The selection document of selection mode, for the commands that change its result mask; null where there
    // is none.
    virtual CSelectionDocument* GetSelectionDocument() { return nullptr; }

protected:
    ~ICommandHost() = default;
};

// Everything a command works on. history and host may be null: steps are then not recorded, and commands that
// need the host are refused.
struct CCommandContext {
    CComposeDocument* document = nullptr;
    IHistorySink* history = nullptr;
    ICommandHost* host = nullptr;
    uint32_t foreground = 0xFF000000;   // the application's foreground colour, used by the delete commands
    std::string documentPath;           // the path of the open document, set by OpenDocumentFile
};

// Runs one command text: 0 done (or nothing matched), -1 unparsable, kCommandRefused when a handler failed.
// Runs on the user-interface thread only.
int ExecuteCommand(CCommandContext& context, const char* text);

// Opens a picture or a project as the document. A picture resets the history and records the opening; a project
// brings its saved history along when the context's history is the compose log, else it is recorded as opened.
// 0, or kCommandRefused after the "can't open" message.
int OpenDocumentFile(CCommandContext& context, const char* path);

// The two dispatchers, for a parsed command whose name is upper-cased.
int DispatchDocCommand(CCommandContext& context, const CCommand& command);
int DispatchUiCommand(CCommandContext& context, const CCommand& command);
