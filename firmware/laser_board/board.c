#include "board.h"

#include "chip.h"

#include <string.h>

enum {
    laserPin = 5,
    lampPin = 6,
    lampOnLevel = 5, // the program says "on" with it
    highestInput = 5,
    mostReadings = 100,
    highestCount = 1023,
    fullScaleMillivolts = 5000, // of the numbers that the program gets
    longestCommand = 15,
    longestKeepAliveS = 60,
};

static const char laserOff[] = "G 5 0";

static struct {
    char command[longestCommand + 1];
    uint8_t length;
    bool damaged;          // what follows is dropped up to the next zero byte
    uint8_t laserOffHeard; // so many characters of laserOff came last
    uint16_t droppedLines;
} line;

static struct {
    char text[49]; // the program reads at most 50 bytes
    uint8_t length;
} reply;

static struct {
    uint8_t input;
    uint8_t wanted;
    uint8_t left; // conversions still to come; 0: nothing is asked
    uint32_t sum;
    bool clipped;
} reading;

static int32_t channelSettings[3];

static uint8_t laserLevel; // at the output
static bool lampOn;
static uint8_t darkReasons;
static uint16_t keepAliveMs; // 0: none
static uint16_t silentMs;
static uint8_t startFlags;

// --- Replies -------------------------------------------------------------------------------------

static void addText(const char* text) {
    while (*text != '\0' && reply.length < sizeof reply.text) reply.text[reply.length++] = *text++;
}

// With at least two characters: one alone reads as 0 in the program.
static void addNumber(int32_t number) {
    char digits[12];
    uint8_t at = sizeof digits - 1;
    uint32_t rest = number < 0 ? 0 - (uint32_t)number : (uint32_t)number;
    digits[at] = '\0';
    do {
        digits[--at] = (char)('0' + rest % 10);
        rest /= 10;
    } while (rest > 0);
    if (number < 0) digits[--at] = '-';
    if (at == sizeof digits - 2) digits[--at] = '0';
    addText(digits + at);
}

// A reply that finds no room is dropped: whoever asks that much reads none of it.
static void endReply(void) {
    sendReply(reply.text, reply.length);
    reply.length = 0;
}

static void replyNumber(int32_t number) {
    addNumber(number);
    endReply();
}

// --- Laser ---------------------------------------------------------------------------------------

static void shine(uint8_t level) {
    const uint8_t trouble = driveLaser(level);
    laserLevel = trouble ? 0 : level;
    darkReasons = (uint8_t)((darkReasons & ~laserOutputFailed) | trouble);
}

// The interlock lets it shine again only once it has been told off, so that closing a door is never
// what switches it on.
static void setLaser(uint8_t level) {
    darkReasons &= (uint8_t)~keepAliveRanOut;
    if (level == 0) darkReasons &= (uint8_t)~interlockWasOpen;
    shine(darkReasons & interlockWasOpen ? 0 : level);
}

void openInterlock(void) {
    if (laserLevel == 0) return;
    shine(0);
    darkReasons |= interlockWasOpen;
}

void passMillisecond(void) {
    if (keepAliveMs == 0 || silentMs >= keepAliveMs) return;
    if (++silentMs < keepAliveMs || laserLevel == 0) return;
    shine(0);
    darkReasons |= keepAliveRanOut;
}

// --- Commands: each with its channel and its numbers; false when it is none ----------------------

static bool isBetween(int32_t number, int32_t least, int32_t most) {
    return number >= least && number <= most;
}

static bool beginSession(uint8_t channel, const int32_t* numbers) {
    (void)channel, (void)numbers;
    darkReasons &= (uint8_t)~boardStarted;
    keepAliveMs = 0;
    return true;
}

static bool setAnalogOutput(uint8_t channel, const int32_t* numbers) {
    (void)channel;
    if (numbers[0] != laserPin || !isBetween(numbers[1], 0, 255)) return false;
    setLaser((uint8_t)numbers[1]);
    return true;
}

static bool setDigitalOutput(uint8_t channel, const int32_t* numbers) {
    (void)channel;
    if (numbers[0] != lampPin || (numbers[1] != 0 && numbers[1] != lampOnLevel)) return false;
    lampOn = numbers[1] != 0;
    driveLamp(lampOn);
    return true;
}

// A question that comes before the last one is answered takes its place: whoever asked has given
// up waiting.
static bool askAnalogInput(uint8_t channel, const int32_t* numbers) {
    (void)channel;
    if (!isBetween(numbers[0], 0, highestInput) || !isBetween(numbers[1], 1, mostReadings))
        return false;
    reading.input = (uint8_t)numbers[0];
    reading.wanted = reading.left = (uint8_t)numbers[1];
    reading.sum = 0;
    reading.clipped = false;
    startConversion(reading.input);
    return true;
}

// In steps of the program's scale, rounded. Where the reference ends below that scale, an input
// above the reference must not pass for a value.
static uint16_t meanReading(void) {
    const uint32_t divisor = (uint32_t)reading.wanted * fullScaleMillivolts;
    const uint32_t mean = (reading.sum * referenceMillivolts() + divisor / 2) / divisor;
    return reading.clipped ? highestCount : (uint16_t)mean;
}

void takeConversion(uint16_t counts) {
    if (reading.left == 0) return;
    reading.sum += counts;
    if (counts == highestCount) reading.clipped = true;
    if (--reading.left > 0)
        startConversion(reading.input);
    else
        replyNumber(meanReading());
}

static bool sayChannel(uint8_t channel, const int32_t* numbers) {
    (void)numbers;
    replyNumber(channelSettings[channel]);
    return true;
}

static bool setChannel(uint8_t channel, const int32_t* numbers) {
    channelSettings[channel] = numbers[0];
    return true;
}

// The channels are an older stage's, and nothing of it is here.
static bool setChannelRate(uint8_t channel, const int32_t* numbers) {
    (void)channel, (void)numbers;
    return true;
}

static bool sayIdentity(uint8_t channel, const int32_t* numbers) {
    (void)channel, (void)numbers;
    addText("Lumascan board 1.0, ");
    addText(laserOutputName);
    addText(", ");
    addNumber(referenceMillivolts());
    addText(" mV, start ");
    replyNumber(startFlags);
    return true;
}

static bool sayDroppedLines(uint8_t channel, const int32_t* numbers) {
    (void)channel, (void)numbers;
    replyNumber(line.droppedLines);
    return true;
}

static bool sayLights(uint8_t channel, const int32_t* numbers) {
    (void)channel, (void)numbers;
    addNumber(laserLevel);
    addText(" ");
    addNumber(lampOn ? lampOnLevel : 0);
    addText(" ");
    replyNumber(darkReasons | (interlockIsClosed() ? 0 : interlockOpen));
    return true;
}

static bool setKeepAlive(uint8_t channel, const int32_t* numbers) {
    (void)channel;
    if (!isBetween(numbers[0], 0, longestKeepAliveS)) return false;
    keepAliveMs = (uint16_t)(numbers[0] * 1000);
    return true;
}

// '#' stands for a number.
static const struct {
    const char* form;
    bool (*carryOut)(uint8_t channel, const int32_t* numbers);
    uint8_t channel;
} commands[] = {
    {"z", beginSession, 0},      {"G # #", setAnalogOutput, 0}, {"D # #", setDigitalOutput, 0},
    {"R# #", askAnalogInput, 0}, {"p", sayChannel, 0},          {"P", sayChannel, 1},
    {"Q", sayChannel, 2},        {"s#", setChannel, 0},         {"S#", setChannel, 1},
    {"T#", setChannel, 2},       {"a#", setChannelRate, 0},     {"A#", setChannelRate, 1},
    {"b#", setChannelRate, 2},   {"V", sayIdentity, 0},         {"E", sayDroppedLines, 0},
    {"I", sayLights, 0},         {"K#", setKeepAlive, 0},
};

// --- Lines ---------------------------------------------------------------------------------------

static bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

// The number at the beginning of the text, in its shortest form and within 32 bits; moves on behind
// it.
static bool takeNumber(const char** text, int32_t* number) {
    const char* at = *text;
    const bool negative = *at == '-';
    if (negative) ++at;
    const uint32_t most = (uint32_t)INT32_MAX + (negative ? 1 : 0);
    uint32_t value = 0;
    if (!isDigit(*at) || (*at == '0' && (negative || isDigit(at[1])))) return false;
    for (; isDigit(*at); ++at) {
        const uint8_t digit = (uint8_t)(*at - '0');
        if (value > (most - digit) / 10) return false;
        value = value * 10 + digit;
    }
    *number = (int32_t)(negative ? 0 - value : value);
    *text = at;
    return true;
}

static bool matches(const char* text, const char* form, int32_t* numbers) {
    for (; *form != '\0'; ++form) {
        if (*form == '#') {
            if (!takeNumber(&text, numbers++)) return false;
        } else if (*text++ != *form) {
            return false;
        }
    }
    return *text == '\0';
}

static bool carryOut(const char* command) {
    for (uint8_t i = 0; i < sizeof commands / sizeof *commands; ++i) {
        int32_t numbers[2];
        if (matches(command, commands[i].form, numbers))
            return commands[i].carryOut(commands[i].channel, numbers);
    }
    return false;
}

static void endLine(void) {
    line.command[line.length] = '\0';
    if (!line.damaged && carryOut(line.command)) {
        silentMs = 0;
    } else {
        if (line.droppedLines < UINT16_MAX) ++line.droppedLines;
        // What is dropped is never obeyed, with one exception: "off" is heard behind any rubbish.
        if (line.laserOffHeard == sizeof laserOff - 1) setLaser(0);
    }
    line.length = 0;
    line.damaged = false;
    line.laserOffHeard = 0;
}

void receiveByte(uint8_t byte, bool damaged) {
    if (damaged) {
        line.damaged = true;
        line.laserOffHeard = 0;
        return;
    }
    if (byte == '\0') {
        endLine();
        return;
    }
    if (line.laserOffHeard < sizeof laserOff - 1 && byte == (uint8_t)laserOff[line.laserOffHeard])
        ++line.laserOffHeard;
    else
        line.laserOffHeard = byte == (uint8_t)laserOff[0] ? 1 : 0;
    if (line.length < longestCommand)
        line.command[line.length++] = (char)byte;
    else
        line.damaged = true;
}

void startBoard(uint8_t resetFlags) {
    memset(&line, 0, sizeof line);
    memset(&reply, 0, sizeof reply);
    memset(&reading, 0, sizeof reading);
    memset(channelSettings, 0, sizeof channelSettings);
    keepAliveMs = silentMs = 0;
    startFlags = resetFlags;
    lampOn = false;
    driveLamp(false);
    darkReasons = boardStarted;
    shine(0);
}
