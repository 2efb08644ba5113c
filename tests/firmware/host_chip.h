// A chip for the laser board's program on the computer: what it was told, and what a test wants of
// it. For one source of a test program.
#pragma once

#include <string>

extern "C" {
#include "firmware/laser_board/board.h"
#include "firmware/laser_board/chip.h"
}

struct HostChip {
    int laser = 0;
    bool lamp = false;
    bool interlockClosed = true;
    bool outputWorks = true;
    uint16_t referenceMillivolts = 5000;
    int converts = -1; // the analog input that is being converted
    std::string sent;
};
inline HostChip chip;

extern "C" {
const char laserOutputName[] = "host";

uint8_t driveLaser(uint8_t level) {
    const int trouble = level == 0              ? 0
                        : !chip.interlockClosed ? interlockWasOpen
                        : chip.outputWorks      ? 0
                                                : laserOutputFailed;
    chip.laser = trouble ? 0 : level;
    return static_cast<uint8_t>(trouble);
}
void driveLamp(bool on) {
    chip.lamp = on;
}
bool interlockIsClosed(void) {
    return chip.interlockClosed;
}
uint16_t referenceMillivolts(void) {
    return chip.referenceMillivolts;
}
void startConversion(uint8_t input) {
    chip.converts = input;
}
bool sendReply(const char* bytes, uint8_t count) {
    chip.sent.append(bytes, count);
    return true;
}
}

inline void receiveText(const std::string& bytes) {
    for (const char byte : bytes) receiveByte(static_cast<uint8_t>(byte), false);
}

inline std::string takeSent() {
    std::string sent;
    sent.swap(chip.sent);
    return sent;
}
