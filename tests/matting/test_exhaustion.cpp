// Engines that run out of memory fail with kFail instead of ending the program, and leave the picture they were
// given as it was. Each attempt runs in a child process under an address-space limit.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <sys/resource.h>
#include <vector>

#include "effects/bicubic_scale.h"
#include "matting/chroma_key.h"
#include "matting/gaussian.h"
#include "runtime/parallel_for.h"
#include "support/engine_checks.h"
#include "support/limited_child.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"


namespace {

enum Outcome { kSucceeded = 0, kFailedCleanly = 1, kWrongResult = 2, kPictureChanged = 3, kNoLimit = 4 };

// A green backdrop with an orange block, so that the hue path runs; large enough that a run needs tens of
// megabytes beyond its picture, split over the pool.
void MakePhoto(COLImage& photo)
{
    vmtest::FillNoise(photo, 1600, 1200, 3);
    for (uint32_t y = 0; y < 1200; ++y)
        for (uint32_t x = 0; x < 1600; ++x)
            if (x < 400 || y < 300) *photo.GetBuffer(x, y) = CPixel::Make(46, 168, 72, 255);
}

int KeyInPlace(COLImage& picture)
{
    ChromaKeyParams params;
    params.backdrop = CPixel::Make(46, 168, 72, 255);
    params.featherSelection = 1;
    CChromaKeyProcess key;
    key.SetImages(&picture, &picture);
    return int(key.Process(&params));
}

int Blur(const COLImage& photo, COLImage& out)
{
    double sigma = 7;
    CGaussianProcess gauss;
    gauss.SetImages(const_cast<COLImage*>(&photo), &out);
    return int(gauss.Process(&sigma));
}

// Bicubic doubling in place: the result is a fresh picture that replaces the source only when it is complete.
int ScaleInPlace(COLImage& picture)
{
    const BicubicScaleParams params{picture.GetWidth() * 2, picture.GetHeight() * 2};
    CBicubicScaleProcess scale;
    scale.SetImages(&picture, &picture);
    return int(scale.Process(&params));
}

// The child's side: the result without a limit first, then the same run with `spare` bytes of address space
// to grow by. The document's picture is keyed in place, so a failed run must give it back untouched.
int RunChild(const std::string& engine, size_t spare)
{
    vmpar::SetWorkerCount(3);
    COLImage photo, expected;
    MakePhoto(photo);
    if (engine == "key" || engine == "scale") {
        expected.DuplicateFrom(&photo);
        if ((engine == "key" ? KeyInPlace(expected) : ScaleInPlace(expected)) != kOk) return kWrongResult;
    } else if (Blur(photo, expected) != kOk) {
        return kWrongResult;
    }
    COLImage picture = vmtest::Copy(photo), out;
    const size_t now = vmtest::AddressSpaceBytes();
    rlimit limit{now + spare, now + spare};
    if (now == 0 || setrlimit(RLIMIT_AS, &limit) != 0) return kNoLimit;
    if (engine == "key" || engine == "scale") {
        if ((engine == "key" ? KeyInPlace(picture) : ScaleInPlace(picture)) == kOk)
            return vmtest::SamePixels(picture, expected) ? kSucceeded : kWrongResult;
        return vmtest::SamePixels(picture, photo) ? kFailedCleanly : kPictureChanged;
    }
    if (Blur(picture, out) == kOk) return vmtest::SamePixels(out, expected) ? kSucceeded : kWrongResult;
    return vmtest::SamePixels(picture, photo) ? kFailedCleanly : kPictureChanged;
}

// In the child started by the tests below, the run happens here, before main; the tests are never reached.
const int g_child = vmtest::RunIfChild("VM_EXHAUSTION_CHILD", RunChild);

// Sweeps the limit from nothing to spare to plenty, so that the allocation that fails moves through the whole
// run: every attempt must succeed with the right bytes or fail with kFail and the picture as it was.
void Sweep(const std::string& engine, size_t largest)
{
#ifdef VM_NO_ADDRESS_LIMIT
    GTEST_SKIP() << "the sanitizers reserve address space up front, so no limit can make an allocation fail";
#endif
    int failures = 0, successes = 0;
    for (size_t spare = 0; spare <= largest; spare += largest / 12) {
        const int outcome = vmtest::InChild("VM_EXHAUSTION_CHILD", engine, spare);
        ASSERT_TRUE(outcome == kSucceeded || outcome == kFailedCleanly)
            << engine << " with " << spare / 1024 << " kB to spare ended with " << outcome
            << " (negative: killed by that signal)";
        (outcome == kSucceeded ? successes : failures)++;
    }
    EXPECT_GT(failures, 0) << engine << ": no attempt ran short of memory, the sweep proves nothing";
    EXPECT_GT(successes, 0) << engine << ": even the largest limit was too small";
}

} // namespace

// The chroma key and the bicubic scale in place, and the blur into a picture of its own.
TEST(Exhaustion, EnginesFailCleanlyUnderAnAddressSpaceLimit)
{
    const std::pair<const char*, size_t> engines[] = {
        {"key", size_t(192) << 20}, {"blur", size_t(192) << 20}, {"scale", size_t(96) << 20}};
    for (const auto& [engine, largest] : engines) {
        SCOPED_TRACE(engine);
        Sweep(engine, largest);
    }
}
