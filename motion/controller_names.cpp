// Knows the controllers by the names that are kept in Options.ini.
#include "motion/controller_names.h"

#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/message_box.h"
#include "session/options.h"

#include <algorithm>

namespace {

// In the order in which they were found.
constexpr const char* keptNames[axisCount] = {"stage controller 1", "stage controller 2",
                                              "stage controller 3"};

// Which found device each axis gets, by axis order.
constexpr size_t deviceOfAxis[6][axisCount] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2},
                                               {2, 0, 1}, {1, 2, 0}, {2, 1, 0}};

using Found = std::vector<FoundController>;

bool contains(const Found& found, const std::string& name) {
    return !name.empty() &&
           std::any_of(found.begin(), found.end(),
                       [&](const FoundController& each) { return each.name == name; });
}

AxisNames readKept() {
    AxisNames kept;
    for (size_t i = 0; i < axisCount; ++i) kept[i] = readOption(keptNames[i]);
    return kept;
}

bool isKnown(const AxisNames& kept, const std::string& name) {
    return !name.empty() && std::find(kept.begin(), kept.end(), name) != kept.end();
}

void keep(const Found& found) {
    std::vector<Option> options;
    for (size_t i = 0; i < axisCount; ++i)
        options.push_back({keptNames[i], i < found.size() ? found[i].name : ""});
    writeOptions(options);
}

AxisNames byName(const Found& found, const AxisNames& kept, const size_t* deviceOf) {
    AxisNames names;
    for (size_t i = 0; i < axisCount; ++i)
        if (contains(found, kept[deviceOf[i]])) names[i] = kept[deviceOf[i]];
    return names;
}

AxisNames byPlace(const Found& found, const size_t* deviceOf) {
    AxisNames names;
    for (size_t i = 0; i < axisCount; ++i)
        if (i < found.size() && deviceOf[i] < found.size()) names[i] = found[deviceOf[i]].name;
    return names;
}

// What the operator knows of a controller that would drive the axis.
std::string describe(const Found& found, const std::string& name, size_t axis,
                     const AxisNames& known) {
    if (name.empty()) return "no controller";
    const auto controller = std::find_if(found.begin(), found.end(),
                                         [&](const auto& each) { return each.name == name; });
    std::string words = name;
    if (!controller->words.empty()) words += ", " + controller->words;
    const auto before = std::find(known.begin(), known.end(), name);
    if (before == known.end()) return words + " (not known)";
    const auto axisBefore = static_cast<size_t>(before - known.begin());
    return axisBefore == axis ? words : words + formatted(" (drove %c)", "XYZ"[axisBefore]);
}

bool placesAccepted(const Found& found, const AxisNames& proposed, const AxisNames& known) {
    std::string text = "The stage controllers are not those that this set-up knows. Do they drive "
                       "the axes so?\n\n";
    for (size_t i = 0; i < axisCount; ++i)
        text += formatted("%c: %s\n", "XYZ"[i], describe(found, proposed[i], i, known).c_str());
    text += "\n\"No\" leaves those that are not known closed.";
    return showMessageBox(windows.main, text.c_str(), "Scanner Warning", BoxButtons::YesNo) ==
           BoxAnswer::Yes;
}

} // namespace

AxisNames namesOfAxes(const std::vector<FoundController>& found, int32_t order) {
    const size_t* deviceOf = deviceOfAxis[order >= 0 && order <= 4 ? order : 5];
    const AxisNames kept = readKept();
    AxisNames known = byName(found, kept, deviceOf);
    const bool allThere = std::all_of(kept.begin(), kept.end(),
                                      [&](const auto& name) { return contains(found, name); });
    const bool nobodyElse = std::all_of(found.begin(), found.end(), [&](const auto& controller) {
        return isKnown(kept, controller.name);
    });
    if (allThere || nobodyElse) return known;
    AxisNames proposed = byPlace(found, deviceOf);
    const bool first = kept == AxisNames{} && optionsCanBeRead() && found.size() == axisCount &&
                       std::all_of(found.begin(), found.end(),
                                   [](const auto& each) { return !each.name.empty(); });
    if (proposed == AxisNames{}) return known; // nothing to ask for
    if (!first && !placesAccepted(found, proposed, known)) return known;
    keep(found);
    return proposed;
}
