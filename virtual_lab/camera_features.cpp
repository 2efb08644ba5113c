// The virtual camera's features by GenICam name, in both generations of names, and its automatic
// functions.
#include "virtual_lab/faces.h"
#include "virtual_lab/lab_state.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <string_view>

using namespace LabPylon;

// No public source says which numbers a feature has that must not be written now, and one of
// another type; what failed is in the text.
constexpr uint32_t notWritable = illegalState, wrongType = logicalError;

// Entries of the automatic functions' enumerations.
constexpr double autoOff = 1, autoOnce = 2;

// One line for each: name, kind, generation, value, minimum, maximum, entries; then whether it can
// only be read and is fixed while frames are grabbed. Each region whose brightness the automatic
// functions look at has its own values; as delivered, region 1 is the middle of the sensor.
static std::vector<LabFeature> initialFeatures() {
    using enum FeatureKind;
    using enum FeatureAge;
    const LabSetUp& setUp = lab.faults.setUp;
    const double wide = setUp.sensorWidth, high = setUp.sensorHeight;
    // As delivered in twelve bits, the second. A colour camera offers grey pictures as well, and of
    // the mosaics only its own: regions of interest start at even pixels, so that it stays (Basler,
    // ace USB 3.0 user's manual AW00123402, 7.1.1 and its table of filter alignments).
    static const std::map<std::string, std::vector<const char*>> formatsOf = {
        {"BayerRG8", {"BayerRG8", "BayerRG12", "Mono8"}},
        {"BayerGR8", {"BayerGR8", "BayerGR12", "Mono8"}},
        {"BayerGB8", {"BayerGB8", "BayerGB12", "Mono8"}},
        {"BayerBG8", {"BayerBG8", "BayerBG12", "Mono8"}},
        {"Mono8", {"Mono8", "Mono12"}},
        {"Mono12", {"Mono12p", "Mono12"}}};
    const std::vector<const char*>& formats = formatsOf.at(setUp.pixelFormat);
    constexpr bool readOnly = true, fixed = true;
    const std::vector<const char*> none, modes = {"SingleFrame", "Continuous"},
                                         automatic = {"Continuous", "Off", "Once"};
    const auto region = [](const char* name, FeatureAge age, double first, double second,
                           double minimum, double maximum) {
        return LabFeature{name, Integer, age,   first, minimum, maximum,
                          {},   false,   false, true,  second};
    };
    return {
        {"PixelFormat", Enumeration, Always, 1, 0, 0, formats, false, fixed},
        {"AcquisitionMode", Enumeration, Always, 1, 0, 0, modes, false, fixed},
        {"TriggerSelector", Enumeration, Always, 0, 0, 0, {"FrameStart"}},
        {"TriggerMode", Enumeration, Always, 0, 0, 0, {"Off", "On"}},
        {"AcquisitionStart", Command},
        {"AcquisitionStop", Command},

        {"OffsetX", Integer, Always, 0, 0, wide, none, false, fixed},
        {"OffsetY", Integer, Always, 0, 0, high, none, false, fixed},
        // On, it keeps the offset in the middle at every size, and the offset cannot be written;
        // the latest models have a command of another name (docs.baslerweb.com,
        // center-x-and-center-y).
        {"CenterX", Boolean, Always, setUp.centred ? 1.0 : 0.0, 0, 1, none, false, fixed},
        {"CenterY", Boolean, Always, setUp.centred ? 1.0 : 0.0, 0, 1, none, false, fixed},
        {"Width", Integer, Always, wide, 16, wide, none, false, fixed},
        {"Height", Integer, Always, high, 16, high, none, false, fixed},
        {"PayloadSize", Integer, Always, 0, 0, 0, none, readOnly},

        {"GainAuto", Enumeration, Always, autoOff, 0, 0, automatic},
        {"ExposureAuto", Enumeration, Always, autoOff, 0, 0, automatic},
        {"BalanceWhiteAuto", Enumeration, Always, autoOff, 0, 0, automatic},

        {"DeviceSFNCVersionMajor", Integer, Sfnc2, 2, 0, 0, none, readOnly},
        {"DeviceSFNCVersionMinor", Integer, Sfnc2, 3, 0, 0, none, readOnly},
        {"DeviceSFNCVersionSubMinor", Integer, Sfnc2, 0, 0, 0, none, readOnly},
        {"Gain", Float, Sfnc2, 0, 0, 36},
        {"AutoGainLowerLimit", Float, Sfnc2, 0, 0, 36},
        {"AutoGainUpperLimit", Float, Sfnc2, 36, 0, 36},
        {"ExposureTime", Float, Sfnc2, 5000, 20, 1e7},
        {"AutoExposureTimeLowerLimit", Float, Sfnc2, 20, 20, 1e6},
        {"AutoExposureTimeUpperLimit", Float, Sfnc2, 1e5, 20, 1e6},
        {"AutoTargetBrightness", Float, Sfnc2, 0.5, 0.2, 0.8},
        {"BalanceRatio", Float, Sfnc2, 1, 0, 16},
        {"AutoFunctionROISelector", Enumeration, Sfnc2, 0, 0, 0, {"ROI1", "ROI2"}},
        region("AutoFunctionROIOffsetX", Sfnc2, wide / 4, 0, 0, wide),
        region("AutoFunctionROIOffsetY", Sfnc2, high / 4, 0, 0, high),
        region("AutoFunctionROIWidth", Sfnc2, wide / 2, wide, 16, wide),
        region("AutoFunctionROIHeight", Sfnc2, high / 2, high, 16, high),
        {"AutoFunctionROIUseBrightness", Boolean, Sfnc2, 1, 0, 1, none, false, false, true},

        {"GainRaw", Integer, BeforeSfnc2, 0, 0, 360}, // 0.1 dB
        {"AutoGainRawLowerLimit", Integer, BeforeSfnc2, 0, 0, 360},
        {"AutoGainRawUpperLimit", Integer, BeforeSfnc2, 360, 0, 360},
        {"ExposureTimeAbs", Float, BeforeSfnc2, 5000, 20, 1e7},
        // In place of the time in us (see findFeature): units of a base, as delivered 20 us.
        {"ExposureTimeRaw", Integer, BeforeSfnc2, 250, 1, 4095},
        {"ExposureTimeBaseAbs", Float, BeforeSfnc2, 20, 20, 1e7},
        {"AutoExposureTimeAbsLowerLimit", Float, BeforeSfnc2, 20, 20, 1e6},
        {"AutoExposureTimeAbsUpperLimit", Float, BeforeSfnc2, 1e5, 20, 1e6},
        {"AutoTargetValue", Integer, BeforeSfnc2, 128, 50, 205},
        {"BalanceRatioAbs", Float, BeforeSfnc2, 1, 0, 16},
        {"AcquisitionFrameCount", Integer, BeforeSfnc2, 1, 1, 255},
        {"AutoFunctionAOISelector", Enumeration, BeforeSfnc2, 0, 0, 0, {"AOI1", "AOI2"}},
        region("AutoFunctionAOIOffsetX", BeforeSfnc2, wide / 4, 0, 0, wide),
        region("AutoFunctionAOIOffsetY", BeforeSfnc2, high / 4, 0, 0, high),
        region("AutoFunctionAOIWidth", BeforeSfnc2, wide / 2, wide, 16, wide),
        region("AutoFunctionAOIHeight", BeforeSfnc2, high / 2, high, 16, high),
    };
}

void resetCamera() {
    // Devices that a program still holds stay valid handles, though nothing more comes of them.
    for (auto& device : lab.camera.devices) device->lost = true;
    lab.camera.features = initialFeatures();
    lab.camera.acquiring = lab.camera.frameDue = false;
    lab.camera.frameNumber = 0;
    lab.camera.lastError.clear();
}

bool isCameraFeature(const std::string& name) {
    return std::ranges::find(lab.camera.features, name, &LabFeature::name) !=
           lab.camera.features.end();
}

LabFeature* findFeature(const char* name) {
    FeatureAge absent = lab.faults.cameraOld ? FeatureAge::Sfnc2 : FeatureAge::BeforeSfnc2;
    const auto lacks = [](std::string_view what) {
        return std::ranges::count(lab.faults.cameraLacks, what) > 0;
    };
    if (name && lacks(name)) return nullptr;
    // Both times are never there together, so that none has to follow the other.
    if (name && std::string_view(name) == "ExposureTimeRaw" && !lacks("ExposureTimeAbs"))
        return nullptr;
    for (LabFeature& feature : lab.camera.features)
        if (feature.age != absent && name && std::strcmp(feature.name, name) == 0) return &feature;
    return nullptr;
}

// Sizes and offsets come in steps, of colour sensors even ones (as above).
int64_t cameraStep(std::string_view name) {
    if (name.ends_with("Width") || name.ends_with("OffsetX")) return 4;
    return name.ends_with("Height") || name.ends_with("OffsetY") ? 2 : 1;
}

static bool isCentred(std::string_view offset) {
    return (offset == "OffsetX" && featureValue("CenterX") != 0) ||
           (offset == "OffsetY" && featureValue("CenterY") != 0);
}

double featureValue(const char* name) {
    if (name && std::strcmp(name, "PayloadSize") == 0) return static_cast<double>(cameraPayload());
    LabFeature* feature = findFeature(name);
    if (feature && isCentred(name)) {
        const bool across = std::strcmp(name, "OffsetX") == 0;
        const auto step = static_cast<double>(cameraStep(name));
        const double room = feature->maximum - featureValue(across ? "Width" : "Height");
        return std::floor(room / 2 / step) * step;
    }
    return feature ? feature->value : 0;
}

std::string cameraPixelFormat() {
    LabFeature* format = findFeature("PixelFormat");
    return format ? format->entries[static_cast<size_t>(format->value)] : "BayerRG8";
}

size_t cameraPayload() {
    double bytesPerPixel = cameraPixelFormat().ends_with("12") ? 2 : 1;
    return static_cast<size_t>(featureValue("Width") * featureValue("Height") * bytesPerPixel);
}

static double gainDecibel() {
    return lab.faults.cameraOld ? featureValue("GainRaw") / 10 : featureValue("Gain");
}

static double exposureUs() {
    if (!lab.faults.cameraOld) return featureValue("ExposureTime");
    if (findFeature("ExposureTimeAbs")) return featureValue("ExposureTimeAbs");
    return featureValue("ExposureTimeRaw") * featureValue("ExposureTimeBaseAbs");
}

double cameraSensitivity() {
    return exposureUs() / 100 * std::pow(10, (gainDecibel() - 1) / 20);
}

double cameraFrameMs() {
    constexpr double readOutMs = 20;
    return readOutMs + exposureUs() / 1000;
}

static void endOnce(LabFeature& automatic) {
    if (automatic.value == autoOnce && !lab.faults.cameraUnsettled) automatic.value = autoOff;
}

// One step of an automatic function: half of the way, on a logarithmic scale. Returns what is left
// of `factor` for the next function.
static double adaptOne(const char* autoName, const char* name, double (*changed)(double, double),
                       const char* lowest, const char* highest, double factor) {
    LabFeature* automatic = findFeature(autoName);
    LabFeature* feature = findFeature(name);
    if (!automatic || !feature || automatic->value == autoOff) return factor;
    double wanted = changed(feature->value, std::sqrt(factor));
    double low = featureValue(lowest);
    feature->value = std::clamp(wanted, low, std::max(low, featureValue(highest)));
    bool settled = std::abs(std::log(factor)) < 0.05 || wanted != feature->value;
    if (settled) endOnce(*automatic);
    return wanted == feature->value ? 1 : factor;
}

void adaptExposure(double mean) {
    bool old = lab.faults.cameraOld;
    double target =
        old ? featureValue("AutoTargetValue") : 255 * featureValue("AutoTargetBrightness");
    double factor = target / std::max(mean, 1.0);
    auto scaled = [](double value, double by) { return value * by; };
    auto raised = [](double decibel, double by) { return decibel + 20 * std::log10(by); };
    auto raisedRaw = [](double raw, double by) { return std::round(raw + 200 * std::log10(by)); };

    LabFeature* whiteBalance = findFeature("BalanceWhiteAuto");
    if (whiteBalance) endOnce(*whiteBalance); // the light is white
    if (old) {
        factor = adaptOne("ExposureAuto", "ExposureTimeAbs", scaled,
                          "AutoExposureTimeAbsLowerLimit", "AutoExposureTimeAbsUpperLimit", factor);
        adaptOne("GainAuto", "GainRaw", raisedRaw, "AutoGainRawLowerLimit", "AutoGainRawUpperLimit",
                 factor);
    } else {
        factor = adaptOne("ExposureAuto", "ExposureTime", scaled, "AutoExposureTimeLowerLimit",
                          "AutoExposureTimeUpperLimit", factor);
        adaptOne("GainAuto", "Gain", raised, "AutoGainLowerLimit", "AutoGainUpperLimit", factor);
    }
}

// --- The library's functions
// ----------------------------------------------------------------------

static uint32_t failedCall(uint32_t code, const char* name, const char* why) {
    lab.camera.lastError = std::string(name ? name : "(null)") + ": " + why;
    return code;
}

static LabCameraDevice* openDevice(void* handle) {
    for (auto& device : lab.camera.devices)
        if (device.get() == handle && device->open) return device.get();
    return nullptr;
}

static bool isDevice(void* handle) {
    return std::ranges::find(lab.camera.devices, handle, &std::unique_ptr<LabCameraDevice>::get) !=
           lab.camera.devices.end();
}

// Belongs to an automatic function for the time being.
static bool automatic(const LabFeature& feature) {
    std::string name = feature.name;
    auto works = [](const char* function) {
        LabFeature* found = findFeature(function);
        return found && found->value != autoOff;
    };
    return (name.starts_with("Gain") && name != "GainAuto" && works("GainAuto")) ||
           (name.starts_with("ExposureTime") && works("ExposureAuto"));
}

static bool writable(const LabCameraDevice& device, const LabFeature& feature) {
    return (device.access & accessControl) && !feature.readOnly && !automatic(feature) &&
           !isCentred(feature.name) && !(feature.fixedWhileGrabbing && device.grabber.prepared);
}

// Every access by name begins the same way. `found` is set when 0 is returned.
static uint32_t look(void* handle, const char* name, bool write, LabFeature*& found) {
    LabCameraDevice* device = openDevice(handle);
    if (!device)
        return failedCall(isDevice(handle) ? illegalState : badDevice, name,
                          "the device is not open");
    found = findFeature(name);
    if (!found) return failedCall(noSuchNode, name, "the camera has no such feature");
    // The last values of a lost camera are still read, from the library's cache.
    if (device->lost && write) return failedCall(failure, name, "the device has been removed");
    if (write && !writable(*device, *found)) return failedCall(notWritable, name, "not writable");
    return 0;
}

static uint32_t look(void* handle, const char* name, bool write, FeatureKind kind,
                     LabFeature*& found) {
    if (uint32_t error = look(handle, name, write, found)) return error;
    if (found->kind != kind) return failedCall(wrongType, name, "the feature is of another type");
    return 0;
}

// An offset and a size share the sensor.
static double currentMaximum(const LabFeature& feature) {
    std::string name = feature.name;
    auto without = [&](const char* ending, const char* other) {
        const std::string rest = name.substr(0, name.size() - std::strlen(ending)) + other;
        return feature.maximum - (isCentred(rest) ? 0 : featureValue(rest.c_str()));
    };
    if (name.ends_with("OffsetX")) return without("OffsetX", "Width");
    if (name.ends_with("OffsetY")) return without("OffsetY", "Height");
    if (name.ends_with("Width")) return without("Width", "OffsetX");
    if (name.ends_with("Height")) return without("Height", "OffsetY");
    if (name == "PayloadSize") return static_cast<double>(cameraPayload());
    return feature.readOnly ? feature.value : feature.maximum;
}

static double currentMinimum(const LabFeature& feature) {
    return feature.readOnly ? featureValue(feature.name) : feature.minimum;
}

static uint32_t store(LabFeature& feature, double value) {
    if (std::fmod(value - feature.minimum, static_cast<double>(cameraStep(feature.name))) != 0 &&
        feature.kind == FeatureKind::Integer)
        return failedCall(outOfRange, feature.name, "not a step of the value");
    if (!(value >= feature.minimum && value <= currentMaximum(feature)))
        return failedCall(outOfRange, feature.name, "value out of range");
    feature.value = value;
    return 0;
}

static uint32_t storeEntry(LabFeature& feature, const char* entry) {
    for (size_t i = 0; i < feature.entries.size(); ++i) {
        if (std::strcmp(feature.entries[i], entry) != 0) continue;
        bool selector = std::strstr(feature.name, "AutoFunction") != nullptr;
        if (selector && feature.value != static_cast<double>(i))
            for (LabFeature& other : lab.camera.features)
                if (other.perRegion && other.age == feature.age)
                    std::swap(other.value, other.otherValue);
        feature.value = static_cast<double>(i);
        return 0;
    }
    return failedCall(invalidArgument, feature.name, "the enumeration has no such entry");
}

static uint32_t giveText(const std::string& text, char* buffer, size_t* length) {
    if (!length) return invalidArgument;
    size_t room = *length;
    *length = text.size() + 1;
    if (!buffer) return 0; // asked for the length only
    if (room < text.size() + 1) return bufferTooSmall;
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return 0;
}

template <class Value>
static uint32_t giveNumber(void* handle, const char* name, FeatureKind kind,
                           double (*number)(const LabFeature&), Value* value) {
    LabLock lock;
    LabFeature* feature = nullptr;
    if (!value) return failedCall(invalidArgument, name, "no place for the value");
    if (uint32_t error = look(handle, name, false, kind, feature)) return error;
    *value = static_cast<Value>(number(*feature));
    return 0;
}

static double presentValue(const LabFeature& feature) {
    return featureValue(feature.name);
}

extern "C" {

uint32_t GenApiGetLastErrorMessage(char* buffer, size_t* length) {
    LabLock lock;
    return giveText(lab.camera.lastError, buffer, length);
}

uint8_t PylonDeviceFeatureIsAvailable(void* handle, const char* name) {
    LabLock lock;
    if (openDevice(handle) && findFeature(name)) return 1;
    // The entries of an enumeration have names of their own.
    for (const char* of : {"TriggerSelector", "PixelFormat"}) {
        const std::string prefix = std::string("EnumEntry_") + of + "_";
        LabFeature* feature = openDevice(handle) ? findFeature(of) : nullptr;
        if (!feature || !std::string_view(name).starts_with(prefix)) continue;
        for (const char* entry : feature->entries)
            if (std::string_view(name).substr(prefix.size()) == entry) return 1;
    }
    return 0;
}

uint8_t PylonDeviceFeatureIsReadable(void* handle, const char* name) {
    LabLock lock;
    LabFeature* feature = openDevice(handle) ? findFeature(name) : nullptr;
    return feature && feature->kind != FeatureKind::Command;
}

uint8_t PylonDeviceFeatureIsWritable(void* handle, const char* name) {
    LabLock lock;
    LabCameraDevice* device = openDevice(handle);
    LabFeature* feature = device ? findFeature(name) : nullptr;
    return feature && writable(*device, *feature);
}

uint32_t PylonDeviceFeatureFromString(void* handle, const char* name, const char* text) {
    LabLock lock;
    LabFeature* feature = nullptr;
    if (uint32_t error = look(handle, name, true, feature)) return error;
    if (!text) return failedCall(invalidArgument, name, "no value");
    if (feature->kind == FeatureKind::Enumeration) return storeEntry(*feature, text);
    if (feature->kind == FeatureKind::Command)
        return failedCall(wrongType, name, "a command has no value");
    char* end = nullptr;
    double value = std::strtod(text, &end);
    if (end == text || *end) return failedCall(invalidArgument, name, "not a number");
    return store(*feature, value);
}

uint32_t PylonDeviceFeatureToString(void* handle, const char* name, char* buffer, size_t* length) {
    LabLock lock;
    LabFeature* feature = nullptr;
    if (uint32_t error = look(handle, name, false, feature)) return error;
    if (feature->kind == FeatureKind::Command)
        return failedCall(wrongType, name, "a command has no value");
    double value = featureValue(name);
    std::string text;
    if (feature->kind == FeatureKind::Enumeration)
        text = feature->entries[static_cast<size_t>(value)];
    else if (feature->kind == FeatureKind::Float)
        text = std::to_string(value);
    else
        text = std::to_string(static_cast<int64_t>(value));
    if (uint32_t error = giveText(text, buffer, length))
        return failedCall(error, name, "the buffer is too small");
    return 0;
}

uint32_t PylonDeviceSetIntegerFeature(void* handle, const char* name, int64_t value) {
    LabLock lock;
    LabFeature* feature = nullptr;
    uint32_t error = look(handle, name, true, FeatureKind::Integer, feature);
    return error ? error : store(*feature, static_cast<double>(value));
}

uint32_t PylonDeviceGetIntegerFeature(void* handle, const char* name, int64_t* value) {
    return giveNumber(handle, name, FeatureKind::Integer, presentValue, value);
}

uint32_t PylonDeviceGetIntegerFeatureMin(void* handle, const char* name, int64_t* value) {
    return giveNumber(handle, name, FeatureKind::Integer, currentMinimum, value);
}

uint32_t PylonDeviceGetIntegerFeatureInc(void* handle, const char* name, int64_t* value) {
    const auto step = [](const LabFeature& feature) {
        return static_cast<double>(cameraStep(feature.name));
    };
    return giveNumber(handle, name, FeatureKind::Integer, +step, value);
}

uint32_t PylonDeviceGetIntegerFeatureMax(void* handle, const char* name, int64_t* value) {
    return giveNumber(handle, name, FeatureKind::Integer, currentMaximum, value);
}

uint32_t PylonDeviceSetFloatFeature(void* handle, const char* name, double value) {
    LabLock lock;
    LabFeature* feature = nullptr;
    uint32_t error = look(handle, name, true, FeatureKind::Float, feature);
    return error ? error : store(*feature, value);
}

uint32_t PylonDeviceGetFloatFeature(void* handle, const char* name, double* value) {
    return giveNumber(handle, name, FeatureKind::Float, presentValue, value);
}

uint32_t PylonDeviceGetFloatFeatureMin(void* handle, const char* name, double* value) {
    return giveNumber(handle, name, FeatureKind::Float, currentMinimum, value);
}

uint32_t PylonDeviceGetFloatFeatureMax(void* handle, const char* name, double* value) {
    return giveNumber(handle, name, FeatureKind::Float, currentMaximum, value);
}

uint32_t PylonDeviceSetBooleanFeature(void* handle, const char* name, uint8_t value) {
    LabLock lock;
    LabFeature* feature = nullptr;
    uint32_t error = look(handle, name, true, FeatureKind::Boolean, feature);
    return error ? error : store(*feature, value != 0);
}

uint32_t PylonDeviceExecuteCommandFeature(void* handle, const char* name) {
    LabLock lock;
    LabFeature* feature = nullptr;
    if (uint32_t error = look(handle, name, true, FeatureKind::Command, feature)) return error;
    bool start = std::strcmp(name, "AcquisitionStart") == 0;
    if (start && lab.camera.acquiring) return failedCall(illegalState, name, "already acquiring");
    lab.camera.acquiring = start;
    lab.camera.frameDue = start && featureValue("TriggerMode") == 0;
    lab.camera.frameDueMs = labNowMs() + cameraFrameMs();
    return 0;
}

} // extern "C"
