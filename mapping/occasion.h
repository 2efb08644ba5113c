// What a measurement is of, in the operator's words: it goes into all its files and into the log.
#pragma once

#include <string>

// Each one line, empty where he has none.
struct Occasion {
    std::string sample, note;
    std::string list;  // "night, row 2 of 4, repeat 1 of 3"; empty of one that was started by hand
    std::string drift; // of the sample on the stage; empty where nobody has looked
};
extern Occasion occasion; // of the next measurement

// Sample and note, from Options.ini.
void readOccasion();

// Takes them for the next measurements but a list's that runs, line ends as blanks, and keeps them
// in Options.ini. False when they were not written: they hold for this run then.
bool keepOccasion(std::string sample, std::string note);

// The operator's own again, as he has kept them last: behind a list, whose rows have the list's.
void useOperatorsOccasion();

// A line of the log, where there is a word.
void logOccasion(const Occasion& of);
