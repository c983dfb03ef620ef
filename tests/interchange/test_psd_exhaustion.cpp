// The layered writer that runs out of memory part-way returns kFail and leaves no file, neither the target nor its
// temporary. Each attempt runs in a child process under an address-space limit.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/resource.h>

#include "document/layer.h"
#include "document/layer_stack.h"
#include "interchange/psd_layered_writer.h"
#include "runtime/parallel_for.h"
#include "support/limited_child.h"
#include "support/runtime_limits.h"
#include "support/test_support.h"

namespace {

enum Outcome { kSucceeded = 0, kFailedCleanly = 1, kWrongFile = 2, kFileLeft = 3, kNoLimit = 4, kNoReference = 5 };

// Writes a three-layer composition once without a limit (which also starts the pool's threads), then again into
// an empty folder with `spare` bytes of address space to grow by.
int RunChild(const std::string& folder, size_t spare)
{
    vmpar::SetWorkerCount(3);
    CLayerStack doc;
    if (doc.NewDocument(900, 700, 0xFF000000u) != 1) return kNoReference;
    vmtest::FillNoise(doc.GetLayer(0)->m_image, 900, 700, 1);
    for (int i = 1; i < 3; ++i) {
        auto* l = new CLayer();
        vmtest::FillNoise(l->m_image, 900, 700, uint32_t(1 + i));
        if (!doc.InsertLayer(l, i - 1)) return kNoReference;
    }
    const std::filesystem::path dir(folder);
    if (WriteLayeredPsd((dir / "reference.psd").string(), doc) != kOk) return kNoReference;
    const std::filesystem::path target = dir / "limited" / "out.psd";
    std::filesystem::create_directories(target.parent_path());
    rlimit old{};
    const size_t now = vmtest::AddressSpaceBytes();
    if (now == 0 || getrlimit(RLIMIT_AS, &old) != 0) return kNoLimit;
    rlimit limit{now + spare, old.rlim_max}; // only the soft limit, so that the checks below run without it
    if (setrlimit(RLIMIT_AS, &limit) != 0) return kNoLimit;
    std::string reason;
    const long result = WriteLayeredPsd(target.string(), doc, &reason);
    setrlimit(RLIMIT_AS, &old);
    if (result == kOk) {
        const bool same = vmtest::ReadAll(target.string()) == vmtest::ReadAll((dir / "reference.psd").string());
        return same ? kSucceeded : kWrongFile;
    }
    return std::filesystem::is_empty(target.parent_path()) && !reason.empty() ? kFailedCleanly : kFileLeft;
}

// In the child started by the tests below, the run happens here, before main; the tests are never reached.
const int g_child = vmtest::RunIfChild("VM_PSD_EXHAUSTION_CHILD", RunChild);

} // namespace

TEST(PsdExhaustion, ALayeredWriteThatRunsOutOfMemoryLeavesNoFile)
{
#ifdef VM_NO_ADDRESS_LIMIT
    GTEST_SKIP() << "the sanitizers reserve address space up front, so no limit can make an allocation fail";
#endif
    // From nothing to spare to plenty, so that the allocation that fails moves through the whole write: the
    // encode buffers, the composite, the file's own buffers.
    constexpr size_t kLargest = size_t(24) << 20;
    int failures = 0, successes = 0;
    for (size_t spare = 0; spare <= kLargest; spare += kLargest / 16) {
        vmtest::TempDir dir;
        const int outcome = vmtest::InChild("VM_PSD_EXHAUSTION_CHILD", dir.Path().string(), spare);
        ASSERT_TRUE(outcome == kSucceeded || outcome == kFailedCleanly)
            << spare / 1024 << " kB to spare ended with " << outcome << " (negative: killed by that signal)";
        (outcome == kSucceeded ? successes : failures)++;
    }
    EXPECT_GT(failures, 0) << "no attempt ran short of memory, the sweep proves nothing";
    EXPECT_GT(successes, 0) << "even the largest limit was too small";
}
