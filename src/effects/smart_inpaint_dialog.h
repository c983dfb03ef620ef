#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "document/compose_document.h"
#include "effects/exemplar_inpaint.h"
#include "effects/patch_inpaint.h"
#include "matting/default_proc_dlg.h"
#include "runtime/param_table.h"

class IHistorySink;

// Smart inpaint: the methods, their settings, and the dialog without its window.

// The methods a user can choose. A new method adds a value here and a case in CInpaintRun::Prepare; the dialog
// and the command line both go through that one switch.
enum EInpaintMethod : int32_t {
    kInpaintClassic = 0,   // block quilting, CPatchInpaintProcess
    kInpaintStructure = 1, // structure-aware fill, CExemplarInpaintProcess
};

// What the dialog's controls and the command line's options set.
struct SmartInpaintSettings {
    int32_t method = kInpaintClassic;
    int32_t feather = 1;   // the check box "feather the selection for a natural transition", initially checked
    int32_t exact = 0;     // the classic arithmetic byte for byte (see InpaintParams::exact)
    int32_t blockSize = 0; // 0: measured from the hole with EstimateBlockSize
    // feather, exact and blockSize belong to block quilting; the structure-aware fill has no settings to choose.
};
// block, nofeather, exact and refine (the structure-aware fill) over SmartInpaintSettings.
const vmparam::ParamTable& InpaintParamTable();

// Turns settings into a process and its record: the one place where the method is chosen.
class CInpaintRun {
public:
    // kOk, or kFail for a method that does not exist. mask (the hole: bytes above 127) must outlive the run.
    long Prepare(const SmartInpaintSettings& settings, const COLChannel* mask);
    CImageProcess& GetProcess();
    const void* GetParams() const;
    // The tile edge the run uses (measured when the settings leave it at 0).
    int32_t GetBlockSize() const { return m_classicParams.blockSize; }
    int32_t GetMethod() const { return m_method; }
    // True when the last run was the structure-aware fill and stopped on a cancel request; it then filled nothing,
    // which is no failure to report.
    bool WasCancelled() const { return m_method == kInpaintStructure && m_structure.WasCancelled(); }

private:
    int32_t m_method = kInpaintClassic;
    CPatchInpaintProcess m_classic;
    InpaintParams m_classicParams;
    CExemplarInpaintProcess m_structure;
    ExemplarInpaintParams m_structureParams;
};

// How a dialog hands a process to the worker and waits for its end: the editor shows the wait dialog, tests and
// the command line may run it directly. Answers the process's result.
using ProcessRunner = std::function<long(CImageProcess& process, const void* params)>;

// The smart inpaint dialog's logic. Open saves the base layer's picture; Run fills the selection from the rest of
// the picture into a picture of its own, which replaces the layer's only when the run succeeded (a cancelled run
// keeps what it filled), with one history step of kind 4 labelled "inpaint". The document's selection is only
// read: a failed run leaves both the layer and the selection as they were.
class CSmartInpaintDlg : public DefaultProcDlg {
public:
    // The string keys of its texts: title, check box and note (the English table holds their English texts).
    static constexpr const char* kTitleKey = "inpaint";
    static constexpr const char* kFeatherKey = "inpaintfeather";
    static constexpr const char* kNoteKey = "inpaintnote";

    CSmartInpaintDlg(CProcessThread& thread, IUiPoster& ui) : DefaultProcDlg(thread, ui) {}

    // On opening: false with "onlybaselayer" unless the base layer is current (and has a picture). Saves the
    // layer's picture and measures the tile edge of the document's selection.
    bool Open(CComposeDocument& document, std::string& messageKey);
    // OK: runs the method through runner. True when the layer holds the result; else false with "inpainterr"
    // and the layer put back (with no message key when the user cancelled the structure-aware fill).
    bool Run(IHistorySink* history, const ProcessRunner& runner, std::string& messageKey);

    SmartInpaintSettings settings;
    int32_t GetBlockSize() const { return m_blockSize; }
    long GetLastResult() const { return m_lastResult; }

    void StartProcess() override;
    void OnProcessFinished(uint32_t userValue, long result) override;

private:
    CComposeDocument* m_pDocument = nullptr;
    IHistorySink* m_pHistory = nullptr;
    ProcessRunner m_runner;
    CInpaintRun m_run;
    COLImage m_result;
    int32_t m_blockSize = 8;
    long m_lastResult = kOk;
    bool m_succeeded = false;
};
