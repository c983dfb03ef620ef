// The history block of a project (record count, current step, records, log bytes) through
// CHistoryLog::LoadFrom, then every step replayed onto a small document, forward and back.

#include <cstdio>

#include "commands/history_log.h"
#include "commands/history_sink.h"
#include "document/layer_stack.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static vmfuzz::CInputFile file("vmh-block");
    static CComposeHistory history;
    static const bool ready = history.Init() != 0;
    if (!ready || !vmfuzz::WriteInput(file.path, data, size)) return 0;

    CLayerStack document;
    if (!document.NewDocument(16, 12, 0xFF336699)) return 0;
    history.SetDocument(&document);
    FILE* f = std::fopen(file.path.c_str(), "rb");
    if (!f) return 0;
    const bool loaded = history.LoadFrom(f) != 0;
    std::fclose(f);
    if (loaded) {
        history.RebuildTrackers();
        const int steps = history.GetCount();
        // Bounded: every jump replays from the nearest snapshot, so walking a long log step by step is quadratic.
        for (int step = 0; step <= steps && step < 64; ++step) history.JumpTo(step);
        for (int step = steps; step > 0 && step > steps - 64; --step) history.JumpTo(step);
        // A new step after a loaded log is written behind its payloads.
        history.AddStep(&document, kStepCurrentLayer, 0, "His_fuzz");
    }
    history.SetDocument(nullptr);
    return 0;
}
