// Asks the operator, and writes down what he said.
#include "session/message_box.h"

#include "session/day_log.h"

#include <cstddef>
#include <string>

BoxAnswer showMessageBox(WindowHandle owner, const char* text, const char* caption,
                         BoxButtons buttons) {
    constexpr const char* names[] = {"nothing", "OK", "Yes", "No", "Cancel"};
    const std::string box = std::string("Box \"") + caption + "\"";
    logEvent(box + ": " + text);
    const BoxAnswer answer = runMessageBox(owner, text, caption, buttons);
    logEvent(box + ", answered: " + names[static_cast<size_t>(answer)]);
    return answer;
}
