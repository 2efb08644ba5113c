// Taking SCPI messages apart.
#include "virtual_lab/scpi.h"

#include <cctype>
#include <cmath>
#include <cstdlib>

static std::string trimmed(const std::string& text) {
    const char* blanks = " \t\r\n";
    size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// At separators that stand outside quotation marks.
static std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts(1);
    char quote = '\0';
    for (char c : text) {
        if (quote ? c == quote : c == '"' || c == '\'') quote = quote ? '\0' : c;
        if (c == separator && !quote)
            parts.emplace_back();
        else
            parts.back() += c;
    }
    return parts;
}

std::vector<ScpiCommand> splitScpi(const std::string& message) {
    std::vector<ScpiCommand> commands;
    for (const std::string& part : split(message, ';')) {
        ScpiCommand command;
        command.text = trimmed(part);
        if (command.text.empty()) continue;
        size_t end = command.text.find_first_of(" \t");
        std::string header = command.text.substr(0, end);
        command.query = header.back() == '?';
        if (command.query) header.pop_back();
        if (header.empty() || (header[0] != ':' && header[0] != '*')) header = ':' + header;
        command.header = header;
        if (end != std::string::npos)
            for (const std::string& parameter : split(command.text.substr(end), ','))
                command.parameters.push_back(trimmed(parameter));
        commands.push_back(command);
    }
    return commands;
}

struct PatternWord {
    std::string word;
    bool optional;
};

static std::vector<PatternWord> wordsOf(const std::string& pattern) {
    std::vector<PatternWord> words;
    bool optional = false;
    for (const char c : pattern) {
        if (c == '[' || c == ']')
            optional = c == '[';
        else if (c == ':' || words.empty())
            words.push_back({c == ':' ? "" : std::string(1, c), optional});
        else
            words.back().word += c;
    }
    return words;
}

static bool wordMatches(std::string word, std::string pattern) {
    if (!pattern.empty() && pattern.back() == '#') {
        pattern.pop_back();
        if (!word.empty() && word.back() == '1') word.pop_back();
    }
    size_t shortForm = 0;
    while (shortForm < pattern.size() &&
           !std::islower(static_cast<unsigned char>(pattern[shortForm])))
        ++shortForm;
    if (word.size() != shortForm && word.size() != pattern.size()) return false;
    for (size_t i = 0; i < word.size(); ++i)
        if (std::toupper(static_cast<unsigned char>(word[i])) !=
            std::toupper(static_cast<unsigned char>(pattern[i])))
            return false;
    return true;
}

static bool matchFrom(const std::vector<std::string>& words, size_t word,
                      const std::vector<PatternWord>& pattern, size_t at) {
    if (at == pattern.size()) return word == words.size();
    if (word < words.size() && wordMatches(words[word], pattern[at].word) &&
        matchFrom(words, word + 1, pattern, at + 1))
        return true;
    return pattern[at].optional && matchFrom(words, word, pattern, at + 1);
}

static bool matches(const std::string& header, const std::string& pattern) {
    size_t start = !header.empty() && header[0] == ':' ? 1 : 0;
    return matchFrom(split(header.substr(start), ':'), 0, wordsOf(pattern), 0);
}

bool scpiIs(const ScpiCommand& command, const std::string& pattern) {
    const bool query = pattern.back() == '?';
    return command.query == query &&
           matches(command.header, pattern.substr(0, pattern.size() - query));
}

bool scpiWordIs(const std::string& parameter, const char* pattern) {
    std::string word = parameter;
    if (word.size() >= 2 && (word[0] == '"' || word[0] == '\'') && word.back() == word[0])
        word = word.substr(1, word.size() - 2);
    return matches(word, pattern);
}

bool scpiNumber(const std::string& parameter, double& value) {
    char* end = nullptr;
    value = std::strtod(parameter.c_str(), &end);
    return !parameter.empty() && *end == '\0' && std::isfinite(value);
}
