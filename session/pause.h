// A pause of the process that is under way: the operator asks for it, and the process takes it
// where it stands well.
#pragma once

#include <string>

enum class PauseBehind { Nothing, Point, Row };

// In this object's block the process can pause behind its points, or only behind its rows, and the
// button "Pause" is there.
class CanPause {
public:
    explicit CanPause(PauseBehind finest);
    ~CanPause();
    CanPause(const CanPause&) = delete;
    CanPause& operator=(const CanPause&) = delete;

private:
    const PauseBehind before;
};

enum class PauseBy { Operator, Script };

// What somebody asks for; takes a pause that is asked for or has begun back with Nothing. Empty, or
// why not, which also stands in the information text: no process that can pause is under way.
std::string askForPause(PauseBehind behind, PauseBy by = PauseBy::Operator);

// A pause that is asked for or has begun is the operator's: nobody else may end it.
bool pauseIsOperators();

// "Pause", and "Resume" of one that is asked for or has begun.
void switchPause();

// Whether a process that has just come to the end of a point, or of a row, pauses now.
bool pauseIsDue(PauseBehind justDone);

// True while waitWhilePaused holds the process.
bool isPaused();

// Holds the process, as `what` ("Mapping"), until the operator resumes it; false when it is to stop
// instead. A pause that has lasted is no reason for an end.
bool waitWhilePaused(const std::string& what);
