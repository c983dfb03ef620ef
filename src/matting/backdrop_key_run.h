#pragma once

#include "matting/chroma_key.h"
#include "matting/refined_key.h"

// One backdrop key run as a worker takes it: the classic or the refined process, chosen by the settings'
// `refine`, with the record it reads. The panel's live preview and the backdrop picker hand this to the worker;
// RunBackdropKey is the same choice for a direct call, so both give the same bytes.
class CBackdropKeyRun {
public:
    // Copies the settings (the record must outlive the run; this object holds it) and answers the process.
    CImageProcess& Prepare(const ChromaKeySettings& settings)
    {
        m_settings = settings;
        if (settings.refine) return m_refined;
        m_classic.SetLumaStrength(settings.lumaStrength);
        return m_classic;
    }
    CImageProcess& GetProcess() { return m_settings.refine ? static_cast<CImageProcess&>(m_refined) : m_classic; }
    // The record the prepared process reads: ChromaKeyParams for the classic key, ChromaKeySettings for the
    // refined one.
    const void* GetParams() const
    {
        return m_settings.refine ? static_cast<const void*>(&m_settings) : static_cast<const void*>(&m_settings.params);
    }
    const ChromaKeySettings& GetSettings() const { return m_settings; }

private:
    ChromaKeySettings m_settings;
    CChromaKeyProcess m_classic;
    CRefinedKeyProcess m_refined;
};
