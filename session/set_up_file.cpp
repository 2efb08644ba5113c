// Reads and writes Setup.ini.
#include "platform/text_format.h"
#include "session/data_folders.h"
#include "session/options.h"
#include "session/set_up.h"

#include <algorithm>
#include <map>

namespace {

constexpr char highestZ[] = "highest Z (um)";
constexpr char currentInput[] = "lock-in current input";

std::wstring setUpPath() {
    return dataFolders.dataRoot + L"\\Setup.ini";
}

// The objectives that the lines speak of; nameless ones are called by their number.
void makeObjectives(const std::vector<OptionLine>& lines) {
    SetUp most;
    most.objectives.resize(mostObjectives);
    for (const SetUpField& field : setUpFields(most))
        for (const OptionLine& line : lines)
            if (line.name == field.name && field.objective > 0)
                setUp.objectives.resize(
                    std::max(setUp.objectives.size(), static_cast<size_t>(field.objective)));
}

// What is wrong between the lines falls back to the defaults, each for itself.
void mend(std::vector<std::string>& refused) {
    for (SetUpFault fault = faultIn(setUp); !fault.words.empty(); fault = faultIn(setUp)) {
        const bool ofRange = fault.field.starts_with("highest ");
        refused.push_back("Setup.ini: " + fault.words +
                          (ofRange ? "; the highest alone holds" : "; the default holds"));
        const auto fields = setUpFields(setUp);
        const auto field = std::find_if(fields.begin(), fields.end(), [&](const SetUpField& each) {
            return each.name == fault.field;
        });
        const SetUp asEver;
        if (field->objective > 0) {
            Objective& broken = setUp.objectives[static_cast<size_t>(field->objective - 1)];
            static_cast<PictureScale&>(broken) = {};
        } else if (ofRange) { // what keeps the objective off the sample
            setUp.ranges[static_cast<size_t>(field->name[8] - 'X')].lowest = AxisRange().lowest;
        } else if (field->name == "lamp pin") {
            setUp.laserPin = asEver.laserPin;
            setUp.lampPin = asEver.lampPin;
        } else {
            takeField(*field, setUp, textOf(*field, asEver));
        }
    }
}

bool isUnread = false;

} // namespace

bool setUpIsThere() {
    if (isUnread) readSetUp();
    return !isUnread;
}

std::vector<std::string> readSetUp() {
    setUp = {};
    std::vector<std::string> refused;
    const auto lines = optionsIn(setUpPath());
    isUnread = !lines;
    if (isUnread)
        return {"Setup.ini cannot be read: stage and laser board stay as they are until they are "
                "connected again and it can"};
    makeObjectives(*lines);
    const std::vector<SetUpField> fields = setUpFields(setUp);
    std::map<std::string, int> taken; // the lines, by their names
    for (const OptionLine& line : *lines) {
        const auto field = std::find_if(fields.begin(), fields.end(), [&](const SetUpField& each) {
            return each.name == line.name;
        });
        if (field == fields.end())
            refused.push_back(formatted("Setup.ini, line %d: \"%s\" is not known", line.number,
                                        line.name.c_str()));
        else if (taken.contains(line.name))
            refused.push_back(formatted("Setup.ini, line %d: %s stands in line %d already, which "
                                        "holds",
                                        line.number, line.name.c_str(), taken[line.name]));
        else if (!takeField(*field, setUp, line.value))
            refused.push_back(formatted("Setup.ini, line %d: %s is %s, not \"%s\"", line.number,
                                        line.name.c_str(), allowedFor(*field).c_str(),
                                        line.value.c_str()));
        else
            taken[line.name] = line.number;
    }
    setUp.lockInCurrentTried = taken.contains(currentInput);
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
