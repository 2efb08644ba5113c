// Reads Setup.ini.
#include "session/set_up.h"

#include "platform/text_format.h"
#include "platform/typed_number.h"
#include "session/data_folders.h"
#include "session/options.h"

#include <cmath>
#include <optional>

SetUp setUp;

namespace {

// A row takes the value, or says what it may be.
struct SetUpRow {
    const char* name;
    const char* allowed;
    bool (*take)(SetUp& into, const std::string& value);
};

template <bool SetUp::*member> bool takeYesOrNo(SetUp& into, const std::string& value) {
    into.*member = value == "yes";
    return value == "yes" || value == "no";
}

template <int32_t SetUp::*member, int lowest, int highest>
bool takeInteger(SetUp& into, const std::string& value) {
    const std::optional<int> number = typedInteger(value);
    if (!number || std::to_string(*number) != value || *number < lowest || *number > highest)
        return false;
    into.*member = *number;
    return true;
}

bool takeAmplifier(SetUp& into, const std::string& value) {
    const std::optional<double> number = typedNumber(value);
    if (!number || !(*number >= 1.0 && *number <= 1e15)) return false;
    into.amplifierVoltsPerAmpere = *number;
    return true;
}

bool takeLockInCurrent(SetUp& into, const std::string& value) {
    into.lockInCurrentInAmperes = value == "amperes";
    into.lockInCurrentTried = true;
    return value == "amperes" || value == "volts";
}

constexpr double farthestUm = 1e6;

template <size_t axis, double AxisRange::*end>
bool takePlace(SetUp& into, const std::string& value) {
    const std::optional<double> um = typedNumber(value);
    if (!um || std::fabs(*um) > farthestUm) return false;
    into.ranges[axis].*end = *um;
    return into.ranges[axis].lowest < into.ranges[axis].highest;
}

constexpr char highestZ[] = "highest Z (um)";
constexpr char aPlace[] = "a place within a metre, the lowest below the highest";

constexpr SetUpRow rows[] = {
    {"laser board interlock", "yes or no", takeYesOrNo<&SetUp::boardHasInterlock>},
    {"laser board keep-alive (s)", "2 to 60", takeInteger<&SetUp::boardKeepAliveS, 2, 60>},
    {"amplifier (V/A)", "1 to 1e15", takeAmplifier},
    {"lowest X (um)", aPlace, takePlace<0, &AxisRange::lowest>},
    {"highest X (um)", aPlace, takePlace<0, &AxisRange::highest>},
    {"lowest Y (um)", aPlace, takePlace<1, &AxisRange::lowest>},
    {"highest Y (um)", aPlace, takePlace<1, &AxisRange::highest>},
    {"lowest Z (um)", aPlace, takePlace<2, &AxisRange::lowest>},
    {highestZ, aPlace, takePlace<2, &AxisRange::highest>},
    {"lock-in current input", "volts or amperes", takeLockInCurrent},
};

std::wstring setUpPath() {
    return dataFolders.dataRoot + L"\\Setup.ini";
}

const SetUpRow* rowOf(const std::string& name) {
    for (const SetUpRow& row : rows)
        if (name == row.name) return &row;
    return nullptr;
}

} // namespace

std::vector<std::string> readSetUp() {
    setUp = {};
    std::vector<std::string> refused;
    const auto lines = optionsIn(setUpPath());
    if (!lines) refused.emplace_back("Setup.ini cannot be read: the defaults hold");
    for (const OptionLine& line : lines.value_or(std::vector<OptionLine>())) {
        const SetUpRow* row = rowOf(line.name);
        SetUp changed = setUp;
        if (row && row->take(changed, line.value))
            setUp = changed;
        else if (row)
            refused.push_back(formatted("Setup.ini, line %d: %s is %s, not \"%s\"", line.number,
                                        row->name, row->allowed, line.value.c_str()));
        else
            refused.push_back(formatted("Setup.ini, line %d: \"%s\" is not known", line.number,
                                        line.name.c_str()));
    }
    return refused;
}

bool keepHighestZ(double um) {
    setUp.ranges[2].highest = um;
    return writeOptionsIn(setUpPath(), {{highestZ, formatted("%.3f", um)}});
}
