// The vendors' functions that the virtual laboratory exports, with the records and numbers that go
// through them.
//
// All of it is written down here a second time, on purpose: nothing of the program's own
// declarations is used, so that a wrong number, layout or signature on one side meets the right one
// on the other. The facts come from the vendors' public documentation: the reference of the stage
// controllers' library (checked on a build of its release 2.14.27), that of the GPIB driver, the
// VISA standard (VPP-4.3, which fixes the ordinals too) and the reference of the camera SDK's C
// library. The analyzer's client library has no public reference: its three functions are an
// assumption. tests/unit/vendor_facts_test.cpp compares both sides with the numbers themselves.
#pragma once

#include <cstddef>
#include <cstdint>

// --- Stage controllers ---------------------------------------------------------------------------

struct LabEngineSettings { // engine_settings_t
    uint32_t NomVoltage, NomCurrent, NomSpeed, uNomSpeed, EngineFlags;
    int32_t Antiplay;
    uint32_t MicrostepMode, StepsPerRev;
};
static_assert(sizeof(LabEngineSettings) == 32);

struct LabStageStatus { // status_t
    uint32_t MoveSts, MvCmdSts, PWRSts, EncSts, WindSts;
    int32_t CurPosition, uCurPosition;
    int64_t EncPosition;
    int32_t CurSpeed, uCurSpeed, Ipwr, Upwr, Iusb, Uusb, CurT;
    uint32_t Flags, GPIOFlags, CmdBufFreeSpace;
};
static_assert(sizeof(LabStageStatus) == 80);

struct LabControllerName { // controller_name_t: what its owner has called it, 16 letters at most
    char ControllerName[17];
    uint32_t CtrlFlags;
};
struct LabStageName { // stage_name_t
    char PositionerName[17];
};
static_assert(sizeof(LabControllerName) == 24 && sizeof(LabStageName) == 17);

namespace LabXimc {
constexpr int resultError = -1, resultNotImplemented = -2, resultValueError = -3,
              resultNoDevice = -4; // 0 is success
constexpr int enumerateProbe = 1, enumerateNetwork = 4;
constexpr uint32_t engineAccelOn = 0x10, engineLimitRpm = 0x80;         // EngineFlags
constexpr uint32_t moveStateMoving = 0x01, moveStateTargetSpeed = 0x02; // MoveSts
constexpr uint32_t commandMove = 0x01, commandRunning = 0x80;           // MvCmdSts
constexpr uint32_t rightEdge = 0x1, leftEdge = 0x2;                     // GPIOFlags
constexpr uint32_t lowestSpeed = 1, highestSpeed = 100000;              // NomSpeed
// PWRSts: windings disconnected, at nominal current, at a reduced one.
constexpr uint32_t powerOff = 0x01, powerNormal = 0x03, powerReduced = 0x04;
// Flags. In the alarm state commands are acknowledged and ignored until a stop; what has led into
// it stands beside it. The position error: the encoder is too far from the steps.
constexpr uint32_t stateAlarm = 0x40, statePositionError = 0x80, stateDriverOverheat = 0x100,
                   stateOverCurrent = 0x800, stateLowSupply = 0x10000;
} // namespace LabXimc

extern "C" {
void ximc_version(char* version);
int set_bindy_key(const char* path);
void* enumerate_devices(int flags, const char* hints);
int free_enumerate_devices(void* found);
int get_device_count(void* found);
char* get_device_name(void* found, int index);
int get_enumerate_device_controller_name(void* found, int index, LabControllerName* name);
int get_enumerate_device_stage_name(void* found, int index, LabStageName* name);
int open_device(const char* name);
int close_device(int* id);
int get_engine_settings(int id, LabEngineSettings* settings);
int set_engine_settings(int id, const LabEngineSettings* settings);
int get_status(int id, LabStageStatus* status);
int command_stop(int id);
int command_move(int id, int position, int uPosition);
// Stand at the ordinals 61 and 63 in other releases and read their settings through the pointer.
int set_engine_advansed_setup(int id, const void* settings);
int set_extended_settings(int id, const void* settings);
}

// --- Camera --------------------------------------------------------------------------------------

struct LabGrabResult { // PylonGrabResult_t
    const void* Context;
    void* hBuffer;
    const void* pBuffer;
    int Status;
    int PayloadType;
    int PixelType;
    uint64_t TimeStamp;
    int SizeX, SizeY, OffsetX, OffsetY, PaddingX, PaddingY;
    uint64_t PayloadSize;
    unsigned ErrorCode;
    uint64_t BlockID;
};
static_assert(sizeof(LabGrabResult) == 96);

namespace LabPylon {
constexpr int accessControl = 1, accessStream = 2, accessEvent = 4, accessExclusive = 8;
constexpr int statusGrabbed = 2, statusCancelled = 3, statusFailed = 4; // of a result
constexpr uint32_t failure = 0xC2000001, invalidArgument = 0xC2000002, bufferTooSmall = 0xC2000003,
                   noSuchNode = 0xC2000005, invalidNodeHandle = 0xC2000006, outOfRange = 0xC2000008,
                   propertyError = 0xC2000009, timedOut = 0xC200000A, illegalState = 0xC200000E,
                   logicalError = 0xC2000010, badDevice = 0xC3000001, badGrabber = 0xC3000004,
                   badWaitObject = 0xC3000006;
} // namespace LabPylon

extern "C" {
uint32_t PylonInitialize();
uint32_t PylonTerminate();
uint32_t GenApiGetLastErrorMessage(char* buffer, size_t* length);
uint32_t PylonEnumerateDevices(size_t* count);
uint32_t PylonCreateDeviceByIndex(size_t index, void** device);
uint32_t PylonDestroyDevice(void* device);
uint32_t PylonDeviceOpen(void* device, int accessMode);
uint32_t PylonDeviceClose(void* device);
uint32_t PylonDeviceIsOpen(void* device, uint8_t* open);

uint8_t PylonDeviceFeatureIsAvailable(void* device, const char* name);
uint8_t PylonDeviceFeatureIsReadable(void* device, const char* name);
uint8_t PylonDeviceFeatureIsWritable(void* device, const char* name);
uint32_t PylonDeviceFeatureFromString(void* device, const char* name, const char* value);
uint32_t PylonDeviceFeatureToString(void* device, const char* name, char* text, size_t* length);
uint32_t PylonDeviceSetIntegerFeature(void* device, const char* name, int64_t value);
uint32_t PylonDeviceGetIntegerFeature(void* device, const char* name, int64_t* value);
uint32_t PylonDeviceGetIntegerFeatureMin(void* device, const char* name, int64_t* value);
uint32_t PylonDeviceGetIntegerFeatureMax(void* device, const char* name, int64_t* value);
uint32_t PylonDeviceGetIntegerFeatureInc(void* device, const char* name, int64_t* value);
uint32_t PylonGetDeviceInfoHandle(size_t index, void** info);
uint32_t PylonDeviceInfoGetPropertyValueByName(void* info, const char* name, char* value,
                                               size_t* length);
uint32_t PylonDeviceSetFloatFeature(void* device, const char* name, double value);
uint32_t PylonDeviceGetFloatFeature(void* device, const char* name, double* value);
uint32_t PylonDeviceGetFloatFeatureMin(void* device, const char* name, double* value);
uint32_t PylonDeviceGetFloatFeatureMax(void* device, const char* name, double* value);
uint32_t PylonDeviceSetBooleanFeature(void* device, const char* name, uint8_t value);
uint32_t PylonDeviceExecuteCommandFeature(void* device, const char* name);

uint32_t PylonDeviceGetStreamGrabber(void* device, size_t index, void** grabber);
uint32_t PylonStreamGrabberOpen(void* grabber);
uint32_t PylonStreamGrabberClose(void* grabber);
uint32_t PylonStreamGrabberSetMaxNumBuffer(void* grabber, size_t count);
uint32_t PylonStreamGrabberSetMaxBufferSize(void* grabber, size_t size);
uint32_t PylonStreamGrabberGetPayloadSize(void* device, void* grabber, size_t* size);
uint32_t PylonStreamGrabberPrepareGrab(void* grabber);
uint32_t PylonStreamGrabberRegisterBuffer(void* grabber, void* buffer, size_t size, void** handle);
uint32_t PylonStreamGrabberQueueBuffer(void* grabber, void* handle, const void* context);
uint32_t PylonStreamGrabberStartStreamingIfMandatory(void* grabber);
uint32_t PylonStreamGrabberStopStreamingIfMandatory(void* grabber);
uint32_t PylonStreamGrabberGetWaitObject(void* grabber, void** waitObject);
uint32_t PylonWaitObjectWait(void* waitObject, uint32_t timeoutMs, uint8_t* ready);
uint32_t PylonStreamGrabberRetrieveResult(void* grabber, LabGrabResult* result, uint8_t* ready);
uint32_t PylonStreamGrabberFlushBuffersToOutput(void* grabber);
uint32_t PylonStreamGrabberDeregisterBuffer(void* grabber, void* handle);
uint32_t PylonStreamGrabberFinishGrab(void* grabber);
}

// --- GPIB driver ---------------------------------------------------------------------------------

namespace LabNi488 {
constexpr unsigned long statusError = 0x8000, statusTimeout = 0x4000, statusEnd = 0x2000,
                        statusComplete = 0x0100;
// EDVR, ENOL, EADR, EARG, EABO, ENEB, EFSO, EBUS, EHDL
constexpr unsigned long driverError = 0, noListener = 2, addressError = 3, badArgument = 4,
                        aborted = 6, noBoard = 7, fileSystemError = 12, busError = 14,
                        badHandle = 23;
// Time-out codes in milliseconds; the first means none.
constexpr double timeoutsMs[] = {1e9, 0.01, 0.03, 0.1,  0.3, 1,   3,   10,  30,
                                 100, 300,  1000, 3000, 1e4, 3e4, 1e5, 3e5, 1e6};
} // namespace LabNi488

extern "C" {
int ibdev(int board, int pad, int sad, int tmo, int eot, int eos);
unsigned long ibclr(int descriptor);
unsigned long ibwrt(int descriptor, const void* bytes, size_t count);
unsigned long ibrd(int descriptor, void* buffer, size_t count);
unsigned long ibonl(int descriptor, int online);
unsigned long ThreadIbsta();
unsigned long ThreadIberr();
unsigned long ThreadIbcnt();
}

// --- VISA ----------------------------------------------------------------------------------------
// Sessions and find lists are uint32, a status is int32 and negative for an error.

namespace LabVisa {
constexpr uint32_t attributeTimeout = 0x3FFF001A; // ms
constexpr int32_t failure(uint32_t code) {
    return static_cast<int32_t>(0xBFFF0000u + code);
}
constexpr int32_t success = 0, successMaxCount = 0x3FFF0006;
constexpr int32_t warningNullObject = 0x3FFF0082, warningUnknownStatus = 0x3FFF0085;
constexpr int32_t systemError = failure(0), invalidObject = failure(0xE),
                  invalidExpression = failure(0x10), notFound = failure(0x11),
                  invalidName = failure(0x12), timedOut = failure(0x15),
                  attributeUnsupported = failure(0x1D), notSupported = failure(0x67),
                  busy = failure(0x72), invalidParameter = failure(0x78),
                  connectionLost = failure(0xA6);
} // namespace LabVisa

extern "C" {
int32_t viOpenDefaultRM(uint32_t* manager);
int32_t viFindRsrc(uint32_t manager, const char* expression, uint32_t* list, uint32_t* count,
                   char* descriptor);
int32_t viFindNext(uint32_t list, char* descriptor);
int32_t viOpen(uint32_t manager, const char* name, uint32_t accessMode, uint32_t timeout,
               uint32_t* session);
int32_t viClose(uint32_t object);
int32_t viSetAttribute(uint32_t object, uint32_t attribute, uint64_t value);
int32_t viStatusDesc(uint32_t object, int32_t status, char* text);
int32_t viRead(uint32_t session, uint8_t* buffer, uint32_t count, uint32_t* returned);
int32_t viWrite(uint32_t session, const uint8_t* buffer, uint32_t count, uint32_t* returned);
int32_t viClear(uint32_t session);
}

// --- Parameter analyzer's client -----------------------------------------------------------------

namespace LabKxci {
constexpr int connected = 1; // assumed, as is all of the library
} // namespace LabKxci

extern "C" {
void OpenKXCIConnection_C(const char* address, int port, int* status);
void SendKXCICommand_C(const char* command, char* reply, int* status);
void CloseKXCIConnection_C();
}

// --- By name -------------------------------------------------------------------------------------

// clang-format off
#define LAB_LIBXIMC_FUNCTIONS(F)                                                                   \
    F(ximc_version) F(set_bindy_key) F(enumerate_devices) F(free_enumerate_devices)                \
    F(get_device_count) F(get_device_name) F(open_device) F(close_device)                          \
    F(get_engine_settings) F(set_engine_settings) F(get_status) F(command_stop) F(command_move)

// Their ordinals stand nowhere.
#define LAB_NAMED_LIBXIMC_FUNCTIONS(F)                                                             \
    F(get_enumerate_device_controller_name) F(get_enumerate_device_stage_name)

// Exported for completeness; the program does not call them.
#define LAB_FURTHER_LIBXIMC_FUNCTIONS(F) F(set_engine_advansed_setup) F(set_extended_settings)

#define LAB_PYLON_FUNCTIONS(F)                                                                     \
    F(PylonInitialize) F(PylonTerminate) F(GenApiGetLastErrorMessage)                              \
    F(PylonEnumerateDevices) F(PylonCreateDeviceByIndex) F(PylonDestroyDevice)                     \
    F(PylonDeviceOpen) F(PylonDeviceClose)                                                         \
    F(PylonDeviceFeatureIsAvailable) F(PylonDeviceFeatureIsReadable) F(PylonDeviceFeatureIsWritable)                                \
    F(PylonDeviceFeatureFromString) F(PylonDeviceFeatureToString)                                  \
    F(PylonDeviceSetIntegerFeature) F(PylonDeviceGetIntegerFeature)                                \
    F(PylonDeviceGetIntegerFeatureMin) F(PylonDeviceGetIntegerFeatureMax)                          \
    F(PylonDeviceGetIntegerFeatureInc) F(PylonGetDeviceInfoHandle)                                 \
    F(PylonDeviceInfoGetPropertyValueByName)                                                       \
    F(PylonDeviceSetFloatFeature) F(PylonDeviceGetFloatFeature)                                    \
    F(PylonDeviceGetFloatFeatureMin) F(PylonDeviceGetFloatFeatureMax)                              \
    F(PylonDeviceSetBooleanFeature) F(PylonDeviceExecuteCommandFeature)                            \
    F(PylonDeviceGetStreamGrabber) F(PylonStreamGrabberOpen) F(PylonStreamGrabberClose)            \
    F(PylonStreamGrabberSetMaxNumBuffer) F(PylonStreamGrabberSetMaxBufferSize)                     \
    F(PylonStreamGrabberGetPayloadSize) F(PylonStreamGrabberPrepareGrab)                           \
    F(PylonStreamGrabberRegisterBuffer) F(PylonStreamGrabberQueueBuffer)                           \
    F(PylonStreamGrabberStartStreamingIfMandatory) F(PylonStreamGrabberStopStreamingIfMandatory)   \
    F(PylonStreamGrabberGetWaitObject) F(PylonWaitObjectWait) F(PylonStreamGrabberRetrieveResult)  \
    F(PylonStreamGrabberFlushBuffersToOutput) F(PylonStreamGrabberDeregisterBuffer)                \
    F(PylonStreamGrabberFinishGrab)

// Exported for completeness; the program does not call them.
#define LAB_FURTHER_PYLON_FUNCTIONS(F) F(PylonDeviceIsOpen)

#define LAB_NI488_FUNCTIONS(F)                                                                     \
    F(ibdev) F(ibclr) F(ibwrt) F(ibrd) F(ibonl) F(ThreadIbsta) F(ThreadIberr) F(ThreadIbcnt)

#define LAB_VISA_FUNCTIONS(F)                                                                      \
    F(viOpenDefaultRM) F(viFindRsrc) F(viFindNext) F(viOpen) F(viClose) F(viSetAttribute)          \
    F(viStatusDesc) F(viRead) F(viWrite) F(viClear)

#define LAB_KXCI_FUNCTIONS(F)                                                                      \
    F(OpenKXCIConnection_C) F(SendKXCICommand_C) F(CloseKXCIConnection_C)
// clang-format on
