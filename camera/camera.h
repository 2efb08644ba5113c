// The microscope's one camera: connecting, settings, grabbing. Without a camera, or after any
// failure of it, every grab gives a moving test pattern and the program stays usable.
#pragma once

#include "camera/picture.h"
#include "camera/pylon.h"

#include <cstdint>
#include <memory>
#include <vector>

struct CameraState {
    CameraState();

    int32_t gain = 1;          // manual gain, dB; raw units of a camera before SFNC 2.0
    double exposureUs = 100.0; // manual exposure time
    // As the camera has them since they were last set by hand, which may be its nearest.
    double takenGain = 0.0, takenExposureUs = 0.0;
    uint8_t* frame;        // the current raw frame: `ownFrame`, or the last result's buffer
    int32_t connected = 0; // cleared by every failure
    int32_t needsInit = 1;
    bool fresh = false;        // the last grab brought a frame of the camera
    int32_t fallbackPhase = 0; // of the test pattern
    std::unique_ptr<CBaslerUniversalInstantCamera> device;
    CGrabResultPtr grabResult;
    char message[100] = {};
    int32_t frameBytes = static_cast<int32_t>(displayPixelCount * 4);
    std::vector<uint8_t> ownFrame;
    int32_t runtimeStarts = 0; // SDK starts that releaseCamera must end
    uint64_t searchedMs = 0;   // tick count at the end of the last search
    uint64_t searchTookMs = 0;

    // Half the side, in display pixels, of the square whose mean colour is taken at the laser spot.
    int32_t cameraAperture = 5;
    // What the continuous routines last read: gain in whole units, exposure in whole milliseconds.
    int32_t lastAutoGain = 0, lastAutoExposureMs = 0;
    int32_t blueOnly = 0;     // the picture shows its blue alone; a grey one has none and stays
    PicturePoint laserOffset; // where the laser spot lies on the picture; kept between runs
};

extern CameraState cameraState;

// Connects to the camera with the set-up's serial number, or the first one found. Returns 1, or 0
// when there is none.
int initCamera(CameraState& state);

// Nothing calls for the second and the third any more.
enum CameraMode : uint32_t {
    cameraAutomatic = 1,  // open, its mosaic, the sensor, continuous automatic gain and exposure
    cameraAdjustOnce = 2, // gain and exposure of the open camera, until exposure has settled
    cameraAccumulate = 3, // adds a frame to `frame`, byte by byte modulo 256; closes the camera
    cameraManual = 4,     // open, apply `gain` and `exposureUs`
};

// Any failure disconnects the camera and says so in the information text, and why on standard
// output. Always returns 0.
int controlCamera(CameraState& state, uint32_t mode);

// Keeps gain and exposure as the camera has adjusted them, so that the next frames compare. True
// when it was adjusting them by itself; resumeAutomatic lets it go on.
bool holdAutomatic(CameraState& state);
void resumeAutomatic(CameraState& state);

// Grabs `count` frames and converts the last one into cameraImage.pixels. Always returns 0.
int grabFrames(CameraState& state, uint32_t count);

// Closes the camera and the SDK; the next live view connects anew.
void releaseCamera(CameraState& state);
