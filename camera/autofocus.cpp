// Searches the laser's focus.
#include "camera/autofocus.h"

#include "camera/camera.h"
#include "camera/display.h"
#include "camera/live_view.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/live_view_timer.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "session/set_up.h"
#include "session/stopwatch.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <vector>

namespace {

struct SweepLevel {
    float startOffsetUm; // above the present place
    int32_t steps;       // at most
    int32_t stepUm;      // down
    float cutOff;        // a peak is higher
};

constexpr SweepLevel levels[] = {
    {2000.0f, 1000, 25, 0.0025f}, {1000.0f, 200, 20, 0.005f}, {300.0f, 150, 10, 0.01f},
    {100.0f, 100, 5, 0.025f},     {25.0f, 60, 3, 0.05f},      {10.0f, 40, 2, 0.1f},
    {5.0f, 30, 1, 0.2f},
};
constexpr int32_t highestLevel = 6;

constexpr float focusedFactor = 0.2f; // from here on the focus counts as reached

constexpr int32_t halfSide = 100; // picture pixels: -100 .. 99 around the spot
constexpr size_t side = 2 * halfSide;

// Squares of the distances in the measuring square, column by column; the centre counts as 1.
std::array<double, side * side> squaredDistances() {
    std::array<double, side * side> weights;
    size_t i = 0;
    for (double dx = -halfSide; dx < halfSide; ++dx)
        for (double dy = -halfSide; dy < halfSide; ++dy)
            weights[i++] = std::max(dx * dx + dy * dy, 1.0);
    return weights;
}

struct ChannelSums {
    double blue = 0.0, green = 0.0, red = 0.0;
};

// Columns from left to right, each from the bottom up: the sums depend on the order. Pixels beyond
// what the camera sees count as those at its edge.
ChannelSums weightedSums(const uint8_t* pixels, PicturePoint centre) {
    static const std::array<double, side* side> weights = squaredDistances();
    const PictureArea& seen = cameraImage.seen;
    const auto clamped = [](int64_t value, int32_t first, int32_t count) {
        return static_cast<size_t>(std::clamp<int64_t>(value, first, first + count - 1));
    };
    std::array<size_t, side> rowOffsets;
    for (size_t row = 0; row < side; ++row)
        rowOffsets[row] = clamped(int64_t{centre.y} - halfSide + static_cast<int64_t>(row),
                                  seen.bottom, seen.height) *
                          static_cast<size_t>(imageWidth) * 4;
    ChannelSums sums;
    const double* weight = weights.data();
    for (size_t column = 0; column < side; ++column) {
        const uint8_t* top =
            pixels + 4 * clamped(int64_t{centre.x} - halfSide + static_cast<int64_t>(column),
                                 seen.left, seen.width);
        for (const size_t offset : rowOffsets) {
            const uint8_t* pixel = top + offset;
            sums.blue += pixel[0] / *weight;
            sums.green += pixel[1] / *weight;
            sums.red += pixel[2] / *weight;
            ++weight;
        }
    }
    return sums;
}

// What one sweep has seen.
struct FocusCurve {
    explicit FocusCurve(size_t steps) : factor(steps), positionUm(steps) {}

    std::vector<float> factor;
    std::vector<double> positionUm;
    size_t peak = 0; // index of the highest
    float highest = 0.0f, lowest = 0.0f;
    bool clearPeak = false;

    void add(size_t i, float value) {
        factor[i] = value;
        if (i == 0) highest = lowest = value;
        if (value > highest) {
            highest = value;
            peak = i;
        }
        lowest = std::min(lowest, value);
    }

    // True when the peak lies behind and stands out of the curve's noise.
    bool peakPassed(size_t i, float cutOff) {
        const float noise = meanStepChange(factor.data(), static_cast<uint32_t>(i));
        if (highest > cutOff) clearPeak = highest > lowest + 2 * noise;
        return clearPeak && factor[i] < highest - 2 * noise && i > peak + 5;
    }
};

enum class SweepEnd { Finished, Stopped, Failed };

// Whether the search goes on behind a move of Z: what ends at a limit has been as far as can be.
bool goesOn(FocusState& state, bool moved) {
    if (moved || stageZ.missed == Miss::LimitSwitch || session.stopRequested) return true;
    state.trouble = missedText(stageZ);
    return false;
}

SweepEnd stepDown(FocusState& state, const SweepLevel& sweep, double startUm, FocusCurve& curve) {
    for (size_t i = 0; i < curve.factor.size(); ++i) {
        curve.positionUm[i] = readPosition(stageZ);
        const double lowestUm = -1.5 * static_cast<double>(sweep.startOffsetUm);
        if (curve.positionUm[i] - startUm < lowestUm) break;
        grabAndDraw();
        curve.add(i, focusFactor(state));
        if (i >= 2 && curve.peakPassed(i, sweep.cutOff)) {
            state.found = 1;
            break;
        }
        // The cut-off, a fraction, shows as 0 in this text that operators know.
        formatInto(state.text, "[%d-%d] Z=%.0f f=%.3f cutoff=%.0f", state.level,
                   static_cast<int>(i), curve.positionUm[i], static_cast<double>(curve.factor[i]),
                   static_cast<double>(sweep.cutOff));
        showInformation(state.text);
        refreshPositions();
        if (session.stopRequested) return SweepEnd::Stopped;
        showInformation(formatted("z=%.0f, Fmax=%.3f", curve.positionUm[curve.peak],
                                  static_cast<double>(curve.highest))
                            .c_str());
        const bool moved = moveBy(stageZ, -sweep.stepUm);
        waitResponsive(1); // a refused move has not waited
        if (!goesOn(state, moved)) return SweepEnd::Failed;
        // Where the stage cannot go lower the curve is over.
        if (!moved && stageZ.leftLimitOn) break;
    }
    return SweepEnd::Finished;
}

// Up to the sweep's start, with the backlash taken up downwards.
SweepEnd goToStart(FocusState& state, const SweepLevel& sweep, double& startUm) {
    grabAndDraw();
    for (const double um : {1.0, -1.0})
        if (!goesOn(state, moveBy(stageZ, um))) return SweepEnd::Failed;
    startUm = stageZ.positionUm;
    refreshPositions();
    waitResponsive(10);
    if (waitResponsive(100) == waitStopped || session.stopRequested) return SweepEnd::Stopped;
    const double topUm = stageZ.positionUm + static_cast<double>(sweep.startOffsetUm);
    if (!goesOn(state, moveTo(stageZ, topUm))) return SweepEnd::Failed;
    if (session.stopRequested || waitResponsive(100) == waitStopped) return SweepEnd::Stopped;
    refreshPositions();
    intervalElapsed(true, 0);
    return session.stopRequested ? SweepEnd::Stopped : SweepEnd::Finished;
}

void goToPeak(FocusState& state, const FocusCurve& curve) {
    stopStage(stageZ);
    setSpeed(stageZ, setUp.focusSpeed);
    if (curve.clearPeak) goesOn(state, moveTo(stageZ, curve.positionUm[curve.peak]));
    const std::string lastLine = state.text;
    std::snprintf(state.text, sizeof state.text,
                  state.found ? "%s Focusing completed" : "%s No peak found", lastLine.c_str());
    showInformation(state.text);
}

void takeUpPlay(FocusState& state) {
    setSpeed(stageZ, setUp.focusSpeed);
    if (!goesOn(state, moveBy(stageZ, 1.0))) return;
    waitResponsive(50);
    goesOn(state, moveBy(stageZ, -1.0));
}

void switchLightsOff() {
    setLaserOutput(0);
    switchLiveView(LiveView::Off);
}

} // namespace

float focusFactor(FocusState& state) {
    state.blueCentre = state.redCentre = state.greenCentre = cameraState.laserOffset;
    state.pixelCount = static_cast<int32_t>(side * side);
    ChannelSums sums;
    if (cameraImage.pixels) sums = weightedSums(cameraImage.pixels.get(), cameraState.laserOffset);
    const auto mean = [&](double sum) { return static_cast<float>(sum / state.pixelCount); };
    state.blueMean = mean(sums.blue);
    state.redMean = mean(sums.red);
    state.greenMean = mean(sums.green);
    const float factor = state.blueMean + state.redMean + state.greenMean;
    showInformation(formatted("focus factor=%.3f", static_cast<double>(factor)).c_str());
    return factor;
}

float focusLevel(FocusState& state) {
    constexpr float limits[] = {0.0001f, 0.001f, 0.05f, 0.1f, 0.2f, 0.3f};
    const float factor = focusFactor(state);
    float level = 0.0f;
    for (const float limit : limits)
        if (factor >= limit) level += 1.0f;
    return level;
}

float meanStepChange(const float* f, uint32_t n) {
    if (n < 2) return 0.0f;
    float sum = 0.0f;
    for (uint32_t k = 1; k < n; ++k) sum += std::fabs(f[k] - f[k - 1]);
    return sum / static_cast<float>(n - 1);
}

int focusSweep(FocusState& state) {
    const int32_t level = state.level;
    const SweepLevel& sweep = levels[std::clamp(level, 0, highestLevel)];
    FocusCurve curve(static_cast<size_t>(sweep.steps));
    state.found = 0;
    state.trouble.clear();
    {
        const RunningProcess running;
        switchLightsOff();
        showInformation("Focusing has started");
        double startUm = 0.0;
        if (goToStart(state, sweep, startUm) == SweepEnd::Finished &&
            stepDown(state, sweep, startUm, curve) == SweepEnd::Finished)
            goToPeak(state, curve);
    }
    grabAndDraw();
    drawCircleMark(windows.main, cameraState.laserOffset.x, imageHeight - cameraState.laserOffset.y,
                   5, markRed);
    refreshPositions();
    state.level = static_cast<int32_t>(focusLevel(state));
    if (state.level <= level || !state.trouble.empty()) state.found = 0;
    return state.found;
}

int autoFocus(FocusState& state) {
    const bool wasLive = liveViewIsOn();
    const bool wasIlluminated = illuminationIsOn();
    session.stopRequested = 0;
    switchLightsOff();
    for (int i = 0; i < 2; ++i) {
        waitResponsive(100);
        controlCamera(cameraState, cameraManual);
        grabAndDraw();
    }
    state.level = static_cast<int32_t>(focusLevel(state));
    bool again = true;
    while (again) {
        again = focusSweep(state) && state.level < highestLevel;
        if (!session.stopRequested) continue;
        std::snprintf(state.text, sizeof state.text, "Focusing aborted");
        state.lastWords = state.text;
        showInformation(state.text);
        refreshPositions();
        return 0;
    }
    if (state.trouble.empty()) takeUpPlay(state);
    // Every sweep has switched both off: what was before the first one counts.
    setLaserOutput(wasIlluminated ? 1 : 0);
    switchLiveView(wasLive ? LiveView::On : LiveView::Off);
    const bool reached = focusFactor(state) >= focusedFactor;
    // However bright the spot is: where Z did not go nobody has searched.
    const bool completed = reached && state.trouble.empty();
    state.completed = completed;
    state.lastWords = completed ? "Focusing Completed!" : "Focusing incompleted!";
    if (!state.trouble.empty()) state.lastWords += " " + state.trouble;
    showInformation(state.lastWords.c_str());
    refreshPositions();
    return 1;
}
