// The virtual camera's features by GenICam name, in both generations of names, and its automatic
// functions.
#include "virtual_lab/faces.h"
#include "virtual_lab/lab_state.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string_view>

using namespace LabPylon;

// No public source says which numbers a feature has that must not be written now, and one of
// another type; what failed is in the text.
constexpr uint32_t notWritable = illegalState, wrongType = logicalError;

// Entries of the automatic functions' enumerations.
constexpr double autoOff = 1, autoOnce = 2;

static std::vector<LabFeature> initialFeatures() {
    using enum FeatureKind;
    using enum FeatureAge;
    constexpr double wide = labRawWidth, high = labRawHeight;
    std::vector<LabFeature> features = {
        {.name = "PixelFormat",
         .kind = Enumeration,
         .value = 1,
         .entries = {"BayerRG8", "BayerRG12"},
         .fixedWhileGrabbing = true},
        {.name = "AcquisitionMode",
         .kind = Enumeration,
         .value = 1,
         .entries = {"SingleFrame", "Continuous"},
         .fixedWhileGrabbing = true},
        {.name = "TriggerSelector", .kind = Enumeration, .entries = {"FrameStart"}},
        {.name = "TriggerMode", .kind = Enumeration, .entries = {"Off", "On"}},
        {.name = "AcquisitionStart", .kind = Command},
        {.name = "AcquisitionStop", .kind = Command},

        {.name = "OffsetX", .kind = Integer, .maximum = wide, .fixedWhileGrabbing = true},
        {.name = "OffsetY", .kind = Integer, .maximum = high, .fixedWhileGrabbing = true},
        {.name = "Width",
         .kind = Integer,
         .value = wide,
         .minimum = 16,
         .maximum = wide,
         .fixedWhileGrabbing = true},
        {.name = "Height",
         .kind = Integer,
         .value = high,
         .minimum = 16,
         .maximum = high,
         .fixedWhileGrabbing = true},
        {.name = "SensorWidth", .kind = Integer, .value = wide, .readOnly = true},
        {.name = "SensorHeight", .kind = Integer, .value = high, .readOnly = true},
        {.name = "PayloadSize", .kind = Integer, .readOnly = true},

        {.name = "GainAuto",
         .kind = Enumeration,
         .value = autoOff,
         .entries = {"Continuous", "Off", "Once"}},
        {.name = "ExposureAuto",
         .kind = Enumeration,
         .value = autoOff,
         .entries = {"Continuous", "Off", "Once"}},
        {.name = "BalanceWhiteAuto",
         .kind = Enumeration,
         .value = autoOff,
         .entries = {"Continuous", "Off", "Once"}},

        {.name = "DeviceSFNCVersionMajor",
         .kind = Integer,
         .age = Sfnc2,
         .value = 2,
         .readOnly = true},
        {.name = "DeviceSFNCVersionMinor",
         .kind = Integer,
         .age = Sfnc2,
         .value = 3,
         .readOnly = true},
        {.name = "DeviceSFNCVersionSubMinor", .kind = Integer, .age = Sfnc2, .readOnly = true},
        {.name = "Gain", .kind = Float, .age = Sfnc2, .maximum = 36},
        {.name = "AutoGainLowerLimit", .kind = Float, .age = Sfnc2, .maximum = 36},
        {.name = "AutoGainUpperLimit", .kind = Float, .age = Sfnc2, .value = 36, .maximum = 36},
        {.name = "ExposureTime",
         .kind = Float,
         .age = Sfnc2,
         .value = 5000,
         .minimum = 20,
         .maximum = 1e7},
        {.name = "AutoExposureTimeLowerLimit",
         .kind = Float,
         .age = Sfnc2,
         .value = 20,
         .minimum = 20,
         .maximum = 1e6},
        {.name = "AutoExposureTimeUpperLimit",
         .kind = Float,
         .age = Sfnc2,
         .value = 1e5,
         .minimum = 20,
         .maximum = 1e6},
        {.name = "AutoTargetBrightness",
         .kind = Float,
         .age = Sfnc2,
         .value = 0.5,
         .minimum = 0.2,
         .maximum = 0.8},
        {.name = "BalanceRatio", .kind = Float, .age = Sfnc2, .value = 1, .maximum = 16},
        {.name = "AcquisitionBurstFrameCount",
         .kind = Integer,
         .age = Sfnc2,
         .value = 1,
         .minimum = 1,
         .maximum = 1023},

        {.name = "GainRaw", .kind = Integer, .age = BeforeSfnc2, .maximum = 360}, // 0.1 dB
        {.name = "AutoGainRawLowerLimit", .kind = Integer, .age = BeforeSfnc2, .maximum = 360},
        {.name = "AutoGainRawUpperLimit",
         .kind = Integer,
         .age = BeforeSfnc2,
         .value = 360,
         .maximum = 360},
        {.name = "ExposureTimeAbs",
         .kind = Float,
         .age = BeforeSfnc2,
         .value = 5000,
         .minimum = 20,
         .maximum = 1e7},
        // In place of the time in us (see findFeature): units of a base, as delivered 20 us.
        {.name = "ExposureTimeRaw",
         .kind = Integer,
         .age = BeforeSfnc2,
         .value = 250,
         .minimum = 1,
         .maximum = 4095},
        {.name = "ExposureTimeBaseAbs",
         .kind = Float,
         .age = BeforeSfnc2,
         .value = 20,
         .minimum = 20,
         .maximum = 1e7},
        {.name = "AutoExposureTimeAbsLowerLimit",
         .kind = Float,
         .age = BeforeSfnc2,
         .value = 20,
         .minimum = 20,
         .maximum = 1e6},
        {.name = "AutoExposureTimeAbsUpperLimit",
         .kind = Float,
         .age = BeforeSfnc2,
         .value = 1e5,
         .minimum = 20,
         .maximum = 1e6},
        {.name = "AutoTargetValue",
         .kind = Integer,
         .age = BeforeSfnc2,
         .value = 128,
         .minimum = 50,
         .maximum = 205},
        {.name = "BalanceRatioAbs", .kind = Float, .age = BeforeSfnc2, .value = 1, .maximum = 16},
        {.name = "AcquisitionFrameCount",
         .kind = Integer,
         .age = BeforeSfnc2,
         .value = 1,
         .minimum = 1,
         .maximum = 255},
    };

    // The regions whose brightness the automatic functions look at. As delivered, region 1 is the
    // middle of the sensor.
    struct Names {
        FeatureAge age;
        const char *selector, *first, *second, *offsetX, *offsetY, *width, *height;
    };
    for (const Names& names :
         {Names{Sfnc2, "AutoFunctionROISelector", "ROI1", "ROI2", "AutoFunctionROIOffsetX",
                "AutoFunctionROIOffsetY", "AutoFunctionROIWidth", "AutoFunctionROIHeight"},
          Names{BeforeSfnc2, "AutoFunctionAOISelector", "AOI1", "AOI2", "AutoFunctionAOIOffsetX",
                "AutoFunctionAOIOffsetY", "AutoFunctionAOIWidth", "AutoFunctionAOIHeight"}}) {
        auto add = [&](const char* name, double value, double other, double minimum,
                       double maximum) {
            features.push_back({.name = name,
                                .kind = Integer,
                                .age = names.age,
                                .value = value,
                                .minimum = minimum,
                                .maximum = maximum,
                                .perRegion = true,
                                .otherValue = other});
        };
        features.push_back({.name = names.selector,
                            .kind = Enumeration,
                            .age = names.age,
                            .entries = {names.first, names.second}});
        add(names.offsetX, wide / 4, 0, 0, wide);
        add(names.offsetY, high / 4, 0, 0, high);
        add(names.width, wide / 2, wide, 16, wide);
        add(names.height, high / 2, high, 16, high);
    }
    features.push_back({.name = "AutoFunctionROIUseBrightness",
                        .kind = Boolean,
                        .age = Sfnc2,
                        .value = 1,
                        .maximum = 1,
                        .perRegion = true});
    return features;
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

double featureValue(const char* name) {
    if (name && std::strcmp(name, "PayloadSize") == 0) return static_cast<double>(cameraPayload());
    LabFeature* feature = findFeature(name);
    return feature ? feature->value : 0;
}

size_t cameraPayload() {
    double bytesPerPixel = featureValue("PixelFormat") + 1;
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
           !(feature.fixedWhileGrabbing && device.grabber.prepared);
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
        return feature.maximum -
               featureValue((name.substr(0, name.size() - std::strlen(ending)) + other).c_str());
    };
    if (name.ends_with("OffsetX")) return without("OffsetX", "Width");
    if (name.ends_with("OffsetY")) return without("OffsetY", "Height");
    if (name == "SensorWidth" || name == "SensorHeight") return feature.value;
    if (name.ends_with("Width")) return without("Width", "OffsetX");
    if (name.ends_with("Height")) return without("Height", "OffsetY");
    if (name == "PayloadSize") return static_cast<double>(cameraPayload());
    return feature.readOnly ? feature.value : feature.maximum;
}

static double currentMinimum(const LabFeature& feature) {
    return feature.readOnly ? featureValue(feature.name) : feature.minimum;
}

static uint32_t store(LabFeature& feature, double value) {
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

uint8_t PylonDeviceFeatureIsImplemented(void* handle, const char* name) {
    LabLock lock;
    return openDevice(handle) && findFeature(name);
}

uint8_t PylonDeviceFeatureIsAvailable(void* handle, const char* name) {
    if (PylonDeviceFeatureIsImplemented(handle, name)) return 1;
    // The entries of an enumeration have names of their own.
    LabLock lock;
    constexpr std::string_view prefix = "EnumEntry_TriggerSelector_";
    LabFeature* selector = openDevice(handle) ? findFeature("TriggerSelector") : nullptr;
    if (!selector || !std::string_view(name).starts_with(prefix)) return 0;
    for (const char* entry : selector->entries)
        if (std::string_view(name).substr(prefix.size()) == entry) return 1;
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

uint32_t PylonDeviceGetBooleanFeature(void* handle, const char* name, uint8_t* value) {
    return giveNumber(handle, name, FeatureKind::Boolean, presentValue, value);
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
