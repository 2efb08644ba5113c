// One client's conversation: messages come in, their commands are carried out one by one by a table
// of verbs, answers go out. Knows nothing of sockets.
#pragma once

#include "door/scpi_status.h"
#include "door/scpi_text.h"

#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class ScpiSession;

// What a command takes, in its order.
struct Argument {
    enum class Kind { Number, Switch, Word, Text };
    const char* name;
    Kind kind = Kind::Number;
    const char* unit = ""; // of a number
    double lowest = 0.0, highest = 0.0;
    bool isWhole = false;   // it is rounded
    bool optional = false;  // it and what follows may be left out
    const char* words = ""; // of Word: "MASK|CHANnel"; empty: whatever is written
};

struct Call {
    ScpiSession& session;
    std::vector<double> numbers;    // by argument; of a switch 0 or 1, of a word its place
    std::vector<std::string> texts; // by argument: as it was written, of a text what is in it
    size_t given = 0;               // arguments
    bool isOn(size_t argument) const { return numbers[argument] != 0.0; }
};

struct Reply {
    ScpiFault fault;
    std::optional<std::string> answer; // of a query
    bool waits = false;                // the answer and what follows wait for what is under way
};
inline Reply done() {
    return {};
}
inline Reply said(std::string answer) {
    return {.answer = std::move(answer)};
}
inline Reply refusal(int code, std::string words) {
    return {.fault = {code, std::move(words)}};
}
// Where a function answers with its refusal in words, empty when it has done it.
inline Reply unless(int code, const std::string& words) {
    return words.empty() ? done() : refusal(code, words);
}

// What else must hold for a command.
enum VerbNeeds : unsigned {
    needsNothing = 0,
    needsIdle = 1,       // nothing is under way, and no box is open
    needsPermission = 2, // scripts may switch laser and bias
    passesWaits = 4,     // and needs nothing of all: a stop
};

struct Verb {
    const char* header; // a HeaderPattern
    std::vector<Argument> arguments;
    unsigned needs;
    Reply (*carryOut)(const Call& call);
    const char* help; // one line
};

// "SCAN:AREA <left>,<bottom>,<width>,<height>".
std::string usageOf(const Verb& verb);

// What an argument may be: "0.1 to 40 um", "ON or OFF"; empty when there is nothing to say.
std::string boundsOf(const Argument& argument);

class ScpiSession {
public:
    struct World {
        std::span<const Verb> verbs;
        std::function<ScpiFault(const Verb&, const Call&)> mayHappen =
            [](const Verb&, const Call&) { return ScpiFault(); };
        std::function<bool()> isUnderWay = [] { return false; }; // what the client has started
        std::function<void(const std::string&)> tell = [](const std::string&) {}; // the log
    };
    explicit ScpiSession(World world);

    void receive(std::string_view bytes) { reader.take(bytes); }

    // Carries out the next command where there is one and it need not wait; false otherwise.
    bool step();

    // Whether more input can be taken: what has come is bounded.
    bool takesMore() const { return reader.waitingBytes() <= longestMessage; }

    // Why nothing more is carried out: the other end is no client but a browser, or lost its place.
    // Null while all is well.
    const char* wantsClosing() const {
        return closes            ? "closed, it was a browser's page"
               : reader.isLost() ? "closed, it announced a block of more than 64 KB"
                                 : nullptr;
    }

    bool isWaiting() const { return held != Held::No; }

    std::string output; // whoever sends it takes it out
    ScpiStatus status;
    bool completeWanted = false; // "*OPC"

private:
    enum class Held { No, ForAnswer, ForCommands };
    void look();
    bool stepWhileHeld();
    void begin(const MessageReader::Message& message);
    void carryOut(const ScpiUnit& unit);
    void carryOut(const Verb& verb, const ScpiUnit& unit);
    void answer(std::string text);
    void dropRest();
    void endMessage();
    const Verb* find(const ScpiUnit& unit, ScpiFault& fault, std::vector<std::string>& path) const;
    bool isStop(const std::string& message) const;

    World world;
    std::vector<HeaderPattern> patterns; // by verb
    MessageReader reader;
    std::deque<MessageReader::Message> waiting; // while held
    std::vector<ScpiUnit> units;                // of the present message
    size_t nextUnit = 0;
    ScpiFault endFault;            // of the message, behind its last unit
    std::vector<std::string> path; // of the header before
    bool answered = false;         // something of the present message
    bool heardNothing = true;
    bool closes = false;
    Held held = Held::No;
    std::optional<std::string> heldAnswer;
};
