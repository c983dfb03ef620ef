// "segment": watershed segmentation of a picture into regions.
#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

#include "cli/cli.h"
#include "cli/picture_io.h"
#include "imaging/image.h"
#include "matting/segment.h"

namespace {

// Both planes of the result matter (the colours and the alpha), and PNG is the format that keeps them.
bool EndsWithPng(const std::string& path)
{
    if (path.size() < 4) return false;
    std::string ext = path.substr(path.size() - 4);
    for (char& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
    return ext == ".png";
}

cli::Progress* g_progress = nullptr;

void OnProgress(void*, uint32_t code, int32_t value)
{
    if (code == 1 && g_progress) g_progress->Update(value);
}

// A colour per label, far from black so that regions stand apart from unlabelled pixels.
CPixel LabelColour(uint32_t label)
{
    uint32_t h = label * 2654435761u;
    h ^= h >> 15;
    h *= 2246822519u;
    h ^= h >> 13;
    return CPixel::Make(uint8_t(64 + (h & 0xBF)), uint8_t(64 + ((h >> 8) & 0xBF)), uint8_t(64 + ((h >> 16) & 0xBF)));
}

int RunSegment(const std::vector<std::string>& args)
{
    const char* cmd = "segment";
    cli::Args a(args, {"-o", "--detail"});
    if (!a.Ok()) return cli::Usage(cmd, a.Error());
    if (a.Positional().size() != 1) return cli::Usage(cmd, "expects one input picture");
    const auto out = a.Value("-o");
    if (!out) return cli::Usage(cmd, "needs -o LABELS.png");
    long detail = CSegmentProcess::kDefaultDetail;
    if (const auto text = a.Value("--detail"); text && !cli::ParseInt(*text, 1, 1000, detail))
        return cli::Usage(cmd, "--detail takes a whole number from 1 to 1000");
    if (!EndsWithPng(*out)) return cli::Fail("the gradient is kept in alpha: write the labels as .png");

    COLImage image, labels;
    if (std::string error = cli::LoadPicture(a.Positional()[0], image); !error.empty()) return cli::Fail(error);
    CSegmentProcess segment;
    segment.SetImages(&image, &labels);
    segment.SetProgressCallback(ProgressCallback{&OnProgress, nullptr});
    segment.SetProgressRange(0, 100);
    cli::Progress progress(cmd);
    g_progress = &progress;
    const int32_t d = int32_t(detail);
    const long r = segment.Process(&d);
    g_progress = nullptr;
    progress.Done();
    if (r != kOk) return cli::Fail("segmentation failed (out of memory?)");

    // Each region in its colour; the alpha byte keeps the gradient the engine stored there.
    std::vector<uint8_t> seen(size_t(segment.GetRegionCount()) + 1, 0);
    uint32_t present = 0;
    for (size_t i = 0; i < labels.GetPixelCount(); ++i) {
        CPixel& p = labels.GetBuffer()[i];
        const uint32_t label = CSegmentProcess::Label(p);
        if (label < seen.size() && !seen[label] && label) {
            seen[label] = 1;
            ++present;
        }
        const uint8_t gradient = p.alpha;
        p = label ? LabelColour(label) : CPixel::Make(0, 0, 0);
        p.alpha = gradient;
    }
    if (std::string e = cli::SavePicture(*out, labels); !e.empty()) return cli::Fail(e);
    std::printf("%s -> %s, %u x %u, detail %ld\n%u regions (%u region records before merging)\n",
                a.Positional()[0].c_str(), out->c_str(), labels.GetWidth(), labels.GetHeight(), detail, present,
                segment.GetRegionCount());
    return cli::kExitOk;
}

cli::CliRegistrar reg("segment", "segment IN -o LABELS.png [--detail N]",
                      "watershed segmentation: each region in a colour, the gradient in alpha; prints the region count",
                      RunSegment);

} // namespace
