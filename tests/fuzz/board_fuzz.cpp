// The laser board's program on the computer: any bytes and any order of events, beside the
// laboratory's board.
#include "tests/firmware/host_chip.h"
#include "virtual_lab/lab.h"

#include <cstdio>
#include <cstdlib>

static void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

// What only one of the two boards understands.
static bool isOwn(const std::string& line) {
    return line == "V" || line == "E" || line == "I" || line[0] == 'K';
}

static int lightsReplied() {
    receiveByte(0, false); // ends what was left
    takeSent();
    receiveText(std::string("I\0", 2));
    const std::string lights = takeSent();
    int laser = -1, lamp = -1, reason = -1;
    require(std::sscanf(lights.c_str(), "%d %d %d", &laser, &lamp, &reason) == 3, "no lights");
    require(laser == chip.laser && (lamp != 0) == chip.lamp, "the lights are others than it says");
    return reason;
}

// The laboratory's board gets the same lines; it does not know that "off" is heard behind rubbish.
static void endLine(std::string& line) {
    static const std::string off = "G 5 0";
    const std::string reply = takeSent();
    require(reply.empty() || (reply.size() >= 2 && reply.size() < 50), "a reply of a wrong length");
    if (!isOwn(line)) {
        boardReceive(line.c_str(), line.size() + 1);
        if (line.ends_with(off)) boardReceive(off.c_str(), off.size() + 1);
        const std::string expected = takeBoardReply();
        if (line[0] != 'R')
            require(expected.size() == 1 ? reply == "0" + expected : reply == expected,
                    "another reply than the laboratory's");
        require(chip.laser == labLaserPwm(), "another laser level than the laboratory's");
        require(chip.lamp == labIlluminated(), "another illumination than the laboratory's");
    }
    line.clear();
}

// Bytes of the line, but 0xFF: what happens to the board, by the next byte.
static void happen(uint8_t what) {
    switch (what % 8) {
    case 0:
        receiveByte(what, true);
        break;
    case 1:
        receiveByte(0xFF, false);
        break;
    case 2:
        chip.interlockClosed = true;
        break;
    case 3:
        chip.interlockClosed = false;
        openInterlock();
        break;
    case 4:
        for (int i = 0; i < what * 100; ++i) passMillisecond();
        break;
    case 5:
        takeConversion(static_cast<uint16_t>(what * 4));
        break;
    case 6:
        chip.outputWorks = false;
        break;
    default:
        chip.outputWorks = true;
        break;
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    chip = {};
    startBoard(1);
    resetLab(1);
    std::string line;
    bool undisturbed = true;
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == 0xFF && i + 1 < size) {
            undisturbed = false;
            happen(data[++i]);
        } else {
            receiveByte(data[i], false);
            if (data[i] != 0)
                line += static_cast<char>(data[i]);
            else if (undisturbed)
                endLine(line);
        }
        require(chip.interlockClosed || chip.laser == 0, "light with an open interlock");
    }
    lightsReplied();
    receiveText(std::string("\0G 5 0\0", 7));
    require(chip.laser == 0 && (lightsReplied() & interlockWasOpen) == 0, "off was not heard");
    return 0;
}
