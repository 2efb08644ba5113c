// Automatic gain and exposure for both generations of feature names.
#include "camera/Basler_camera.h"

#include "camera/camera.h"
#include "platform/truncate.h"

#include <cstdio>
#include <initializer_list>

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

// Some models lack these, or fix them: they are no reason to do without the camera.
void toMinimum(std::initializer_list<const IntegerParameter*> parameters) {
    for (const IntegerParameter* parameter : parameters)
        if (parameter->IsWritable()) parameter->SetToMinimum();
}

void toMaximum(std::initializer_list<const IntegerParameter*> parameters) {
    for (const IntegerParameter* parameter : parameters)
        if (parameter->IsWritable()) parameter->SetToMaximum();
}

void useBrightness(CBaslerUniversalInstantCamera& camera, bool use) {
    if (camera.AutoFunctionROIUseBrightness.IsWritable())
        camera.AutoFunctionROIUseBrightness.SetValue(use);
}

void useWholeSensor(CBaslerUniversalInstantCamera& camera) {
    toMinimum({&camera.OffsetX, &camera.OffsetY});
    camera.Width.SetToMaximum();
    camera.Height.SetToMaximum();

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
