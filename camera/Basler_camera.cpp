// The camera's automatic functions, for both generations of feature names.
#include "camera/Basler_camera.h"

#include "camera/camera.h"
#include "platform/clock.h"
#include "platform/truncate.h"

#include <algorithm>
#include <cstdio>
#include <initializer_list>

namespace {

constexpr double targetBrightness = 0.3;     // of full scale
constexpr double targetBrightnessOnce = 0.2; // of full scale
constexpr int64_t targetValueOlder = 80;     // of 255
constexpr int maximumFramesOnce = 100;
constexpr uint32_t pauseBetweenFramesMs = 100;

constexpr char noGainAuto[] = "The camera does not support Gain Auto.";
constexpr char noExposureAuto[] = "The camera does not support Exposure Auto.";

constexpr int region1 = 0;
constexpr int region2 = 1;

bool secondGeneration(const CBaslerUniversalInstantCamera& camera) {
    return camera.GetSfncVersion() >= Sfnc_2_0_0;
}

// Some models lack these, or fix them: they are no reason to do without the camera.
template <class Number> void toMinimum(std::initializer_list<const Number*> parameters) {
    for (const Number* parameter : parameters)
        if (parameter->IsWritable()) parameter->SetToMinimum();
}

template <class Number> void toMaximum(std::initializer_list<const Number*> parameters) {
    for (const Number* parameter : parameters)
        if (parameter->IsWritable()) parameter->SetToMaximum();
}

void useBrightness(CBaslerUniversalInstantCamera& camera, bool use) {
    if (camera.AutoFunctionROIUseBrightness.IsWritable())
        camera.AutoFunctionROIUseBrightness.SetValue(use);
}

void tellInitialGain(const CBaslerUniversalInstantCamera& camera, const char* mode) {
    std::printf("Trying 'GainAuto = %s'.\n", mode);
    std::printf("Initial Gain = %lld\n", static_cast<long long>(camera.GainRaw.GetValue()));
}

void prepareGain(CBaslerUniversalInstantCamera& camera) {
    if (secondGeneration(camera)) {
        camera.AutoTargetBrightness.SetValue(targetBrightness);
        cameraState.lastAutoGain = truncated(camera.Gain.GetValue());
    } else {
        camera.AutoTargetValue.SetValue(targetValueOlder);
        tellInitialGain(camera, "Continuous");
    }
}

void prepareExposure(CBaslerUniversalInstantCamera& camera) {
    if (secondGeneration(camera)) {
        camera.AutoTargetBrightness.SetValue(targetBrightness);
        cameraState.lastAutoExposureMs = truncated(camera.ExposureTime.GetValue() / 1000.0);
    } else {
        camera.AutoTargetValue.SetValue(targetValueOlder);
        std::printf("ExposureAuto 'GainAuto = Continuous'.\n"); // this wording is wanted
        std::printf("Initial exposure time = %g us\n", camera.GetExposureUs());
    }
}

void prepareGainOnce(CBaslerUniversalInstantCamera& camera) {
    if (secondGeneration(camera)) {
        camera.AutoTargetBrightness.SetValue(targetBrightnessOnce);
        toMinimum({&camera.AutoGainLowerLimit});
        toMaximum({&camera.AutoGainUpperLimit});
    } else {
        camera.AutoTargetValue.SetValue(targetValueOlder);
        tellInitialGain(camera, "Once");
        toMinimum({&camera.AutoGainRawLowerLimit});
        toMaximum({&camera.AutoGainRawUpperLimit});
    }
}

void prepareExposureOnce(CBaslerUniversalInstantCamera& camera) {
    camera.AutoTargetBrightness.SetValue(targetBrightnessOnce);
    std::printf("Trying 'ExposureAuto = Once'.\n");
    std::printf("Initial exposure time = %g\n", camera.ExposureTime.GetValue());
    toMinimum({&camera.AutoExposureTimeLowerLimit});
    toMaximum({&camera.AutoExposureTimeUpperLimit});
}

void prepareWhiteBalanceOnce(CBaslerUniversalInstantCamera& camera) {
    std::printf("Trying 'BalanceWhiteAuto = Once'.\n");
    const FloatParameter& ratio =
        camera.BalanceRatio.IsReadable() ? camera.BalanceRatio : camera.BalanceRatioAbs;
    std::printf("Initial balance ratio: %g\n", ratio.GetValue());
}

// What all routines have in common. False when the camera lacks the function.
bool adjust(CBaslerUniversalInstantCamera& camera, const EnumParameter& function, AutoMode mode,
            const char* unsupported, void (*prepare)(CBaslerUniversalInstantCamera&)) {
    if (!function.IsWritable()) {
        std::printf("%s\n\n", unsupported);
        return false;
    }
    useWholeSensor(camera);
    prepare(camera);
    function.SetValue(mode);
    return true;
}

// The camera adjusts itself only with frames. White balance tells the same as exposure.
void waitUntilSettled(CBaslerUniversalInstantCamera& camera, const EnumParameter& function) {
    int frames = 0;
    while (!function.Is(Auto_Off)) {
        CGrabResultPtr result;
        camera.GrabOne(grabOneTimeoutMs, result, TimeoutHandling_ThrowException);
        ++frames;
        sleepMs(pauseBetweenFramesMs);
        if (frames > maximumFramesOnce)
            throw TimeoutException("The adjustment of auto exposure did not finish.");
    }
    std::printf("ExposureAuto went back to 'Off' after %d frames.\n", frames);
    std::printf("Final exposure time = %g\n", camera.GetExposureUs());
}

// The nearest value of the parameter that is not above `wanted` and even, so that a colour stays
// where the mosaic has it.
int64_t evenValue(const IntegerParameter& parameter, int64_t wanted) {
    const int64_t least = parameter.GetMin();
    int64_t step = parameter.GetInc();
    if (step % 2 != 0) step *= 2;
    return least + std::max<int64_t>(wanted - least, 0) / step * step;
}

// Of a sensor that is larger than the picture takes, the middle.
void cutToMiddle(const IntegerParameter& size, const IntegerParameter& offset,
                 const BooleanParameter& centre, int64_t most) {
    if (!size.IsReadable() || size.GetValue() <= most || !size.IsWritable()) return;
    const int64_t sensor = size.GetValue();
    size.SetValue(evenValue(size, most));
    if (offset.IsWritable())
        offset.SetValue(evenValue(offset, (sensor - size.GetValue()) / 2));
    else if (centre.IsWritable())
        centre.SetValue(true);
}

} // namespace

void useWholeSensor(CBaslerUniversalInstantCamera& camera) {
    toMinimum({&camera.OffsetX, &camera.OffsetY});
    toMaximum({&camera.Width, &camera.Height});
    cutToMiddle(camera.Width, camera.OffsetX, camera.CenterX, 2 * int64_t{imageWidth});
    cutToMiddle(camera.Height, camera.OffsetY, camera.CenterY, 2 * int64_t{imageHeight});

    if (camera.AutoFunctionROISelector.IsWritable()) {
        camera.AutoFunctionROISelector.SetValue(region1);
        useBrightness(camera, true);
        camera.AutoFunctionROISelector.SetValue(region2);
        useBrightness(camera, false);
        camera.AutoFunctionROISelector.SetValue(region1);
        toMinimum({&camera.AutoFunctionROIOffsetX, &camera.AutoFunctionROIOffsetY});
        toMaximum({&camera.AutoFunctionROIWidth, &camera.AutoFunctionROIHeight});
    } else if (camera.AutoFunctionAOISelector.IsWritable()) {
        camera.AutoFunctionAOISelector.SetValue(region1);
        toMinimum({&camera.AutoFunctionAOIOffsetX, &camera.AutoFunctionAOIOffsetY});
        toMaximum({&camera.AutoFunctionAOIWidth, &camera.AutoFunctionAOIHeight});
    }
}

void autoGainContinuous(CBaslerUniversalInstantCamera& camera) {
    adjust(camera, camera.GainAuto, Auto_Continuous, noGainAuto, prepareGain);
}

void autoExposureContinuous(CBaslerUniversalInstantCamera& camera) {
    adjust(camera, camera.ExposureAuto, Auto_Continuous, noExposureAuto, prepareExposure);
}

void autoGainOnce(CBaslerUniversalInstantCamera& camera) {
    adjust(camera, camera.GainAuto, Auto_Once, noGainAuto, prepareGainOnce);
}

void autoExposureOnce(CBaslerUniversalInstantCamera& camera) {
    if (adjust(camera, camera.ExposureAuto, Auto_Once, noExposureAuto, prepareExposureOnce))
        waitUntilSettled(camera, camera.ExposureAuto);
}

void autoWhiteBalanceOnce(CBaslerUniversalInstantCamera& camera) {
    constexpr char noWhiteBalance[] = "The camera does not support Balance White Auto.";
    if (adjust(camera, camera.BalanceWhiteAuto, Auto_Once, noWhiteBalance, prepareWhiteBalanceOnce))
        waitUntilSettled(camera, camera.BalanceWhiteAuto);
}
