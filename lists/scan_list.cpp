// Reads and writes lists.
#include "lists/scan_list.h"

#include "instruments/bias.h"
#include "mapping/scan_area.h"
#include "platform/decimal_point.h"
#include "platform/text_format.h"
#include "platform/typed_number.h"
#include "spectroscopy/iv_sweep.h"
#include "spectroscopy/time_evolution.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace {

constexpr unsigned maps = 1, curves = 2, series = 4, all = 7;
constexpr double farthestUm = 1e6;

constexpr ListNumber numbers[] = {
    {"x", &ListRow::xUm, -farthestUm, farthestUm, false, all},
    {"y", &ListRow::yUm, -farthestUm, farthestUm, false, all},
    {"columns", &ListRow::columns, 1, 100000, true, maps},
    {"rows", &ListRow::rows, 1, 100000, true, maps},
    {"step", &ListRow::stepUm, scanStepLowest, scanStepHighest, false, maps},
    {"laser", &ListRow::laserUa, 0, 1000, false, maps | series},
    {"bias", &ListRow::biasVolts, -largestBiasTyped, largestBiasTyped, false, maps | series},
    {"limit", &ListRow::limitAmperes, smallestLimitTyped, largestLimitTyped, false, all},
    {"channel", &ListRow::channel, 0, 3, true, maps | series},
    {"repeats", &ListRow::repeats, 1, 10000, true, all},
    {"every", &ListRow::everyMinutes, 0, 100000, false, all},
    {"range", &ListRow::rangeVolts, sweepRangeLowest, sweepRangeHighest, false, curves},
    {"points", &ListRow::quarterPoints, 1, 10000, true, curves},
    {"on", &ListRow::onSeconds, 0, longestPhaseSeconds, false, series},
    {"off", &ListRow::offSeconds, 0, longestPhaseSeconds, false, series},
    {"cycles", &ListRow::lightCycles, 1, mostLightCycles, true, series},
};

std::string trimmed(const std::string& text) {
    constexpr const char* blanks = " \t\r";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool allows(const ListNumber& of, double value) {
    return value >= of.lowest && value <= of.highest && (!of.isWhole || value == std::floor(value));
}

std::string allowedFor(const ListNumber& of) {
    return std::string(of.name) + " is " + (of.isWhole ? "a whole number, " : "") +
           shortestText(of.lowest) + " to " + shortestText(of.highest);
}

// Takes "name value"; says why not.
std::string takeWord(ListRow& row, const std::string& word) {
    const size_t blank = std::min(word.find(' '), word.size());
    const std::string name = word.substr(0, blank);
    const std::string value = trimmed(word.substr(blank));
    if (name == "z") {
        row.zUm = exactNumber(value);
        return row.zUm ? "" : "z is a number";
    }
    for (const ListNumber& number : numbers) {
        if (name != number.name || !number.isOf(row.kind)) continue;
        const std::optional<double> taken = exactNumber(value);
        if (!taken || !allows(number, *taken)) return allowedFor(number);
        row.*number.value = *taken;
        return {};
    }
    return formatted("a %s has no \"%s\"", nameOf(row.kind), name.c_str());
}

std::string takeRow(ListRow& row, const std::string& value) {
    std::istringstream words(value);
    std::string word;
    std::getline(words, word, ',');
    int kind = 0;
    while (kind < listKindCount && trimmed(word) != nameOf(static_cast<ListKind>(kind))) ++kind;
    if (kind == listKindCount) return "a row is a map, I-V or series";
    row.kind = static_cast<ListKind>(kind);
    while (std::getline(words, word, ',')) {
        word = trimmed(word);
        if (word == "off") {
            row.on = false;
            continue;
        }
        if (std::string fault = takeWord(row, word); !fault.empty()) return fault;
    }
    return faultIn(row);
}

bool takeYes(bool& into, const std::string& value) {
    into = value == "yes";
    return into || value == "no";
}

std::string takeLine(ScanList& list, const std::string& name, const std::string& value) {
    if (name == "row") {
        if (list.rows.size() == mostListRows) return "a list has at most 10000 rows";
        return takeRow(list.rows.emplace_back(), value);
    }
    if (name == "sample") return list.sample = value, "";
    if (name == "note") return list.note = value, "";
    if (name == "set-up") return list.setUpInForce = value, "";
    if (name == "goes on after a failure")
        return takeYes(list.goesOnAfterFailure, value) ? "" : "yes or no";
    if (name == "bias stays in a pause")
        return takeYes(list.keepsBiasInAPause, value) ? "" : "yes or no";
    if (name == "follow drift") return takeYes(list.followsDrift, value) ? "" : "yes or no";
    return "\"" + name + "\" is not known";
}

} // namespace

const char* nameOf(ListKind kind) {
    constexpr const char* names[listKindCount] = {"map", "I-V", "series"};
    return names[static_cast<size_t>(kind)];
}

std::span<const ListNumber> listNumbers() {
    return numbers;
}

std::string faultIn(const ListRow& row) {
    for (const ListNumber& number : numbers)
        if (number.isOf(row.kind) && !allows(number, row.*number.value)) return allowedFor(number);
    if (row.kind == ListKind::Map && row.columns * row.rows > static_cast<double>(mostScanPoints))
        return "a map has at most 36 million points";
    return {};
}

std::string lineOf(const ListRow& row) {
    std::string line = std::string("row = ") + nameOf(row.kind);
    const auto add = [&line](const char* name, double value) {
        line += ", ";
        line += name;
        line += ' ';
        line += shortestText(value);
    };
    for (const ListNumber& number : numbers)
        if (number.isOf(row.kind)) add(number.name, row.*number.value);
    if (row.zUm) add("z", *row.zUm);
    return row.on ? line : line + ", off";
}

std::string textOf(const ScanList& list) {
    const auto yesNo = [](bool yes) { return yes ? "yes\n" : "no\n"; };
    std::string text =
        "# A list of scans: places in um by the controllers' own count, laser in uA, "
        "bias in V, every in minutes.\n";
    text += "sample = " + oneLine(list.sample) + "\n";
    text += "note = " + oneLine(list.note) + "\n";
    if (!list.setUpInForce.empty()) text += "set-up = " + oneLine(list.setUpInForce) + "\n";
    text += std::string("goes on after a failure = ") + yesNo(list.goesOnAfterFailure);
    text += std::string("bias stays in a pause = ") + yesNo(list.keepsBiasInAPause);
    text += std::string("follow drift = ") + yesNo(list.followsDrift);
    for (const ListRow& row : list.rows) {
        text += lineOf(row);
        text += '\n';
    }
    return text;
}

std::optional<ScanList> listOf(const std::string& text, std::string& fault) {
    keepDecimalPoint();
    ScanList list;
    std::istringstream lines(text);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        line = trimmed(line);
        if (line.empty() || line.front() == '#') continue;
        const size_t equals = std::min(line.find('='), line.size());
        const std::string value = equals < line.size() ? trimmed(line.substr(equals + 1)) : "";
        const std::string why = takeLine(list, trimmed(line.substr(0, equals)), value);
        if (why.empty()) continue;
        fault = formatted("line %d: ", number) + why;
        return {};
    }
    return list;
}

std::vector<ListRow> seriesOf(const ListRow& row, const RowSeries& series, std::string& fault) {
    const int32_t steps = std::clamp(series.steps, 2, 1000);
    if (series.inRatios && !(series.from > 0.0 && series.to > 0.0)) {
        fault = "a logarithmic series goes between numbers above 0";
        return {};
    }
    std::vector<ListRow> rows;
    for (int32_t i = 0; i < steps; ++i) {
        const double part = static_cast<double>(i) / (steps - 1);
        const double value = series.inRatios ? series.from * std::pow(series.to / series.from, part)
                                             : series.from + (series.to - series.from) * part;
        ListRow& next = rows.emplace_back(row);
        if (series.number)
            next.*series.number->value = value;
        else
            next.zUm = value;
        fault = faultIn(next);
        if (!fault.empty()) return {};
    }
    for (int32_t i = steps - 2; series.andBack && i >= 0; --i)
        rows.push_back(rows[static_cast<size_t>(i)]);
    return rows;
}
