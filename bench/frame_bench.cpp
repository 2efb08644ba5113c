// The work of every camera frame: converting the raw frame, beside a plain copy of it and beside
// libdc1394's conversion to half resolution.
#include "camera/picture.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstring>
#include <dc1394/dc1394.h>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

// Frames as a camera delivers them: each one new to the processor's caches, which 16 frames of
// 5 MB overrun.
class FreshFrames {
public:
    FreshFrames() : frames(16, std::vector<uint8_t>(cameraImage.byteCount)) {
        std::minstd_rand random(1);
        for (auto& frame : frames)
            for (uint8_t& byte : frame) byte = static_cast<uint8_t>(random() >> 8);
    }
    const uint8_t* next() { return frames[++taken % frames.size()].data(); }

private:
    std::vector<std::vector<uint8_t>> frames;
    size_t taken = 0;
};

FreshFrames& freshFrames() {
    static FreshFrames frames;
    return frames;
}

void copyFrame(benchmark::State& state) {
    FreshFrames& frames = freshFrames();
    std::vector<uint8_t> copy(cameraImage.byteCount);
    for (auto _ : state) {
        std::memcpy(copy.data(), frames.next(), copy.size());
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
    }
}

void convertFrame(benchmark::State& state) {
    FreshFrames& frames = freshFrames();
    for (auto _ : state) {
        convertBayerFrame(cameraImage, frames.next(), cameraImage.pixels.get());
        benchmark::ClobberMemory();
    }
}

void convertFrameWithLibdc1394(benchmark::State& state) {
    FreshFrames& frames = freshFrames();
    std::vector<uint8_t> rgb(displayPixelCount * 3);
    for (auto _ : state) {
        dc1394_bayer_decoding_8bit(frames.next(), rgb.data(), 2464, 2056, DC1394_COLOR_FILTER_RGGB,
                                   DC1394_BAYER_METHOD_DOWNSAMPLE);
        benchmark::ClobberMemory();
    }
}

BENCHMARK(copyFrame)->Repetitions(9)->ReportAggregatesOnly();
BENCHMARK(convertFrame)->Repetitions(9)->ReportAggregatesOnly();
BENCHMARK(convertFrameWithLibdc1394)->Repetitions(9)->ReportAggregatesOnly();

// Keeps the medians and says them as ratios at the end.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs)
            if (run.aggregate_name == "median")
                medians[run.run_name.function_name] = run.GetAdjustedRealTime();
        ConsoleReporter::ReportRuns(runs);
    }

    void printRatios() {
        std::printf("convertBayerFrame / memcpy of a raw frame: %.2f (wanted: at most 1.3)\n",
                    medians["convertFrame"] / medians["copyFrame"]);
        std::printf("libdc1394 DOWNSAMPLE / convertBayerFrame: %.2f (wanted: at least 2)\n",
                    medians["convertFrameWithLibdc1394"] / medians["convertFrame"]);
    }

private:
    std::map<std::string, double> medians; // ns
};

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios();
}
