// How a process ended, and all that the operator must know of it. His words, the log and the files
// are made of it here.
#pragma once

#include <string>
#include <vector>

// How a process ended, as far as it has.
enum class ProcessEnd {
    Running,
    Finished,
    Declined,
    Stopped,
    WindowClosed,
    Asleep,
    Forced,
    CutOff
};
const char* nameOf(ProcessEnd end);

// What one cause has put in doubt.
struct Doubt {
    std::string cause;       // "Not reached"
    int count = 0;           // points or samples
    int of = 0;              // of so many; 0 is not told
    int row = 0, column = 0; // of the first point, from 1; row 1 is scanned first; 0 without places
    std::string why;         // behind the rest, in brackets; empty without
};

struct Outcome {
    ProcessEnd end = ProcessEnd::Finished;
    std::string lastWords;               // of the process itself: "Mapping finished"
    std::string endedBy;                 // what ended it that was no operator
    std::vector<Doubt> doubts;           // in the order in which they are told
    std::vector<std::string> troubles;   // the rest that went wrong, without full stops
    std::vector<std::string> notWritten; // of its files: "a picture"
    bool isRefused = false;              // the operator was asked, and said no

    bool isSound() const;

    // All that went wrong, each after ". ", as it stands behind the last words; empty when nothing
    // did.
    std::string trouble() const;

    // The last words and all that went wrong.
    std::string words() const { return lastWords + trouble(); }
};

// The same without what stands between it and the words before: for a line of its own, printable
// ASCII. "none" when nothing went wrong.
std::string troubleLine(const Outcome& outcome);
