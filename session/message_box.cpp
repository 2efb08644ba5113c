// Asks the operator, and writes down what he said.
#include "session/message_box.h"

#include "session/day_log.h"

#include <cstddef>
#include <string>
#include <utility>

namespace {

std::vector<std::string>* heardByNobody = nullptr; // null: the operator is asked

} // namespace

NobodyToAsk::NobodyToAsk(std::vector<std::string>& heard)
    : before(std::exchange(heardByNobody, &heard)) {}

NobodyToAsk::~NobodyToAsk() {
    heardByNobody = before;
}

OperatorActs::OperatorActs() : before(std::exchange(heardByNobody, nullptr)) {}

OperatorActs::~OperatorActs() {
    heardByNobody = before;
}

BoxAnswer showMessageBox(WindowHandle owner, const char* text, const char* caption,
                         BoxButtons buttons) {
    constexpr const char* names[] = {"nothing", "OK", "Yes", "No", "Cancel"};
    const std::string box = std::string("Box \"") + caption + "\"";
    if (heardByNobody) {
        logEvent(box + " for a script, not opened: " + text);
        heardByNobody->emplace_back(text);
        return BoxAnswer::None;
    }
    logEvent(box + ": " + text);
    const BoxAnswer answer = runMessageBox(owner, text, caption, buttons);
    logEvent(box + ", answered: " + names[static_cast<size_t>(answer)]);
    return answer;
}
