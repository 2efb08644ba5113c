// Carries out a client's commands.
#include "door/scpi_session.h"

#include "platform/text_format.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <new>

namespace {

constexpr size_t mostOutput = 65536; // no command is carried out beside more

// A page in a browser can send what it likes to a port of this computer, behind such a line.
bool isOfBrowser(std::string_view message, bool first) {
    constexpr std::string_view methods[] = {"GET ",     "POST ",  "PUT ",   "HEAD ",  "OPTIONS ",
                                            "CONNECT ", "TRACE ", "PATCH ", "DELETE "};
    constexpr std::string_view host = "host:";
    const bool method =
        std::any_of(std::begin(methods), std::end(methods),
                    [&](std::string_view each) { return message.starts_with(each); });
    const bool hasHost =
        message.size() >= host.size() &&
        std::equal(host.begin(), host.end(), message.begin(), [](char wanted, char c) {
            return wanted == (c >= 'A' && c <= 'Z' ? c + 32 : c);
        });
    return (first && method) || hasHost;
}

// A browser's first bytes of an encrypted connection are none.
bool isText(std::string_view message) {
    return std::all_of(message.begin(), message.end(),
                       [](char c) { return (c >= ' ' && c <= '~') || c == '\t' || c == '\r'; });
}

// A big answer must not end the program.
Reply carriedOut(const Verb& verb, const Call& call) {
    try {
        return verb.carryOut(call);
    } catch (const std::bad_alloc&) {
        return refusal(-310, "not enough memory");
    }
}

std::string listed(std::string_view words, std::string_view between) {
    std::string list(words);
    for (size_t at = list.find('|'); at != std::string::npos; at = list.find('|', at))
        list.replace(at, 1, between);
    return list;
}

// The place of a word among those of an argument.
std::optional<double> placeOf(std::string_view words, std::string_view text) {
    for (double place = 0.0;; ++place) {
        const size_t bar = words.find('|');
        if (isWord(text, words.substr(0, bar))) return place;
        if (bar == std::string_view::npos) return {};
        words.remove_prefix(bar + 1);
    }
}

void takeNumber(const Argument& of, const std::string& text, Call& call, ScpiFault& fault) {
    std::optional<double> number;
    if (isWord(text, "MINimum"))
        number = of.lowest;
    else if (isWord(text, "MAXimum"))
        number = of.highest;
    else
        number = numberOf(text, of.unit, fault);
    if (!number) return;
    if (of.isWhole) number = std::round(*number);
    if (*number < of.lowest || *number > of.highest)
        fault = {-222, std::string(of.name) + " " + boundsOf(of)};
    call.numbers.back() = *number;
}

void takeArgument(const Argument& of, const std::string& text, Call& call, ScpiFault& fault) {
    call.numbers.push_back(0.0);
    call.texts.push_back(text);
    switch (of.kind) {
    case Argument::Kind::Number:
        return takeNumber(of, text, call, fault);
    case Argument::Kind::Switch:
        call.numbers.back() = switchOf(text, fault).value_or(false) ? 1.0 : 0.0;
        return;
    case Argument::Kind::Word:
        if (*of.words == '\0') return;
        if (const std::optional<double> place = placeOf(of.words, text))
            call.numbers.back() = *place;
        else
            fault = {-224, std::string(of.name) + " " + boundsOf(of)};
        return;
    case Argument::Kind::Text:
        call.texts.back() = quotedTextOf(text, fault).value_or("");
        return;
    }
}

} // namespace

std::string boundsOf(const Argument& argument) {
    const std::string unit = *argument.unit != '\0' ? std::string(" ") + argument.unit : "";
    switch (argument.kind) {
    case Argument::Kind::Number:
        return formatted("%.9g to %.9g", argument.lowest, argument.highest) + unit;
    case Argument::Kind::Switch:
        return "ON or OFF";
    case Argument::Kind::Word:
        return listed(argument.words, ", ");
    case Argument::Kind::Text:
        return "a text in quotes";
    }
    return "";
}

std::string usageOf(const Verb& verb) {
    std::string usage = verb.header;
    for (const Argument& each : verb.arguments) {
        const bool first = &each == verb.arguments.data();
        usage += first ? " " : ",";
        usage += each.optional ? std::string("[<") + each.name + ">]"
                               : std::string("<") + each.name + ">";
    }
    return usage;
}

ScpiSession::ScpiSession(World around) : world(std::move(around)) {
    for (const Verb& verb : world.verbs) patterns.emplace_back(verb.header);
}

void ScpiSession::look() {
    if (!completeWanted || world.isUnderWay()) return;
    completeWanted = false;
    status.operationComplete();
}

bool ScpiSession::step() {
    look();
    if (closes || output.size() >= mostOutput) return false;
    if (held != Held::No) {
        if (world.isUnderWay()) return stepWhileHeld();
        held = Held::No;
        if (heldAnswer) answer(*std::exchange(heldAnswer, std::nullopt));
        if (nextUnit == units.size()) endMessage();
        return true;
    }
    if (nextUnit < units.size()) {
        carryOut(units[nextUnit++]);
        if (nextUnit == units.size() && held == Held::No) endMessage();
        return true;
    }
    std::optional<MessageReader::Message> message;
    if (!waiting.empty()) {
        message = std::move(waiting.front());
        waiting.pop_front();
    } else {
        message = reader.next();
    }
    if (message) begin(*message);
    return message.has_value();
}

// Whoever asks something else has given the answer up. A message behind "*WAI" waits, but for one
// that stops what is waited for.
bool ScpiSession::stepWhileHeld() {
    size_t kept = 0;
    for (const MessageReader::Message& each : waiting) kept += each.text.size() + sizeof each;
    if (kept >= longestMessage) return false;
    std::optional<MessageReader::Message> message = reader.next();
    if (!message) return false;
    if (held == Held::ForAnswer) {
        status.error(-410, "");
        held = Held::No;
        heldAnswer.reset();
        dropRest();
        waiting.push_back(std::move(*message));
    } else if (isStop(message->text)) {
        ScpiFault fault;
        const std::vector<std::string> before = std::exchange(path, {});
        for (const ScpiUnit& unit : unitsOf(message->text, fault)) carryOut(unit);
        path = before;
    } else {
        waiting.push_back(std::move(*message));
    }
    return true;
}

bool ScpiSession::isStop(const std::string& message) const {
    ScpiFault fault;
    const std::vector<ScpiUnit> all = unitsOf(message, fault);
    std::vector<std::string> from;
    return !fault && !all.empty() && std::all_of(all.begin(), all.end(), [&](const ScpiUnit& unit) {
        const Verb* verb = find(unit, fault, from);
        return verb && (verb->needs & passesWaits) != 0 && unit.parameters.empty();
    });
}

void ScpiSession::begin(const MessageReader::Message& message) {
    const bool first = std::exchange(heardNothing, false);
    if (isOfBrowser(message.text, first) || (first && (message.tooLong || !isText(message.text)))) {
        closes = true;
        return;
    }
    units.clear();
    nextUnit = 0;
    path.clear();
    endFault = {};
    if (message.tooLong) return status.error(-363, "a message of more than 64 KB");
    units = unitsOf(message.text, endFault);
    if (units.empty()) endMessage();
}

void ScpiSession::endMessage() {
    if (endFault) status.error(endFault.code, endFault.words);
    endFault = {};
    if (std::exchange(answered, false)) output += '\n';
}

// What cannot be understood leaves no sure place for what follows in its message.
void ScpiSession::dropRest() {
    nextUnit = units.size();
    endFault = {};
    if (std::exchange(answered, false)) output += '\n';
}

// A map is not copied where nothing else waits to be sent.
void ScpiSession::answer(std::string text) {
    if (answered) output += ';';
    if (output.empty())
        output = std::move(text);
    else
        output += text;
    answered = true;
}

const Verb* ScpiSession::find(const ScpiUnit& unit, ScpiFault& fault,
                              std::vector<std::string>& from) const {
    std::optional<std::vector<std::string>> words = wordsOfHeader(unit.header);
    if (!words) {
        fault = {-102, unit.header};
        return nullptr;
    }
    const bool common = words->front().front() == '*';
    if (!common) {
        if (!unit.header.starts_with(':')) words->insert(words->begin(), from.begin(), from.end());
        from.assign(words->begin(), words->end() - 1);
    }
    constexpr size_t deepest = 16;
    for (size_t i = 0; i < patterns.size() && words->size() <= deepest; ++i) {
        bool suffix = false;
        if (patterns[i].isQuery() != unit.isQuery || !patterns[i].matches(*words, suffix)) continue;
        if (!suffix) return &world.verbs[i];
        fault = {-114, unit.header};
        return nullptr;
    }
    fault = {-113, unit.header + (unit.isQuery ? "?" : "")};
    return nullptr;
}

void ScpiSession::carryOut(const ScpiUnit& unit) {
    ScpiFault fault;
    const Verb* verb = find(unit, fault, path);
    if (verb) return carryOut(*verb, unit);
    status.error(fault.code, fault.words);
    dropRest();
}

void ScpiSession::carryOut(const Verb& verb, const ScpiUnit& unit) {
    ScpiFault fault;
    Call call{*this, {}, {}, unit.parameters.size()};
    const size_t most = verb.arguments.size();
    const auto required =
        static_cast<size_t>(std::count_if(verb.arguments.begin(), verb.arguments.end(),
                                          [](const Argument& each) { return !each.optional; }));
    if (call.given > most) fault = {-108, usageOf(verb)};
    if (call.given < required) fault = {-109, usageOf(verb)};
    for (size_t i = 0; i < call.given && !fault; ++i)
        takeArgument(verb.arguments[i], unit.parameters[i], call, fault);
    call.numbers.resize(most);
    call.texts.resize(most);
    if (fault && fault.code > -200) {
        status.error(fault.code, fault.words);
        return dropRest();
    }
    if (!fault) fault = world.mayHappen(verb, call);
    Reply reply;
    if (!fault) {
        reply = carriedOut(verb, call);
        fault = reply.fault;
    }
    if (!unit.isQuery && verb.needs != needsNothing) {
        std::string line = unit.header;
        for (size_t i = 0; i < unit.parameters.size(); ++i)
            line += (i == 0 ? " " : ",") + unit.parameters[i];
        if (fault) line += formatted(", refused: %d ", fault.code) + fault.words;
        world.tell(line);
    }
    if (fault) return status.error(fault.code, fault.words);
    if (reply.waits && world.isUnderWay()) {
        held = reply.answer ? Held::ForAnswer : Held::ForCommands;
        heldAnswer = reply.answer;
        return;
    }
    if (!reply.answer) return;
    const size_t before = output.size();
    try {
        answer(std::move(*reply.answer));
    } catch (const std::bad_alloc&) {
        output.resize(before);
        status.error(-310, "not enough memory");
    }
}
