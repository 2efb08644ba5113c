// Our declarations of the part of the camera SDK's C library that is used. 0 means success.
#pragma once

#include "platform/library.h"

#include <cstddef>
#include <cstdint>

struct PylonGrabResult_t {
    const void* Context;
    void* hBuffer;
    const void* pBuffer;
    int Status; // -1 undefined, 0 idle, 1 queued, 2 grabbed, 3 cancelled, 4 failed
    int PayloadType;
    int PixelType;
    uint64_t TimeStamp;
    int SizeX, SizeY, OffsetX, OffsetY, PaddingX, PaddingY;
    uint64_t PayloadSize;
    unsigned ErrorCode;
    uint64_t BlockID;
};
constexpr int pylonGrabbed = 2;
constexpr int pylonCancelled = 3;

constexpr int pylonAccessControl = 1;
constexpr int pylonAccessStream = 2;

// What a call answers whose function the library does not have (the SDK's general failure).
constexpr uint32_t pylonMissing = 0xC2000001;

template <class... Arguments> using PylonCall = uint32_t (*)(Arguments...);

struct PylonC {
    template <class... A> static constexpr PylonCall<A...> missing() {
        return [](A...) { return pylonMissing; };
    }
    static uint8_t absentFeature(void*, const char*) { return 0; }

    PylonCall<> PylonInitialize = missing<>();
    PylonCall<> PylonTerminate = missing<>();
    PylonCall<char*, size_t*> GenApiGetLastErrorMessage = missing<char*, size_t*>();

    PylonCall<size_t*> PylonEnumerateDevices = missing<size_t*>();
    PylonCall<size_t, void**> PylonGetDeviceInfoHandle = missing<size_t, void**>();
    PylonCall<void*, const char*, char*, size_t*> PylonDeviceInfoGetPropertyValueByName =
        missing<void*, const char*, char*, size_t*>();
    PylonCall<size_t, void**> PylonCreateDeviceByIndex = missing<size_t, void**>();
    PylonCall<void*> PylonDestroyDevice = missing<void*>();
    PylonCall<void*, int> PylonDeviceOpen = missing<void*, int>();
    PylonCall<void*> PylonDeviceClose = missing<void*>();

    uint8_t (*PylonDeviceFeatureIsAvailable)(void*, const char*) = absentFeature;
    uint8_t (*PylonDeviceFeatureIsReadable)(void*, const char*) = absentFeature;
    uint8_t (*PylonDeviceFeatureIsWritable)(void*, const char*) = absentFeature;
    PylonCall<void*, const char*, const char*> PylonDeviceFeatureFromString =
        missing<void*, const char*, const char*>();
    PylonCall<void*, const char*, char*, size_t*> PylonDeviceFeatureToString =
        missing<void*, const char*, char*, size_t*>();
    PylonCall<void*, const char*, int64_t> PylonDeviceSetIntegerFeature =
        missing<void*, const char*, int64_t>();
    PylonCall<void*, const char*, int64_t*> PylonDeviceGetIntegerFeature =
        missing<void*, const char*, int64_t*>();
    PylonCall<void*, const char*, int64_t*> PylonDeviceGetIntegerFeatureMin =
        missing<void*, const char*, int64_t*>();
    PylonCall<void*, const char*, int64_t*> PylonDeviceGetIntegerFeatureMax =
        missing<void*, const char*, int64_t*>();
    PylonCall<void*, const char*, int64_t*> PylonDeviceGetIntegerFeatureInc =
        missing<void*, const char*, int64_t*>();
    PylonCall<void*, const char*, double> PylonDeviceSetFloatFeature =
        missing<void*, const char*, double>();
    PylonCall<void*, const char*, double*> PylonDeviceGetFloatFeature =
        missing<void*, const char*, double*>();
    PylonCall<void*, const char*, double*> PylonDeviceGetFloatFeatureMin =
        missing<void*, const char*, double*>();
    PylonCall<void*, const char*, double*> PylonDeviceGetFloatFeatureMax =
        missing<void*, const char*, double*>();
    PylonCall<void*, const char*, uint8_t> PylonDeviceSetBooleanFeature =
        missing<void*, const char*, uint8_t>();
    PylonCall<void*, const char*> PylonDeviceExecuteCommandFeature = missing<void*, const char*>();

    PylonCall<void*, size_t, void**> PylonDeviceGetStreamGrabber = missing<void*, size_t, void**>();
    PylonCall<void*> PylonStreamGrabberOpen = missing<void*>();
    PylonCall<void*> PylonStreamGrabberClose = missing<void*>();
    PylonCall<void*, size_t> PylonStreamGrabberSetMaxNumBuffer = missing<void*, size_t>();
    PylonCall<void*, size_t> PylonStreamGrabberSetMaxBufferSize = missing<void*, size_t>();
    PylonCall<void*, void*, size_t*> PylonStreamGrabberGetPayloadSize =
        missing<void*, void*, size_t*>();
    PylonCall<void*> PylonStreamGrabberPrepareGrab = missing<void*>();
    PylonCall<void*, void*, size_t, void**> PylonStreamGrabberRegisterBuffer =
        missing<void*, void*, size_t, void**>();
    PylonCall<void*, void*, const void*> PylonStreamGrabberQueueBuffer =
        missing<void*, void*, const void*>();
    PylonCall<void*> PylonStreamGrabberStartStreamingIfMandatory = missing<void*>();
    PylonCall<void*> PylonStreamGrabberStopStreamingIfMandatory = missing<void*>();
    PylonCall<void*, void**> PylonStreamGrabberGetWaitObject = missing<void*, void**>();
    PylonCall<void*, uint32_t, uint8_t*> PylonWaitObjectWait = missing<void*, uint32_t, uint8_t*>();
    PylonCall<void*, PylonGrabResult_t*, uint8_t*> PylonStreamGrabberRetrieveResult =
        missing<void*, PylonGrabResult_t*, uint8_t*>();
    PylonCall<void*> PylonStreamGrabberFlushBuffersToOutput = missing<void*>();
    PylonCall<void*, void*> PylonStreamGrabberDeregisterBuffer = missing<void*, void*>();
    PylonCall<void*> PylonStreamGrabberFinishGrab = missing<void*>();
};

// Loads the newest release of the library that lies beside the program, otherwise of those that the
// system finds; says on standard output which, or what was looked for. `fileFound` tells whether
// there was one; every function that is missing fails.
PylonC loadPylonC(bool& fileFound);
