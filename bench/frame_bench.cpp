// The work of every camera frame: converting the raw frame, beside a plain copy of it, beside
// libdc1394's conversion to half resolution and beside a loop over the cells; and judging its
// focus.
#include "camera/autofocus.h"
#include "camera/camera.h"
#include "camera/picture.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <dc1394/dc1394.h>
#include <random>
#include <vector>

namespace {

// Frames as a camera delivers them are new to the processor's caches, which 16 frames of 5 MB
// overrun; one frame again and again stays in them.
constexpr int fresh = 16;
constexpr int cached = 1;

class Frames {
public:
    explicit Frames(int64_t count) : count(static_cast<size_t>(count)) {}
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
    Frames frames(state.range(0));
    std::vector<uint8_t> copy(cameraImage.byteCount);
    for (auto _ : state) {
        std::memcpy(copy.data(), frames.next(), copy.size());
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
    }
}

void convertFrame(benchmark::State& state) {
    Frames frames(state.range(0));
    for (auto _ : state) {
        convertBayerFrame(cameraImage, frames.next(), cameraImage.pixels.get());
        benchmark::ClobberMemory();
    }
}

void convertFrameWithLibdc1394(benchmark::State& state) {
    Frames frames(state.range(0));
    std::vector<uint8_t> rgb(displayPixelCount * 3);
    for (auto _ : state) {
        dc1394_bayer_decoding_8bit(frames.next(), rgb.data(), 2464, 2056, DC1394_COLOR_FILTER_RGGB,
                                   DC1394_BAYER_METHOD_DOWNSAMPLE);
        benchmark::ClobberMemory();
    }
}

// The conversion as one would write it down.
void convertCellByCell(const uint8_t* raw) {
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

void convertFrameCellByCell(benchmark::State& state) {
    Frames frames(state.range(0));
    for (auto _ : state) convertCellByCell(frames.next());
}

// With the spot's picture new to the caches each time, as after a conversion.
void judgeFocus(benchmark::State& state) {
    Frames frames(state.range(0));
    cameraState.laserOffset = {640, 500};
    FocusState search;
    for (auto _ : state) {
        state.PauseTiming();
        convertBayerFrame(cameraImage, frames.next(), cameraImage.pixels.get());
        state.ResumeTiming();
        benchmark::DoNotOptimize(focusFactor(search));
    }
}

#define FRAME_BENCHMARK(function) BENCHMARK(function)->Arg(fresh)->Arg(cached)
FRAME_BENCHMARK(copyFrame);
FRAME_BENCHMARK(convertFrame);
FRAME_BENCHMARK(convertFrameWithLibdc1394);
FRAME_BENCHMARK(convertFrameCellByCell);
FRAME_BENCHMARK(judgeFocus);

// How long `first` takes as a ratio to `second`: the median over pairs run in turn, so that a
// machine that changes its pace changes both.
template <class First, class Second> double ratioInTurn(First first, Second second) {
    constexpr size_t pairs = 301;
    const auto timed = [](auto& work) {
        const auto start = std::chrono::steady_clock::now();
        work();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    std::vector<double> ratios(pairs);
    for (double& ratio : ratios) {
        const double firstTime = timed(first);
        ratio = firstTime / timed(second);
    }
    std::nth_element(ratios.begin(), ratios.begin() + pairs / 2, ratios.end());
    return ratios[pairs / 2];
}

constexpr struct {
    Mosaic mosaic;
    const char* name;
    double wanted;
} mosaics[] = {{Mosaic::RG, "RG", 1.2},
               {Mosaic::GR, "GR", 1.2},
               {Mosaic::GB, "GB", 1.2},
               {Mosaic::BG, "BG", 1.2},
               {Mosaic::Grey, "grey", 1.0}};

void printRatios() {
    for (const int count : {fresh, cached}) {
        Frames frames(count);
        std::vector<uint8_t> copy(cameraImage.byteCount), rgb(displayPixelCount * 3);
        const auto convert = [&] {
            convertBayerFrame(cameraImage, frames.next(), cameraImage.pixels.get());
        };
        const auto copyRaw = [&] { std::memcpy(copy.data(), frames.next(), copy.size()); };
        const auto convertWithLibrary = [&] {
            dc1394_bayer_decoding_8bit(frames.next(), rgb.data(), 2464, 2056,
                                       DC1394_COLOR_FILTER_RGGB, DC1394_BAYER_METHOD_DOWNSAMPLE);
        };
        const auto judge = [] {
            FocusState search;
            benchmark::DoNotOptimize(focusFactor(search));
        };
        const auto convertByCells = [&] { convertCellByCell(frames.next()); };
        std::printf("%s: convertBayerFrame / memcpy of a raw frame",
                    count == fresh ? "fresh frames" : "the same frame");
        for (const auto& [mosaic, name, wanted] : mosaics) {
            shapeFrames(cameraImage, cameraImage.width, cameraImage.height, mosaic);
            std::printf(" %s %.2f (wanted: at most %.1f),", name, ratioInTurn(convert, copyRaw),
                        wanted);
        }
        shapeFrames(cameraImage, cameraImage.width, cameraImage.height, Mosaic::RG);
        std::printf(" libdc1394 DOWNSAMPLE / convertBayerFrame %.2f (wanted: at least 2), "
                    "focusFactor / conversion cell by cell %.2f (wanted: at most 0.33)\n",
                    ratioInTurn(convertWithLibrary, convert), ratioInTurn(judge, convertByCells));
    }
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    printRatios();
}
