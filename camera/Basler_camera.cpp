// Automatic gain and exposure for both generations of feature names.
#include "camera/Basler_camera.h"

#include "camera/camera.h"
#include "platform/truncate.h"

#include <cstdio>

int32_t lastAutoGain = 0;
int32_t lastAutoExposureMs = 0;

namespace {

constexpr double targetBrightness = 0.3; // of full scale
constexpr int64_t targetValueOlder = 80; // of 255

constexpr int region1 = 0;
constexpr int region2 = 1;

bool secondGeneration(const CBaslerUniversalInstantCamera& camera) {
    return camera.GetSfncVersion() >= Sfnc_2_0_0;
}

void useWholeSensor(CBaslerUniversalInstantCamera& camera) {
    camera.OffsetX.SetToMinimum();
    camera.OffsetY.SetToMinimum();
    camera.Width.SetToMaximum();
    camera.Height.SetToMaximum();

    if (camera.AutoFunctionROISelector.IsWritable()) {
        camera.AutoFunctionROISelector.SetValue(region1);
        camera.AutoFunctionROIUseBrightness.SetValue(true);
        camera.AutoFunctionROISelector.SetValue(region2);
        camera.AutoFunctionROIUseBrightness.SetValue(false);
        camera.AutoFunctionROISelector.SetValue(region1);
        camera.AutoFunctionROIOffsetX.SetToMinimum();
        camera.AutoFunctionROIOffsetY.SetToMinimum();
        camera.AutoFunctionROIWidth.SetToMaximum();
        camera.AutoFunctionROIHeight.SetToMaximum();
    } else if (camera.AutoFunctionAOISelector.IsWritable()) {
        camera.AutoFunctionAOISelector.SetValue(region1);
        camera.AutoFunctionAOIOffsetX.SetToMinimum();
        camera.AutoFunctionAOIOffsetY.SetToMinimum();
        camera.AutoFunctionAOIWidth.SetToMaximum();
        camera.AutoFunctionAOIHeight.SetToMaximum();
    }
}

} // namespace

void autoGainContinuous(CBaslerUniversalInstantCamera& camera) {
    if (!camera.GainAuto.IsWritable()) {
        std::printf("The camera does not support Gain Auto.\n\n");
        return;
    }
    useWholeSensor(camera);
    if (secondGeneration(camera)) {
        camera.AutoTargetBrightness.SetValue(targetBrightness);
        lastAutoGain = truncated(camera.Gain.GetValue());
    } else {
        camera.AutoTargetValue.SetValue(targetValueOlder);
        std::printf("Trying 'GainAuto = Continuous'.\n");
        std::printf("Initial Gain = %lld\n", static_cast<long long>(camera.GainRaw.GetValue()));
    }
    camera.GainAuto.SetValue(Auto_Continuous);
}

void autoExposureContinuous(CBaslerUniversalInstantCamera& camera) {
    if (!camera.ExposureAuto.IsWritable()) {
        std::printf("The camera does not support Exposure Auto.\n\n");
        return;
    }
    useWholeSensor(camera);
    if (secondGeneration(camera)) {
        camera.AutoTargetBrightness.SetValue(targetBrightness);
        lastAutoExposureMs = truncated(camera.ExposureTime.GetValue() / 1000.0);
    } else {
        camera.AutoTargetValue.SetValue(targetValueOlder);
        std::printf("ExposureAuto 'GainAuto = Continuous'.\n"); // this wording is wanted
        std::printf("Initial exposure time = %g us\n", camera.ExposureTimeAbs.GetValue());
    }
    camera.ExposureAuto.SetValue(Auto_Continuous);
}
