// One serial port: its line state, time-outs, reads and writes.
#pragma once

#include <cstdint>
#include <string>

struct NativePort;
using PortHandle = NativePort*;

// What openSerialPort returns when it fails (the operating system's invalid handle).
inline PortHandle invalidPort() {
    return reinterpret_cast<PortHandle>(~uintptr_t{0});
}

// The operating system's device-control block. Only the named line settings are changed by the
// program; the rest is handed back as it was read.
struct SerialLineState {
    uint32_t length = 28; // bytes
    uint32_t baudRate = 0;
    uint32_t flags = 0;
    uint16_t reserved = 0;
    uint16_t xonLimit = 0;
    uint16_t xoffLimit = 0;
    uint8_t byteSize = 0;
    uint8_t parity = 0;   // 0 none
    uint8_t stopBits = 0; // 0 one stop bit
    char characters[5] = {};
    uint16_t reserved1 = 0;
};
static_assert(sizeof(SerialLineState) == 28);

struct SerialTimeouts { // milliseconds; the multipliers are per byte
    uint32_t readInterval = 0;
    uint32_t readTotalMultiplier = 0;
    uint32_t readTotalConstant = 0;
    uint32_t writeTotalMultiplier = 0;
    uint32_t writeTotalConstant = 0;
};

// `deviceName` as "\\.\COM10"; read and write, not shared.
PortHandle openSerialPort(const char* deviceName);
void closeSerialPort(PortHandle port);

// Why the last port did not open, in the system's words: that it is not there, or taken.
std::string serialPortTrouble();

// The ports of the computer, as "COM3, COM10"; empty when there are none.
std::string serialPortNames();

// These give non-zero on success and zero on failure.
int32_t readLineState(PortHandle port, SerialLineState& state);
int32_t writeLineState(PortHandle port, const SerialLineState& state);
int32_t writeTimeouts(PortHandle port, const SerialTimeouts& timeouts);
int32_t readTimeouts(PortHandle port, SerialTimeouts& timeouts);
int32_t readSerial(PortHandle port, void* buffer, uint32_t capacity, uint32_t& bytesMoved);
int32_t writeSerial(PortHandle port, const void* bytes, uint32_t count, uint32_t& bytesMoved);

// Forgets what has come in and was not read.
void discardReceived(PortHandle port);
