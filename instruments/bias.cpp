// Tells the selected source its bias and keeps account of who may still have one.
#include "instruments/bias.h"

#include "instruments/ammeter.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/forced_end.h"
#include "session/main_title.h"
#include "session/options.h"
#include "session/stay_awake.h"

#include <cmath>
#include <cstdlib>
#include <sstream>

namespace {

std::set<Place> allThatMayHaveOne() {
    std::set<Place> places = instrumentLink.bias.leftElsewhere;
    if (instrumentLink.bias.state != BiasState::Off) places.insert(selectedPlace());
    return places;
}

// In title and information text.
void showWhetherOneIsLost() {
    const std::string words = biasLeftOn();
    titleBias(words);
    if (!words.empty()) showInformation(words.c_str());
}

// In Options.ini: the sources that may have a bias, as "3 24; 4": kind and address.
constexpr char keptBias[] = "bias may be on at";

void keepOnFile() {
    std::string text;
    for (const auto& [kind, address] : allThatMayHaveOne())
        text += (text.empty() ? "" : "; ") + formatted("%d %s", kind, address.c_str());
    if (text == instrumentLink.bias.onFile) return;
    instrumentLink.bias.onFile = text;
    if (!writeOptions({{keptBias, text}}))
        showInformation("The next start will not know which source has a bias");
}

} // namespace

Place selectedPlace() {
    return {instrumentLink.ammeterKind, instrumentLink.openedAt};
}

void followSelection(const Place& before) {
    SourceBias& bias = instrumentLink.bias;
    const Place now = selectedPlace();
    if (now == before) return;
    if (bias.state != BiasState::Off) bias.leftElsewhere.insert(before);
    bias.state = bias.leftElsewhere.erase(now) != 0 ? BiasState::Unsure : BiasState::Off;
    showWhetherOneIsLost();
}

SourceAnswer applyBias(double voltage, double limit) {
    const InstrumentKind& source = selectedInstrument();
    if (source.applyBias) logEvent(formatted("Bias %g V, current limit %g A", voltage, limit));
    if (source.beginAnew) source.beginAnew();
    SourceAnswer answer = stepBias(voltage, limit);
    keepOnFile();
    return answer;
}

SourceAnswer stepBias(double voltage, double limit) {
    const InstrumentKind& source = selectedInstrument();
    SourceBias& bias = instrumentLink.bias;
    const auto volts = static_cast<float>(voltage);
    const bool off = volts == 0.0f;
    if (!off) stayWhereTheProgramEnds();
    bias.volts = source.applyBias ? volts : 0.0f;
    if (!source.applyBias) return {.heard = true};
    // Before it goes out, also if only a part of it does; where nobody answered from the start,
    // nothing does. That it is off again is kept by applyBias alone, not at each pass of a sweep
    // through 0.
    if (!off && instrumentLink.opened && bias.state == BiasState::Off)
        bias.state = BiasState::Unsure;
    if (!off) keepOnFile();
    SourceAnswer answer = source.applyBias(volts, static_cast<float>(limit));
    if (off && answer.accepted())
        bias.state = BiasState::Off;
    else if (!off && answer.heard)
        bias.state = BiasState::On;
    else if (bias.state == BiasState::On)
        bias.state = BiasState::Unsure;
    stayAwakeFor(AwakeFor::Bias, !allThatMayHaveOne().empty());
    showWhetherOneIsLost();
    return answer;
}

std::string wordsOf(const SourceAnswer& answer) {
    if (!answer.heard) return "Bias not heard";
    return answer.refusal.empty() ? "" : "Bias refused: " + answer.refusal;
}

void BiasWatch::told(double voltage, const SourceAnswer& answer) {
    if (voltage != 0.0) worst.heard &= answer.heard;
    if (worst.refusal.empty()) worst.refusal = answer.refusal;
}

void BiasWatch::read(const Reading& reading) {
    limited |= reading.limited;
    lastAnswered = reading.answered;
}

std::vector<std::string> BiasWatch::troubles() const {
    std::vector<std::string> all;
    if (!worst.heard) all.emplace_back("Bias not heard");
    if (!worst.refusal.empty()) all.push_back("Bias refused: " + worst.refusal);
    const InstrumentKind& source = selectedInstrument();
    if (limited || (lastAnswered && source.isLimited && source.isLimited()))
        all.emplace_back("Current limit reached");
    return all;
}

std::string limitText(double amperes) {
    const std::string text = formatted("%f", amperes);
    constexpr double sameLimit = 0.1;
    const bool same =
        std::fabs(std::strtod(text.c_str(), nullptr) - amperes) <= sameLimit * amperes;
    return same ? text : formatted("%g", amperes);
}

std::string biasLeftOn() {
    const SourceBias& bias = instrumentLink.bias;
    const bool lost = bias.state == BiasState::Unsure || !bias.leftElsewhere.empty();
    return lost ? "instrument lost: the bias may be on" : "";
}

void readBiasLeftOn() {
    SourceBias& bias = instrumentLink.bias;
    bias.onFile = readOption(keptBias);
    std::istringstream places(bias.onFile);
    for (std::string place; std::getline(places, place, ';');) {
        std::istringstream words(place);
        Place left;
        if (words >> left.first && isInstrumentKind(left.first) &&
            instrumentKind(left.first).applyBias) {
            words >> left.second;
            // A kind with but one place is at it before it is opened.
            if (left == selectedPlace())
                bias.state = BiasState::Unsure;
            else
                bias.leftElsewhere.insert(left);
        }
    }
    showWhetherOneIsLost();
}
