// Keeps the controllers' counts.
#include "motion/kept_places.h"

#include "session/options.h"

namespace {

std::string nameFor(size_t axis) {
    return std::string("stage ") + "XYZ"[axis] + " stood at (steps, controller)";
}

std::string textOf(int32_t steps, const std::string& controller) {
    return std::to_string(steps) + " " + controller;
}

std::string lossOf(size_t axis) {
    return std::string("stage ") + "XYZ"[axis] + " lost its place";
}

} // namespace

bool placeIsLost(size_t axis, int32_t steps) {
    if (steps != 0) return false;
    const std::string kept = readOption(nameFor(axis));
    return !kept.empty() && !kept.starts_with("0 ");
}

bool keepPlace(size_t axis, const std::string& controller, int32_t steps) {
    const std::string text = textOf(steps, controller);
    return readOption(nameFor(axis)) == text || writeOptions({{nameFor(axis), text}});
}

std::string lastLossOfPlace(size_t axis) {
    return readOption(lossOf(axis));
}

bool noteLossOfPlace(size_t axis, const std::string& when) {
    return writeOptions({{lossOf(axis), when}});
}
