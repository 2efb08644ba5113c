// The state of the virtual camera: its features, the devices that programs made of it, their
// buffers.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

enum class FeatureKind { Integer, Float, Boolean, Enumeration, Command };
enum class FeatureAge { Always, Sfnc2, BeforeSfnc2 };

struct LabFeature {
    const char* name;
    FeatureKind kind;
    FeatureAge age = FeatureAge::Always;
    double value = 0; // an enumeration's index into `entries`
    double minimum = 0, maximum = 0;
    std::vector<const char*> entries{};
    bool readOnly = false;
    bool fixedWhileGrabbing = false;
    bool perRegion = false; // the automatic functions' selector chooses between two values
    double otherValue = 0;  // the region that is not selected
};

struct LabBuffer {
    uint8_t* memory;
    size_t size;
    const void* context = nullptr;
    enum class At { Program, Queue, Output } at = At::Program;
};

struct LabTakenFrame {
    LabBuffer* buffer;
    int status; // LabGrabResult
    int sizeX = 0, sizeY = 0;
    size_t payload = 0;
    double timeMs = 0;
    uint64_t number = 0;
};

struct LabGrabber {
    bool open = false;
    bool prepared = false;
    bool streaming = false;
    size_t maxBuffers = 0;
    size_t maxBufferSize = 0;
    std::vector<std::unique_ptr<LabBuffer>> buffers;
    std::deque<LabBuffer*> queue;
    std::deque<LabTakenFrame> output;
    char waitObject = 0; // only its address counts
};

struct LabCameraDevice {
    bool open = false;
    int access = 0; // of the open; without any bit it only looks on
    bool lost = false;
    LabGrabber grabber;
};

struct LabCamera {
    std::vector<LabFeature> features;
    std::vector<std::unique_ptr<LabCameraDevice>> devices;
    int initialised = 0; // starts of the library that have not been ended
    bool acquiring = false;
    bool frameDue = false; // an exposure is under way
    double frameDueMs = 0;
    uint64_t frameNumber = 0;
    std::string lastError;
};

bool isCameraFeature(const std::string& name); // of either generation
LabFeature* findFeature(const char* name);     // null when this camera has none of that name
double featureValue(const char* name);         // 0 when there is none
std::string cameraPixelFormat();               // as the camera is set
int64_t cameraStep(std::string_view name);     // between the values of an integer feature
size_t cameraPayload();                        // bytes of a frame as the camera is set

// Relative to 100 us at 1 dB.
double cameraSensitivity();
double cameraFrameMs(); // exposure and read-out

// The automatic functions look at every 24th mosaic cell each way, from this raw row on.
int automaticTop();
bool labRowIsShown(int rawRow);   // in the last frame; see setLabRowsAroundSpot
constexpr int automaticStep = 48; // pixels

// Steps of the automatic functions after a frame of that mean brightness (0..255).
void adaptExposure(double mean);
