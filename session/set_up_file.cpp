// Reads and writes Setup.ini.
#include "platform/text_format.h"
#include "session/data_folders.h"
#include "session/options.h"
#include "session/set_up.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr char highestZ[] = "highest Z (um)";
constexpr char currentInput[] = "lock-in current input";

std::wstring setUpPath() {
    return dataFolders.dataRoot + L"\\Setup.ini";
}

// The objectives that the lines speak of; nameless ones are called by their number.
void makeObjectives(const std::vector<OptionLine>& lines) {
    for (const OptionLine& line : lines) {
        unsigned number = 0;
        const bool named = std::sscanf(line.name.c_str(), "objective %u", &number) == 1;
        if (named && number >= 1 && number <= mostObjectives)
            setUp.objectives.resize(std::max<size_t>(setUp.objectives.size(), number));
    }
}

// What is wrong between the lines falls back to the defaults, each for itself.
void mend(std::vector<std::string>& refused) {
    for (SetUpFault fault = faultIn(setUp); !fault.words.empty(); fault = faultIn(setUp)) {
        refused.push_back("Setup.ini: " + fault.words + "; the default holds");
        const auto fields = setUpFields(setUp);
        const auto field = std::find_if(fields.begin(), fields.end(), [&](const SetUpField& each) {
            return each.name == fault.field;
        });
        const SetUp asEver;
        if (field->objective > 0) {
            Objective& broken = setUp.objectives[static_cast<size_t>(field->objective - 1)];
            static_cast<PictureScale&>(broken) = {};
        } else if (field->name.starts_with("highest ")) {
            setUp.ranges[static_cast<size_t>(field->name[8] - 'X')] = {};
        } else if (field->name == "lamp pin") {
            setUp.laserPin = asEver.laserPin;
            setUp.lampPin = asEver.lampPin;
        } else {
            takeField(*field, setUp, textOf(*field, asEver));
        }
    }
}

} // namespace

std::vector<std::string> readSetUp() {
    setUp = {};
    std::vector<std::string> refused;
    const auto lines = optionsIn(setUpPath());
    if (!lines) refused.emplace_back("Setup.ini cannot be read: the defaults hold");
    if (!lines) return refused;
    makeObjectives(*lines);
    const std::vector<SetUpField> fields = setUpFields(setUp);
    for (const OptionLine& line : *lines) {
        const auto field = std::find_if(fields.begin(), fields.end(), [&](const SetUpField& each) {
            return each.name == line.name;
        });
        if (field == fields.end())
            refused.push_back(formatted("Setup.ini, line %d: \"%s\" is not known", line.number,
                                        line.name.c_str()));
        else if (!takeField(*field, setUp, line.value))
            refused.push_back(formatted("Setup.ini, line %d: %s is %s, not \"%s\"", line.number,
                                        line.name.c_str(), allowedFor(*field).c_str(),
                                        line.value.c_str()));
        if (line.name == currentInput) setUp.lockInCurrentTried = true;
    }
    mend(refused);
    return refused;
}

bool keepSetUp(const SetUp& changed) {
    std::vector<Option> lines;
    // An objective that is there now and was not is written whole.
    SetUp before = setUp;
    before.objectives.resize(changed.objectives.size());
    for (const SetUpField& field : setUpFields(changed)) {
        const std::string text = textOf(field, changed);
        const bool isNew = field.objective > static_cast<int>(setUp.objectives.size());
        if (isNew || text != textOf(field, before)) lines.push_back({field.name, text});
    }
    // One that is there no more must not come back at the next start.
    std::vector<std::string> gone;
    for (const SetUpField& field : setUpFields(setUp))
        if (field.objective > static_cast<int>(changed.objectives.size()))
            gone.push_back(field.name);
    setUp = changed;
    return (lines.empty() && gone.empty()) || writeOptionsIn(setUpPath(), lines, gone);
}

bool keepHighestZ(double um) {
    setUp.ranges[2].highest = um;
    return writeOptionsIn(setUpPath(), {{highestZ, formatted("%.3f", um)}});
}
