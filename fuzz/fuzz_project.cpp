// Project files (".vmpd") through OpenProject with a history, as the editor opens them, then undo and redo
// across the whole loaded log and a merge of what came out.

#include "commands/history_log.h"
#include "commands/project_stream.h"
#include "document/compositor.h"
#include "document/layer_stack.h"
#include "fuzz_input.h"
#include "imaging/image.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static vmfuzz::CInputFile file("vmpd");
    static CComposeHistory history;
    static const bool ready = history.Init() != 0;
    if (!ready || !vmfuzz::WriteInput(file.path, data, size)) return 0;

    CLayerStack document;
    if (OpenProject(document, &history, file.path.c_str())) {
        const int steps = history.GetCount();
        history.JumpTo(1);
        history.JumpTo(steps);
        // Merging a document of the largest sides takes 1.6 GB; that is allowed, but not worth the fuzzer's time.
        if (static_cast<int64_t>(document.GetWidth()) * document.GetHeight() <= 1 << 22) {
            COLImage merged;
            MergeLayers(&document, &merged, 0);
        }
    }
    // Even a refused file may have left the history following this document; it ends here.
    history.SetDocument(nullptr);
    return 0;
}
