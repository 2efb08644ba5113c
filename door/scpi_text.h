// Texts of the instruments' language SCPI: a stream cut into messages, a message into its units,
// a unit's header compared with a pattern, its parameters as values. What cannot be taken has one
// of the standard's numbers.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// A longer message is dropped whole.
constexpr size_t longestMessage = 65536;

// Cuts what comes into messages at their line feeds. A line feed inside a block of bytes ("#14...")
// ends none; of a block longer than any message nobody knows where it ends, and what follows might
// be taken for commands: no message comes any more then.
class MessageReader {
public:
    void take(std::string_view bytes);

    // The next whole message, without its end; nothing when none has come. `tooLong`: its place is
    // empty, it was dropped.
    struct Message {
        std::string text;
        bool tooLong = false;
    };
    std::optional<Message> next();

    size_t waitingBytes() const { return waiting.size() - begin + text.size(); }

    bool isLost() const { return state == State::Lost; }

private:
    void takeByte(char byte);
    void endMessage();

    enum class State { Header, Blank, Parameter, Quoted, Hash, Length, Block, Lost };
    std::string waiting; // not looked at before `begin`
    size_t begin = 0;
    std::string text; // of the message that has begun
    bool tooLong = false;
    State state = State::Header;
    char quote = '"';
    size_t lengthDigits = 0, blockLeft = 0;
    std::optional<Message> ready;
};

struct ScpiUnit {
    std::string header; // as it was written, without the question mark
    bool isQuery = false;
    std::vector<std::string> parameters; // without blanks around them, quotes and all
};

// What is wrong with a text: a number of the standard and our own words; 0 when nothing is.
struct ScpiFault {
    int code = 0;
    std::string words;
    explicit operator bool() const { return code != 0; }
};

// The units of a message. At a fault those before it.
std::vector<ScpiUnit> unitsOf(std::string_view message, ScpiFault& fault);

// "SCAN:STATe?", "LASer[:STATe]", "*IDN?": the capitals of a word are its short form, what stands
// in brackets may be left out.
class HeaderPattern {
public:
    explicit HeaderPattern(std::string_view pattern);

    bool isQuery() const { return query; }
    bool isCommon() const { return common; }

    // Whether a header, path included, is this one. `suffix`: a word had a number other than 1.
    bool matches(const std::vector<std::string>& words, bool& suffix) const;

private:
    struct Word {
        std::string shortForm, longForm; // capitals
        bool optional = false;
    };
    bool matchesFrom(size_t word, const std::vector<std::string>& words, size_t at,
                     bool& suffix) const;
    std::vector<Word> words_;
    bool query = false, common = false;
};

// The words of a header, in capitals; nothing where it is none. A leading colon is left out.
std::optional<std::vector<std::string>> wordsOfHeader(std::string_view header);

// Whether `text` is the word of a pattern such as "MINimum", in its short or its long form.
bool isWord(std::string_view text, std::string_view pattern);

// A decimal number in the unit: "2", "2um", "0.002 MM" of "um". Nothing, and `fault`, otherwise.
std::optional<double> numberOf(std::string_view text, std::string_view unit, ScpiFault& fault);

// "ON", "OFF" or a number.
std::optional<bool> switchOf(std::string_view text, ScpiFault& fault);

// A text in single or double quotes.
std::optional<std::string> quotedTextOf(std::string_view text, ScpiFault& fault);

// As an answer has it: in double quotes, those inside doubled, line ends and what no ASCII is as
// blanks and question marks.
std::string quoted(std::string_view text);

// "#", the number of digits, the length, the bytes.
std::string blockOf(std::string_view bytes);
std::string blockHeaderOf(size_t bytes);
