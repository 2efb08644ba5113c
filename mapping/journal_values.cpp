// Writes and reads a journal's values.
#include "mapping/journal_values.h"

#include "platform/decimal_point.h"
#include "platform/text_format.h"
#include "platform/typed_number.h"

namespace {

constexpr char equals[] = " = ";
constexpr char pointsBegin[] = "points";

} // namespace

std::vector<std::string> JournalLines::ended() const {
    std::vector<std::string> all = lines;
    all.emplace_back(pointsBegin);
    return all;
}

void JournalLines::add(const char* name, const std::string& value) {
    lines.push_back(name + (equals + value));
}

std::string JournalLines::textOf(int32_t value) {
    return formatted("%d", value);
}
std::string JournalLines::textOf(uint32_t value) {
    return formatted("%u", value);
}
std::string JournalLines::textOf(double value) {
    return formatted("%.17g", value);
}
std::string JournalLines::textOf(float value) {
    return formatted("%.9g", static_cast<double>(value));
}
std::string JournalLines::textOf(bool value) {
    return value ? "1" : "0";
}
std::string JournalLines::textOf(const std::string& value) {
    std::string line = value; // an instrument's answer may hold any byte
    for (char& letter : line)
        if (letter >= 0 && letter < ' ') letter = '?';
    return line;
}

JournalValues::JournalValues(const NextLine& next) {
    keepDecimalPoint(); // also for the points' numbers
    while (const std::optional<std::string_view> line = next()) {
        whole = *line == pointsBegin;
        const size_t at = line->find(equals);
        if (whole || at == std::string_view::npos) return;
        values[std::string(line->substr(0, at))] = line->substr(at + sizeof equals - 1);
    }
}

bool JournalValues::take(const std::string& text, int32_t& value) {
    return takeExact(text, value);
}
bool JournalValues::take(const std::string& text, uint32_t& value) {
    return takeExact(text, value);
}
bool JournalValues::take(const std::string& text, double& value) {
    return takeExact(text, value);
}
bool JournalValues::take(const std::string& text, float& value) {
    return takeExact(text, value);
}
bool JournalValues::take(const std::string& text, bool& value) {
    value = text == "1";
    return text == "0" || text == "1";
}
bool JournalValues::take(const std::string& text, std::string& value) {
    value = text;
    return true;
}
