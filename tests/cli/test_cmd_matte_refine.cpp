// "matte --refine": the refined solver from the command line, on a picture of the evaluation set.
#include <gtest/gtest.h>

#include <string>

#include "imaging/codec.h"
#include "imaging/image.h"
#include "matting/refined_matte.h"
#include "support/cli_checks.h"

using vmtest::Quote;

TEST(CliMatteRefine, WritesTheRefinedAlphaAndSubjectColours)
{
    vmtest::TempDir dir;
    const std::string in = vmtest::DataPath("matting/refine_fur.png");
    const std::string tri = vmtest::DataPath("matting/refine_fur_t10.png");
    const std::string out = dir.File("cut.png");
    vmtest::RunOk("matte " + Quote(in) + " --trimap " + Quote(tri) + " --refine -o " + Quote(out), "band");

    // The file holds exactly what the engine answers: alpha and decontaminated colours.
    COLImage shot = vmtest::Load(in), triImage = vmtest::Load(tri), written = vmtest::Load(out);
    COLChannel trimap, alpha;
    ASSERT_TRUE(trimap.ExtractFrom(&triImage, 2));
    COLImage fore;
    ASSERT_EQ(SolveRefinedMatte(shot, trimap, alpha, &fore, RefinedMatteParams{}), kOk);
    EXPECT_TRUE(vmtest::SamePixels(written, fore));
}
