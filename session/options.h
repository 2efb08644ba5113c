// KST_Data/Options.ini: values kept under names between two runs, one "name = value" a line. What
// the program does not know stays as it stands, line by line.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct Option {
    std::string name;  // without '=' and line ends
    std::string value; // one line; blanks around it are not kept
};

struct OptionLine : Option {
    int number = 0; // of the line, from 1
};

// The lines of such a file; a line that is empty or begins with '#', ';' or '[' is none, one
// without '=' is all name. None where there is no file; nothing when it cannot be read.
std::optional<std::vector<OptionLine>> optionsIn(const std::wstring& path);

// Puts the values into the lines of such a file, as writeOptions does, and takes those out that
// carry a name of `gone`; nothing is said.
bool writeOptionsIn(const std::wstring& path, const std::vector<Option>& options,
                    const std::vector<std::string>& gone = {});

// False where there is a file that cannot be read: its lines are not known, which is another thing
// than that there are none.
bool optionsCanBeRead();

// The value of the first line with that name; empty without the file or such a line.
std::string readOption(const std::string& name);

// Takes the one of two values that stands under the name; says when it is none of them, and leaves
// `value` as it is then and where there is no such line.
void takeOption(const std::string& name, bool& value, const char* whenTrue = "yes",
                const char* whenFalse = "no");

// Says that the value that stands under the name is none of its own, so that the default holds.
void tellUnknownOption(const std::string& name, const std::string& value);

// Puts the values into the lines with their names, or behind the last line. The file is written
// whole beside the old one and then takes its name, so that there is never a half of it. False, and
// said on standard output, when that failed: the old file is then as it was.
bool writeOptions(const std::vector<Option>& options);
