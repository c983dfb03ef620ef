#include "matting/batch_file_process.h"

#include "imaging/codec.h"
#include "matting/refined_key.h"

long CBatchFileProcess::Fail(const std::string& reason)
{
    m_reason = reason;
    return kFail;
}

long CBatchFileProcess::Process(const void* params)
{
    m_reason.clear();
    m_output.clear();
    m_cancelled = false;
    m_source.Free();
    m_result.Free();
    if (!params) return Fail("no settings");
    const BatchFileParams p = *static_cast<const BatchFileParams*>(params);
    COLImageCodec codec;
    if (!codec.LoadFile(p.path.c_str(), &m_source) || m_source.IsNull()) {
        m_source.Free();
        return Fail("cannot read the picture");
    }
    if (TestAndClearCancel()) {
        m_cancelled = true;
        return Fail("cancelled");
    }
    m_colour = batchkey::ColourOfFile(m_source, p.settings);
    ChromaKeySettings key = p.review;
    if (p.write) key.params = batchkey::UnattendedParams(m_colour);
    key.params.backdrop = m_colour;
    // The batch's choice holds for every photo; under review the page's own choice may add it.
    key.refine = (p.settings.refine || (!p.write && p.review.refine)) ? 1 : 0;
    // The engine reports 0..100 of this file into the range the caller gave.
    if (RunBackdropKey(key, m_source, m_result, GetProgressCallback()) != kOk || m_result.IsNull())
        return Fail("keying failed (out of memory?)");
    if (!p.write) return kOk;
    if (TestAndClearCancel()) {
        m_cancelled = true;
        return Fail("cancelled");
    }
    m_output = batchkey::OutputPath(p.settings.outputDir, p.path, p.settings.affix, p.settings.affixIsPrefix);
    if (!codec.SaveFileWithAlpha(m_output.c_str(), &m_result)) return Fail("cannot write " + m_output);
    return kOk;
}
