#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "commands/command.h"
#include "commands/history_log.h"
#include "document/compose_document.h"
#include "imaging/image.h"
#include "imaging/pixel.h"
#include "matting/process_thread.h"
#include "shell/profile.h"
#include "shell/string_table.h"

// How the program finds its folders. Empty fields are worked out: the work folder from the executable's place,
// the profile from the XDG configuration folder, the language from the profile's "Language" or the locale.
struct AppInitOptions {
    std::string workDir;
    std::string profilePath;
    std::string language;
};

// The default of every number the program keeps in the profile's "Int" section: the foreground colour and the six
// recent colours, the four help-page switches, the selection-mode backdrop, the six skin colours (0xBBGGRR) and
// the brush settings "<tool>_BrushSize", "_BrushSoft", "_BrushAlpha". Keys it does not know give 0.
int ProfileIntDefault(const std::string& key);

// The application object: paths, settings, texts, and the objects every part of the program shares. One lives for
// the whole run; AppGlobals() answers it.
class CAppGlobals {
public:
    CAppGlobals();
    ~CAppGlobals();
    CAppGlobals(const CAppGlobals&) = delete;
    CAppGlobals& operator=(const CAppGlobals&) = delete;

    // The start-up steps in their order. Returns 0 when the program cannot run as designed (a history log could
    // not be made, or the button-state picture is missing); the caller carries on without what failed.
    int Init(const AppInitOptions& options = {});
    bool IsInitialised() const { return m_initialised; }

    // The text of a key: "Workdir" and "Profile" name the two paths; then the table; then the profile's "Str"
    // section; an unknown key gives the empty text.
    std::string GetString(const std::string& key) const;
    std::string GetSkinPath(const std::string& name) const { return m_workDir + "skin/" + name; }
    std::string GetHelpPath(const std::string& name) const { return m_workDir + "help/" + name; }

    int GetProfileInt(const std::string& key, int defaultValue) const;
    // With the program's own default for the key (ProfileIntDefault).
    int GetProfileInt(const std::string& key) const { return GetProfileInt(key, ProfileIntDefault(key)); }
    bool SetProfileInt(const std::string& key, int value);
    std::string GetProfileStr(const std::string& key, const std::string& defaultValue) const;
    bool SetProfileStr(const std::string& key, const std::string& value);

    const std::string& GetWorkDir() const { return m_workDir; }
    const std::string& GetProfilePath() const { return m_profilePath; }
    ETextLanguage GetLanguage() const { return m_language; }
    const std::vector<StringRow>& GetStringTable() const { return m_stringTable; }

    CComposeDocument& Document() { return m_composeDocument; }
    // Null when the log could not be made: the program then runs without undo.
    CComposeHistory* ComposeHistory() { return m_composeHistory.get(); }
    CSelectionHistory* SelectionHistory() { return m_selectionHistory.get(); }
    // The worker that runs long pixel work, one process at a time; null before Init.
    CProcessThread* Worker() { return m_worker.get(); }
    // What commands work on: the document, the compose history, and the host the main frame provides.
    CCommandContext& CommandContext() { return m_commandContext; }

    std::string m_workDir;
    std::string m_profilePath;
    std::vector<StringRow> m_stringTable;
    std::string m_companionExe; // the companion photo editor, empty when not installed
    uint32_t m_modalEdit = 0;   // 1 while the crop, transform or text tool holds an edit open
    CPixel m_foreColor{0, 0, 0, 255};
    COLImage m_buttonStates; // "btnst.bmp"
    COLImage m_panelBack, m_sliderThumb, m_sliderBar;

private:
    CComposeDocument m_composeDocument{1};
    std::unique_ptr<CProcessThread> m_worker;
    std::unique_ptr<CComposeHistory> m_composeHistory;
    std::unique_ptr<CSelectionHistory> m_selectionHistory;
    CCommandContext m_commandContext;
    CProfile m_profile;
    ETextLanguage m_language = ETextLanguage::kChinese;
    bool m_initialised = false;
};

// The live application object; null before one is constructed.
CAppGlobals* AppGlobals();

// The text of a key from the live application object (empty without one).
std::string GetString(const std::string& key);
