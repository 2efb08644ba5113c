// The work of every camera frame: converting the raw frame, beside a plain copy of it, beside
// libdc1394's conversion to half resolution and beside a loop over the cells; and judging its
// focus.
#include "camera/autofocus.h"
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

// Frames as a camera delivers them are new to the processor's caches, which 16 frames of 5 MB
// overrun; one frame again and again stays in them.
constexpr int fresh = 16;
constexpr int cached = 1;

class Frames {
public:
    explicit Frames(const benchmark::State& state) : count(static_cast<size_t>(state.range(0))) {}
    const uint8_t* next() { return all()[++taken % count].data(); }

private:
    static const std::vector<std::vector<uint8_t>>& all() {
        static const auto made = [] {
            std::vector<std::vector<uint8_t>> frames(fresh,
                                                     std::vector<uint8_t>(cameraImage.byteCount));
            std::minstd_rand random(1);
            for (auto& frame : frames)
                for (uint8_t& byte : frame) byte = static_cast<uint8_t>(random() >> 8);
            return frames;
        }();
        return made;
    }

    size_t count;
    size_t taken = 0;
};

void copyFrame(benchmark::State& state) {
    Frames frames(state);
    std::vector<uint8_t> copy(cameraImage.byteCount);
    for (auto _ : state) {
        std::memcpy(copy.data(), frames.next(), copy.size());
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
    }
}

void convertFrame(benchmark::State& state) {
    Frames frames(state);
    for (auto _ : state) {
        convertBayerFrame(cameraImage, frames.next(), cameraImage.pixels.get());
        benchmark::ClobberMemory();
    }
}

void convertFrameWithLibdc1394(benchmark::State& state) {
    Frames frames(state);
    std::vector<uint8_t> rgb(displayPixelCount * 3);
    for (auto _ : state) {
        dc1394_bayer_decoding_8bit(frames.next(), rgb.data(), 2464, 2056, DC1394_COLOR_FILTER_RGGB,
                                   DC1394_BAYER_METHOD_DOWNSAMPLE);
        benchmark::ClobberMemory();
    }
}

// The conversion as one would write it down.
void convertFrameCellByCell(benchmark::State& state) {
    Frames frames(state);
    for (auto _ : state) {
        const uint8_t* raw = frames.next();
        uint8_t* out = cameraImage.pixels.get();
        const int width = cameraImage.width, height = cameraImage.height;
        for (int y = 0; y < height; y += 2) {
            for (int x = 0; x < width; x += 2) {
                const int from = std::min(x + y * width, (height - 2) * (width - 2));
                const int to = std::min((height - y - 2) * width + 2 * x, height * width - 4);
                out[to] = raw[from + width + 1];
                out[to + 1] = static_cast<uint8_t>((raw[from + width] + raw[from + 1]) / 2);
                out[to + 2] = raw[from];
            }
        }
        benchmark::ClobberMemory();
    }
}

// With the spot's picture new to the caches each time, as after a conversion.
void judgeFocus(benchmark::State& state) {
    Frames frames(state);
    laserOffset = {640, 500};
    for (auto _ : state) {
        state.PauseTiming();
        convertBayerFrame(cameraImage, frames.next(), cameraImage.pixels.get());
        state.ResumeTiming();
        benchmark::DoNotOptimize(focusFactor(focusState));
    }
}

#define FRAME_BENCHMARK(function)                                                                  \
    BENCHMARK(function)->Arg(fresh)->Arg(cached)->Repetitions(9)->ReportAggregatesOnly()
FRAME_BENCHMARK(copyFrame);
FRAME_BENCHMARK(convertFrame);
FRAME_BENCHMARK(convertFrameWithLibdc1394);
FRAME_BENCHMARK(convertFrameCellByCell);
FRAME_BENCHMARK(judgeFocus);

// Keeps the medians and says them as ratios at the end.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs)
            if (run.aggregate_name == "median")
                medians[run.run_name.function_name + "/" + run.run_name.args] =
                    run.GetAdjustedRealTime();
        ConsoleReporter::ReportRuns(runs);
    }

    void printRatios() {
        for (const char* frames : {"/16", "/1"}) {
            const auto median = [&](const char* name) {
                return medians[std::string(name) + frames];
            };
            std::printf("%s: convertBayerFrame / memcpy of a raw frame %.2f (wanted: at most 1.3), "
                        "libdc1394 DOWNSAMPLE / convertBayerFrame %.2f (wanted: at least 2)\n",
                        frames[2] ? "fresh frames" : "the same frame",
                        median("convertFrame") / median("copyFrame"),
                        median("convertFrameWithLibdc1394") / median("convertFrame"));
            std::printf("%s: focusFactor / conversion cell by cell %.2f (wanted: at most 0.33)\n",
                        frames[2] ? "fresh frames" : "the same frame",
                        median("judgeFocus") / median("convertFrameCellByCell"));
        }
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
