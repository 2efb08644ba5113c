// Keeps errors and registers.
#include "door/scpi_status.h"

#include "door/scpi_text.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

constexpr std::pair<int, const char*> standardTexts[] = {
    {-100, "Command error"},
    {-101, "Invalid character"},
    {-102, "Syntax error"},
    {-104, "Data type error"},
    {-108, "Parameter not allowed"},
    {-109, "Missing parameter"},
    {-113, "Undefined header"},
    {-114, "Header suffix out of range"},
    {-131, "Invalid suffix"},
    {-138, "Suffix not allowed"},
    {-151, "Invalid string data"},
    {-168, "Block data not allowed"},
    {-200, "Execution error"},
    {-203, "Command protected"},
    {-211, "Trigger ignored"},
    {-213, "Init ignored"},
    {-221, "Settings conflict"},
    {-222, "Data out of range"},
    {-224, "Illegal parameter value"},
    {-230, "Data corrupt or stale"},
    {-240, "Hardware error"},
    {-241, "Hardware missing"},
    {-250, "Mass storage error"},
    {-310, "System error"},
    {-350, "Queue overflow"},
    {-363, "Input buffer overrun"},
    {-410, "Query INTERRUPTED"},
    {-420, "Query UNTERMINATED"},
};

constexpr size_t mostErrors = 20;
constexpr size_t longestText = 255; // of an error, quotes not counted

std::string lineOf(int code, const std::string& words) {
    std::string text = standardText(code);
    if (!words.empty()) text += ";" + words;
    return std::to_string(code) + "," + quoted(text.substr(0, longestText));
}

EventBit bitOf(int code) {
    if (code <= -400) return eventQueryError;
    if (code <= -300) return eventDeviceError;
    return code <= -200 ? eventExecutionError : eventCommandError;
}

} // namespace

const char* standardText(int code) {
    const auto* const found = std::find_if(std::begin(standardTexts), std::end(standardTexts),
                                           [code](const auto& each) { return each.first == code; });
    return found == std::end(standardTexts) ? "" : found->second;
}

void ScpiStatus::error(int code, const std::string& words) {
    events |= bitOf(code);
    if (errors.size() < mostErrors) {
        errors.push_back(lineOf(code, words));
        return;
    }
    errors.back() = lineOf(-350, "");
    events |= eventDeviceError;
}

std::string ScpiStatus::nextError() {
    if (errors.empty()) return "0,\"No error\"";
    std::string oldest = std::move(errors.front());
    errors.pop_front();
    return oldest;
}

void ScpiStatus::clear() {
    errors.clear();
    events = 0;
    operation.event = questionable.event = 0;
}

void ScpiStatus::preset() {
    operation.enable = questionable.enable = 0;
}

unsigned ScpiStatus::byte(bool answerWaits) const {
    unsigned byte = 0;
    if (!errors.empty()) byte |= 4;
    if (questionable.isSummarised()) byte |= 8;
    if (answerWaits) byte |= 16;
    if ((events & eventsEnabled) != 0) byte |= 32;
    if (operation.isSummarised()) byte |= 128;
    if ((byte & serviceEnabled) != 0) byte |= 64;
    return byte;
}
