// Takes settings over from a scan's texts.
#include "archive/earlier_settings.h"

#include "archive/scan_file.h"
#include "camera/camera.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "mapping/scan_options.h"
#include "motion/axis.h"
#include "motion/focus_plane.h"
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
        sayWhatStays();
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
    void takeLaser();
    void takeBias();
    void takeOptions();
    void takeNumber(ScanOptions& options, const ScanNumber& of, std::optional<double> value);
    void takeWaitOfFilter(ScanOptions& options);
    void sayWhatElseDiffers();
    void sayWhatStays();

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
    ::takeStep(scanArea, *step);
    taken(formatted("step %g um", *step));
}

std::string whyNotThere(const SamplePart& part) {
    if (!part.from.isKnown()) return "the file does not say where its stage counted from";
    if (std::string why = whyLost(part); !why.empty()) return why;
    const StageVector first = stageFor(part.from);
    for (const double across : {0.0, part.widthUm})
        if (std::string why = beyondLimit(stageX, first.x + across); !why.empty()) return why;
    for (const double up : {0.0, part.heightUm})
        if (std::string why = beyondLimit(stageY, first.y + up); !why.empty()) return why;
    return {};
}

void Taking::takeArea() {
    const ScanConditions scan = gridOf(all);
    const ScanArea& area = scan.area;
    const SamplePart part{scan.home.by({area.offsetXUm, area.offsetYUm}),
                          (area.cols - 1) * area.scanStep, (area.rows - 1) * area.scanStep};
    ScanArea there{
        .scanStep = scanArea.scanStep, .placed = true, .part = part, .mapMaxPx = scanArea.mapMaxPx};
    std::string why = whyNotThere(part);
    if (why.empty()) {
        computeScanArea(there);
        if (there.isTooLarge) why = "more than 36 million points with the step as it is";
    }
    if (why.empty()) {
        scanArea = there;
        const StageVector first = stageFor(part.from);
        taken(formatted("area %d x %d points from X %.1f, Y %.1f um", there.cols, there.rows,
                        first.x, first.y));
    } else {
        notTaken("area", why);
        computeScanArea(scanArea);
    }
    allocateMaps();
}

void Taking::takeLaser() {
    const std::optional<double> uA = number("Laser intensity");
    if (!uA) return notTaken("laser", notSaid);
    const double highest = setUp.highestLaserUa(), lowest = setUp.lowestLaserUa();
    constexpr double hair = 1e-6;
    if (*uA < lowest - hair || *uA > highest + hair)
        return notTaken("laser",
                        formatted("%g uA is not within %g to %g uA", *uA, lowest, highest));
    laserLink.laserLevel = *uA / setUp.laserUaPerVolt;
    taken(formatted("laser %g uA", *uA) + (laserIsOn() ? " from the next start on" : ""));
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
    const FocusSlopes now = slopesToFollow();
    const std::string plane = text("Focus plane");
    if (plane.empty() && now.follows)
        notTaken("focus plane", "the scan followed none, the next one follows one");
    else if (!plane.empty() && !(now.follows && plane.starts_with(wordsOf(now))))
        notTaken("focus plane", "the scan followed one (" + plane + "), the next one follows " +
                                    (now.follows ? "another" : "none"));
    if (const std::string was = text("Set-up"); !was.empty())
        if (const std::string other = setUpDifference(was, setUpWords(setUp)); !other.empty())
            notTaken("set-up", other);
}

void Taking::sayWhatStays() {
    const std::string instrument = text("Instrument's settings");
    if (!instrument.empty() && instrument != instrumentLink.settings.words)
        notTaken("instrument's settings", "they are set at the instrument; then: " + instrument);
    constexpr double standsUm = 0.5;
    const std::optional<double> z = number("Stage Z at the start");
    if (z && std::fabs(*z - stageZ.positionUm) > standsUm)
        notTaken("Z", formatted("it stays at %.1f um; then, from the zero of then: %.1f um",
                                stageZ.positionUm, *z));
    const auto camera = [](double gain, double exposureUs, bool blue, int aperture) {
        return formatted("gain %g, exposure %.0f us, %saperture %d px", gain, exposureUs,
                         blue ? "blue only, " : "", aperture);
    };
    const std::optional<double> gain = number("Camera gain"), us = number("Camera exposure");
    if (!gain || !us) return; // no colours
    const std::string then = camera(*gain, *us, text("Blue only") == "yes",
                                    static_cast<int>(number("Camera aperture").value_or(0.0)));
    const bool known = cameraState.takenExposureUs > 0.0; // as the camera has taken them
    const std::string now = camera(known ? cameraState.takenGain : cameraState.gain,
                                   known ? cameraState.takenExposureUs : cameraState.exposureUs,
                                   cameraState.blueOnly != 0, cameraState.cameraAperture);
    if (now != then) notTaken("camera", "it stays at " + now + "; then: " + then);
}

} // namespace

EarlierSettings takeEarlierSettings(const GwyContents& contents) {
    if (contents.channels.empty()) return {};
    return Taking(contents).takeAll();
}
