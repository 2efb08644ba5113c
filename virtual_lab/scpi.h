// Taking SCPI messages apart.
#pragma once

#include <string>
#include <vector>

struct ScpiCommand {
    std::string header; // with its colon, without the question mark; common ones begin with '*'
    bool query = false;
    std::vector<std::string> parameters;
    std::string text; // as received
};

// The commands of a message, each with its whole header: none goes on where the one before it
// stood.
std::vector<ScpiCommand> splitScpi(const std::string& message);

// Whether a command is `pattern`: capital letters are the short form, '#' a number that can only be
// 1, words in brackets can be left out, as in "[:SENSe#]:CURRent[:DC]:RANGe"; a query ends in '?'.
bool scpiIs(const ScpiCommand& command, const std::string& pattern);

// The same for a single word as a parameter, with or without quotation marks.
bool scpiWordIs(const std::string& parameter, const char* pattern);

// A finite number and nothing else.
bool scpiNumber(const std::string& parameter, double& value);
