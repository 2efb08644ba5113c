// Reads and writes SCPI's texts.
#include "door/scpi_text.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <utility>

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

std::string inCapitals(std::string_view text) {
    std::string capitals(text);
    for (char& c : capitals)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return capitals;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
}

} // namespace

void MessageReader::take(std::string_view bytes) {
    waiting.erase(0, begin);
    begin = 0;
    waiting.append(bytes);
}

std::optional<MessageReader::Message> MessageReader::next() {
    while (!ready && !isLost() && begin < waiting.size()) takeByte(waiting[begin++]);
    return std::exchange(ready, std::nullopt);
}

void MessageReader::endMessage() {
    ready = {std::move(text), tooLong};
    text.clear();
    tooLong = false;
    state = State::Header;
}

void MessageReader::takeByte(char byte) {
    const bool inBlock = state == State::Block;
    if (byte == '\n' && !inBlock) return endMessage();
    if (text.size() == longestMessage) {
        tooLong = true;
        text.clear();
    }
    if (!tooLong) text += byte; // of the rest only the end is looked for
    switch (state) {
    case State::Header:
        if (isBlank(byte)) state = State::Blank;
        break;
    case State::Blank: // where a parameter may begin
    case State::Parameter:
        if (byte == '"' || byte == '\'') {
            quote = byte;
            state = State::Quoted;
        } else if (byte == '#' && state == State::Blank)
            state = State::Hash;
        else if (byte == ';')
            state = State::Header;
        else if (byte == ',')
            state = State::Blank;
        else if (!isBlank(byte))
            state = State::Parameter;
        break;
    case State::Quoted:
        if (byte == quote) state = State::Parameter;
        break;
    case State::Hash:
        lengthDigits = isDigit(byte) ? static_cast<size_t>(byte - '0') : 0;
        blockLeft = 0;
        state = lengthDigits > 0 ? State::Length : State::Parameter;
        break;
    case State::Length:
        if (!isDigit(byte)) {
            state = State::Parameter;
            break;
        }
        blockLeft = blockLeft * 10 + static_cast<size_t>(byte - '0');
        if (--lengthDigits > 0) break;
        state = blockLeft > longestMessage ? State::Lost
                : blockLeft > 0            ? State::Block
                                           : State::Parameter;
        break;
    case State::Block:
        if (--blockLeft == 0) state = State::Parameter;
        break;
    case State::Lost:
        break;
    }
}

namespace {

// One message, from its beginning on.
class UnitReader {
public:
    UnitReader(std::string_view message, ScpiFault& whatIsWrong)
        : rest(message), fault(whatIsWrong) {}

    std::vector<ScpiUnit> read() {
        std::vector<ScpiUnit> units;
        skipBlanks();
        while (!rest.empty() && !fault) {
            ScpiUnit unit = readUnit();
            if (fault) break;
            units.push_back(std::move(unit));
            skipBlanks();
            if (rest.empty()) break;
            rest.remove_prefix(1); // the semicolon
            skipBlanks();
        }
        return units;
    }

private:
    void skipBlanks() {
        while (!rest.empty() && isBlank(rest.front())) rest.remove_prefix(1);
    }

    void refuse(int code, std::string words) {
        fault = {code, std::move(words)};
        rest = {};
    }

    ScpiUnit readUnit() {
        ScpiUnit unit;
        size_t end = 0;
        while (end < rest.size() && (isLetter(rest[end]) || isDigit(rest[end]) ||
                                     rest[end] == ':' || rest[end] == '*' || rest[end] == '_'))
            ++end;
        unit.header = rest.substr(0, end);
        rest.remove_prefix(end);
        if (!rest.empty() && rest.front() == '?') {
            unit.isQuery = true;
            rest.remove_prefix(1);
        }
        const char next = rest.empty() ? ';' : rest.front();
        if (next != ';' && !isBlank(next)) {
            const bool printable = next > ' ' && next < 0x7F;
            refuse(printable ? -102 : -101, printable ? std::string("at \"") + next + "\"" : "");
            return unit;
        }
        if (unit.header.empty()) {
            refuse(-102, "a command is missing");
            return unit;
        }
        skipBlanks();
        if (rest.empty() || rest.front() == ';') return unit;
        for (;;) {
            unit.parameters.emplace_back(readParameter());
            if (fault || rest.empty() || rest.front() == ';') return unit;
            rest.remove_prefix(1); // the comma
        }
    }

    // Up to a comma, a semicolon or the end.
    std::string_view readParameter() {
        skipBlanks();
        const std::string_view from = rest;
        if (!rest.empty() && rest.front() == '#') {
            refuse(-168, "no command takes a block");
            return {};
        }
        while (!rest.empty() && rest.front() != ',' && rest.front() != ';') {
            const char c = rest.front();
            if (c == '"' || c == '\'') {
                const size_t close = rest.find(c, 1);
                if (close == std::string_view::npos) {
                    refuse(-151, "a quote does not end");
                    return {};
                }
                if (std::any_of(rest.begin(), rest.begin() + static_cast<ptrdiff_t>(close),
                                [](char inside) { return inside == '\0'; })) {
                    refuse(-101, "");
                    return {};
                }
                rest.remove_prefix(close + 1);
                continue;
            }
            if (!isBlank(c) && (c <= ' ' || c >= 0x7F)) {
                refuse(-101, "");
                return {};
            }
            rest.remove_prefix(1);
        }
        const std::string_view parameter =
            trimmed(from.substr(0, static_cast<size_t>(rest.data() - from.data())));
        if (parameter.empty()) refuse(-102, "a parameter is missing");
        return parameter;
    }

    std::string_view rest;
    ScpiFault& fault;
};

} // namespace

std::vector<ScpiUnit> unitsOf(std::string_view message, ScpiFault& fault) {
    return UnitReader(message, fault).read();
}

HeaderPattern::HeaderPattern(std::string_view pattern) {
    if (pattern.ends_with('?')) {
        query = true;
        pattern.remove_suffix(1);
    }
    common = pattern.starts_with('*');
    bool optional = false;
    std::string word;
    const auto end = [&] {
        if (word.empty()) return;
        std::string shortForm;
        for (char c : word)
            if (c < 'a' || c > 'z') shortForm += c;
        words_.push_back({shortForm, inCapitals(word), optional});
        word.clear();
    };
    for (char c : pattern) {
        if (c == ':' || c == '[' || c == ']') end();
        if (c == '[' || c == ']') optional = c == '[';
        if (c != ':' && c != '[' && c != ']') word += c;
    }
    end();
}

namespace {

// The word without the number behind it, where the pattern's has none; that number.
std::pair<std::string_view, std::string_view> parted(std::string_view word) {
    size_t end = word.size();
    while (end > 0 && isDigit(word[end - 1])) --end;
    return {word.substr(0, end), word.substr(end)};
}

} // namespace

bool HeaderPattern::matchesFrom(size_t word, const std::vector<std::string>& words, size_t at,
                                bool& suffix) const {
    if (word == words_.size()) return at == words.size();
    const Word& of = words_[word];
    if (at < words.size()) {
        const auto [name, number] = parted(words[at]);
        if (name == of.shortForm || name == of.longForm) {
            const bool other = !number.empty() && number != "1";
            if (matchesFrom(word + 1, words, at + 1, suffix)) {
                suffix |= other;
                return true;
            }
        }
    }
    return of.optional && matchesFrom(word + 1, words, at, suffix);
}

bool HeaderPattern::matches(const std::vector<std::string>& words, bool& suffix) const {
    suffix = false;
    return matchesFrom(0, words, 0, suffix);
}

std::optional<std::vector<std::string>> wordsOfHeader(std::string_view header) {
    if (header.starts_with(':')) header.remove_prefix(1);
    std::vector<std::string> words;
    while (true) {
        const size_t colon = header.find(':');
        const std::string_view word = header.substr(0, colon);
        const bool common = words.empty() && word.starts_with('*');
        const std::string_view name = common ? word.substr(1) : word;
        if (name.empty() || !isLetter(name.front())) return {};
        if (name.find('*') != std::string_view::npos) return {};
        words.push_back(inCapitals(word));
        if (colon == std::string_view::npos) return words;
        if (common) return {};
        header.remove_prefix(colon + 1);
    }
}

bool isWord(std::string_view text, std::string_view pattern) {
    std::string shortForm;
    for (char c : pattern)
        if (c < 'a' || c > 'z') shortForm += c;
    const std::string capitals = inCapitals(text);
    return capitals == shortForm || capitals == inCapitals(pattern);
}

namespace {

struct Suffix {
    std::string_view unit, name; // of a parameter; as it is written, in capitals
    double factor;
};
constexpr Suffix suffixes[] = {
    {"um", "UM", 1.0},  {"um", "NM", 1e-3}, {"um", "MM", 1e3}, {"um", "M", 1e6},
    {"V", "V", 1.0},    {"V", "MV", 1e-3},  {"V", "UV", 1e-6}, {"A", "A", 1.0},
    {"A", "MA", 1e-3},  {"A", "UA", 1e-6},  {"A", "NA", 1e-9}, {"uA", "UA", 1.0},
    {"uA", "NA", 1e-3}, {"uA", "MA", 1e3},  {"uA", "A", 1e6},  {"s", "S", 1.0},
    {"s", "MS", 1e-3},  {"s", "US", 1e-6},  {"ms", "MS", 1.0}, {"ms", "S", 1e3},
    {"ms", "US", 1e-3}, {"us", "US", 1.0},  {"us", "MS", 1e3}, {"us", "S", 1e6},
    {"dB", "DB", 1.0},  {"%", "PCT", 1.0},
};

} // namespace

std::optional<double> numberOf(std::string_view text, std::string_view unit, ScpiFault& fault) {
    std::string_view digits = text;
    if (digits.starts_with('+')) digits.remove_prefix(1);
    const std::string_view unsignedDigits =
        digits.starts_with('-') && digits.size() == text.size() ? digits.substr(1) : digits;
    const char first = unsignedDigits.empty() ? '\0' : unsignedDigits.front();
    double number = 0.0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number);
    const bool isNone = !isDigit(first) && first != '.';
    if (isNone || error == std::errc::invalid_argument) {
        fault = {-104, quoted(text) + " is no number"};
        return {};
    }
    if (error != std::errc()) {
        fault = {-222, quoted(text)};
        return {};
    }
    const std::string suffix =
        inCapitals(trimmed(std::string_view(stop, static_cast<size_t>(end - stop))));
    if (suffix.empty()) return number;
    const auto* const found =
        std::find_if(std::begin(suffixes), std::end(suffixes),
                     [&](const Suffix& each) { return each.unit == unit && each.name == suffix; });
    if (found == std::end(suffixes)) {
        const bool number_ = isLetter(suffix.front());
        fault = number_ && unit.empty() ? ScpiFault{-138, suffix}
                : number_ ? ScpiFault{-131, suffix + ", the unit is " + std::string(unit)}
                          : ScpiFault{-104, quoted(text) + " is no number"};
        return {};
    }
    return number * found->factor;
}

std::optional<bool> switchOf(std::string_view text, ScpiFault& fault) {
    const std::string word = inCapitals(text);
    if (word == "ON") return true;
    if (word == "OFF") return false;
    const std::optional<double> number = numberOf(text, "", fault);
    if (!number) {
        fault = {-104, quoted(text) + " is neither ON nor OFF"};
        return {};
    }
    return std::round(*number) != 0.0;
}

std::optional<std::string> quotedTextOf(std::string_view text, ScpiFault& fault) {
    const char quote = text.empty() ? '\0' : text.front();
    if (quote != '"' && quote != '\'') {
        fault = {-104, "a text stands in quotes"};
        return {};
    }
    std::string inside;
    for (size_t i = 1; i < text.size(); ++i) {
        if (text[i] != quote) {
            inside += text[i];
            continue;
        }
        if (i + 1 == text.size()) return inside;
        if (text[++i] != quote) break;
        inside += quote; // a doubled one
    }
    fault = {-151, ""};
    return {};
}

std::string quoted(std::string_view text) {
    std::string answer = "\"";
    for (char c : text) {
        if (c == '"') answer += '"';
        const bool isLineEnd = c == '\n' || c == '\r' || c == '\t';
        answer += isLineEnd ? ' ' : c < ' ' || c > '~' ? '?' : c;
    }
    return answer + '"';
}

std::string blockHeaderOf(size_t bytes) {
    const std::string length = std::to_string(bytes);
    return "#" + std::to_string(length.size()) + length;
}

std::string blockOf(std::string_view bytes) {
    return blockHeaderOf(bytes.size()).append(bytes);
}
