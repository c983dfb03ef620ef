#include "shell/app_globals.h"

#include <cstring>
#include <strings.h>

#include "imaging/codec.h"
#include "imaging/gbk_text.h"
#include "shell/app_paths.h"

namespace {
CAppGlobals* g_pApp = nullptr;
const char* const kIntSection = "Int";
const char* const kStrSection = "Str";
} // namespace

CAppGlobals* AppGlobals()
{
    return g_pApp;
}

int ProfileIntDefault(const std::string& key)
{
    struct Default {
        const char* key;
        int value;
    };
    static const Default kDefaults[] = {
        {"ForeColor", 0},
        {"AfterOpenWizard", 1},
        {"PureBk", 1},
        {"DbSel", 1},
        {"Check Result", 1},
        {"bkcolor", -8355712},
        {"bkblocktype", 1},
        {"DarkColor", 0},
        {"LightColor", 0xFFFFFF},
        {"FontColor", 0},
        {"BackColor", 0xD2D2D2},
        {"BackLightColor", 0xF0F0F0},
        {"BackDarkColor", 0x808080},
    };
    for (const Default& d : kDefaults)
        if (strcasecmp(d.key, key.c_str()) == 0) return d.value;
    auto endsWith = [&](const char* suffix) {
        const size_t n = std::strlen(suffix);
        return key.size() > n && strcasecmp(key.c_str() + key.size() - n, suffix) == 0;
    };
    if (endsWith("_BrushSize")) return 9;
    if (endsWith("_BrushSoft")) return 50;
    if (endsWith("_BrushAlpha")) return 100;
    return 0; // "HisColor0" to "HisColor5" and anything else
}

std::string GetString(const std::string& key)
{
    return g_pApp ? g_pApp->GetString(key) : std::string();
}

CAppGlobals::CAppGlobals()
{
    g_pApp = this;
    m_commandContext.document = &m_composeDocument;
}

CAppGlobals::~CAppGlobals()
{
    if (m_initialised) SetProfileInt("ForeColor", static_cast<int>(m_foreColor.Word() & 0xFFFFFF));
    // A process still running is asked to stop and its thread ends before anything it may use goes.
    m_worker.reset();
    // The logs delete their files; then the document stops its merge thread as it goes.
    m_commandContext.history = nullptr;
    m_composeHistory.reset();
    m_selectionHistory.reset();
    m_composeDocument.SetView(nullptr);
    if (g_pApp == this) g_pApp = nullptr;
}

int CAppGlobals::Init(const AppInitOptions& options)
{
    int result = 1;

    // Work folder and profile.
    if (options.workDir.empty()) {
        const std::string exeDir = ExecutableDirectory();
        std::vector<std::string> candidates = {exeDir, exeDir + "../share/velmorando"};
#ifdef VM_ASSETS_DIR
        candidates.push_back(VM_ASSETS_DIR); // running from a build tree
#endif
        m_workDir = FindWorkDir(candidates);
    } else {
        m_workDir = WithTrailingSlash(options.workDir);
    }
    m_profilePath = options.profilePath.empty() ? DefaultProfilePath() : options.profilePath;
    m_profile.Load(m_profilePath);

    // Texts.
    const std::string choice =
        options.language.empty() ? m_profile.GetStr(kStrSection, "Language", "") : options.language;
    m_language = ChooseLanguage(choice, CurrentMessageLocale());
    FillStringTable(m_stringTable, m_language);
    // New layers are named in the language of the interface; the Chinese names are the document's own.
    if (m_language != ETextLanguage::kChinese) {
        std::string background, pattern;
        if (Utf8ToGbk(GetString("layerbackground"), background) && Utf8ToGbk(GetString("layername"), pattern))
            m_composeDocument.SetDefaultNames(background, pattern);
    }

    // The worker thread exists from here to the end.
    if (!m_worker) m_worker = std::make_unique<CProcessThread>();

    m_foreColor = CPixel::FromWord(static_cast<uint32_t>(GetProfileInt("ForeColor")));
    m_foreColor.alpha = 255;
    m_commandContext.foreground = m_foreColor.Word();

    // The two undo logs; each deletes logs of earlier days as it starts. Without one the program still runs, but
    // cannot undo in that mode.
    m_composeHistory = std::make_unique<CComposeHistory>();
    if (m_composeHistory->Init()) {
        m_composeHistory->SetDocument(&m_composeDocument);
        m_composeHistory->SetLabelSource([this](const char* key) {
            std::string gbk;
            return Utf8ToGbk(GetString(key), gbk) ? gbk : std::string(key);
        });
        m_commandContext.history = m_composeHistory.get();
    } else {
        m_composeHistory.reset();
        result = 0;
    }
    m_selectionHistory = std::make_unique<CSelectionHistory>();
    if (!m_selectionHistory->Init()) {
        m_selectionHistory.reset();
        result = 0;
    }

    // The companion photo editor: a path in the profile, else the program on PATH.
    m_companionExe = FindOnPath(GetProfileStr("OmbraLens", "ombralens"));

    if (m_buttonStates.LoadFromFile(GetSkinPath("btnst.bmp").c_str()) != kOk) {
        m_buttonStates.Free();
        result = 0;
    }

    // Shared skin pictures; a missing one leaves its part with a plain fill.
    COLImageCodec codec;
    COLImage* pictures[] = {&m_panelBack, &m_sliderThumb, &m_sliderBar};
    const char* names[] = {"panelbk.png", "slider.png", "sliderbar.png"};
    for (int i = 0; i < 3; ++i)
        if (!codec.LoadFile(GetSkinPath(names[i]).c_str(), pictures[i])) {
            pictures[i]->Free();
            result = 0;
        }

    m_initialised = true;
    return result;
}

std::string CAppGlobals::GetString(const std::string& key) const
{
    if (strcasecmp(key.c_str(), "Workdir") == 0) return m_workDir;
    if (strcasecmp(key.c_str(), "Profile") == 0) return m_profilePath;
    if (const StringRow* row = FindStringRow(m_stringTable, key)) return row->m_text;
    return m_profile.GetStr(kStrSection, key, "");
}

int CAppGlobals::GetProfileInt(const std::string& key, int defaultValue) const
{
    return m_profile.GetInt(kIntSection, key, defaultValue);
}

bool CAppGlobals::SetProfileInt(const std::string& key, int value)
{
    return m_profile.SetInt(kIntSection, key, value);
}

std::string CAppGlobals::GetProfileStr(const std::string& key, const std::string& defaultValue) const
{
    return m_profile.GetStr(kStrSection, key, defaultValue);
}

bool CAppGlobals::SetProfileStr(const std::string& key, const std::string& value)
{
    return m_profile.SetStr(kStrSection, key, value);
}
