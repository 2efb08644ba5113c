// Takes settings over from a scan's texts.
#include "archive/earlier_settings.h"

#include "archive/scan_file.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "mapping/scan_options.h"
#include "motion/axis.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "session/set_up.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace {

constexpr char notSaid[] = "the file does not say it";

class Taking {
public:
    explicit Taking(const GwyContents& contents)
        : all(contents), texts(contents.channels.front().conditions) {}

    EarlierSettings takeAll() {
        takeStep();
        takeArea();
        takeLaser();
        takeBias();
        takeOptions();
        sayWhatElseDiffers();
        return std::move(result);
    }

private:
    std::string text(const char* name) const { return valueIn(texts, name); }
    std::optional<double> number(const char* name) const { return numberAt(text(name)); }
    void taken(const std::string& words) { result.taken.push_back(words); }
    void notTaken(const std::string& what, const std::string& why) {
        result.notTaken.push_back(what + ": " + why);
    }

    void takeStep();
    void takeArea();
    // What the set-up has otherwise than the scan.
    std::string otherSetUp() const {
        const std::string was = text("Set-up");
        return was.empty() ? "" : setUpDifference(was, setUpWords(setUp));
    }
    bool countsOtherwise() const; // the stage by it
    std::string whyNotThere(const AreaPlace& place) const;
    void takeLaser();
    void takeBias();
    void takeOptions();
    void takeNumber(ScanOptions& options, const ScanNumber& of, std::optional<double> value);
    void takeWaitOfFilter(ScanOptions& options);
    void sayWhatElseDiffers();

    const GwyContents& all;
    const Conditions& texts;
    EarlierSettings result;
};

void Taking::takeStep() {
    const std::optional<double> step = number("Step");
    if (!step) return notTaken("step", notSaid);
    if (*step < scanStepLowest || *step > scanStepHighest)
        return notTaken("step", formatted("%g um is not within %g to %g um", *step, scanStepLowest,
                                          scanStepHighest));
    scanArea.scanStep = *step;
    taken(formatted("step %g um", *step));
}

// A drive's fields begin with its axis' letter.
bool Taking::countsOtherwise() const {
    const std::string other = "; " + otherSetUp();
    return other.find("; X ") != std::string::npos || other.find("; Y ") != std::string::npos;
}

std::string Taking::whyNotThere(const AreaPlace& place) const {
    if (std::string why = whyPlaceIsLost(place); !why.empty()) return why;
    const double x = place.firstXUm - ofController(stageX, 0.0);
    const double y = place.firstYUm - ofController(stageY, 0.0);
    for (const double to : {x, x + place.acrossUm})
        if (std::string why = beyondLimit(stageX, to); !why.empty()) return why;
    for (const double to : {y, y + place.upwardsUm})
        if (std::string why = beyondLimit(stageY, to); !why.empty()) return why;
    return {};
}

void Taking::takeArea() {
    const GwyFrame& frame = all.channels.front().data.frame;
    const std::optional<double> step = number("Step"), x = number("First point X"),
                                y = number("First point Y");
    const std::optional<double> zeroX = number("Controller's count at X 0"),
                                zeroY = number("Controller's count at Y 0");
    const std::string started = text("Started"), order = text("Axis order");
    std::string why;
    AreaPlace place;
    if (!step || !x || !y || !zeroX || !zeroY || started.empty()) {
        why = "the file does not say where the stage's controllers counted from";
    } else {
        constexpr const char* orders[] = {"XYZ", "XZY", "YXZ", "YZX", "ZXY", "ZYX"};
        const auto* const found = std::find(std::begin(orders), std::end(orders), order);
        place = {.firstXUm = *x + *zeroX,
                 .firstYUm = *y + *zeroY,
                 .acrossUm = (frame.columns - 1) * *step,
                 .upwardsUm = (frame.rows - 1) * *step,
                 .axisOrder = static_cast<int32_t>(found - std::begin(orders)),
                 .since = started};
        why = countsOtherwise() ? "the stage is driven otherwise than then (set-up)"
                                : whyNotThere(place);
    }
    if (why.empty()) {
        scanArea = {.scanStep = scanArea.scanStep,
                    .placed = true,
                    .place = place,
                    .mapMaxPx = scanArea.mapMaxPx};
        taken(formatted("area %d x %d points from X %.1f, Y %.1f um", frame.columns, frame.rows,
                        place.firstXUm - ofController(stageX, 0.0),
                        place.firstYUm - ofController(stageY, 0.0)));
    } else {
        notTaken("area", why);
    }
    computeScanArea(scanArea);
    allocateMaps();
}

void Taking::takeLaser() {
    const std::optional<double> uA = number("Laser intensity");
    if (!uA) return notTaken("laser", notSaid);
    const double highest = setUp.laserUaPerVolt * setUp.laserFullScaleVolts;
    constexpr double hair = 1e-6;
    if (*uA < highest / 20.0 - hair || *uA > highest + hair)
        return notTaken("laser",
                        formatted("%g uA is not within %g to %g uA", *uA, highest / 20.0, highest));
    laserLink.laserLevel = *uA / setUp.laserUaPerVolt;
    taken(formatted("laser %g uA", *uA));
}

void Taking::takeBias() {
    const std::optional<double> bias = biasOf(texts), limit = number("Current limit");
    const std::string words = bias ? formatted("bias %g V", *bias) : "bias";
    if (!bias) return notTaken(words, "the scan had no source of it");
    if (!limit) return notTaken(words, notSaid);
    if (!selectedInstrument().applyBias)
        return notTaken(words, "the selected instrument is no source of it");
    const auto volts = static_cast<float>(*bias), amperes = static_cast<float>(*limit);
    if (!(std::fabs(volts) <= largestBiasTyped && amperes >= smallestLimitTyped &&
          amperes <= largestLimitTyped))
        return notTaken(words, formatted("it or its limit, %g A, is out of range", *limit));
    instrumentLink.biasVoltage = volts;
    instrumentLink.currentLimit = amperes;
    taken(words + formatted(" (limit %g A)", *limit));
}

void Taking::takeNumber(ScanOptions& options, const ScanNumber& of, std::optional<double> value) {
    if (!value) return notTaken(of.label, notSaid);
    const double scaled = *value * (of.inTenths ? 10.0 : 1.0);
    const auto whole = static_cast<int32_t>(std::lround(std::clamp(scaled, -1e9, 1e9)));
    constexpr double hair = 1e-6;
    if (!of.allows(whole) || std::fabs(whole - scaled) > hair)
        return notTaken(of.label, formatted("%g is not possible", *value));
    options.*of.value = whole;
}

// What a point of a lock-in amplifier waits follows from its filter, unless it was typed.
void Taking::takeWaitOfFilter(ScanOptions& options) {
    const std::string settled = text("Settled at a reading");
    const ScanNumber& wait = scanNumbers[1];
    const ScanNumber& share = scanNumbers[std::size(scanNumbers) - 1];
    constexpr std::string_view automatic = "automatic for ";
    const size_t at = settled.find(automatic);
    if (at != std::string::npos)
        return takeNumber(options, share, numberAt(settled.substr(at + automatic.size())));
    if (!settled.empty()) options.settledTenths = 0;
    takeNumber(options, wait, number("Wait before a reading"));
}

void Taking::takeOptions() {
    ScanOptions options = scanSettings.options;
    const size_t before = result.notTaken.size();
    takeNumber(options, scanNumbers[0], number("Wait after the arrival at a point"));
    takeWaitOfFilter(options);
    takeNumber(options, scanNumbers[2], number("Readings of a point"));
    const std::optional<double> runIn = number("Run-in to a row"), step = number("Step");
    takeNumber(options, scanNumbers[3], runIn && step && *runIn == *step ? 0.0 : runIn);
    const std::string looks = text("Looks for the arrival");
    if (looks.empty())
        notTaken("look for arrival", notSaid);
    else
        options.looksEarly = looks.find("as soon") != std::string::npos;
    const auto has = [&](const char* title) {
        return std::any_of(all.channels.begin(), all.channels.end(),
                           [&](const GwyChannelThere& channel) { return channel.title == title; });
    };
    if (const std::string main = text("Main channel"); !main.empty()) {
        const auto* const found = std::find(std::begin(mainChannels), std::end(mainChannels), main);
        if (found == std::end(mainChannels))
            notTaken("main channel", main + " is not known");
        else
            options.mainChannel = static_cast<int32_t>(found - std::begin(mainChannels));
        options.auxChannel = has("Aux input 1");
    }
    scanSettings.options = options;
    scanSettings.confocalEnabled = has("Confocal red") ? 1 : 0;
    if (!writeScanOptions()) notTaken("Options.ini", "it was not written, they hold for this run");
    taken(result.notTaken.size() == before ? "scan options" : "the other scan options");
}

void Taking::sayWhatElseDiffers() {
    const std::string instrument = text("Instrument");
    if (instrument != narrowed(selectedInstrument().name))
        notTaken("instrument", (instrument.empty() ? notSaid : instrument + " is not selected"));
    if (const std::string other = otherSetUp(); !other.empty()) notTaken("set-up", other);
}

} // namespace

EarlierSettings takeEarlierSettings(const GwyContents& contents) {
    if (contents.channels.empty()) return {};
    return Taking(contents).takeAll();
}
