// One call for what the operator or the log must know. A device's own words go by refusals.h.
#pragma once

#include <string>

enum class Severity {
    Event,   // the log of the day
    Failure, // it and standard output: nothing that the operator could do something about now
    Trouble, // these and the information text
};

// From another thread than the windows' the information text stays as it is.
void announce(Severity severity, const std::string& words);
