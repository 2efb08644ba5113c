// Talks to the laser controller board.
#include "instruments/laser_link.h"

#include "platform/clock.h"
#include "platform/messages.h"
#include "platform/text_format.h"
#include "platform/truncate.h"
#include "screen/screen.h"
#include "session/device_report.h"
#include "session/forced_end.h"
#include "session/message_box.h"
#include "session/refusals.h"
#include "session/responsive_wait.h"
#include "session/set_up.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

LaserLink laserLink;

namespace {

constexpr size_t boundedCopyCapacity = 8; // with the terminating zero
constexpr uint32_t replyCapacity = 50;
constexpr int32_t channelRate = 7000;

constexpr const char* deviceName = "Laser board";

// The link may fail on the thread that ends the program, too; what is kept belongs to the windows'.
void noteTrouble(const std::string& words) {
    if (onWindowThread()) noteRefusal(deviceName, words);
}

bool isChannel(int channel) {
    return channel >= 0 && channel <= 2;
}

// Without these a read of a silent board would never end.
bool limitReplyTimes(LaserLink& link) {
    SerialTimeouts CommTimeOuts;
    CommTimeOuts.readInterval = 10;
    CommTimeOuts.readTotalMultiplier = 10;
    CommTimeOuts.readTotalConstant = 50;
    CommTimeOuts.writeTotalMultiplier = 10;
    CommTimeOuts.writeTotalConstant = 50;
    if (!writeTimeouts(link.portHandle, CommTimeOuts)) {
        std::fprintf(stderr, "Error to Setting Time outs\n");
        return false;
    }
    if (!readTimeouts(link.portHandle, CommTimeOuts)) std::printf("Error in Get Comm Timeout\n");
    return true;
}

// The board's line: 9600 baud, 8 bits, no parity, one stop bit; the rest stays as the port has it.
// Returns what opening the link returns.
int setUpLine(LaserLink& link) {
    SerialLineState dcbConfig;
    link.lastResult = readLineState(link.portHandle, dcbConfig);
    if (!link.lastResult) {
        std::printf("fail in GetCommState\n");
        return limitReplyTimes(link) ? 2 : 0;
    }
    std::printf("\nBaudRate = %u, ByteSize = %d, Parity = %d, StopBits = %d\n", dcbConfig.baudRate,
                dcbConfig.byteSize, dcbConfig.parity, dcbConfig.stopBits);
    dcbConfig.baudRate = 9600;
    dcbConfig.byteSize = 8;
    dcbConfig.parity = 0;
    dcbConfig.stopBits = 0;
    if (!writeLineState(link.portHandle, dcbConfig)) return 0;
    link.lastResult = readLineState(link.portHandle, dcbConfig);
    if (!link.lastResult) return 0;

    return limitReplyTimes(link) ? 1 : 0;
}

// Formats the channel's letter command with the value in the board's units and sends it.
void sendChannelCommand(LaserLink& link, const char letters[3], int channel, double value) {
    std::snprintf(link.commandText, sizeof link.commandText, "%c%d", letters[channel],
                  laserChannelRaw(link, channel, value));
    laserSend(link, link.commandText);
}

// Whether "COM3, COM10" has the name.
bool lists(const std::string& names, const std::string& name) {
    return (", " + names + ",").find(", " + name + ",") != std::string::npos;
}

// Opens the port and sets its line up; returns what opening the link returns.
int openPort(LaserLink& link) {
    if (!link.disconnected && link.portHandle) closeLaserLink(link);
    const std::string name = formatted("COM%d", link.comPort);
    const std::string ports = serialPortNames();
    reportSearch(deviceName,
                 name + ", 9600 baud; this computer has " + (ports.empty() ? "no port" : ports));
    link.portHandle = openSerialPort(("\\\\.\\" + name).c_str());
    link.disconnected = link.portHandle == invalidPort() ? 1 : 0;
    link.boardAnswered = false;
    link.portTaken = link.disconnected && lists(ports, name);
    if (link.disconnected) {
        noteTrouble(name + " does not open: " + serialPortTrouble());
        return 0;
    }
    link.wasOpen = true;
    const int lineResult = setUpLine(link);
    link.lineWasRead = lineResult == 1;
    if (lineResult != 1) noteTrouble(name + " opens, its line cannot be set up");
    if (lineResult == 0) closeLaserLink(link);
    return lineResult;
}

void printChannelSettings(LaserLink& link) {
    for (int c = 0; c < 3; ++c) laserChannelSetting(link, c, link.channelSetting[c]);
    for (int c = 0; c < 3; ++c) laserChannelRate(link, c, channelRate);
}

} // namespace

double laserChannelFromRaw(const LaserLink& link, int channel, int32_t raw) {
    return raw * 5.0 / 4.0 / 8.0 / link.channelScale[channel];
}

int32_t laserChannelRaw(const LaserLink& link, int channel, double value) {
    return truncated(value * 0.2 * 4.0 * 8.0 * link.channelScale[channel]);
}

std::string noBoardAnswers(const LaserLink& link) {
    return formatted("COM%d opens, but no board answers there", link.comPort);
}

int openLaserLink(LaserLink& link, WindowHandle ownerWindow) {
    const int opened = openPort(link);
    if (link.portHandle == invalidPort())
        showMessageBox(ownerWindow, "Error in  opening serial port", "Warning", BoxButtons::Ok);
    if (opened != 1) return opened;
    sleepMs(100);

    greetLaserBoard(link);
    int replies = 0;
    for (int c = 0; c < 3; ++c) {
        link.channelValue[c] = laserChannelValue(link, c);
        replies += link.replied ? 1 : 0;
    }
    link.boardAnswered = replies > 0;
    if (link.boardAnswered)
        reportAnswer(deviceName,
                     formatted("answers %d of 3 questions on COM%d", replies, link.comPort));
    else
        noteTrouble(noBoardAnswers(link));
    printChannelSettings(link);
    return 1;
}

void greetLaserBoard(LaserLink& link) {
    laserWrite(link, "z");
    if (link.keepAliveS > 0) laserSend(link, formatted("K%d", link.keepAliveS).c_str());
}

bool reopenLaserLink(LaserLink& link) {
    const int opened = openPort(link);
    if (opened == 0) return false;
    sleepMs(100);
    greetLaserBoard(link); // ends what half a command may have left on the board
    if (opened == 1) printChannelSettings(link);
    return !link.disconnected;
}

int closeLaserLink(LaserLink& link) {
    if (link.portHandle == invalidPort() || link.disconnected) return 0;
    link.disconnected = 1;
    if (link.portHandle) closeSerialPort(link.portHandle);
    return 0;
}

bool laserLinkStands(LaserLink& link) {
    SerialLineState state;
    if (link.disconnected || !link.portHandle) return false;
    if (!link.lineWasRead || readLineState(link.portHandle, state)) return true;
    closeLaserLink(link);
    noteTrouble("its port is gone");
    return false;
}

int laserWrite(LaserLink& link, const char* text) {
    if (link.disconnected) return 0;
    const auto count = static_cast<uint32_t>(std::strlen(text) + 1);
    link.lastResult = writeSerial(link.portHandle, text, count, link.bytesMoved);
    if (link.lastResult && link.bytesMoved == count) return 1; // half a command is none
    const bool wasOpen = link.portHandle != nullptr;
    closeLaserLink(link); // a held port could never be opened again
    if (wasOpen) {
        showInformation("The laser board takes no commands");
        noteTrouble("takes no commands");
    }
    return 0;
}

int laserSend(LaserLink& link, const char* text) {
    const size_t length = std::strlen(text);
    if (length >= boundedCopyCapacity) endProgram("laser command too long");
    std::memcpy(link.wireText, text, length + 1);
    return laserWrite(link, link.wireText);
}

bool laserWriteAtOnce(const LaserLink& link, const char* text) {
    if (link.disconnected || !link.portHandle) return false;
    const auto count = static_cast<uint32_t>(std::strlen(text) + 1);
    uint32_t moved = 0;
    return writeSerial(link.portHandle, text, count, moved) && moved == count;
}

const char* laserReceive(LaserLink& link) {
    static char text[100];
    char reply[sizeof text] = "0"; // the wait below may let another command receive
    link.replied = false;
    if (link.disconnected) return std::strcpy(text, reply);
    if (link.portHandle == invalidPort()) return nullptr;

    link.lastResult = readSerial(link.portHandle, reply, replyCapacity, link.bytesMoved);
    const bool failed = !link.lastResult || link.bytesMoved == 0;
    if (failed) noteTrouble("no reply");
    if (failed) waitResponsive(1);
    if (!failed) forgetRefusal(deviceName);
    link.replied = !failed;
    std::snprintf(link.commandText, sizeof link.commandText, "Rece.(%d):%.90s", failed ? 1 : 0,
                  reply);
    showInformation(link.commandText);
    return std::strcpy(text, reply);
}

std::optional<LaserBoardState> askLaserBoard(LaserLink& link) {
    if (link.disconnected || !link.portHandle) return {};
    discardReceived(link.portHandle);
    if (!laserSend(link, "I")) return {};
    char reply[replyCapacity + 1] = {};
    link.lastResult = readSerial(link.portHandle, reply, replyCapacity, link.bytesMoved);
    LaserBoardState state;
    if (link.lastResult &&
        std::sscanf(reply, "%d %d %d", &state.laserLevel, &state.lamp, &state.causes) == 3)
        return state;
    noteTrouble("no answer to \"I\"");
    return {};
}

namespace {

// As ever it is told by its one character, which may be the rest of a longer number.
bool isInDeadZone(const char* reply, int raw) {
    constexpr int32_t oneDigit = 10;
    if (setUp.inputDeadCounts == oneDigit) return std::strlen(reply) < 2;
    return raw > -setUp.inputDeadCounts && raw < setUp.inputDeadCounts;
}

} // namespace

Reading laserAnalogRead(LaserLink& link, int pin, int n) {
    // A reply that came too late for its point must not become the next point's value.
    if (!link.disconnected) discardReceived(link.portHandle);
    laserSend(link, formatted("R%d %d", pin, n).c_str());
    sleepMs(10);
    const char* reply = laserReceive(link);
    int raw = 0;
    const bool number = reply && std::sscanf(reply, "%d", &raw) == 1;
    if (!number || isInDeadZone(reply, raw)) raw = 0;
    const double stepVolts = std::ldexp(setUp.inputFullScaleVolts, -setUp.inputBits);
    const int highest = (1 << setUp.inputBits) - 1; // also of all that is higher
    Reading reading;
    reading.values[0] = static_cast<float>(raw * stepVolts);
    reading.answered = number && link.replied;
    reading.overloaded = reading.answered && raw >= highest;
    return reading;
}

int laserDigitalWrite(LaserLink& link, int pin, int level) {
    return laserSend(link, formatted("D %d %d", pin, level).c_str());
}

int laserAnalogWrite(LaserLink& link, int pin, int level) {
    return laserSend(link, formatted("G %d %d", pin, level).c_str());
}

double laserChannelValue(LaserLink& link, int channel) {
    if (!isChannel(channel)) return 0.0;
    if (!link.disconnected) {
        constexpr const char* queries[] = {"p", "P", "Q"};
        laserWrite(link, queries[channel]);
        if (link.portHandle == invalidPort()) return 0.0;
        if (const char* reply = laserReceive(link)) {
            std::snprintf(link.wireText, sizeof link.wireText, "%s", reply);
            int raw = 0;
            if (std::sscanf(link.wireText, "%d", &raw) == 1)
                link.channelValue[channel] = laserChannelFromRaw(link, channel, raw);
        }
    }
    return link.channelValue[channel];
}

void laserChannelSetting(LaserLink& link, int channel, int32_t value) {
    if (!isChannel(channel)) return;
    link.channelSetting[channel] = value;
    sendChannelCommand(link, "sST", channel, value);
}

void laserChannelRate(LaserLink& link, int channel, int32_t value) {
    if (!isChannel(channel)) return;
    sendChannelCommand(link, "aAb", channel, value);
}
