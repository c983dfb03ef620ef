#include "effects/smart_inpaint_dialog.h"

#include "commands/history_sink.h"
#include "document/layer.h"
#include "runtime/status.h"

const vmparam::ParamTable& InpaintParamTable()
{
    static const vmparam::ParamTable table{
        "inpaint",
        {vmparam::Int("block", vmparam::At<&SmartInpaintSettings::blockSize>(), 0,
                      CPatchInpaintProcess::kMaxBlockSize,
                      "tile edge in pixels, 8 to 64; 0 measures it from the hole"),
         vmparam::Flag("nofeather", vmparam::At<&SmartInpaintSettings::feather>(), 0,
                       "paste with a hard edge instead of blending into the picture around the hole"),
         vmparam::Flag("exact", vmparam::At<&SmartInpaintSettings::exact>(), 1,
                       "the classic arithmetic: the softened mask blends the samples with what the hole held, exact "
                       "matches are passed over, a hole at the edge may take black from the border"),
         vmparam::Flag("refine", vmparam::At<&SmartInpaintSettings::method>(), kInpaintStructure,
                       "structure-aware fill: continues edges and large shapes across the hole (slower; takes none "
                       "of --block, --nofeather, --exact)")}};
    return table;
}

long CInpaintRun::Prepare(const SmartInpaintSettings& settings, const COLChannel* mask)
{
    m_method = settings.method;
    switch (settings.method) {
    case kInpaintClassic:
        m_classicParams = InpaintParams{};
        m_classicParams.mask = mask;
        m_classicParams.blockSize = settings.blockSize > 0 ? settings.blockSize
                                    : mask                 ? CPatchInpaintProcess::EstimateBlockSize(*mask)
                                                           : CPatchInpaintProcess::kMinBlockSize;
        m_classicParams.featherMask = settings.feather ? 1 : 0;
        m_classicParams.exact = settings.exact ? 1 : 0;
        return kOk;
    case kInpaintStructure:
        m_structureParams = ExemplarInpaintParams{};
        m_structureParams.mask = mask;
        return mask ? kOk : kFail;
    default:
        return kFail;
    }
}

CImageProcess& CInpaintRun::GetProcess()
{
    if (m_method == kInpaintStructure) return m_structure;
    return m_classic;
}

const void* CInpaintRun::GetParams() const
{
    if (m_method == kInpaintStructure) return &m_structureParams;
    return &m_classicParams;
}

bool CSmartInpaintDlg::Open(CComposeDocument& document, std::string& messageKey)
{
    m_pDocument = nullptr;
    CLayer* layer = document.GetCurrentLayer();
    if (document.GetCurrentIndex() != 0 || !layer || layer->m_image.IsNull()) {
        messageKey = "onlybaselayer";
        return false;
    }
    SaveImage(&layer->m_image);
    if (m_savedImage.IsNull()) {
        messageKey = "inpainterr";
        return false;
    }
    m_pDocument = &document;
    settings.feather = 1;
    const COLChannel& mask = document.GetSelectionMask();
    m_blockSize =
        mask.IsNull() ? CPatchInpaintProcess::kMinBlockSize : CPatchInpaintProcess::EstimateBlockSize(mask);
    return true;
}

bool CSmartInpaintDlg::Run(IHistorySink* history, const ProcessRunner& runner, std::string& messageKey)
{
    if (!m_pDocument) {
        messageKey = "inpainterr";
        return false;
    }
    m_pHistory = history;
    m_runner = runner;
    m_succeeded = false;
    // One run, once the worker is free: nothing else may be cancelled on this dialog's account.
    m_thread.WaitIdle();
    UpdateData();
    StartProcess();
    if (!m_succeeded && !m_run.WasCancelled()) messageKey = "inpainterr";
    return m_succeeded;
}

void CSmartInpaintDlg::StartProcess()
{
    const COLChannel& mask = m_pDocument->GetSelectionMask();
    SmartInpaintSettings s = settings;
    if (s.blockSize <= 0) s.blockSize = m_blockSize;
    long result = m_run.Prepare(s, mask.IsNull() ? nullptr : &mask);
    if (result == kOk) {
        // The layer is not touched while the run works: the result goes to a picture of its own.
        m_run.GetProcess().SetImages(&m_savedImage, &m_result);
        result = m_runner ? m_runner(m_run.GetProcess(), m_run.GetParams()) : kFail;
    }
    OnProcessFinished(0, result);
}

void CSmartInpaintDlg::OnProcessFinished(uint32_t userValue, long result)
{
    m_lastResult = result;
    CLayer* layer = m_pDocument ? m_pDocument->GetCurrentLayer() : nullptr;
    if (result == kOk && layer && !m_result.IsNull()) {
        {
            CStackLock lock(*m_pDocument);
            layer->m_image = std::move(m_result);
        }
        if (m_pHistory) m_pHistory->AddStep(m_pDocument, kStepLayerHeaderRegion, m_pDocument->GetCurrentIndex(), "inpaint");
        m_pDocument->Refresh();
        m_succeeded = true;
    } else {
        // The cancel path: wait for the worker, put the saved picture back.
        Close(false);
        if (m_pDocument) m_pDocument->Refresh();
    }
    DefaultProcDlg::OnProcessFinished(userValue, result);
}
