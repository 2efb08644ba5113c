// The program's declarations of the vendors' libraries and the laboratory's are written
// independently; here both meet the vendors' own numbers.
#include "camera/pylon_c.h"
#include "instruments/kxci.h"
#include "instruments/ni488.h"
#include "instruments/visa.h"
#include "motion/libximc.h"
#include "platform/serial_port.h"
#include "tests/doubles/doubles.h"
#include "tests/doubles/lab_library.h"
#include "virtual_lab/faces.h"

#include <cstddef>
#include <type_traits>

// --- Layouts -------------------------------------------------------------------------------------

template <class Result> constexpr bool laidOutAsGrabResult() {
    return sizeof(Result) == 96 && offsetof(Result, Context) == 0 &&
           offsetof(Result, hBuffer) == 8 && offsetof(Result, pBuffer) == 16 &&
           offsetof(Result, Status) == 24 && offsetof(Result, PayloadType) == 28 &&
           offsetof(Result, PixelType) == 32 && offsetof(Result, TimeStamp) == 40 &&
           offsetof(Result, SizeX) == 48 && offsetof(Result, SizeY) == 52 &&
           offsetof(Result, OffsetX) == 56 && offsetof(Result, OffsetY) == 60 &&
           offsetof(Result, PaddingX) == 64 && offsetof(Result, PaddingY) == 68 &&
           offsetof(Result, PayloadSize) == 72 && offsetof(Result, ErrorCode) == 80 &&
           offsetof(Result, BlockID) == 88;
}
static_assert(laidOutAsGrabResult<PylonGrabResult_t>() && laidOutAsGrabResult<LabGrabResult>());

template <class Settings> constexpr bool laidOutAsEngineSettings() {
    return sizeof(Settings) == 32 && offsetof(Settings, NomVoltage) == 0 &&
           offsetof(Settings, NomCurrent) == 4 && offsetof(Settings, NomSpeed) == 8 &&
           offsetof(Settings, uNomSpeed) == 12 && offsetof(Settings, EngineFlags) == 16 &&
           offsetof(Settings, Antiplay) == 20 && offsetof(Settings, MicrostepMode) == 24 &&
           offsetof(Settings, StepsPerRev) == 28;
}
static_assert(laidOutAsEngineSettings<engine_settings_t>() &&
              laidOutAsEngineSettings<LabEngineSettings>());

template <class Status> constexpr bool laidOutAsStageStatus() {
    return sizeof(Status) == 80 && offsetof(Status, MoveSts) == 0 &&
           offsetof(Status, MvCmdSts) == 4 && offsetof(Status, PWRSts) == 8 &&
           offsetof(Status, CurPosition) == 20 && offsetof(Status, Upwr) == 52 &&
           offsetof(Status, uCurPosition) == 24 && offsetof(Status, EncPosition) == 32 &&
           offsetof(Status, CurSpeed) == 40 && offsetof(Status, CurT) == 64 &&
           offsetof(Status, Flags) == 68 && offsetof(Status, GPIOFlags) == 72 &&
           offsetof(Status, CmdBufFreeSpace) == 76;
}
static_assert(laidOutAsStageStatus<status_t>() && laidOutAsStageStatus<LabStageStatus>());

static_assert(sizeof(controller_name_t) == 24 && offsetof(controller_name_t, CtrlFlags) == 20);
static_assert(sizeof(LabControllerName) == 24 && offsetof(LabControllerName, CtrlFlags) == 20);
static_assert(sizeof(stage_name_t) == 17 && sizeof(LabStageName) == 17);

// The same as Windows' own, which platform/win32/serial_port.cpp checks.
static_assert(sizeof(SerialLineState) == 28 && sizeof(SerialTimeouts) == 20);

// --- Numbers -------------------------------------------------------------------------------------

static_assert((pylonAccessControl | pylonAccessStream) == 3);
static_assert(LabPylon::accessControl == 1 && LabPylon::accessStream == 2);
static_assert(pylonGrabbed == 2 && pylonCancelled == 3);
static_assert(LabPylon::statusGrabbed == 2 && LabPylon::statusCancelled == 3 &&
              LabPylon::statusFailed == 4);
static_assert(pylonMissing == 0xC2000001 && LabPylon::failure == 0xC2000001);
static_assert(LabPylon::bufferTooSmall == 0xC2000003 && LabPylon::noSuchNode == 0xC2000005 &&
              LabPylon::outOfRange == 0xC2000008 && LabPylon::illegalState == 0xC200000E &&
              LabPylon::badDevice == 0xC3000001 && LabPylon::badGrabber == 0xC3000004 &&
              LabPylon::badWaitObject == 0xC3000006);

static_assert(viAttrTimeout == 0x3FFF001A && LabVisa::attributeTimeout == 0x3FFF001A);
static_assert(viDescriptionSize == 256);
static_assert(LabVisa::successMaxCount == 0x3FFF0006 &&
              static_cast<uint32_t>(LabVisa::notFound) == 0xBFFF0011 &&
              static_cast<uint32_t>(LabVisa::invalidObject) == 0xBFFF000E &&
              static_cast<uint32_t>(LabVisa::timedOut) == 0xBFFF0015);

static_assert(gpibErrorBit == 0x8000 && gpibTimeout10s == 13 && gpibDriverError == 0);
static_assert(LabNi488::statusError == 0x8000 && LabNi488::statusTimeout == 0x4000 &&
              LabNi488::statusEnd == 0x2000 && LabNi488::statusComplete == 0x0100);
static_assert(LabNi488::timeoutsMs[13] == 10'000 && LabNi488::aborted == 6 &&
              LabNi488::badHandle == 23);

static_assert(ximcError == -1 && ximcNoDevice == -4 && LabXimc::resultNoDevice == -4);
static_assert(LabXimc::resultValueError == -3);
static_assert(STATE_ALARM == 0x40 && STATE_CTP_ERROR == 0x80 && STATE_POWER_OVERHEAT == 0x100 &&
              STATE_OVERLOAD_POWER_CURRENT == 0x800 && STATE_LOW_POWER_VOLTAGE == 0x10000);
static_assert(LabXimc::stateAlarm == 0x40 && LabXimc::statePositionError == 0x80 &&
              LabXimc::stateDriverOverheat == 0x100 && LabXimc::stateOverCurrent == 0x800 &&
              LabXimc::stateLowSupply == 0x10000);
static_assert(PWR_STATE_OFF == 1 && PWR_STATE_NORM == 3 && PWR_STATE_REDUCT == 4);
static_assert(LabXimc::powerOff == 1 && LabXimc::powerNormal == 3 && LabXimc::powerReduced == 4);
static_assert(LabXimc::enumerateProbe == 1 && LabXimc::enumerateNetwork == 4);
static_assert(STATE_RIGHT_EDGE == 1 && STATE_LEFT_EDGE == 2 && MVCMD_RUNNING == 0x80);
static_assert(LabXimc::rightEdge == 1 && LabXimc::leftEdge == 2 && LabXimc::commandRunning == 0x80);
static_assert(ENGINE_LIMIT_RPM == 0x80 && ENGINE_ACCEL_ON == 0x10 && MICROSTEP_MODE_FRAC_256 == 9);
static_assert(LabXimc::engineLimitRpm == 0x80 && LabXimc::engineAccelOn == 0x10);

static_assert(kxciConnected == 1 && LabKxci::connected == 1);

// --- Signatures ----------------------------------------------------------------------------------

// A function type of the laboratory with the program's records in the place of its own.
template <class T> struct Ours { using Type = T; };
template <> struct Ours<LabEngineSettings*> { using Type = engine_settings_t*; };
template <> struct Ours<const LabEngineSettings*> { using Type = const engine_settings_t*; };
template <> struct Ours<LabStageStatus*> { using Type = status_t*; };
template <> struct Ours<LabControllerName*> { using Type = controller_name_t*; };
template <> struct Ours<LabStageName*> { using Type = stage_name_t*; };
template <> struct Ours<LabGrabResult*> { using Type = PylonGrabResult_t*; };
template <class Result, class... Arguments> struct Ours<Result (*)(Arguments...)> {
    using Type = Result (*)(typename Ours<Arguments>::Type...);
};

#define SAME_SIGNATURE(table, name)                                                                \
    static_assert(std::is_same_v<decltype(table::name), Ours<decltype(&::name)>::Type>, #name);
#define SAME_LIBXIMC(name) SAME_SIGNATURE(Libximc, name)
#define SAME_PYLON(name) SAME_SIGNATURE(PylonC, name)
#define SAME_NI488(name) SAME_SIGNATURE(Ni488, name)
#define SAME_VISA(name) SAME_SIGNATURE(Visa, name)
#define SAME_KXCI(name) SAME_SIGNATURE(Kxci, name)
LAB_LIBXIMC_FUNCTIONS(SAME_LIBXIMC)
LAB_NAMED_LIBXIMC_FUNCTIONS(SAME_LIBXIMC)
LAB_PYLON_FUNCTIONS(SAME_PYLON)
LAB_NI488_FUNCTIONS(SAME_NI488)
LAB_VISA_FUNCTIONS(SAME_VISA)
LAB_KXCI_FUNCTIONS(SAME_KXCI)

// --- Ordinals ------------------------------------------------------------------------------------

struct VendorFacts : LabTest {};

struct Export {
    const char* name;
    unsigned ordinal;
};

static void expectOrdinals(const char* fileName, std::initializer_list<Export> exports) {
    LibraryHandle library = loadLibrary(fileName);
    for (const Export& each : exports)
        EXPECT_EQ(findFunction(library, "", each.ordinal), virtualLabFunction(fileName, each.name))
            << fileName << " " << each.name;
}

// What the DLLs export by number, and which of it the program asks for.
TEST_F(VendorFacts, OrdinalsAreThoseOfTheReleases) {
    libraries.namesMissing = true;
    expectOrdinals("VISA64.dll", {{"viFindRsrc", 129},
                                  {"viFindNext", 130},
                                  {"viOpen", 131},
                                  {"viClose", 132},
                                  {"viSetAttribute", 134},
                                  {"viOpenDefaultRM", 141},
                                  {"viStatusDesc", 142},
                                  {"viRead", 256},
                                  {"viWrite", 257},
                                  {"viClear", 260}});
    const std::initializer_list<Export> steady = {
        {"set_engine_settings", 11}, {"get_engine_settings", 13}, {"open_device", 504},
        {"close_device", 506},       {"enumerate_devices", 508},  {"free_enumerate_devices", 509},
        {"get_status", 513},         {"get_device_count", 517},   {"get_device_name", 518},
        {"ximc_version", 520},       {"set_bindy_key", 540}};
    expectOrdinals("libximc.dll", steady);
    expectOrdinals("libximc.dll", {{"command_stop", 61}, {"command_move", 63}});
#define BY_ORDINAL(name) EXPECT_EQ(reinterpret_cast<void*>(found.name), (void*)&::name) << #name;
    {
        const Libximc found = loadLibximc();
        LAB_LIBXIMC_FUNCTIONS(BY_ORDINAL)
    }
    {
        const Visa found = loadVisa();
        LAB_VISA_FUNCTIONS(BY_ORDINAL)
    }

    // In other releases those two numbers are functions that take a record: the names hold.
    libraries.ximcDefinition = "other_ordinals/libximc.def";
    expectOrdinals("libximc.dll", steady);
    expectOrdinals("libximc.dll", {{"set_engine_advansed_setup", 61},
                                   {"set_extended_settings", 63},
                                   {"command_stop", 65},
                                   {"command_move", 67}});
    libraries.namesMissing = false;
    const Libximc found = loadLibximc();
    LAB_LIBXIMC_FUNCTIONS(BY_ORDINAL)
    LAB_NAMED_LIBXIMC_FUNCTIONS(BY_ORDINAL)
}

// Without the bit for it a camera neither streams nor is set.
TEST_F(VendorFacts, CameraGivesWhatItWasOpenedFor) {
    void *camera = nullptr, *grabber = nullptr;
    ASSERT_EQ(PylonInitialize(), 0u);
    ASSERT_EQ(PylonCreateDeviceByIndex(0, &camera), 0u);
    for (int access : {0, 1, 2, 3, 5}) {
        ASSERT_EQ(PylonDeviceOpen(camera, access), 0u);
        EXPECT_EQ(PylonDeviceSetFloatFeature(camera, "Gain", 1), access & 1 ? 0 : 0xC200000E);
        EXPECT_EQ(PylonDeviceGetStreamGrabber(camera, 0, &grabber), access & 2 ? 0 : 0xC200000E);
        EXPECT_EQ(PylonDeviceClose(camera), 0u);
    }
    EXPECT_EQ(PylonStreamGrabberOpen(grabber), 0xC200000E); // of a device that is closed
    EXPECT_EQ(PylonDeviceOpen(&camera, 3), 0xC3000001);
    EXPECT_EQ(PylonStreamGrabberOpen(&camera), 0xC3000004);
    uint8_t ready = 0;
    EXPECT_EQ(PylonWaitObjectWait(&camera, 0, &ready), 0xC3000006);
    ASSERT_EQ(PylonDeviceOpen(camera, 3), 0u);
    EXPECT_EQ(PylonDeviceSetFloatFeature(camera, "Gian", 1), 0xC2000005);
    EXPECT_EQ(PylonDeviceSetFloatFeature(camera, "Gain", 37), 0xC2000008);
    char text[8];
    size_t length = sizeof text;
    EXPECT_EQ(PylonDeviceFeatureToString(camera, "PixelFormat", text, &length), 0xC2000003);
    EXPECT_EQ(length, sizeof "BayerRG12");
    PylonDeviceClose(camera);
    PylonDestroyDevice(camera);
    PylonTerminate();
}
