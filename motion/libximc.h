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

struct controller_name_t { // as its owner has called it
    char ControllerName[17];
    uint32_t CtrlFlags;
};

struct stage_name_t {
    char PositionerName[17];
};

// All numbers are those of the library's public documentation.
constexpr int ximcError = -1; // results of the functions; 0 is success
constexpr int ximcNoDevice = -4;

constexpr uint32_t MOVE_STATE_MOVING = 0x01; // in MoveSts: the motor is being driven
constexpr uint32_t MVCMD_RUNNING = 0x80;     // in MvCmdSts: what the vendor says to wait for
constexpr uint32_t PWR_STATE_UNKNOWN = 0x00; // PWRSts; all that the vendor's emulated ones say
constexpr uint32_t PWR_STATE_OFF = 0x01;     // windings disconnected
constexpr uint32_t PWR_STATE_NORM = 0x03;
constexpr uint32_t PWR_STATE_REDUCT = 0x04; // the current is reduced at rest
constexpr uint32_t PWR_STATE_MAX = 0x05;
// In Flags. In the alarm state the controller acknowledges commands and ignores them until a stop;
// what has led into it stands beside it.
constexpr uint32_t STATE_ALARM = 0x40;
constexpr uint32_t STATE_CTP_ERROR = 0x80; // the encoder is too far from the steps
constexpr uint32_t STATE_POWER_OVERHEAT = 0x100;
constexpr uint32_t STATE_CONTROLLER_OVERHEAT = 0x200;
constexpr uint32_t STATE_OVERLOAD_POWER_VOLTAGE = 0x400;
constexpr uint32_t STATE_OVERLOAD_POWER_CURRENT = 0x800;
constexpr uint32_t STATE_OVERLOAD_USB_VOLTAGE = 0x1000;
constexpr uint32_t STATE_LOW_USB_VOLTAGE = 0x2000;
constexpr uint32_t STATE_OVERLOAD_USB_CURRENT = 0x4000;
constexpr uint32_t STATE_BORDERS_SWAP_MISSET = 0x8000;
constexpr uint32_t STATE_LOW_POWER_VOLTAGE = 0x10000;
constexpr uint32_t STATE_H_BRIDGE_FAULT = 0x20000;
constexpr uint32_t STATE_WINDING_RES_MISMATCH = 0x100000;
constexpr uint32_t STATE_ENCODER_FAULT = 0x200000;
constexpr uint32_t STATE_ENGINE_RESPONSE_ERROR = 0x800000;
constexpr uint32_t STATE_EXTIO_ALARM = 0x1000000;
constexpr uint32_t STATE_RIGHT_EDGE = 0x1; // in GPIOFlags
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
    // What the probe has read: the controller's own name and that of the stage on it.
    int (*get_enumerate_device_controller_name)(void*, int index, controller_name_t*) =
        [](void*, int, controller_name_t*) { return -1; };
    int (*get_enumerate_device_stage_name)(void*, int index, stage_name_t*) =
        [](void*, int, stage_name_t*) { return -1; };
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
