// The serial port of the native tests. A read that gets nothing takes the total time-out, one that
// gets bytes returns the interval time-out after the last of them.
#include "tests/doubles/lab_serial.h"

#include "instruments/laser_link.h"
#include "tests/doubles/virtual_clock.h"
#include "virtual_lab/lab.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

struct NativePort {
    std::string unread;
    bool board = true; // at its far end
};

SerialDouble serial;

static NativePort thePort;
void resetSerial() {
    serial = {};
    serial.line.baudRate = 115200;
    serial.line.flags = 0x1011; // what the program must hand back as it was
    serial.line.byteSize = 7;
    serial.line.parity = 2;
    serial.line.stopBits = 2;
    thePort = {};
}

void openScriptedLink() {
    serial.scripted = true;
    serial.replies = {"0", "0", "0"};
    ASSERT_EQ(openLaserLink(laserLink, nullptr), 1);
    serial.writes.clear();
}

std::string wire() {
    std::string all;
    for (const std::string& write : serial.writes) all += write;
    serial.writes.clear();
    std::replace(all.begin(), all.end(), '\0', '|');
    return all;
}

PortHandle openSerialPort(const char* deviceName) {
    serial.openedNames.push_back(deviceName);
    const bool other = deviceName == serial.otherDevice;
    const bool there = other || (labBoardPresent() && deviceName == serial.boardPort);
    if (serial.refuseOpen || !there || serial.openPorts != 0) return invalidPort(); // not shared
    serial.openPorts++;
    thePort = {.unread = "", .board = !other};
    if (serial.farEnd.opened) serial.farEnd.opened();
    return &thePort;
}

static bool isOpen(PortHandle port) {
    return port == &thePort && serial.openPorts != 0;
}

static bool isConnected() {
    return labBoardConnected() || !thePort.board;
}

std::string serialPortTrouble() {
    const bool there = serial.openedNames.back() == "\\\\.\\COM10";
    return there ? "Access is denied (5)" : "The system cannot find the file specified (2)";
}

std::string serialPortNames() {
    return labBoardPresent() ? "COM3, COM10" : "";
}

void closeSerialPort(PortHandle port) {
    EXPECT_TRUE(isOpen(port)) << "a port closed that is not open";
    serial.openPorts--;
}

int32_t readLineState(PortHandle port, SerialLineState& state) {
    if (!isOpen(port) || !isConnected() || state.length != sizeof state) return 0;
    if (serial.failLineState != 0 && --serial.failLineState == 0) return 0;
    state = serial.line;
    return 1;
}

int32_t writeLineState(PortHandle port, const SerialLineState& state) {
    if (!isOpen(port) || serial.failSetLineState) return 0;
    serial.line = state;
    return 1;
}

int32_t writeTimeouts(PortHandle port, const SerialTimeouts& timeouts) {
    if (!isOpen(port) || serial.failSetTimeouts) return 0;
    serial.timeouts = timeouts;
    return 1;
}

int32_t readTimeouts(PortHandle port, SerialTimeouts& timeouts) {
    if (!isOpen(port)) return 0;
    timeouts = serial.timeouts;
    return 1;
}

// Until the first byte, or the total time-out; from then until there is a gap of the interval
// time-out between two bytes.
static std::string arrivedInTime(uint32_t capacity) {
    const SerialTimeouts& wait = serial.timeouts;
    double end = virtualNowMs() + wait.readTotalMultiplier * capacity + wait.readTotalConstant;
    std::string reply;
    while (reply.size() < capacity && virtualNowMs() < end) {
        advanceVirtualTime(1);
        const std::string more = serial.farEnd.takeReply();
        reply += more;
        if (!more.empty()) end = virtualNowMs() + wait.readInterval;
    }
    return reply;
}

static std::string arrived() {
    if (!thePort.board) return {};
    if (!serial.scripted && serial.replies.empty()) return takeBoardReply();
    if (serial.replies.empty()) return {};
    std::string reply = serial.replies.front();
    serial.replies.pop_front();
    return reply;
}

int32_t readSerial(PortHandle port, void* buffer, uint32_t capacity, uint32_t& bytesMoved) {
    bytesMoved = 0;
    if (!isOpen(port) || !isConnected()) return 0;
    const bool boardInTime = serial.farEnd.receive && thePort.board;
    if (thePort.unread.empty()) thePort.unread = boardInTime ? arrivedInTime(capacity) : arrived();
    const SerialTimeouts& wait = serial.timeouts;
    if (thePort.unread.empty() && !boardInTime) {
        advanceVirtualTime(wait.readTotalMultiplier * capacity + wait.readTotalConstant);
        return 1;
    }
    bytesMoved = std::min(capacity, static_cast<uint32_t>(thePort.unread.size()));
    std::memcpy(buffer, thePort.unread.data(), bytesMoved);
    thePort.unread.erase(0, bytesMoved);
    if (bytesMoved < capacity && !boardInTime) advanceVirtualTime(wait.readInterval);
    return 1;
}

int32_t writeSerial(PortHandle port, const void* bytes, uint32_t count, uint32_t& bytesMoved) {
    bytesMoved = 0;
    if (!isOpen(port) || !isConnected() || serial.refuseWrite) return 0;
    serial.writes.emplace_back(static_cast<const char*>(bytes), count);
    if (serial.farEnd.receive && thePort.board)
        serial.farEnd.receive(serial.writes.back());
    else if (!serial.scripted && thePort.board)
        boardReceive(bytes, count);
    bytesMoved = count;
    return 1;
}

void discardReceived(PortHandle) {
    thePort.unread.clear();
    if (serial.farEnd.takeReply)
        serial.farEnd.takeReply();
    else if (!serial.scripted)
        takeBoardReply();
}
