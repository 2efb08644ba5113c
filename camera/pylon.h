// The part of the camera SDK's C++ interface that the program uses, written over its C library and
// named as the SDK names it.
#pragma once

#include "camera/pylon_c.h"

#include <array>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

class GenericException : public std::runtime_error {
    using std::runtime_error::runtime_error;
};
class TimeoutException : public GenericException {
    using GenericException::GenericException;
};

// Loads the SDK and starts its runtime; each call needs one PylonTerminate. Throws
// GenericException, as everything below does, when the SDK is not there or refuses.
void PylonInitialize();
void PylonTerminate();

// An empty filter: any camera.
struct CDeviceInfo {
    std::string serialNumber;
};

// A camera found by the transport layers; destroyed with the object.
class IPylonDevice {
public:
    explicit IPylonDevice(void* device) : handle(device) {}
    ~IPylonDevice();
    IPylonDevice(const IPylonDevice&) = delete;
    IPylonDevice& operator=(const IPylonDevice&) = delete;
    void* const handle;
};

class CTlFactory {
public:
    static CTlFactory& GetInstance();
    // Throws when there is no such camera.
    std::unique_ptr<IPylonDevice> CreateFirstDevice(const CDeviceInfo& filter);
};

struct VersionInfo {
    int64_t major = 0, minor = 0, subMinor = 0;
    auto operator<=>(const VersionInfo&) const = default;
};
constexpr VersionInfo Sfnc_2_0_0{2, 0, 0}; // the standard feature names, second generation

class Parameter {
public:
    Parameter(void* device, const char* name) : device(device), name(name) {}
    bool IsReadable() const;
    bool IsWritable() const;

protected:
    void* device;
    const char* name;
};

class IntegerParameter : public Parameter {
public:
    using Parameter::Parameter;
    int64_t GetValue() const;
    int64_t GetMin() const;
    int64_t GetMax() const;
    int64_t GetInc() const; // the step of its values, from the minimum on
    void SetValue(int64_t value) const;
    void SetToMinimum() const { SetValue(GetMin()); }
    void SetToMaximum() const { SetValue(GetMax()); }
};

class FloatParameter : public Parameter {
public:
    using Parameter::Parameter;
    double GetValue() const;
    double GetMin() const;
    double GetMax() const;
    void SetValue(double value) const;
    void SetToMinimum() const { SetValue(GetMin()); }
    void SetToMaximum() const { SetValue(GetMax()); }
};

class BooleanParameter : public Parameter {
public:
    using Parameter::Parameter;
    void SetValue(bool value) const;
};

// Values are the index of the entry in the alphabetical list that the SDK numbers.
class EnumParameter : public Parameter {
public:
    EnumParameter(void* device, const char* name, const char* const* entries)
        : Parameter(device, name), entries(entries) {}
    bool Has(int value) const; // the camera can be set to it
    // True when the camera's present entry is `value`.
    bool Is(int value) const;
    void SetValue(int value) const;

private:
    const char* const* entries;
};

enum AutoMode : int { Auto_Continuous = 0, Auto_Off = 1, Auto_Once = 2 };
enum PixelFormatValue : int {
    PixelFormat_BayerRG8 = 0,
    PixelFormat_BayerGR8 = 1,
    PixelFormat_BayerGB8 = 2,
    PixelFormat_BayerBG8 = 3,
    PixelFormat_Mono8 = 4,
};

enum EGrabStrategy : int { GrabStrategy_LatestImages = 2 };
enum EGrabLoop : int { GrabLoop_ProvidedByUser = 1 };
enum ETimeoutHandling : int { TimeoutHandling_ThrowException = 1 };
// As long as a camera that is well can take for a frame as it is set: two seconds and three frames.
constexpr uint32_t waitWithoutLimit = 0xFFFFFFFF;

// What opening sets a camera to, always free-running: one frame a start, or frame after frame.
struct AcquireConfiguration {
    const char* acquisitionMode;
};
constexpr AcquireConfiguration CAcquireSingleFrameConfiguration{"SingleFrame"};
constexpr AcquireConfiguration CAcquireContinuousConfiguration{"Continuous"};

// One grabbed frame; it keeps its buffer until it is destroyed, also beyond the camera.
class CGrabResult {
public:
    bool GrabSucceeded() const { return succeeded; }
    uint32_t GetErrorCode() const { return errorCode; } // the SDK's, of a frame that failed
    uint8_t* GetBuffer() const { return buffer->data(); }
    size_t GetPayloadSize() const { return payloadSize; } // bytes

private:
    friend class CBaslerUniversalInstantCamera;
    std::shared_ptr<std::vector<uint8_t>> buffer;
    bool succeeded = false;
    uint32_t errorCode = 0;
    size_t payloadSize = 0;
};
using CGrabResultPtr = std::shared_ptr<CGrabResult>;

class CBaslerUniversalInstantCamera {
public:
    explicit CBaslerUniversalInstantCamera(std::unique_ptr<IPylonDevice> device);
    ~CBaslerUniversalInstantCamera(); // closes
    CBaslerUniversalInstantCamera(const CBaslerUniversalInstantCamera&) = delete;
    CBaslerUniversalInstantCamera& operator=(const CBaslerUniversalInstantCamera&) = delete;

    // Replaces the configuration, at first the continuous one, that the next opening applies.
    void RegisterConfiguration(const AcquireConfiguration& next) { configuration = next; }

    void Open(); // nothing on an open camera
    void Close();
    bool IsOpen() const { return open; }

    bool IsGrabbing() const { return grabbing; }
    // Opens a closed camera. Grabbing stops by itself after `maxImages` frames, handed out in the
    // order in which they came; with one frame a start, as the program grabs, that is the latest.
    void StartGrabbing(size_t maxImages, EGrabStrategy strategy, EGrabLoop loop);
    void StopGrabbing();

    // Waits for the next frame. Throws TimeoutException when none came in time, GenericException,
    // within about a second, when the camera is gone.
    void RetrieveResult(uint32_t timeoutMs, CGrabResultPtr& result, ETimeoutHandling handling);

    // One frame of its own, thrown for as above; a closed camera is open only for it.
    void GrabOne(uint32_t timeoutMs, CGrabResultPtr& result, ETimeoutHandling handling);

    // 0.0.0 for a camera that does not say.
    VersionInfo GetSfncVersion() const;

    // The exposure time under whatever name the camera has for it, us. Setting takes the nearest
    // time that the camera can do.
    double GetExposureUs() const;
    void SetExposureUs(double us) const;

private:
    struct StreamBuffer {
        std::shared_ptr<std::vector<uint8_t>> memory;
        void* handle = nullptr; // null while it is not registered
        bool queued = false;
    };

    void queueFreeBuffers();
    void releaseStream();
    bool waitForFrame(uint32_t timeoutMs);
    void requirePresence() const;
    uint64_t longestFrameMs() const;
    double exposureTimeBaseUs() const;
    void switchTriggersOff() const;

    std::unique_ptr<IPylonDevice> owner;
    void* device;
    void* stream = nullptr;
    void* waitObject = nullptr;
    // One for the frame that is being looked at, one that is being filled, one waiting.
    std::array<StreamBuffer, 3> buffers;
    AcquireConfiguration configuration = CAcquireContinuousConfiguration;
    size_t imagesLeft = 0;
    bool open = false;
    bool grabbing = false;

public:
    EnumParameter PixelFormat, GainAuto, ExposureAuto, BalanceWhiteAuto, AutoFunctionROISelector,
        AutoFunctionAOISelector;
    FloatParameter Gain, AutoGainLowerLimit, AutoGainUpperLimit, ExposureTime, ExposureTimeAbs,
        AutoExposureTimeLowerLimit, AutoExposureTimeUpperLimit, AutoTargetBrightness, BalanceRatio,
        BalanceRatioAbs, ExposureTimeBaseAbs, ResultingFrameRate, ResultingFrameRateAbs;
    IntegerParameter GainRaw, ExposureTimeRaw, AutoGainRawLowerLimit, AutoGainRawUpperLimit,
        AutoTargetValue, OffsetX, OffsetY, Width, Height, AutoFunctionROIOffsetX,
        AutoFunctionROIOffsetY, AutoFunctionROIWidth, AutoFunctionROIHeight, AutoFunctionAOIOffsetX,
        AutoFunctionAOIOffsetY, AutoFunctionAOIWidth, AutoFunctionAOIHeight, AcquisitionFrameCount;
    BooleanParameter AutoFunctionROIUseBrightness, CenterX, CenterY;
};
