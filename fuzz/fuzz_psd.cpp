// libFuzzer entry point for the PSD reader: the input is read as a Photoshop document from memory through a
// stream, exactly as a file would be. Build with clang++ -fsanitize=fuzzer,address,undefined and vm_core.
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "document/layer.h"
#include "document/layer_stack.h"
#include "interchange/psd_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0) return 0;
    FILE* stream = fmemopen(const_cast<uint8_t*>(data), size, "rb");
    if (!stream) return 0;
    CLayerStack stack;
    CPsdReader reader;
    const int loaded = reader.LoadStream(stream, stack);
    // A loaded document must be usable: a base at the document's size, every layer with pixels.
    if (loaded) {
        const CLayer* base = stack.GetLayer(0);
        if (!base || base->m_image.GetWidth() != uint32_t(stack.GetWidth()) ||
            base->m_image.GetHeight() != uint32_t(stack.GetHeight()))
            __builtin_trap();
        for (int i = 0; i < stack.GetLayerCount(); ++i)
            if (stack.GetLayer(i)->m_image.IsNull()) __builtin_trap();
    } else if (reader.GetError() != kPsdBadFile) {
        __builtin_trap();
    }
    std::fclose(stream);
    return 0;
}
