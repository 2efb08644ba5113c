// Reads and writes Places.ini.
#include "motion/places.h"

#include "platform/decimal_point.h"
#include "platform/files.h"
#include "platform/text_format.h"
#include "platform/typed_number.h"
#include "session/announce.h"
#include "session/data_folders.h"
#include "session/options.h"
#include "session/set_up.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <set>
#include <string_view>

namespace {

constexpr double farthestSteps = 1e9;
constexpr std::string_view placeWord = "place ";

const StageAxis* const axes[axisCount] = {&stageX, &stageY, &stageZ};

std::wstring placesPath() {
    return dataFolders.dataRoot + L"\\Places.ini";
}

std::string lineName(int32_t number) {
    return std::string(placeWord) + std::to_string(number);
}

std::string zeroName(size_t axis) {
    return std::string("zero of ") + "XYZ"[axis];
}

// The place's number; 0 of a line that is none of a place.
int32_t numberOf(const OptionLine& line) {
    const std::string_view name = line.name;
    int32_t number = 0;
    if (!name.starts_with(placeWord)) return 0;
    return takeExact(name.substr(placeWord.size()), number) && number > 0 ? number : 0;
}

std::string takeWord(Place& place, const std::string& word) {
    const size_t blank = std::min(word.find(' '), word.size());
    const std::string name = word.substr(0, blank);
    const std::string value = word.substr(std::min(blank + 1, word.size()));
    if (name.size() == 1 && name[0] >= 'x' && name[0] <= 'z') {
        double steps = 0.0;
        if (!takeExact(value, steps) || !(std::fabs(steps) <= farthestSteps))
            return name + " is a number of full steps";
        place.steps[static_cast<size_t>(name[0] - 'x')] = steps;
        return {};
    }
    if (name == "zeros") {
        int* const zeros = place.zeros.data();
        char more = 0;
        const int taken =
            std::sscanf(value.c_str(), "%d %d %d%c", zeros, zeros + 1, zeros + 2, &more);
        return taken == 3 ? "" : "zeros are three counts";
    }
    if (name == "objective") return place.objective = value, "";
    if (name == "focus") {
        place.isFocus = value == "yes";
        return place.isFocus || value == "no" ? "" : "focus is yes or no";
    }
    return "\"" + name + "\" is not known";
}

// The name comes last: it may hold a comma.
std::string takeText(Place& place, std::string text) {
    constexpr std::string_view comma = ", ", nameWord = "name ";
    if (text.ends_with(", name")) text += ' '; // an empty one, without the blank at the line's end
    while (!text.starts_with(nameWord)) {
        const size_t end = text.find(comma);
        if (end == std::string::npos) return "the name is missing";
        if (std::string fault = takeWord(place, text.substr(0, end)); !fault.empty()) return fault;
        text.erase(0, end + comma.size());
    }
    place.name = text.substr(nameWord.size());
    const bool any = std::any_of(place.steps.begin(), place.steps.end(),
                                 [](const std::optional<double>& of) { return of.has_value(); });
    return any ? "" : "it has none of x, y and z";
}

std::string inOneLine(std::string text, bool withCommas) {
    for (char& letter : text)
        if ((letter >= 0 && letter < ' ') || (letter == ',' && !withCommas)) letter = ' ';
    return text;
}

std::string textOf(const Place& place) {
    std::string text;
    for (size_t i = 0; i < axisCount; ++i)
        if (place.steps[i]) text += formatted("%c %.9g, ", "xyz"[i], *place.steps[i]);
    text += formatted("zeros %d %d %d, ", place.zeros[0], place.zeros[1], place.zeros[2]);
    text += "objective " + place.objective + ", focus " + (place.isFocus ? "yes" : "no");
    return text + ", name " + inOneLine(place.name, true);
}

std::string presentObjective() {
    const std::string& name = setUp.objective().name;
    return name.empty() ? std::to_string(setUp.objectiveInUse) : inOneLine(name, false);
}

std::string controllerOf(size_t axis) {
    return axes[axis]->axisNumber != 0 ? controllers.nameOf(axis) : "";
}

// How often an axis has begun to count anew, and whose count it is.
struct Zero {
    int32_t count = 0;
    std::string controller;
};

// Nothing of a line that is none.
std::optional<Zero> zeroOf(const OptionLine& line) {
    Zero zero;
    const size_t blank = std::min(line.value.find(' '), line.value.size());
    if (!takeExact(line.value.substr(0, blank), zero.count)) return {};
    zero.controller = line.value.substr(std::min(blank + 1, line.value.size()));
    return zero;
}

Zero zeroIn(const std::vector<OptionLine>& lines, size_t axis) {
    for (const OptionLine& line : lines) {
        if (line.name != zeroName(axis)) continue;
        if (const std::optional<Zero> zero = zeroOf(line)) return *zero;
        // Nobody knows any more whose zero the places have: none has the one of now.
        int32_t above = 0;
        std::vector<std::string> refused;
        for (const Place& place : readPlaces(refused)) above = std::max(above, place.zeros[axis]);
        return {above + 1, ""};
    }
    return {};
}

// The lines of the axes that are driven now.
std::vector<Option> zeroLines() {
    std::vector<Option> lines;
    for (size_t i = 0; i < axisCount; ++i)
        if (const std::string controller = controllerOf(i); !controller.empty())
            lines.push_back({zeroName(i), std::to_string(controllers.zeros[i]) + " " + controller});
    return lines;
}

} // namespace

std::optional<double> umOf(const Place& place, const StageAxis& axis) {
    const std::optional<double>& steps = place.steps[indexOf(axis)];
    return steps ? std::optional(umOfSteps(axis, *steps)) : std::nullopt;
}

std::string whyLost(const Place& place) {
    for (size_t i = 0; i < axisCount; ++i) {
        if (!place.steps[i]) continue;
        const std::string name = std::string("stage ") + "XYZ"[i];
        if (axes[i]->axisNumber == 0) return name + " has no controller";
        if (place.zeros[i] != controllers.zeros[i]) return name + " has lost its place since";
    }
    return {};
}

bool isOfPresentObjective(const Place& place) {
    return place.objective == presentObjective();
}

std::vector<Place> readPlaces(std::vector<std::string>& refused) {
    keepDecimalPoint();
    std::vector<Place> places;
    const auto lines = optionsIn(placesPath());
    if (!lines) refused.emplace_back("Places.ini cannot be read");
    if (!lines) return places;
    std::set<int32_t> numbers;
    for (const OptionLine& line : *lines) {
        if (line.name.starts_with("zero of ") && zeroOf(line)) continue;
        Place place{.number = numberOf(line)};
        std::string fault = place.number == 0 ? "\"" + line.name + "\" is not known"
                            : !numbers.insert(place.number).second ? "its number is there already"
                                                                   : takeText(place, line.value);
        if (fault.empty())
            places.push_back(place);
        else
            refused.push_back(formatted("Places.ini, line %d: ", line.number) + fault);
    }
    return places;
}

std::optional<Place> presentPlace(std::string& fault) {
    Place place;
    bool any = false;
    for (StageAxis* axis : {&stageX, &stageY, &stageZ}) {
        const size_t i = indexOf(*axis);
        if (axis->axisNumber == 0) continue;
        readPosition(*axis);
        if (axisIsOut(*axis)) {
            fault = axisTrouble(*axis);
            return {};
        }
        place.steps[i] = fullStepsOf(*axis, ofController(*axis, axis->positionUm));
        place.zeros[i] = controllers.zeros[i];
        any = true;
    }
    place.objective = presentObjective();
    if (any) return place;
    fault = "no controller answers";
    return {};
}

bool writePlace(Place& place) {
    const auto lines = optionsIn(placesPath());
    if (!lines) return false;
    int32_t number = place.number;
    if (number == 0) {
        // A picture that was left over is not that of the next place.
        for (const OptionLine& line : *lines) number = std::max(number, numberOf(line));
        for (++number; fileExists(picturePath({.number = number}));) ++number;
    }
    makeFolder(dataFolders.dataRoot + L"\\Places");
    std::vector<Option> changed = zeroLines();
    if (lines->empty())
        changed.insert(changed.begin(), {"# Places of the stage in full steps of its controllers; "
                                         "zeros",
                                         "how often each has begun to count anew"});
    changed.push_back({lineName(number), textOf(place)});
    if (!writeOptionsIn(placesPath(), changed)) return false;
    place.number = number;
    return true;
}

bool removePlace(const Place& place) {
    if (!writeOptionsIn(placesPath(), {}, {lineName(place.number)})) return false;
    removeFile(picturePath(place));
    return true;
}

std::wstring picturePath(const Place& place) {
    return dataFolders.dataRoot + L"\\Places\\" + std::to_wstring(place.number) + L".bmp";
}

void followZeros() {
    const auto lines = optionsIn(placesPath());
    bool changed = false;
    for (size_t i = 0; i < axisCount; ++i) {
        const Zero kept = zeroIn(lines.value_or(std::vector<OptionLine>()), i);
        const std::string now = controllerOf(i);
        controllers.zeros[i] = kept.count;
        if (now.empty()) continue;
        const bool other = !kept.controller.empty() && kept.controller != now;
        if (!axes[i]->placeLost && !other) continue;
        ++controllers.zeros[i];
        changed = true;
    }
    if (!changed || (lines && lines->empty())) return;
    if (!writeOptionsIn(placesPath(), zeroLines()))
        announce(Severity::Trouble, "Places.ini was not written: its places are not sure any more");
}
