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

constexpr std::string_view placeWord = "place ";

std::wstring placesPath() {
    return dataFolders.dataRoot + L"\\Places.ini";
}

std::string lineName(int32_t number) {
    return std::string(placeWord) + std::to_string(number);
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
        AxisCount& count = place.counts[static_cast<size_t>(name[0] - 'x')];
        count = axisCountIn(value);
        return count.isKnown() ? "" : name + " is no count of a controller";
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
    const bool any = std::any_of(place.counts.begin(), place.counts.end(),
                                 [](const AxisCount& of) { return of.isKnown(); });
    return any ? "" : "it has none of x, y and z";
}

std::string textOf(const Place& place) {
    std::string text;
    for (size_t i = 0; i < axisCount; ++i)
        if (place.counts[i].isKnown())
            text += formatted("%c ", "xyz"[i]) + textOf(place.counts[i]) + ", ";
    text += "objective " + place.objective + ", focus " + (place.isFocus ? "yes" : "no");
    return text + ", name " + oneLine(place.name);
}

std::string presentObjectiveInPlace() {
    std::string name = presentObjective();
    std::replace(name.begin(), name.end(), ',', ' ');
    return name;
}

} // namespace

std::optional<double> umOf(const Place& place, const StageAxis& axis) {
    const AxisCount& count = place.counts[indexOf(axis)];
    return count.isKnown() ? std::optional(umOf(axis, count)) : std::nullopt;
}

std::string whyLost(const Place& place) {
    for (const StageAxis* axis : {&stageX, &stageY, &stageZ}) {
        const AxisCount& count = place.counts[indexOf(*axis)];
        if (std::string why = count.isKnown() ? whyLost(*axis, count) : ""; !why.empty())
            return why;
    }
    return {};
}

bool isOfPresentObjective(const Place& place) {
    return place.objective == presentObjectiveInPlace();
}

std::vector<Place> readPlaces(std::vector<std::string>& refused) {
    keepDecimalPoint();
    std::vector<Place> places;
    const auto lines = optionsIn(placesPath());
    if (!lines) refused.emplace_back("Places.ini cannot be read");
    if (!lines) return places;
    std::set<int32_t> numbers;
    for (const OptionLine& line : *lines) {
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
        if (axis->axisNumber == 0) continue;
        readPosition(*axis);
        if (axisIsOut(*axis)) {
            fault = axisTrouble(*axis);
            return {};
        }
        place.counts[indexOf(*axis)] = countOf(*axis, axis->positionUm);
        any = true;
    }
    place.objective = presentObjectiveInPlace();
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
    if (!writeOptionsIn(placesPath(), {{lineName(number), textOf(place)}})) return false;
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
