// The serial port in front of the laboratory's board, or of a script of replies.
#pragma once

#include "platform/serial_port.h"

#include <deque>
#include <functional>
#include <string>
#include <vector>

// Another board than the laboratory's at the far end of the line, once `receive` is set. Its bytes
// take their time there and back.
struct FarEnd {
    std::function<void()> opened; // may be empty
    std::function<void(const std::string& bytes)> receive;
    std::function<std::string()> takeReply; // what has arrived by now
};

struct SerialDouble {
    FarEnd farEnd;
    std::vector<std::string> openedNames;
    std::vector<std::string> writes; // the bytes of each write, zero bytes included
    std::deque<std::string> replies; // while any is left, a read gets the next one; the board
                                     // then hears nothing
    bool scripted = false;           // replies come from `replies` alone; an empty one: silence
    bool refuseOpen = false;
    bool refuseWrite = false;
    std::string boardPort = "\\\\.\\COM10"; // where the board hangs
    std::string otherDevice; // the name of a port, as it is opened: what hangs there is no board,
                             // takes everything and says nothing
    int failLineState = 0;   // the n-th call of readLineState fails; 0 none
    bool failSetLineState = false;
    bool failSetTimeouts = false;
    SerialLineState line; // as the port holds it
    SerialTimeouts timeouts;
    int openPorts = 0;
};

extern SerialDouble serial;

void resetSerial();

// The laser link opened over a script of replies, and nothing said yet.
void openScriptedLink();

// The writes since the last call, with the zero byte that ends each shown as '|'.
std::string wire();
