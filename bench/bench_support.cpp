#include "bench_support.h"

#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdio>
#include <map>
#include <random>
#include <set>
#include <vector>

namespace vmbench {

void MakePhoto(COLImage& image, uint32_t width, uint32_t height, uint32_t seed)
{
    image.Create(width, height);
    std::mt19937 rng(seed);
    std::normal_distribution<float> noise(0.0f, 3.0f);
    struct Disc {
        float cx, cy, r, soft;
        uint8_t red, green, blue;
    };
    std::vector<Disc> discs;
    std::uniform_real_distribution<float> u(0.0f, 1.0f);
    for (int i = 0; i < 24; ++i)
        discs.push_back({u(rng) * width, u(rng) * height, (0.03f + 0.12f * u(rng)) * width, 2.0f + 20.0f * u(rng),
                         uint8_t(rng()), uint8_t(rng()), uint8_t(rng())});
    for (uint32_t y = 0; y < height; ++y) {
        CPixel* row = image.GetBuffer(0, y);
        for (uint32_t x = 0; x < width; ++x) {
            float r = 40 + 150.0f * x / width, g = 90 + 100.0f * y / height, b = 160 - 80.0f * x / width;
            for (const Disc& d : discs) {
                const float dist = std::hypot(x - d.cx, y - d.cy);
                float cover = (d.r - dist) / d.soft;
                if (cover <= 0) continue;
                if (cover > 1) cover = 1;
                r += (d.red - r) * cover;
                g += (d.green - g) * cover;
                b += (d.blue - b) * cover;
            }
            auto clamp = [](float v) { return uint8_t(v < 0 ? 0 : v > 255 ? 255 : v); };
            row[x] = CPixel::Make(clamp(r + noise(rng)), clamp(g + noise(rng)), clamp(b + noise(rng)), 255);
        }
    }
}

namespace {

class RatioReporter : public benchmark::ConsoleReporter {
public:
    explicit RatioReporter(std::string prefix) : m_prefix(std::move(prefix)) {}
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs) {
            if (r.error_occurred) continue;
            // With --benchmark_repetitions the median of the repetitions stands for the benchmark: on a shared
            // machine one slow repetition says more about the neighbours than about the code.
            const bool median = r.run_type == Run::RT_Aggregate && r.aggregate_name == "median";
            if (r.run_type != Run::RT_Iteration && !median) continue;
            const std::string name = r.run_name.str();
            if (!m_times.count(name)) m_order.push_back(name);
            if (median)
                m_medians.insert(name);
            else if (m_medians.count(name))
                continue;
            m_times[name] = r.GetAdjustedRealTime();
            m_cpu[name] = r.GetAdjustedCPUTime();
        }
    }
    void PrintRatios() const
    {
        std::map<std::string, std::string> baselines;
        for (const std::string& name : m_order)
            if (name.rfind(m_prefix, 0) == 0) baselines[Suffix(name)] = name;
        if (baselines.empty()) return;
        // CPU time too: on a shared machine the wall clock also measures the neighbours.
        std::printf("\nRatios to %s* (measured in this run; below 1 is faster than the baseline):\n"
                    "  %-60s %8s %8s\n",
                    m_prefix.c_str(), "", "wall", "cpu");
        for (const std::string& name : m_order) {
            if (name.rfind(m_prefix, 0) == 0) continue;
            auto it = baselines.find(Suffix(name));
            const std::string& base = it != baselines.end() ? it->second : baselines.begin()->second;
            std::printf("  %-60s %8.3f %8.3f\n", name.c_str(), m_times.at(name) / m_times.at(base),
                        m_cpu.at(name) / m_cpu.at(base));
        }
    }

private:
    static std::string Suffix(const std::string& name)
    {
        const size_t slash = name.find('/');
        return slash == std::string::npos ? std::string() : name.substr(slash);
    }
    std::string m_prefix;
    std::vector<std::string> m_order;
    std::map<std::string, double> m_times;
    std::map<std::string, double> m_cpu;
    std::set<std::string> m_medians;
};

} // namespace

int RunWithRatios(int argc, char** argv, const std::string& baselinePrefix)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter(baselinePrefix);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios();
    benchmark::Shutdown();
    return 0;
}

const COLImage& SharedPhoto()
{
    static COLImage photo;
    if (photo.IsNull()) MakePhoto(photo, kPhotoWidth, kPhotoHeight);
    return photo;
}

} // namespace vmbench
