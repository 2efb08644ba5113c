// Connects the camera, applies its settings and grabs frames.
#include "camera/camera.h"

#include "camera/Basler_camera.h"
#include "camera/live_view.h"
#include "platform/clock.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/announce.h"
#include "session/device_report.h"
#include "session/refusals.h"
#include "session/set_up.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>

CameraState cameraState;

namespace {

constexpr int maximumTries = 1000; // for one frame
constexpr int64_t acquisitionFrames = 10;

// On standard output.
constexpr char deviceName[] = "Camera";
constexpr char frameName[] = "Camera frame";

void disconnect(CameraState& state) {
    state.connected = 0;
    // The live view would say it ten times a second.
    if (!liveViewState.noticeStands) showInformation("No camera detected");
}

void disconnect(CameraState& state, const std::exception& refusal) {
    printRefusal(deviceName, refusal.what());
    disconnect(state);
}

// What a camera may give, and how the picture is made of it; the first that it has is taken.
constexpr struct {
    PixelFormatValue format;
    Mosaic mosaic;
} formats[] = {{PixelFormat_BayerRG8, Mosaic::RG},
               {PixelFormat_BayerGR8, Mosaic::GR},
               {PixelFormat_BayerGB8, Mosaic::GB},
               {PixelFormat_BayerBG8, Mosaic::BG},
               {PixelFormat_Mono8, Mosaic::Grey}};

Mosaic chooseFormat(const CBaslerUniversalInstantCamera& camera) {
    if (camera.PixelFormat.Is(PixelFormat_BayerRG8)) return Mosaic::RG;
    for (const auto& each : formats) {
        if (!camera.PixelFormat.Has(each.format)) continue;
        camera.PixelFormat.SetValue(each.format);
        return each.mosaic;
    }
    // A library that does not know what the camera has is asked by trying.
    try {
        camera.PixelFormat.SetValue(PixelFormat_BayerRG8);
    } catch (const GenericException& refusal) {
        throw GenericException(
            std::string("The camera has none of BayerRG8, BayerGR8, BayerGB8, BayerBG8, Mono8: ") +
            refusal.what());
    }
    return Mosaic::RG;
}

// From here on frames are as the camera is set.
void takeShape(CameraState& state, const CBaslerUniversalInstantCamera& camera, Mosaic mosaic) {
    int64_t width = 2 * int64_t{imageWidth}, height = 2 * int64_t{imageHeight};
    if (camera.Width.IsReadable() && camera.Height.IsReadable()) {
        width = camera.Width.GetValue();
        height = camera.Height.GetValue();
    }
    if (width > 2 * imageWidth || height > 2 * imageHeight || width < 2 || height < 2)
        throw GenericException(formatted("A picture of %d x %d pixels cannot be cut to 2464 x 2056",
                                         static_cast<int>(width), static_cast<int>(height)));
    shapeFrames(cameraImage, static_cast<int32_t>(width), static_cast<int32_t>(height), mosaic);
    state.frameBytes = cameraImage.width * cameraImage.height;
    // Another camera's last frame must not be read as one of this camera's.
    if (state.grabResult &&
        state.grabResult->GetPayloadSize() != static_cast<size_t>(state.frameBytes)) {
        state.frame = state.ownFrame.data();
        state.grabResult.reset();
    }
    if (!cameraImage.sees(state.laserOffset.x, state.laserOffset.y))
        announce(Severity::Trouble, "The laser spot lies beyond what the camera sees");
}

void openAutomatic(CameraState& state) {
    CBaslerUniversalInstantCamera& camera = *state.device;
    showInformation("Camera Opening");
    camera.Open();
    reportAnswer(deviceName, "opened");
    if (camera.IsGrabbing()) camera.StopGrabbing();
    const Mosaic mosaic = chooseFormat(camera);
    // The two automatic functions see to that as well; a camera may have neither.
    if (!camera.GainAuto.IsWritable() && !camera.ExposureAuto.IsWritable()) useWholeSensor(camera);
    showInformation("Camera Auto Gain Control");
    autoGainContinuous(camera);
    showInformation("Camera Auto Exposure ");
    sleepMs(100);
    autoExposureContinuous(camera);
    showInformation("Auto WhiteBalance skipped");
    if (camera.AcquisitionFrameCount.IsWritable())
        camera.AcquisitionFrameCount.SetValue(acquisitionFrames);
    takeShape(state, camera, mosaic);
}

// A camera without the automatic function is used without it.
void setAutomatic(const EnumParameter& function, AutoMode mode) {
    if (function.IsWritable()) function.SetValue(mode);
}

void adjustOnce(CBaslerUniversalInstantCamera& camera) {
    if (!camera.IsOpen()) throw GenericException("The camera is not open");
    setAutomatic(camera.GainAuto, Auto_Once);
    autoGainOnce(camera);
    setAutomatic(camera.ExposureAuto, Auto_Once);
    autoExposureOnce(camera);
}

void requireWholeFrame(const CameraState& state, const CGrabResult& result) {
    if (result.GetPayloadSize() < static_cast<size_t>(state.frameBytes))
        throw GenericException("The camera's frame is smaller than the picture");
}

void accumulateFrame(CameraState& state) {
    CBaslerUniversalInstantCamera& camera = *state.device;
    camera.RegisterConfiguration(CAcquireSingleFrameConfiguration);
    // A result of its own: `frame` may lie in the buffer that `grabResult` keeps.
    CGrabResultPtr result;
    camera.GrabOne(grabOneTimeoutMs, result, TimeoutHandling_ThrowException);
    camera.Open();
    camera.GrabOne(grabOneTimeoutMs, result, TimeoutHandling_ThrowException);
    if (result->GrabSucceeded()) {
        requireWholeFrame(state, *result);
        const uint8_t* added = result->GetBuffer();
        for (size_t i = 0; i < static_cast<size_t>(state.frameBytes); ++i)
            state.frame[i] = static_cast<uint8_t>(state.frame[i] + added[i]);
    }
    camera.Close();
    camera.RegisterConfiguration(CAcquireContinuousConfiguration);
}

// No typed number may cost the camera that goes less far. Cameras of the older generation take the
// same numbers under another name.
void setGain(CBaslerUniversalInstantCamera& camera, int32_t gain) {
    if (!camera.Gain.IsWritable() && camera.GainRaw.IsWritable())
        camera.GainRaw.SetValue(
            std::clamp<int64_t>(gain, camera.GainRaw.GetMin(), camera.GainRaw.GetMax()));
    else
        camera.Gain.SetValue(std::clamp<double>(gain, camera.Gain.GetMin(), camera.Gain.GetMax()));
}

// What the camera has made of the numbers; 0 of one that does not say. It is not lost for that.
double gainOf(const CBaslerUniversalInstantCamera& camera) {
    if (camera.Gain.IsReadable()) return camera.Gain.GetValue();
    return camera.GainRaw.IsReadable() ? static_cast<double>(camera.GainRaw.GetValue()) : 0.0;
}

double exposureOf(const CBaslerUniversalInstantCamera& camera) {
    const bool says = camera.ExposureTime.IsReadable() || camera.ExposureTimeRaw.IsReadable() ||
                      camera.ExposureTimeAbs.IsReadable();
    return says ? camera.GetExposureUs() : 0.0;
}

void applyManual(CameraState& state) {
    CBaslerUniversalInstantCamera& camera = *state.device;
    camera.Close();
    camera.Open();
    setAutomatic(camera.GainAuto, Auto_Off);
    setGain(camera, state.gain);
    setAutomatic(camera.ExposureAuto, Auto_Off);
    camera.SetExposureUs(state.exposureUs);
    state.takenGain = gainOf(camera);
    state.takenExposureUs = exposureOf(camera);
    formatInto(state.message, "exposure time: %.1f", state.exposureUs);
    showInformation(state.message);
}

void startGrabbing(CBaslerUniversalInstantCamera& camera, uint32_t count) {
    camera.StartGrabbing(count, GrabStrategy_LatestImages, GrabLoop_ProvidedByUser);
}

// One frame into `state.frame`; false when it is given up.
bool takeFrame(CameraState& state, uint32_t count, uint32_t taken) {
    CBaslerUniversalInstantCamera& camera = *state.device;
    for (int attempt = 0; attempt < maximumTries; ++attempt) {
        if (!camera.IsGrabbing()) {
            startGrabbing(camera, count);
            sleepMs(10);
            continue;
        }
        // The frame that is shown keeps its buffer until the next one is there.
        CGrabResultPtr result;
        camera.RetrieveResult(waitWithoutLimit, result, TimeoutHandling_ThrowException);
        if (result->GrabSucceeded()) {
            requireWholeFrame(state, *result);
            state.grabResult = result;
            state.frame = result->GetBuffer();
            return true;
        }
        printRefusal(frameName, formatted("failed (0x%08X)", result->GetErrorCode()));
        if (taken >= count) break;
    }
    if (camera.IsGrabbing()) camera.StopGrabbing(); // so that the next grab can start
    return false;
}

void fillTestPattern(CameraState& state) {
    shapeFrames(cameraImage, 2 * imageWidth, 2 * imageHeight, Mosaic::RG);
    state.frameBytes = static_cast<int32_t>(cameraImage.byteCount);
    state.frame = state.ownFrame.data();
    state.grabResult.reset();
    // Byte i is i / 10 + phase: runs of ten equal bytes.
    const auto bytes = static_cast<size_t>(state.frameBytes);
    std::array<uint8_t, size_t{256} * 10> period;
    for (size_t i = 0; i < period.size(); ++i)
        period[i] = static_cast<uint8_t>(i / 10 + static_cast<uint32_t>(state.fallbackPhase));
    for (size_t start = 0; start < bytes; start += period.size())
        std::copy_n(period.begin(), std::min(period.size(), bytes - start), state.frame + start);
    state.fallbackPhase = static_cast<int32_t>(static_cast<uint32_t>(state.fallbackPhase) + 1);
}

} // namespace

CameraState::CameraState() : ownFrame(static_cast<size_t>(frameBytes)) {
    frame = ownFrame.data();
}

int initCamera(CameraState& state) {
    state.frameBytes = static_cast<int32_t>(cameraImage.byteCount);
    const std::string& serial = setUp.cameraSerial;
    reportSearch(deviceName, serial.empty() ? "the first camera that its library finds"
                                            : "the camera with the serial number " + serial);
    try {
        if (state.device) state.device->Close();
        PylonInitialize();
        ++state.runtimeStarts;
        state.device = std::make_unique<CBaslerUniversalInstantCamera>(
            CTlFactory::GetInstance().CreateFirstDevice(CDeviceInfo{serial}));
    } catch (const std::exception& refusal) {
        disconnect(state, refusal);
        return 0;
    }
    forgetRefusal(frameName);
    reportAnswer(deviceName, "found");
    state.connected = 1;
    state.needsInit = 0;
    return 1;
}

int controlCamera(CameraState& state, uint32_t mode) {
    if (!state.connected) {
        disconnect(state);
        return 0;
    }
    try {
        if (mode == cameraAutomatic) openAutomatic(state);
        if (mode == cameraAdjustOnce) adjustOnce(*state.device);
        if (mode == cameraAccumulate) accumulateFrame(state);
        if (mode == cameraManual) applyManual(state);
    } catch (const std::exception& refusal) {
        disconnect(state, refusal);
    }
    return 0;
}

bool holdAutomatic(CameraState& state) {
    if (!state.connected) return false;
    bool held = false;
    try {
        for (const EnumParameter* function :
             {&state.device->GainAuto, &state.device->ExposureAuto}) {
            if (!function->IsWritable() || !function->Is(Auto_Continuous)) continue;
            function->SetValue(Auto_Off);
            held = true;
        }
    } catch (const std::exception& refusal) {
        disconnect(state, refusal);
    }
    return held;
}

void resumeAutomatic(CameraState& state) {
    if (!state.connected) return;
    try {
        setAutomatic(state.device->GainAuto, Auto_Continuous);
        setAutomatic(state.device->ExposureAuto, Auto_Continuous);
    } catch (const std::exception& refusal) {
        disconnect(state, refusal);
    }
}

int grabFrames(CameraState& state, uint32_t count) {
    bool failed = !state.connected;
    state.fresh = false;
    if (!failed) {
        try {
            startGrabbing(*state.device, count);
            uint32_t taken = 0;
            for (uint32_t i = 0; i < count; ++i)
                if (takeFrame(state, count, taken)) ++taken;
            state.fresh = taken > 0;
            if (state.fresh) printNews(deviceName, "frames arrive");
        } catch (const std::exception& refusal) {
            printRefusal(deviceName, refusal.what());
            failed = true;
        }
    }
    if (failed) {
        disconnect(state);
        fillTestPattern(state);
    }
    if (cameraImage.pixels) convertBayerFrame(cameraImage, state.frame, cameraImage.pixels.get());
    return 0;
}

void releaseCamera(CameraState& state) {
    state.device.reset();
    for (; state.runtimeStarts > 0; --state.runtimeStarts) PylonTerminate();
    state.connected = 0;
    state.needsInit = 1;
}
