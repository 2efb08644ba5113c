// The virtual camera's devices, and how frames get into the buffers that a program queues. Calls in
// the wrong order are errors, so that a program that works here works on the real library.
#include "virtual_lab/faces.h"
#include "virtual_lab/lab_state.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>

using namespace LabPylon;

constexpr int bayerRG8 = 0x01080009, bayerRG12 = 0x01100011; // PFNC
constexpr uint32_t waitForever = 0xFFFFFFFF;

static uint32_t failedCall(uint32_t code, const char* why) {
    lab.camera.lastError = why;
    return code;
}

static LabCameraDevice* findDevice(void* handle) {
    for (auto& device : lab.camera.devices)
        if (device.get() == handle) return device.get();
    return nullptr;
}

static LabCameraDevice* deviceOfGrabber(const void* handle) {
    for (auto& device : lab.camera.devices)
        if (&device->grabber == handle) return device.get();
    return nullptr;
}

static LabCameraDevice* deviceOfWaitObject(const void* handle) {
    for (auto& device : lab.camera.devices)
        if (&device->grabber.waitObject == handle) return device.get();
    return nullptr;
}

static LabBuffer* findBuffer(LabGrabber& grabber, const void* handle) {
    for (auto& buffer : grabber.buffers)
        if (buffer.get() == handle) return buffer.get();
    return nullptr;
}

void dropLostCamera() {
    if (!lab.faults.cameraLost && !lab.faults.cameraAbsent) return;
    for (auto& device : lab.camera.devices) device->lost = true;
    lab.camera.acquiring = lab.camera.frameDue = false;
}

static int automaticRegion(const char* what) {
    std::string name = lab.faults.cameraOld ? "AutoFunctionAOI" : "AutoFunctionROI";
    return static_cast<int>(featureValue((name + what).c_str()));
}

int automaticTop() {
    return automaticRegion("OffsetY") / 2 * 2;
}

// Mean brightness of the automatic functions' region.
static double meanBrightness(const uint8_t* raw) {
    int left = automaticRegion("OffsetX") / 2 * 2, top = automaticTop();
    int right = left + automaticRegion("Width") - 1, bottom = top + automaticRegion("Height") - 1;
    uint64_t sum = 0, count = 0;
    for (int row = top; row < bottom; row += automaticStep) {
        for (int column = left; column < right; column += automaticStep, count += 4) {
            const uint8_t* cell = raw + static_cast<size_t>(row) * labRawWidth + column;
            sum += cell[0] + cell[1] + cell[labRawWidth] + cell[labRawWidth + 1];
        }
    }
    return static_cast<double>(sum) / static_cast<double>(std::max<uint64_t>(count, 1));
}

static bool isSensorAsBuilt() {
    const LabSetUp& setUp = lab.faults.setUp;
    return setUp.sensorWidth == labRawWidth && setUp.sensorHeight == labRawHeight &&
           cameraPixelFormat().starts_with("BayerRG");
}

// Which of a cell's colours its four pixels have, row by row: red 0, green 1, blue 2; or a grey 3.
static std::array<int, 4> orderOf(const std::string& format) {
    if (format.starts_with("BayerGR")) return {1, 0, 2, 1};
    if (format.starts_with("BayerGB")) return {1, 2, 0, 1};
    if (format.starts_with("BayerBG")) return {2, 1, 1, 0};
    if (format.starts_with("Mono")) return {3, 3, 3, 3};
    return {0, 1, 1, 2};
}

// Another sensor lies with its middle where that of the sensor as built lies; what is beyond that
// is dark.
static void takeFrameOfOtherSensor(uint8_t* memory, int width, int height, bool twelveBits) {
    static std::vector<uint8_t> asBuilt(size_t{labRawWidth} * labRawHeight);
    renderLabFrame(asBuilt.data());
    const LabSetUp& setUp = lab.faults.setUp;
    const int left =
        static_cast<int>(featureValue("OffsetX")) - (setUp.sensorWidth - labRawWidth) / 4 * 2;
    const int top =
        static_cast<int>(featureValue("OffsetY")) - (setUp.sensorHeight - labRawHeight) / 4 * 2;
    const std::array<int, 4> order = orderOf(cameraPixelFormat());
    uint64_t sum = 0, count = 1;
    for (int row = 0; row < height; ++row) {
        const int y = top + row;
        if (y >= 0 && y < labRawHeight && !labRowIsShown(y)) {
            memory += twelveBits ? 2 * width : width;
            continue;
        }
        count += static_cast<uint64_t>(width);
        for (int column = 0; column < width; ++column) {
            const int x = left + column;
            uint8_t value = 0;
            if (x >= 0 && y >= 0 && x < labRawWidth && y < labRawHeight) {
                const uint8_t* cell =
                    asBuilt.data() + static_cast<size_t>(y & ~1) * labRawWidth + (x & ~1);
                const uint8_t colours[] = {
                    cell[0], cell[1], cell[labRawWidth + 1],
                    static_cast<uint8_t>((cell[0] + 2 * cell[1] + cell[labRawWidth + 1]) / 4)};
                // The mosaic is the sensor's, whose corner lies at even pixels.
                value = colours[order[static_cast<size_t>((y & 1) * 2 + (x & 1))]];
            }
            sum += value;
            if (twelveBits) {
                *memory++ = static_cast<uint8_t>(value << 4);
                *memory++ = static_cast<uint8_t>(value >> 4);
            } else {
                *memory++ = value;
            }
        }
    }
    if (lab.board.illuminated) adaptExposure(static_cast<double>(sum) / static_cast<double>(count));
}

// Renders into the buffer what the camera is set to send: a part of the sensor, 8 or 12 bits.
static void takeFrame(uint8_t* memory) {
    int width = static_cast<int>(featureValue("Width"));
    int height = static_cast<int>(featureValue("Height"));
    bool twelveBits = cameraPixelFormat().ends_with("12");
    bool whole = width == labRawWidth && height == labRawHeight && !twelveBits;
    if (!isSensorAsBuilt()) return takeFrameOfOtherSensor(memory, width, height, twelveBits);
    static std::vector<uint8_t> sensor;
    if (!whole) sensor.resize(size_t{labRawWidth} * labRawHeight);
    uint8_t* raw = whole ? memory : sensor.data();
    renderLabFrame(raw);

    if (!whole) {
        auto left = static_cast<size_t>(featureValue("OffsetX"));
        auto top = static_cast<size_t>(featureValue("OffsetY"));
        for (size_t row = 0; row < static_cast<size_t>(height); ++row) {
            for (size_t column = 0; column < static_cast<size_t>(width); ++column) {
                uint8_t value = raw[(top + row) * labRawWidth + left + column];
                if (twelveBits) {
                    *memory++ = static_cast<uint8_t>(value << 4);
                    *memory++ = static_cast<uint8_t>(value >> 4);
                } else {
                    *memory++ = value;
                }
            }
        }
    }
    if (lab.board.illuminated) adaptExposure(meanBrightness(raw));
}

// Frames whose exposure has ended by now go into the queued buffers; with none queued they are
// lost. They show the set-up as it is when they are fetched.
static void takeDueFrames(LabGrabber& grabber) {
    if (lab.faults.cameraSilent) return;
    LabCamera& camera = lab.camera;
    double nowMs = labNowMs();
    while (camera.frameDue && camera.frameDueMs <= nowMs) {
        bool toBuffer = grabber.streaming && !grabber.queue.empty();
        double frameMs = cameraFrameMs();
        double endedMs = camera.frameDueMs;
        camera.frameDueMs += frameMs;
        if (!toBuffer && camera.frameDueMs <= nowMs)
            camera.frameDueMs += std::floor((nowMs - camera.frameDueMs) / frameMs) * frameMs;
        ++camera.frameNumber;
        if (featureValue("AcquisitionMode") == 0) camera.frameDue = camera.acquiring = false;
        if (!toBuffer) continue;

        LabBuffer* buffer = grabber.queue.front();
        grabber.queue.pop_front();
        buffer->at = LabBuffer::At::Output;
        int width = static_cast<int>(featureValue("Width"));
        int height = static_cast<int>(featureValue("Height"));
        LabTakenFrame frame = {.buffer = buffer,
                               .status = statusGrabbed,
                               .sizeX = width,
                               .sizeY = height,
                               .payload = cameraPayload(),
                               .timeMs = endedMs,
                               .number = camera.frameNumber};
        takeFrame(buffer->memory);
        grabber.output.push_back(frame);
        ++lab.counters.frames;
    }
}

extern "C" {

uint32_t PylonInitialize() {
    LabLock lock;
    ++lab.camera.initialised;
    return 0;
}

uint32_t PylonTerminate() {
    LabLock lock;
    if (lab.camera.initialised == 0)
        return failedCall(illegalState, "the library was not initialised");
    --lab.camera.initialised;
    return 0;
}

uint32_t PylonEnumerateDevices(size_t* count) {
    LabLock lock;
    if (lab.camera.initialised == 0)
        return failedCall(illegalState, "the library was not initialised");
    if (!count) return failedCall(invalidArgument, "no place for the count");
    const bool there = !lab.faults.cameraAbsent && !lab.faults.cameraLost;
    *count = (there ? 1 : 0) + (lab.faults.cameraSecond ? 1 : 0);
    return 0;
}

// Of each camera that was found: a handle that is its number and one.
uint32_t PylonGetDeviceInfoHandle(size_t index, void** handle) {
    LabLock lock;
    size_t count = 0;
    if (uint32_t error = PylonEnumerateDevices(&count)) return error;
    if (!handle || index >= count) return failedCall(invalidArgument, "there is no such device");
    *handle = reinterpret_cast<void*>(index + 1);
    return 0;
}

uint32_t PylonDeviceInfoGetPropertyValueByName(void* handle, const char* name, char* value,
                                               size_t* length) {
    LabLock lock;
    constexpr const char* serials[] = {"40112233", "21998877"}; // the second one's is the first
    const auto index = reinterpret_cast<size_t>(handle) - 1 + (lab.faults.cameraSecond ? 0 : 1);
    if (!handle || index > 1 || !name || std::string(name) != "SerialNumber" || !value || !length)
        return failedCall(invalidArgument, "no such property");
    const size_t room = *length;
    *length = sizeof "40112233";
    if (room < *length) return failedCall(bufferTooSmall, "the text is too short");
    std::strcpy(value, serials[index]);
    return 0;
}

uint32_t PylonCreateDeviceByIndex(size_t index, void** handle) {
    LabLock lock;
    if (lab.camera.initialised == 0)
        return failedCall(illegalState, "the library was not initialised");
    // The other one's cable hangs loose: it is listed and cannot be used.
    if (lab.faults.cameraSecond && index-- == 0)
        return failedCall(failure, "the other camera does not answer");
    if (!handle || index > 0 || lab.faults.cameraAbsent || lab.faults.cameraLost)
        return failedCall(invalidArgument, "there is no such device");
    lab.camera.devices.push_back(std::make_unique<LabCameraDevice>());
    *handle = lab.camera.devices.back().get();
    return 0;
}

uint32_t PylonDestroyDevice(void* handle) {
    LabLock lock;
    LabCameraDevice* device = findDevice(handle);
    if (!device) return failedCall(badDevice, "not a device");
    if (device->open) return failedCall(illegalState, "the device is still open");
    std::erase_if(lab.camera.devices, [&](auto& other) { return other.get() == device; });
    return 0;
}

uint32_t PylonDeviceOpen(void* handle, int access) {
    LabLock lock;
    LabCameraDevice* device = findDevice(handle);
    if (!device) return failedCall(badDevice, "not a device");
    if (device->lost) return failedCall(failure, "the device has been removed");
    for (auto& other : lab.camera.devices)
        if (other->open && !other->lost)
            return failedCall(illegalState, "the camera is open already");
    if (access & ~(accessControl | accessStream | accessEvent | accessExclusive))
        return failedCall(invalidArgument, "no such access mode");
    device->open = true;
    device->access = access;
    return 0;
}

uint32_t PylonDeviceClose(void* handle) {
    LabLock lock;
    LabCameraDevice* device = findDevice(handle);
    if (!device) return failedCall(badDevice, "not a device");
    if (device->grabber.open) return failedCall(illegalState, "the stream grabber is still open");
    if (!device->lost && device->open) lab.camera.acquiring = lab.camera.frameDue = false;
    device->open = false;
    device->access = 0;
    return 0;
}

uint32_t PylonDeviceIsOpen(void* handle, uint8_t* open) {
    LabLock lock;
    LabCameraDevice* device = findDevice(handle);
    if (!device) return failedCall(badDevice, "not a device");
    if (!open) return failedCall(invalidArgument, "no place for the answer");
    *open = device->open;
    return 0;
}

uint32_t PylonDeviceGetStreamGrabber(void* handle, size_t index, void** grabber) {
    LabLock lock;
    LabCameraDevice* device = findDevice(handle);
    if (!device) return failedCall(badDevice, "not a device");
    if (!grabber || index > 0) return failedCall(invalidArgument, "no such stream grabber");
    if (!(device->access & accessStream))
        return failedCall(illegalState, "the device is not open for streaming");
    *grabber = &device->grabber;
    return 0;
}

uint32_t PylonStreamGrabberOpen(void* handle) {
    LabLock lock;
    LabCameraDevice* device = deviceOfGrabber(handle);
    if (!device) return failedCall(badGrabber, "not a stream grabber");
    if (device->lost) return failedCall(failure, "the device has been removed");
    if (!(device->access & accessStream) || device->grabber.open)
        return failedCall(illegalState, "open already, or the device is not open");
    device->grabber.open = true;
    return 0;
}

uint32_t PylonStreamGrabberClose(void* handle) {
    LabLock lock;
    LabCameraDevice* device = deviceOfGrabber(handle);
    if (!device) return failedCall(badGrabber, "not a stream grabber");
    if (device->grabber.prepared) return failedCall(illegalState, "the grab has not been finished");
    device->grabber.open = false;
    return 0;
}

uint32_t PylonStreamGrabberSetMaxNumBuffer(void* handle, size_t count) {
    LabLock lock;
    LabCameraDevice* device = deviceOfGrabber(handle);
    if (!device) return failedCall(badGrabber, "not a stream grabber");
    if (count == 0) return failedCall(invalidArgument, "no buffers");
    if (!device->grabber.open || device->grabber.prepared)
        return failedCall(illegalState, "not open, or grabbing");
    device->grabber.maxBuffers = count;
    return 0;
}

uint32_t PylonStreamGrabberSetMaxBufferSize(void* handle, size_t size) {
    LabLock lock;
    LabCameraDevice* device = deviceOfGrabber(handle);
    if (!device) return failedCall(badGrabber, "not a stream grabber");
    if (size == 0) return failedCall(invalidArgument, "no size");
    if (!device->grabber.open || device->grabber.prepared)
        return failedCall(illegalState, "not open, or grabbing");
    device->grabber.maxBufferSize = size;
    return 0;
}

uint32_t PylonStreamGrabberGetPayloadSize(void* deviceHandle, void* handle, size_t* size) {
    LabLock lock;
    LabCameraDevice* device = deviceOfGrabber(handle);
    if (!findDevice(deviceHandle)) return failedCall(badDevice, "not a device");
    if (!device || device != findDevice(deviceHandle))
        return failedCall(badGrabber, "not a stream grabber of this device");
    if (!size) return failedCall(invalidArgument, "no place for the size");
    if (!device->grabber.open) return failedCall(illegalState, "not open");
    *size = cameraPayload();
    return 0;
}

uint32_t PylonStreamGrabberPrepareGrab(void* handle) {
    LabLock lock;
    LabCameraDevice* device = deviceOfGrabber(handle);
    if (!device) return failedCall(badGrabber, "not a stream grabber");
    if (device->lost) return failedCall(failure, "the device has been removed");
    LabGrabber& grabber = device->grabber;
    if (!grabber.open || grabber.prepared) return failedCall(illegalState, "not open, or grabbing");
    if (grabber.maxBuffers == 0 || grabber.maxBufferSize < cameraPayload())
        return failedCall(illegalState, "number or size of the buffers not set");
    grabber.prepared = true;
    return 0;
}

uint32_t PylonStreamGrabberRegisterBuffer(void* handle, void* memory, size_t size, void** buffer) {
    LabLock lock;
    LabCameraDevice* device = deviceOfGrabber(handle);
    if (!device) return failedCall(badGrabber, "not a stream grabber");
    if (!memory || !buffer)
        return failedCall(invalidArgument, "no buffer, or no place for its handle");
    LabGrabber& grabber = device->grabber;
    if (!grabber.prepared) return failedCall(illegalState, "the grab has not been prepared");
    if (grabber.buffers.size() >= grabber.maxBuffers)
        return failedCall(illegalState, "too many buffers");
    if (size < cameraPayload() || size > grabber.maxBufferSize)
        return failedCall(illegalState, "the buffer is too small or larger than announced");
    grabber.buffers.push_back(std::make_unique<LabBuffer>(
        LabBuffer{.memory = static_cast<uint8_t*>(memory), .size = size}));
    *buffer = grabber.buffers.back().get();
    return 0;
}

uint32_t PylonStreamGrabberQueueBuffer(void* handle, void* bufferHandle, const void* context) {
    LabLock lock;
    LabCameraDevice* device = deviceOfGrabber(handle);
    LabBuffer* buffer = device ? findBuffer(device->grabber, bufferHandle) : nullptr;
    if (!device) return failedCall(badGrabber, "not a stream grabber");
    if (!buffer) return failedCall(invalidArgument, "not a buffer of this stream grabber");
    if (device->lost) return failedCall(failure, "the device has been removed");
    if (buffer->at != LabBuffer::At::Program)
        return failedCall(illegalState, "the buffer is queued already");
    takeDueFrames(device->grabber); // these came too early for this buffer
    buffer->at = LabBuffer::At::Queue;
    buffer->context = context;
    device->grabber.queue.push_back(buffer);
    return 0;
}

uint32_t PylonStreamGrabberStartStreamingIfMandatory(void* handle) {
    LabLock lock;
    LabCameraDevice* device = deviceOfGrabber(handle);
    if (!device) return failedCall(badGrabber, "not a stream grabber");
    if (device->lost) return failedCall(failure, "the device has been removed");
    if (!device->grabber.prepared || device->grabber.streaming)
        return failedCall(illegalState, "not prepared, or streaming already");
    device->grabber.streaming = true;
    return 0;
}

uint32_t PylonStreamGrabberStopStreamingIfMandatory(void* handle) {
    LabLock lock;
    LabCameraDevice* device = deviceOfGrabber(handle);
    if (!device) return failedCall(badGrabber, "not a stream grabber");
    device->grabber.streaming = false;
    return 0;
}

uint32_t PylonStreamGrabberGetWaitObject(void* handle, void** object) {
    LabLock lock;
    LabCameraDevice* device = deviceOfGrabber(handle);
    if (!device) return failedCall(badGrabber, "not a stream grabber");
    if (!object) return failedCall(invalidArgument, "no place for the wait object");
    if (!device->grabber.open) return failedCall(illegalState, "not open");
    *object = &device->grabber.waitObject;
    return 0;
}

uint32_t PylonWaitObjectWait(void* object, uint32_t timeoutMs, uint8_t* ready) {
    if (!ready) return invalidArgument;
    *ready = 0;
    double deadlineMs = -1;
    for (;;) {
        double sleepMs = 0;
        {
            LabLock lock;
            LabCameraDevice* device = deviceOfWaitObject(object);
            if (!device) return failedCall(badWaitObject, "not a wait object");
            // Of a lost camera a wait only hears nothing more.
            if (!device->lost) takeDueFrames(device->grabber);
            if (!device->grabber.output.empty()) {
                *ready = 1;
                return 0;
            }
            bool coming = !device->lost && !lab.faults.cameraSilent && lab.camera.frameDue &&
                          device->grabber.streaming && !device->grabber.queue.empty();
            if (timeoutMs == waitForever && !coming)
                return failedCall(illegalState, "nothing is coming: this wait would never end");
            double nowMs = labNowMs();
            if (deadlineMs < 0)
                deadlineMs = timeoutMs == waitForever ? std::numeric_limits<double>::infinity()
                                                      : nowMs + timeoutMs;
            if (nowMs >= deadlineMs) return 0;
            // Short enough to notice a camera that is lost meanwhile.
            constexpr double longestSleepMs = 50;
            double untilMs = coming ? std::min(deadlineMs, lab.camera.frameDueMs) : deadlineMs;
            sleepMs = std::min(untilMs - nowMs, longestSleepMs);
        }
        labSleepMs(sleepMs);
    }
}

uint32_t PylonStreamGrabberRetrieveResult(void* handle, LabGrabResult* result, uint8_t* ready) {
    LabLock lock;
    LabCameraDevice* device = deviceOfGrabber(handle);
    if (!device) return failedCall(badGrabber, "not a stream grabber");
    if (!result || !ready) return failedCall(invalidArgument, "no place for the result");
    LabGrabber& grabber = device->grabber;
    if (!grabber.prepared) return failedCall(illegalState, "the grab has not been prepared");
    if (!device->lost) takeDueFrames(grabber);
    *ready = !grabber.output.empty();
    if (!*ready) return 0;
    LabTakenFrame frame = grabber.output.front();
    grabber.output.pop_front();
    frame.buffer->at = LabBuffer::At::Program;
    *result = {.Context = frame.buffer->context,
               .hBuffer = frame.buffer,
               .pBuffer = frame.buffer->memory,
               .Status = frame.status,
               .PayloadType = 0,
               .PixelType = featureValue("PixelFormat") == 0 ? bayerRG8 : bayerRG12,
               .TimeStamp = static_cast<uint64_t>(frame.timeMs * 1e6), // ns
               .SizeX = frame.sizeX,
               .SizeY = frame.sizeY,
               .OffsetX = static_cast<int>(featureValue("OffsetX")),
               .OffsetY = static_cast<int>(featureValue("OffsetY")),
               .PaddingX = 0,
               .PaddingY = 0,
               .PayloadSize = frame.payload,
               .ErrorCode = 0,
               .BlockID = frame.number};
    return 0;
}

uint32_t PylonStreamGrabberFlushBuffersToOutput(void* handle) {
    LabLock lock;
    LabCameraDevice* device = deviceOfGrabber(handle);
    if (!device) return failedCall(badGrabber, "not a stream grabber");
    LabGrabber& grabber = device->grabber;
    for (LabBuffer* buffer : grabber.queue) {
        buffer->at = LabBuffer::At::Output;
        grabber.output.push_back({.buffer = buffer, .status = statusCancelled});
    }
    grabber.queue.clear();
    return 0;
}

uint32_t PylonStreamGrabberDeregisterBuffer(void* handle, void* bufferHandle) {
    LabLock lock;
    LabCameraDevice* device = deviceOfGrabber(handle);
    LabBuffer* buffer = device ? findBuffer(device->grabber, bufferHandle) : nullptr;
    if (!device) return failedCall(badGrabber, "not a stream grabber");
    if (!buffer) return failedCall(invalidArgument, "not a buffer of this stream grabber");
    if (buffer->at != LabBuffer::At::Program)
        return failedCall(illegalState, "the buffer is still queued or not retrieved");
    std::erase_if(device->grabber.buffers, [&](auto& other) { return other.get() == buffer; });
    return 0;
}

uint32_t PylonStreamGrabberFinishGrab(void* handle) {
    LabLock lock;
    LabCameraDevice* device = deviceOfGrabber(handle);
    if (!device) return failedCall(badGrabber, "not a stream grabber");
    if (!device->grabber.prepared)
        return failedCall(illegalState, "the grab has not been prepared");
    if (!device->grabber.buffers.empty())
        return failedCall(illegalState, "buffers are still registered");
    device->grabber.prepared = device->grabber.streaming = false;
    return 0;
}

} // extern "C"
