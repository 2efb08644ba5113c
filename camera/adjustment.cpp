// Borrows the camera's gain and exposure.
#include "camera/adjustment.h"

#include "screen/screen.h"
#include "session/refusals.h"

#include <exception>
#include <functional>

namespace {

bool asked(CameraState& state, const std::function<void(CBaslerUniversalInstantCamera&)>& ask) {
    if (!state.connected) return false;
    try {
        ask(*state.device);
        return true;
    } catch (const std::exception& refusal) {
        printRefusal("Camera", refusal.what());
        state.connected = 0;
        showInformation("No camera detected");
        return false;
    }
}

bool isContinuous(const EnumParameter& function) {
    return function.IsWritable() && function.Is(Auto_Continuous);
}

} // namespace

CameraAdjustment adjustmentOf(CameraState& state) {
    CameraAdjustment now;
    now.known = asked(state, [&](CBaslerUniversalInstantCamera& camera) {
        now.automaticGain = isContinuous(camera.GainAuto);
        now.automaticExposure = isContinuous(camera.ExposureAuto);
        now.exposureUs = camera.GetExposureUs();
    });
    return now;
}

double holdExposure(CameraState& state, double us) {
    double taken = 0.0;
    asked(state, [&](CBaslerUniversalInstantCamera& camera) {
        for (const EnumParameter* function : {&camera.GainAuto, &camera.ExposureAuto})
            if (isContinuous(*function)) function->SetValue(Auto_Off);
        camera.SetExposureUs(us);
        taken = camera.GetExposureUs();
    });
    return taken;
}

bool giveBack(CameraState& state, const CameraAdjustment& before) {
    if (!before.known) return true;
    return asked(state, [&](CBaslerUniversalInstantCamera& camera) {
        if (camera.GetExposureUs() != before.exposureUs) camera.SetExposureUs(before.exposureUs);
        if (before.automaticGain) camera.GainAuto.SetValue(Auto_Continuous);
        if (before.automaticExposure) camera.ExposureAuto.SetValue(Auto_Continuous);
    });
}
