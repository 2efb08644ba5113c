// Puts a controller's flags into words.
#include "motion/axis_condition.h"

#include "platform/text_format.h"

#include <cstdlib>

namespace {

struct AlarmCause {
    uint32_t flag;
    const char* words;
};

constexpr AlarmCause causes[] = {
    {STATE_OVERLOAD_POWER_CURRENT, "over-current"},
    {STATE_POWER_OVERHEAT, "driver over-heat"},
    {STATE_CONTROLLER_OVERHEAT, "controller over-heat"},
    {STATE_LOW_POWER_VOLTAGE, "supply too low"},
    {STATE_OVERLOAD_POWER_VOLTAGE, "supply too high"},
    {STATE_H_BRIDGE_FAULT, "driver fault"},
    {STATE_WINDING_RES_MISMATCH, "windings differ"},
    {STATE_CTP_ERROR, "steps lost"},
    {STATE_ENCODER_FAULT, "encoder fault"},
    {STATE_ENGINE_RESPONSE_ERROR, "motor does not respond"},
    {STATE_BORDERS_SWAP_MISSET, "wrong limit switch"},
    {STATE_OVERLOAD_USB_CURRENT, "USB over-current"},
    {STATE_OVERLOAD_USB_VOLTAGE, "USB voltage too high"},
    {STATE_LOW_USB_VOLTAGE, "USB voltage too low"},
    {STATE_EXTIO_ALARM, "external input"},
};

enum class Windings { Unknown, On, Off, Error };

Windings windingsOf(const status_t& status) {
    switch (status.PWRSts) {
    case PWR_STATE_UNKNOWN:
        return Windings::Unknown;
    case PWR_STATE_OFF:
        return Windings::Off;
    case PWR_STATE_NORM:
    case PWR_STATE_REDUCT:
    case PWR_STATE_MAX:
        return Windings::On;
    default:
        return Windings::Error;
    }
}

} // namespace

const char* nameOf(Miss cause) {
    constexpr const char* names[missCount] = {"",
                                              "no controller",
                                              "lost",
                                              "alarm",
                                              "limit switch",
                                              "steps lost",
                                              "windings without current",
                                              "stalled",
                                              "moved away",
                                              "software limit",
                                              "play not taken up",
                                              "its controller has lost its place"};
    return names[static_cast<size_t>(cause)];
}

Miss troubleIn(const status_t& status) {
    if (status.Flags & STATE_ALARM) return Miss::Alarm;
    if (status.Flags & STATE_CTP_ERROR) return Miss::StepsLost;
    const Windings windings = windingsOf(status);
    const bool off = windings == Windings::Off || windings == Windings::Error;
    return off ? Miss::WindingsOff : Miss::Nothing;
}

std::string alarmCauses(const status_t& status) {
    std::string words;
    for (const AlarmCause& cause : causes)
        if (status.Flags & cause.flag)
            words += (words.empty() ? "" : ", ") + std::string(cause.words);
    return words.empty() ? "no cause given" : words;
}

std::string troubleText(const status_t& status) {
    const Miss trouble = troubleIn(status);
    const std::string name = nameOf(trouble);
    return trouble == Miss::Alarm ? name + " (" + alarmCauses(status) + ")" : name;
}

std::string powerText(const status_t& status) {
    const char* words[] = {"unknown",         "windings off",    "in error",
                           "nominal current", "reduced current", "highest current"};
    const char* state = status.PWRSts <= PWR_STATE_MAX ? words[status.PWRSts] : "in error";
    return formatted("PWRSts %u (%s), supply %.1f V", status.PWRSts, state, status.Upwr / 100.0);
}

bool powerChanged(const status_t& before, const status_t& now) {
    constexpr int volt = 100; // of Upwr
    return windingsOf(before) != windingsOf(now) || std::abs(before.Upwr - now.Upwr) > volt;
}
