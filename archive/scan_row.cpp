// Sorts and filters rows.
#include "archive/scan_row.h"

#include "platform/text_format.h"
#include "platform/widen.h"

#include <algorithm>
#include <numeric>
#include <sstream>

namespace {

std::string shown(const std::optional<double>& number) {
    return number ? formatted("%.4g", *number) : std::string();
}

std::string lowered(std::string text) {
    for (char& letter : text)
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    return text;
}

bool holdsAll(const ScanRow& row, const std::vector<std::string>& words) {
    std::string all;
    for (int column = 0; column <= static_cast<int>(ScanColumn::Place); ++column)
        all += cellOf(row, static_cast<ScanColumn>(column)) + "\n"; // a word ends with its cell
    all = lowered(std::move(all));
    return std::all_of(words.begin(), words.end(), [&](const std::string& word) {
        return all.find(word) != std::string::npos;
    });
}

std::optional<double> numberOf(const ScanRow& row, ScanColumn column) {
    switch (column) {
    case ScanColumn::Size:
        return row.columns == 0 ? std::optional<double>() : double{1} * row.columns * row.rows;
    case ScanColumn::Step:
        return row.stepUm;
    case ScanColumn::Bias:
        return row.biasVolts;
    case ScanColumn::Laser:
        return row.laserUa;
    default:
        return {};
    }
}

bool isNumber(ScanColumn column) {
    return column == ScanColumn::Size || column == ScanColumn::Step || column == ScanColumn::Bias ||
           column == ScanColumn::Laser;
}

// What a row is sorted by.
struct Key {
    size_t row = 0;
    bool isKnown = false;
    double number = 0.0;
    std::string text;
};

Key keyOf(const ScanRow& row, size_t at, ScanColumn by) {
    Key key{.row = at};
    if (isNumber(by)) {
        const std::optional<double> number = numberOf(row, by);
        key.isKnown = number.has_value();
        key.number = number.value_or(0.0);
    } else {
        key.text = lowered(cellOf(row, by));
        key.isKnown = !key.text.empty();
    }
    return key;
}

} // namespace

std::string cellOf(const ScanRow& row, ScanColumn column) {
    switch (column) {
    case ScanColumn::Picture:
        return {};
    case ScanColumn::Time:
        return row.started;
    case ScanColumn::Size:
        return row.columns == 0 ? "" : formatted("%d x %d", row.columns, row.rows);
    case ScanColumn::Step:
        return shown(row.stepUm);
    case ScanColumn::Instrument:
        return row.instrument;
    case ScanColumn::Bias:
        return shown(row.biasVolts);
    case ScanColumn::Laser:
        return shown(row.laserUa);
    case ScanColumn::Sample:
        return row.sample;
    case ScanColumn::Note:
        if (!row.fault.empty()) return "DAMAGED: " + row.fault;
        return row.isRead ? row.note : "(not read yet)";
    case ScanColumn::Verdict: {
        constexpr const char* marks[] = {"", "good", "bad", "(cannot be read)"};
        const std::string mark = marks[static_cast<size_t>(row.verdict.mark)];
        return row.verdict.word.empty() ? mark : mark + ": " + row.verdict.word;
    }
    case ScanColumn::Place:
        return narrowed(row.path);
    }
    return {};
}

std::vector<size_t> rowsShown(const std::vector<ScanRow>& rows, const std::string& typed,
                              ScanColumn by, bool descending) {
    std::istringstream typedWords(lowered(typed));
    std::vector<std::string> words;
    for (std::string word; typedWords >> word;) words.push_back(word);
    std::vector<Key> keys;
    for (size_t i = 0; i < rows.size(); ++i)
        if (words.empty() || holdsAll(rows[i], words)) keys.push_back(keyOf(rows[i], i, by));
    std::sort(keys.begin(), keys.end(), [&](const Key& a, const Key& b) {
        if (a.isKnown != b.isKnown) return a.isKnown;
        if (a.number != b.number) return descending ? a.number > b.number : a.number < b.number;
        if (a.text != b.text) return descending ? a.text > b.text : a.text < b.text;
        return rows[a.row].path > rows[b.row].path; // the newer folder first
    });
    std::vector<size_t> shownRows(keys.size());
    std::transform(keys.begin(), keys.end(), shownRows.begin(),
                   [](const Key& key) { return key.row; });
    return shownRows;
}

std::string timeOfFolder(const std::wstring& path) {
    const size_t end = path.find_last_of(L'\\');
    if (end == std::wstring::npos) return {};
    const size_t begin = path.find_last_of(L'\\', end - 1);
    const std::string name =
        narrowed(path.substr(begin == std::wstring::npos ? 0 : begin + 1, end)).substr(0, 12);
    constexpr char pattern[] = "000000_00-00";
    if (name.size() != sizeof pattern - 1) return {};
    for (size_t i = 0; i < name.size(); ++i) {
        const bool digit = name[i] >= '0' && name[i] <= '9';
        if (pattern[i] == '0' ? !digit : name[i] != pattern[i]) return {};
    }
    return "20" + name.substr(0, 2) + "-" + name.substr(2, 2) + "-" + name.substr(4, 2) + " " +
           name.substr(7, 2) + ":" + name.substr(10, 2);
}
