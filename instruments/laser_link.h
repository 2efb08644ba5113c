// The serial link to the laser controller board: laser, illumination, analog input, three channels.
#pragma once

#include "instruments/reading.h"
#include "platform/serial_port.h"
#include "platform/window_handle.h"

#include <cstdint>
#include <optional>
#include <string>

// The drive level that is sent when the laser is switched on, V.
constexpr double defaultLaserLevel = 4.0;

struct LaserLink {
    PortHandle portHandle = nullptr;
    uint32_t bytesMoved = 0;     // by the last read or write
    int32_t lastResult = 0;      // of the last read, write or line-state call
    char commandText[100] = {};  // commands and the receive notice are formatted here
    uint8_t disconnected = 0;    // 1 after a failed open, a failed write or a close
    bool wasOpen = false;        // once at least
    bool lineWasRead = false;    // when it was opened
    double channelValue[3] = {}; // last value that each channel reported
    int32_t channelSetting[3] = {1000, 1000, 1000};
    double channelMaximum[3] = {10000.0, 10000.0, 10000.0};
    double channelMinimum[3] = {-10000.0, -10000.0, -10000.0};
    int32_t channelScale[3] = {-1, -1, -1}; // divisor of the unit conversion
    int32_t comPort = 10;
    bool replied = false;       // the last receive brought something
    bool boardAnswered = false; // one of its questions, since the port was opened
    double laserLevel = defaultLaserLevel;
    int32_t keepAliveS = 0;  // s without a command until the board goes dark; 0 never
    bool portTaken = false;  // the last open failed at a port that this computer has
    char wireText[100] = {}; // the last bounded command, or the last channel reply
};

extern LaserLink laserLink;

// Opens the port at 9600 baud, 8 bits, no parity, one stop bit, and tells the board the remembered
// settings. Returns 0 (failure), 1 (success) or 2 (opened, but its line state could not be read).
int openLaserLink(LaserLink& link, WindowHandle ownerWindow);
int closeLaserLink(LaserLink& link);

// Begins a session on the board: "z", which ends its keep-alive, and then the keep-alive if any.
void greetLaserBoard(LaserLink& link);

// What is said of a port that opens where no board answers.
std::string noBoardAnswers(const LaserLink& link);

// Opens the same port once more for a command that must go out, without a box and without asking
// the board anything; windows are not touched and messages not taken.
bool reopenLaserLink(LaserLink& link);

// Whether the port of the link is still there, as its driver says: nothing is sent. A board that
// was unplugged while nothing was to be sent would otherwise not show. A port that is gone takes
// the link down.
bool laserLinkStands(LaserLink& link);

// Sends the text with its terminating zero byte. 1, or 0 when the link is down; a failed write
// takes it down and says so in the information text.
int laserWrite(LaserLink& link, const char* text);

// The same for a command of at most 7 characters; a longer one ends the program, because the board
// would take its head for another command.
int laserSend(LaserLink& link, const char* text);

// Writes the text and its zero byte and leaves the record alone: for a thread that may run while
// another is inside a read of the port, which ends within its time-out (560 ms).
bool laserWriteAtOnce(const LaserLink& link, const char* text);

// One reply, without a second attempt: "0" when there is none or the link is down; null without a
// port. Valid until the next call.
const char* laserReceive(LaserLink& link);

// Volts, as the set-up has the converter: 0..5 in steps of 5/1024 unless it says otherwise. What
// lies in its dead zone, as ever a single digit, counts as 0 V, and as an answer; the last step as
// an overload.
Reading laserAnalogRead(LaserLink& link, int pin, int n);
// What the board says of its outputs, in the order of its answer to "I".
struct LaserBoardState {
    int laserLevel = 0; // 0..255, at the output now
    int lamp = 0;       // 0 or 5
    int causes = 0;     // why the laser may be dark: a sum, see darkCauses
};

// Asks for it; nothing when no such answer came. The information text stays as it is.
std::optional<LaserBoardState> askLaserBoard(LaserLink& link);

int laserDigitalWrite(LaserLink& link, int pin, int level);
int laserAnalogWrite(LaserLink& link, int pin, int level); // level 0..255

// The board's unit of a channel (a raw count) and back, by the channel's scale.
int32_t laserChannelRaw(const LaserLink& link, int channel, double value);
double laserChannelFromRaw(const LaserLink& link, int channel, int32_t raw);

// Channels 0..2. A channel outside sends nothing.
double laserChannelValue(LaserLink& link, int channel);
void laserChannelSetting(LaserLink& link, int channel, int32_t value);
void laserChannelRate(LaserLink& link, int channel, int32_t value);
