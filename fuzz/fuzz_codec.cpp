// One picture format through COLImageCodec::LoadFile. Built once per format with VM_FUZZ_EXTENSION set to the
// extension the input file gets, so that the formats without a signature (TGA) are reached the way a user's
// file reaches them.

#include "fuzz_input.h"
#include "imaging/codec.h"

#ifndef VM_FUZZ_EXTENSION
#error "VM_FUZZ_EXTENSION names the file extension of the format under test"
#endif

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static vmfuzz::CInputFile file(VM_FUZZ_EXTENSION);
    if (!vmfuzz::WriteInput(file.path, data, size)) return 0;
    COLImageCodec codec;
    COLImage image;
    if (codec.LoadFile(file.path.c_str(), &image)) {
        // A successful load must hand back a whole picture within the side limit.
        if (image.IsNull() || image.GetWidth() > kMaxImageSide || image.GetHeight() > kMaxImageSide) __builtin_trap();
        // Read the last pixel, so that a buffer shorter than its sides shows up under AddressSanitizer. (Not
        // every pixel: a loop here is instrumented, and a large legitimate screen would then time out.)
        volatile uint8_t last = image.GetBuffer()[image.GetPixelCount() - 1].alpha;
        (void)last;
    } else if (!image.IsNull()) {
        __builtin_trap();   // a failed load leaves the image empty
    }
    return 0;
}
