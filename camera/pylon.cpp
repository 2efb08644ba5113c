// The camera SDK's objects over its C functions.
#include "camera/pylon.h"

#include "platform/text_format.h"
#include "session/device_report.h"
#include "session/refusals.h"

#include <algorithm>
#include <cmath>

namespace {

PylonC pylon;

constexpr uint32_t bufferTooSmall = 0xC2000003; // the length then says what is needed

std::string lastErrorMessage() {
    std::string text(256, '\0');
    size_t length = text.size();
    if (pylon.GenApiGetLastErrorMessage(text.data(), &length) == bufferTooSmall) {
        text.resize(length);
        pylon.GenApiGetLastErrorMessage(text.data(), &length);
    }
    return text.c_str(); // up to the zero
}

void check(uint32_t result, const char* what) {
    if (result == 0) return;
    throw GenericException(formatted("%s: %s (0x%08X)", what, lastErrorMessage().c_str(), result));
}

const char* const autoModes[] = {"Continuous", "Off", "Once"};
const char* const pixelFormats[] = {"BayerRG8", "BayerGR8", "BayerGB8", "BayerBG8", "Mono8"};
const char* const roiNames[] = {"ROI1", "ROI2"};
const char* const aoiNames[] = {"AOI1", "AOI2"};

// How often a wait asks whether the camera is still there.
constexpr uint32_t presenceCheckMs = 1000;

constexpr const char* fileNames[] = {
    "PylonC_v11.dll",  "PylonC_v10.dll",  "PylonC_v9.dll",   "PylonC_v8_0.dll", "PylonC_v7_5.dll",
    "PylonC_v7_4.dll", "PylonC_v7_3.dll", "PylonC_v7_2.dll", "PylonC_v7_1.dll", "PylonC_v7_0.dll",
    "PylonC_v6_3.dll", "PylonC_v6_2.dll", "PylonC_v6_1.dll", "PylonC_v6_0.dll"};

// A file beside the program was put there on purpose: it comes before a newer one elsewhere.
LibraryHandle loadAnyRelease() {
    for (const LibraryPlace place : {LibraryPlace::BesideProgram, LibraryPlace::SystemOrder})
        for (const char* fileName : fileNames)
            if (LibraryHandle library = loadLibrary(fileName, place)) return library;
    return nullptr;
}

} // namespace

PylonC loadPylonC(bool& fileFound) {
    PylonC found;
    LibraryHandle library = loadAnyRelease();
    fileFound = library != nullptr;
    constexpr const char* name = "Camera library";
    printNews(name, reportLibrary(name, library, {std::begin(fileNames), std::end(fileNames)}));
    if (!library) return found;
#define BIND(name) bindFunction(found.name, library, #name)
    BIND(PylonInitialize);
    BIND(PylonTerminate);
    BIND(GenApiGetLastErrorMessage);
    BIND(PylonEnumerateDevices);
    BIND(PylonCreateDeviceByIndex);
    BIND(PylonDestroyDevice);
    BIND(PylonDeviceOpen);
    BIND(PylonDeviceClose);
    BIND(PylonDeviceFeatureIsAvailable);
    BIND(PylonDeviceFeatureIsReadable);
    BIND(PylonDeviceFeatureIsWritable);
    BIND(PylonDeviceFeatureFromString);
    BIND(PylonDeviceFeatureToString);
    BIND(PylonDeviceSetIntegerFeature);
    BIND(PylonDeviceGetIntegerFeature);
    BIND(PylonDeviceGetIntegerFeatureMin);
    BIND(PylonDeviceGetIntegerFeatureMax);
    BIND(PylonDeviceGetIntegerFeatureInc);
    BIND(PylonGetDeviceInfoHandle);
    BIND(PylonDeviceInfoGetPropertyValueByName);
    BIND(PylonDeviceSetFloatFeature);
    BIND(PylonDeviceGetFloatFeature);
    BIND(PylonDeviceGetFloatFeatureMin);
    BIND(PylonDeviceGetFloatFeatureMax);
    BIND(PylonDeviceSetBooleanFeature);
    BIND(PylonDeviceExecuteCommandFeature);
    BIND(PylonDeviceGetStreamGrabber);
    BIND(PylonStreamGrabberOpen);
    BIND(PylonStreamGrabberClose);
    BIND(PylonStreamGrabberSetMaxNumBuffer);
    BIND(PylonStreamGrabberSetMaxBufferSize);
    BIND(PylonStreamGrabberGetPayloadSize);
    BIND(PylonStreamGrabberPrepareGrab);
    BIND(PylonStreamGrabberRegisterBuffer);
    BIND(PylonStreamGrabberQueueBuffer);
    BIND(PylonStreamGrabberStartStreamingIfMandatory);
    BIND(PylonStreamGrabberStopStreamingIfMandatory);
    BIND(PylonStreamGrabberGetWaitObject);
    BIND(PylonWaitObjectWait);
    BIND(PylonStreamGrabberRetrieveResult);
    BIND(PylonStreamGrabberFlushBuffersToOutput);
    BIND(PylonStreamGrabberDeregisterBuffer);
    BIND(PylonStreamGrabberFinishGrab);
#undef BIND
    return found;
}

void PylonInitialize() {
    bool fileFound = false;
    pylon = loadPylonC(fileFound);
    if (!fileFound) throw GenericException("No camera library");
    check(pylon.PylonInitialize(), "PylonInitialize");
}

void PylonTerminate() {
    pylon.PylonTerminate();
}

IPylonDevice::~IPylonDevice() {
    pylon.PylonDestroyDevice(handle);
}

CTlFactory& CTlFactory::GetInstance() {
    static CTlFactory factory;
    return factory;
}

namespace {

// Empty where the library does not say.
std::string serialNumberOf(size_t index) {
    void* info = nullptr;
    char text[256] = "";
    size_t length = sizeof text;
    if (pylon.PylonGetDeviceInfoHandle(index, &info) != 0 ||
        pylon.PylonDeviceInfoGetPropertyValueByName(info, "SerialNumber", text, &length) != 0)
        return {};
    text[sizeof text - 1] = '\0';
    return text;
}

// Of the cameras that were found the one that is wanted; any where no serial number is.
size_t indexOf(const CDeviceInfo& wanted, size_t count) {
    if (wanted.serialNumber.empty()) return 0;
    std::string others;
    for (size_t i = 0; i < count; ++i) {
        const std::string serial = serialNumberOf(i);
        if (serial == wanted.serialNumber) return i;
        if (!others.empty()) others += ", ";
        others += serial.empty() ? "one that does not say" : serial;
    }
    throw GenericException("No camera with the serial number " + wanted.serialNumber +
                           ", there is " + others);
}

} // namespace

std::unique_ptr<IPylonDevice> CTlFactory::CreateFirstDevice(const CDeviceInfo& filter) {
    size_t count = 0;
    check(pylon.PylonEnumerateDevices(&count), "PylonEnumerateDevices");
    if (count == 0) throw GenericException("No camera found");
    void* device = nullptr;
    check(pylon.PylonCreateDeviceByIndex(indexOf(filter, count), &device),
          "PylonCreateDeviceByIndex");
    return std::make_unique<IPylonDevice>(device);
}

bool Parameter::IsReadable() const {
    return pylon.PylonDeviceFeatureIsReadable(device, name) != 0;
}

bool Parameter::IsWritable() const {
    return pylon.PylonDeviceFeatureIsWritable(device, name) != 0;
}

int64_t IntegerParameter::GetValue() const {
    int64_t value = 0;
    check(pylon.PylonDeviceGetIntegerFeature(device, name, &value), name);
    return value;
}

int64_t IntegerParameter::GetMin() const {
    int64_t value = 0;
    check(pylon.PylonDeviceGetIntegerFeatureMin(device, name, &value), name);
    return value;
}

// 1 where the library has no word of it.
int64_t IntegerParameter::GetInc() const {
    int64_t value = 1;
    if (pylon.PylonDeviceGetIntegerFeatureInc(device, name, &value) != 0 || value < 1) value = 1;
    return value;
}

int64_t IntegerParameter::GetMax() const {
    int64_t value = 0;
    check(pylon.PylonDeviceGetIntegerFeatureMax(device, name, &value), name);
    return value;
}

void IntegerParameter::SetValue(int64_t value) const {
    check(pylon.PylonDeviceSetIntegerFeature(device, name, value), name);
}

double FloatParameter::GetValue() const {
    double value = 0.0;
    check(pylon.PylonDeviceGetFloatFeature(device, name, &value), name);
    return value;
}

double FloatParameter::GetMin() const {
    double value = 0.0;
    check(pylon.PylonDeviceGetFloatFeatureMin(device, name, &value), name);
    return value;
}

double FloatParameter::GetMax() const {
    double value = 0.0;
    check(pylon.PylonDeviceGetFloatFeatureMax(device, name, &value), name);
    return value;
}

void FloatParameter::SetValue(double value) const {
    check(pylon.PylonDeviceSetFloatFeature(device, name, value), name);
}

void BooleanParameter::SetValue(bool value) const {
    check(pylon.PylonDeviceSetBooleanFeature(device, name, value ? 1 : 0), name);
}

bool EnumParameter::Has(int value) const {
    const std::string entry = std::string("EnumEntry_") + name + "_" + entries[value];
    return pylon.PylonDeviceFeatureIsAvailable(device, entry.c_str()) != 0;
}

bool EnumParameter::Is(int value) const {
    char text[64] = "";
    size_t length = sizeof text;
    check(pylon.PylonDeviceFeatureToString(device, name, text, &length), name);
    text[sizeof text - 1] = '\0';
    return std::string(text) == entries[value];
}

void EnumParameter::SetValue(int value) const {
    check(pylon.PylonDeviceFeatureFromString(device, name, entries[value]), name);
}

CBaslerUniversalInstantCamera::CBaslerUniversalInstantCamera(std::unique_ptr<IPylonDevice> found)
    : owner(std::move(found)), device(owner->handle),
      PixelFormat(device, "PixelFormat", pixelFormats), GainAuto(device, "GainAuto", autoModes),
      ExposureAuto(device, "ExposureAuto", autoModes),
      BalanceWhiteAuto(device, "BalanceWhiteAuto", autoModes),
      AutoFunctionROISelector(device, "AutoFunctionROISelector", roiNames),
      AutoFunctionAOISelector(device, "AutoFunctionAOISelector", aoiNames), Gain(device, "Gain"),
      AutoGainLowerLimit(device, "AutoGainLowerLimit"),
      AutoGainUpperLimit(device, "AutoGainUpperLimit"), ExposureTime(device, "ExposureTime"),
      ExposureTimeAbs(device, "ExposureTimeAbs"),
      AutoExposureTimeLowerLimit(device, "AutoExposureTimeLowerLimit"),
      AutoExposureTimeUpperLimit(device, "AutoExposureTimeUpperLimit"),
      AutoTargetBrightness(device, "AutoTargetBrightness"), BalanceRatio(device, "BalanceRatio"),
      BalanceRatioAbs(device, "BalanceRatioAbs"),
      ExposureTimeBaseAbs(device, "ExposureTimeBaseAbs"),
      ResultingFrameRate(device, "ResultingFrameRate"),
      ResultingFrameRateAbs(device, "ResultingFrameRateAbs"), GainRaw(device, "GainRaw"),
      ExposureTimeRaw(device, "ExposureTimeRaw"),
      AutoGainRawLowerLimit(device, "AutoGainRawLowerLimit"),
      AutoGainRawUpperLimit(device, "AutoGainRawUpperLimit"),
      AutoTargetValue(device, "AutoTargetValue"), OffsetX(device, "OffsetX"),
      OffsetY(device, "OffsetY"), Width(device, "Width"), Height(device, "Height"),
      AutoFunctionROIOffsetX(device, "AutoFunctionROIOffsetX"),
      AutoFunctionROIOffsetY(device, "AutoFunctionROIOffsetY"),
      AutoFunctionROIWidth(device, "AutoFunctionROIWidth"),
      AutoFunctionROIHeight(device, "AutoFunctionROIHeight"),
      AutoFunctionAOIOffsetX(device, "AutoFunctionAOIOffsetX"),
      AutoFunctionAOIOffsetY(device, "AutoFunctionAOIOffsetY"),
      AutoFunctionAOIWidth(device, "AutoFunctionAOIWidth"),
      AutoFunctionAOIHeight(device, "AutoFunctionAOIHeight"),
      AcquisitionFrameCount(device, "AcquisitionFrameCount"),
      AutoFunctionROIUseBrightness(device, "AutoFunctionROIUseBrightness"),
      CenterX(device, "CenterX"), CenterY(device, "CenterY") {}

CBaslerUniversalInstantCamera::~CBaslerUniversalInstantCamera() {
    Close();
}

void CBaslerUniversalInstantCamera::Open() {
    if (open) return;
    check(pylon.PylonDeviceOpen(device, pylonAccessControl | pylonAccessStream), "PylonDeviceOpen");
    open = true;
    try {
        switchTriggersOff();
        check(pylon.PylonDeviceFeatureFromString(device, "AcquisitionMode",
                                                 configuration.acquisitionMode),
              "AcquisitionMode");
        check(pylon.PylonDeviceGetStreamGrabber(device, 0, &stream), "PylonDeviceGetStreamGrabber");
        check(pylon.PylonStreamGrabberOpen(stream), "PylonStreamGrabberOpen");
        check(pylon.PylonStreamGrabberGetWaitObject(stream, &waitObject),
              "PylonStreamGrabberGetWaitObject");
    } catch (...) {
        Close();
        throw;
    }
}

// A trigger that a stored user set left on would let every wait for a frame last for ever.
void CBaslerUniversalInstantCamera::switchTriggersOff() const {
    constexpr struct {
        const char* entry;
        const char* name;
    } triggers[] = {
        {"EnumEntry_TriggerSelector_AcquisitionStart", "AcquisitionStart"},
        {"EnumEntry_TriggerSelector_FrameBurstStart", "FrameBurstStart"},
        {"EnumEntry_TriggerSelector_FrameStart", "FrameStart"},
    };
    const Parameter mode(device, "TriggerMode");
    for (const auto& trigger : triggers) {
        if (!pylon.PylonDeviceFeatureIsAvailable(device, trigger.entry)) continue;
        check(pylon.PylonDeviceFeatureFromString(device, "TriggerSelector", trigger.name),
              trigger.name);
        if (mode.IsWritable())
            check(pylon.PylonDeviceFeatureFromString(device, "TriggerMode", "Off"), trigger.name);
    }
    if (mode.IsWritable())
        check(pylon.PylonDeviceFeatureFromString(device, "TriggerMode", "Off"), "TriggerMode");
}

void CBaslerUniversalInstantCamera::Close() {
    if (!open) return;
    StopGrabbing();
    if (stream) pylon.PylonStreamGrabberClose(stream);
    stream = nullptr;
    waitObject = nullptr;
    pylon.PylonDeviceClose(device);
    open = false;
}

void CBaslerUniversalInstantCamera::StartGrabbing(size_t maxImages, EGrabStrategy, EGrabLoop) {
    Open();
    if (grabbing) throw GenericException("The camera is grabbing already");
    grabbing = true; // from here on StopGrabbing has something to undo
    imagesLeft = maxImages;
    try {
        size_t payload = 0;
        check(pylon.PylonStreamGrabberGetPayloadSize(device, stream, &payload),
              "PylonStreamGrabberGetPayloadSize");
        check(pylon.PylonStreamGrabberSetMaxNumBuffer(stream, buffers.size()), "SetMaxNumBuffer");
        check(pylon.PylonStreamGrabberSetMaxBufferSize(stream, payload), "SetMaxBufferSize");
        check(pylon.PylonStreamGrabberPrepareGrab(stream), "PylonStreamGrabberPrepareGrab");
        for (StreamBuffer& buffer : buffers) {
            if (buffer.memory && buffer.memory.use_count() > 1) continue; // somebody looks at it
            if (!buffer.memory || buffer.memory->size() != payload)
                buffer.memory = std::make_shared<std::vector<uint8_t>>(payload);
            check(pylon.PylonStreamGrabberRegisterBuffer(stream, buffer.memory->data(), payload,
                                                         &buffer.handle),
                  "PylonStreamGrabberRegisterBuffer");
        }
        queueFreeBuffers();
        check(pylon.PylonStreamGrabberStartStreamingIfMandatory(stream), "StartStreaming");
        check(pylon.PylonDeviceExecuteCommandFeature(device, "AcquisitionStart"),
              "AcquisitionStart");
    } catch (...) {
        StopGrabbing();
        throw;
    }
}

void CBaslerUniversalInstantCamera::queueFreeBuffers() {
    for (StreamBuffer& buffer : buffers) {
        if (!buffer.handle || buffer.queued || buffer.memory.use_count() > 1) continue;
        check(pylon.PylonStreamGrabberQueueBuffer(stream, buffer.handle, &buffer),
              "PylonStreamGrabberQueueBuffer");
        buffer.queued = true;
    }
}

void CBaslerUniversalInstantCamera::StopGrabbing() {
    if (!grabbing) return;
    grabbing = false;
    // The camera may be gone: whatever fails here has nothing left to stop.
    pylon.PylonDeviceExecuteCommandFeature(device, "AcquisitionStop");
    pylon.PylonStreamGrabberStopStreamingIfMandatory(stream);
    releaseStream();
}

void CBaslerUniversalInstantCamera::releaseStream() {
    pylon.PylonStreamGrabberFlushBuffersToOutput(stream);
    PylonGrabResult_t rest{};
    uint8_t ready = 1;
    while (ready) {
        ready = 0;
        if (pylon.PylonStreamGrabberRetrieveResult(stream, &rest, &ready) != 0) break;
    }
    for (StreamBuffer& buffer : buffers) {
        if (buffer.handle) pylon.PylonStreamGrabberDeregisterBuffer(stream, buffer.handle);
        buffer.handle = nullptr;
        buffer.queued = false;
    }
    pylon.PylonStreamGrabberFinishGrab(stream);
}

// A wait must end soon when the camera has been unplugged. What is read may come from a cache;
// writing a value back that is there already always asks the camera. An automatic function keeps
// its own value to itself, but not its target.
void CBaslerUniversalInstantCamera::requirePresence() const {
    if (Gain.IsWritable())
        Gain.SetValue(Gain.GetValue());
    else if (GainRaw.IsWritable())
        GainRaw.SetValue(GainRaw.GetValue());
    else if (AutoTargetBrightness.IsWritable())
        AutoTargetBrightness.SetValue(AutoTargetBrightness.GetValue());
    else if (AutoTargetValue.IsWritable())
        AutoTargetValue.SetValue(AutoTargetValue.GetValue());
}

// The camera's own figure knows of a limited frame rate and of a slow line as well.
uint64_t CBaslerUniversalInstantCamera::longestFrameMs() const {
    constexpr double reserveMs = 2000.0, frames = 3.0, longestPeriodMs = 60e3;
    double periodMs = GetExposureUs() / 1000.0;
    for (const FloatParameter* rate : {&ResultingFrameRate, &ResultingFrameRateAbs}) {
        if (!rate->IsReadable()) continue;
        const double perSecond = rate->GetValue();
        if (perSecond > 0.0) periodMs = std::max(periodMs, 1000.0 / perSecond);
    }
    return static_cast<uint64_t>(reserveMs + frames * std::min(periodMs, longestPeriodMs));
}

// A camera whose buffers stay away although it answers must not hold the program for ever either.
bool CBaslerUniversalInstantCamera::waitForFrame(uint32_t timeoutMs) {
    uint64_t limitMs = timeoutMs;
    for (uint64_t waitedMs = 0; waitedMs < limitMs;) {
        uint8_t ready = 0;
        const auto slice =
            static_cast<uint32_t>(std::min<uint64_t>(limitMs - waitedMs, presenceCheckMs));
        check(pylon.PylonWaitObjectWait(waitObject, slice, &ready), "PylonWaitObjectWait");
        if (ready) return true;
        requirePresence();
        waitedMs += slice;
        if (timeoutMs == waitWithoutLimit) limitMs = longestFrameMs();
    }
    return false;
}

void CBaslerUniversalInstantCamera::RetrieveResult(uint32_t timeoutMs, CGrabResultPtr& result,
                                                   ETimeoutHandling) {
    if (!grabbing) throw GenericException("The camera is not grabbing");
    result.reset(); // gives its buffer back
    queueFreeBuffers();
    if (!waitForFrame(timeoutMs)) throw TimeoutException("No frame came in time");
    PylonGrabResult_t grabbed{};
    uint8_t ready = 0;
    check(pylon.PylonStreamGrabberRetrieveResult(stream, &grabbed, &ready),
          "PylonStreamGrabberRetrieveResult");
    if (!ready) throw GenericException("The wait object was set without a frame");
    const auto buffer = std::find_if(buffers.begin(), buffers.end(), [&](const StreamBuffer& own) {
        return &own == grabbed.Context;
    });
    if (buffer == buffers.end()) throw GenericException("A frame in a buffer of nobody");
    buffer->queued = false;
    result = std::make_shared<CGrabResult>();
    result->buffer = buffer->memory;
    result->succeeded = grabbed.Status == pylonGrabbed;
    result->errorCode = grabbed.ErrorCode;
    result->payloadSize = buffer->memory->size();
    if (imagesLeft > 0) --imagesLeft;
    if (imagesLeft == 0) StopGrabbing();
}

void CBaslerUniversalInstantCamera::GrabOne(uint32_t timeoutMs, CGrabResultPtr& result,
                                            ETimeoutHandling handling) {
    const bool wasOpen = open;
    try {
        StartGrabbing(1, GrabStrategy_LatestImages, GrabLoop_ProvidedByUser);
        RetrieveResult(timeoutMs, result, handling);
    } catch (...) {
        StopGrabbing();
        if (!wasOpen) Close();
        throw;
    }
    if (!wasOpen) Close();
}

VersionInfo CBaslerUniversalInstantCamera::GetSfncVersion() const {
    VersionInfo version;
    IntegerParameter major(device, "DeviceSFNCVersionMajor");
    if (!major.IsReadable()) return version;
    version.major = major.GetValue();
    version.minor = IntegerParameter(device, "DeviceSFNCVersionMinor").GetValue();
    version.subMinor = IntegerParameter(device, "DeviceSFNCVersionSubMinor").GetValue();
    return version;
}

// The older raw time counts units of a base, which cameras without a name for it fix at 1 us.
double CBaslerUniversalInstantCamera::exposureTimeBaseUs() const {
    return ExposureTimeBaseAbs.IsReadable() ? ExposureTimeBaseAbs.GetValue() : 1.0;
}

double CBaslerUniversalInstantCamera::GetExposureUs() const {
    if (ExposureTime.IsReadable()) return ExposureTime.GetValue();
    if (ExposureTimeRaw.IsReadable() && !ExposureTimeAbs.IsReadable())
        return static_cast<double>(ExposureTimeRaw.GetValue()) * exposureTimeBaseUs();
    return ExposureTimeAbs.GetValue();
}

void CBaslerUniversalInstantCamera::SetExposureUs(double us) const {
    if (!ExposureTime.IsWritable() && !ExposureTimeAbs.IsWritable() &&
        ExposureTimeRaw.IsWritable()) {
        const auto raw = static_cast<int64_t>(std::llround(us / exposureTimeBaseUs()));
        ExposureTimeRaw.SetValue(
            std::clamp(raw, ExposureTimeRaw.GetMin(), ExposureTimeRaw.GetMax()));
        return;
    }
    const FloatParameter& time =
        !ExposureTime.IsWritable() && ExposureTimeAbs.IsWritable() ? ExposureTimeAbs : ExposureTime;
    time.SetValue(std::clamp(us, time.GetMin(), time.GetMax()));
}
