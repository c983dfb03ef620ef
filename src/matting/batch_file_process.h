#pragma once

#include <string>

#include "imaging/image.h"
#include "matting/batch_key.h"
#include "matting/chroma_key.h"
#include "matting/image_process.h"

// One file of a batch run as a processing object, so that the editor's batch dialog runs it on the worker while
// the window stays free, and the headless run does exactly the same steps: read the file, find its backdrop
// colour by the settings' mode, key it, and (unattended) write "<folder>/<prefix><title><suffix>.png".
struct BatchFileParams {
    std::string path;
    batchkey::Settings settings;
    // false: keep the result for review and write nothing. The key then uses `review`'s record, whose backdrop
    // is replaced by the file's colour; unattended runs use the unattended record (strength 32).
    bool write = true;
    ChromaKeySettings review;
};

class CBatchFileProcess : public CImageProcess {
public:
    // params: const BatchFileParams*. kOk, or kFail with GetReason() saying why (nothing is written then). A
    // cancel requested before the write stops the file there: its result is not written, and the reason is
    // "cancelled". The images given by SetImages are not used: the process owns what it reads and makes.
    long Process(const void* params) override;

    const std::string& GetReason() const { return m_reason; }
    const std::string& GetOutput() const { return m_output; }
    bool WasCancelled() const { return m_cancelled; }
    CPixel GetColour() const { return m_colour; }
    // The picture as read and its key; the caller may take them (std::move) once the run has ended.
    COLImage& Source() { return m_source; }
    COLImage& Result() { return m_result; }

private:
    long Fail(const std::string& reason);

    COLImage m_source;
    COLImage m_result;
    CPixel m_colour{0, 0, 0, 255};
    std::string m_reason;
    std::string m_output;
    bool m_cancelled = false;
};
