// Our declarations of the part of the stage controllers' library that is used.
#pragma once

#include <cstdint>

struct engine_settings_t {
    uint32_t NomVoltage, NomCurrent, NomSpeed, uNomSpeed, EngineFlags;
    int32_t Antiplay;
    uint32_t MicrostepMode, StepsPerRev;
};

struct status_t {
    uint32_t MoveSts, MvCmdSts, PWRSts, EncSts, WindSts;
    int32_t CurPosition, uCurPosition;
    int64_t EncPosition;
    int32_t CurSpeed, uCurSpeed, Ipwr, Upwr, Iusb, Uusb, CurT;
    uint32_t Flags, GPIOFlags, CmdBufFreeSpace;
};

// All numbers are those of the library's public documentation.
constexpr int ximcError = -1; // results of the functions; 0 is success
constexpr int ximcNoDevice = -4;

constexpr uint32_t MOVE_STATE_MOVING = 0x01; // in MoveSts: the motor is being driven
constexpr uint32_t MVCMD_RUNNING = 0x80;     // in MvCmdSts: what the vendor says to wait for
constexpr uint32_t STATE_RIGHT_EDGE = 0x1;   // in GPIOFlags
constexpr uint32_t STATE_LEFT_EDGE = 0x2;
constexpr uint32_t ENGINE_ACCEL_ON = 0x10; // in EngineFlags
constexpr uint32_t ENGINE_LIMIT_RPM = 0x80;
constexpr uint32_t MICROSTEP_MODE_FRAC_256 = 9; // MicrostepMode

// The functions, as found in the library; each one missing answers with the library's own failure.
struct Libximc {
    void (*ximc_version)(char* version) = [](char*) {};
    int (*set_bindy_key)(const char* path) = [](const char*) { return -1; };
    void* (*enumerate_devices)(int flags, const char* hints) = [](int, const char*) -> void* {
        return nullptr;
    };
    int (*free_enumerate_devices)(void*) = [](void*) { return -1; };
    int (*get_device_count)(void*) = [](void*) { return -1; };
    char* (*get_device_name)(void*, int index) = [](void*, int) -> char* { return nullptr; };
    int (*open_device)(const char* name) = [](const char*) { return -1; };
    int (*close_device)(int* id) = [](int*) { return -1; };
    int (*get_engine_settings)(int id, engine_settings_t*) = [](int, engine_settings_t*) {
        return -1;
    };
    int (*set_engine_settings)(int id, const engine_settings_t*) =
        [](int, const engine_settings_t*) { return -1; };
    int (*get_status)(int id, status_t*) = [](int, status_t*) { return -1; };
    int (*command_stop)(int id) = [](int) { return -1; };
    int (*command_move)(int id, int position, int uPosition) = [](int, int, int) { return -1; };
};

// Loads libximc.dll; asks for each function by name and takes the ordinal only where the library
// has no such name, because the ordinals name other functions in other releases.
Libximc loadLibximc();
