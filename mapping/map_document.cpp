// Gathers what belongs to a map and writes it.
#include "mapping/map_document.h"

#include "instruments/ammeter.h"
#include "instruments/lights.h"
#include "platform/files.h"
#include "platform/text_format.h"
#include "platform/widen.h"

#include <cmath>
#include <exception>

namespace {

constexpr double metresPerUm = 1e-6;

std::string placeUm(double um) {
    return formatted("%.3f um", um);
}

const Unit& unitOf(const ScanConditions& scan) {
    return *channelsOf(scan.ammeterKind, scan.inVolts)[mainChannelOf(scan)].unit;
}

// What an instrument says of itself may hold any byte.
std::string printable(std::string text) {
    for (char& letter : text)
        if (letter < ' ' || letter > '~') letter = '?';
    return text;
}

struct PointCounts {
    int measured = 0, notReached = 0, silent = 0, withoutColour = 0, unlit = 0, notMeasured = 0,
        overloaded = 0, unlocked = 0, unsettled = 0;
};

PointCounts countPoints(const ScanMap& map) {
    PointCounts counts;
    for (size_t column = 0; column < map.marks.size(); ++column)
        for (size_t row = 0; row < map.marks[column].size(); ++row) {
            const PointMark mark = map.marks[column][row];
            counts.measured += mark == PointMark::Measured;
            counts.notReached += mark == PointMark::NotReached;
            counts.silent += mark == PointMark::Silent;
            counts.withoutColour += mark == PointMark::NoColour;
            counts.unlit += mark == PointMark::Unlit;
            counts.notMeasured += mark == PointMark::NotMeasured;
            counts.unlocked += mark == PointMark::Unlocked;
            counts.unsettled += mark == PointMark::Unsettled;
            counts.overloaded += !isInRange(map, column, row);
        }
    return counts;
}

const char* yesOrNo(bool yes) {
    return yes ? "yes" : "no";
}

// What somebody has changed in the scan.
void addCameraAtTheEnd(Conditions& lines, const ScanMap& map) {
    const ScanConditions& scan = *map.conditions;
    const ScanOutcome& outcome = map.outcome;
    if (scan.takenExposureUs <= 0.0 || outcome.exposureUs <= 0.0) return;
    if (outcome.gain != scan.takenGain)
        lines.emplace_back("Camera gain at the end", formatted("%.9g", outcome.gain));
    if (outcome.exposureUs != scan.takenExposureUs)
        lines.emplace_back("Camera exposure at the end", quantity(outcome.exposureUs, "us"));
    if (outcome.blueOnly != scan.blueOnly)
        lines.emplace_back("Blue only at the end", yesOrNo(outcome.blueOnly));
}

void addCamera(Conditions& lines, const ScanConditions& scan) {
    const bool known = scan.takenExposureUs > 0.0; // as the camera has taken them
    lines.emplace_back("Camera gain", formatted("%.9g", known ? scan.takenGain : scan.gain));
    lines.emplace_back("Camera exposure",
                       quantity(known ? scan.takenExposureUs : scan.exposureUs, "us"));
    lines.emplace_back("Blue only", yesOrNo(scan.blueOnly));
    lines.emplace_back("Camera aperture",
                       formatted("%d px to each side of the spot", scan.aperturePx));
}

void addOutcome(Conditions& lines, const ScanMap& map) {
    const ScanOutcome& outcome = map.outcome;
    lines.emplace_back("Outcome", nameOf(outcome.end));
    if (outcome.end != ProcessEnd::Running && outcome.end != ProcessEnd::CutOff) {
        lines.emplace_back("Ended", timeText(outcome.ended));
        lines.emplace_back("Stage Z at the end", placeUm(outcome.zUm));
        lines.emplace_back("Laser intensity at the end",
                           quantity(outcome.laserLevel * map.conditions->laserUaPerVolt, "uA"));
        if (outcome.laserPowerUw >= 0.0)
            lines.emplace_back("Laser power at the end", quantity(outcome.laserPowerUw, "uW"));
        if (map.conditions->confocal) addCameraAtTheEnd(lines, map);
        lines.emplace_back("Trouble", outcome.trouble);
    }
    const PointCounts counts = countPoints(map);
    const auto add = [&](const char* name, int points) {
        lines.emplace_back(name, formatted("%d", points));
    };
    add("Points measured", counts.measured);
    add("Points not reached", counts.notReached);
    add("Points without an answer", counts.silent);
    add("Points without colour", counts.withoutColour);
    add("Points with the laser off or the lamp on", counts.unlit);
    add("Points not measured", counts.notMeasured);
    add("Points out of the instrument's range", counts.overloaded);
    if (map.conditions->settings.poles == 0) return;
    add("Points without a reference", counts.unlocked);
    add("Points whose filter had changed", counts.unsettled);
}

void addSettings(Conditions& lines, const ScanConditions& scan) {
    if (scan.settings.poles == 0) return;
    const uint32_t ms = scan.beforeReadingMs();
    lines.emplace_back(
        "Settled at a reading",
        formatted("%.3g %% of a step in %u ms, ",
                  settledPercent(scan.settings, static_cast<double>(ms)), ms) +
            (scan.options.settledTenths == 0
                 ? "as typed"
                 : formatted("automatic for %g %%", scan.options.settledTenths / 10.0)));
    lines.emplace_back("Main channel",
                       channelsOf(scan.ammeterKind, scan.inVolts)[mainChannelOf(scan)].name);
}

Conditions conditionsOf(const ScanMap& map, const std::vector<std::wstring>& textFiles) {
    const ScanConditions& scan = *map.conditions;
    Conditions lines = setUpOf(scan);
    const auto add = [&](const char* name, const std::string& value) {
        lines.emplace_back(name, value);
    };
    add("Bias", biasText(scan));
    add("Columns", formatted("%d", scan.area.cols));
    add("Rows", formatted("%d", scan.area.rows));
    add("Step", quantity(scan.area.scanStep, "um"));
    add("First point X", placeUm(scan.firstXUm()));
    add("First point Y", placeUm(scan.firstYUm()));
    if (scan.zeroKnown) {
        add("Controller's count at X 0", placeUm(scan.zeroXUm));
        add("Controller's count at Y 0", placeUm(scan.zeroYUm));
    }
    addPlace(lines, scan.home);
    add("Order", "rows from the lowest Y upwards, each from left to right");
    add("Laser spot", formatted("%d, %d px from the picture's lower left corner", scan.laserSpot.x,
                                scan.laserSpot.y));
    if (scan.confocal) addCamera(lines, scan);
    add("Settle time of a row", formatted("%u ms", scan.rowSettleMs));
    if (scan.focus.follows)
        add("Focus plane",
            wordsOf(scan.focus) + formatted(", from the Z of the start at X %.3f, Y %.3f um",
                                            scan.homeXUm + scan.focus.fromXUm,
                                            scan.homeYUm + scan.focus.fromYUm));
    add("Run-in to a row", quantity(scan.runInUm(), "um"));
    add("Wait after the arrival at a point", formatted("%d ms", scan.options.settleMs));
    add("Wait before a reading", formatted("%u ms", scan.beforeReadingMs()));
    addSettings(lines, scan);
    add("Looks for the arrival",
        scan.options.looksEarly ? "as soon as it can be there" : "every 50 ms");
    add("Readings of a point", formatted("%d, their mean", scan.options.readingsPerPoint));
    addOutcome(lines, map);
    auto textFile = textFiles.begin();
    for (const Plane& plane : planesOf(map)) {
        if (!*plane.filePrefix || textFile == textFiles.end()) continue;
        const bool main = plane.map == planePhotocurrent;
        const std::string name = main ? "Text file" : "Text file of " + plane.name;
        lines.emplace_back(name, textFile->empty() ? "not written" : fileNameOf(*textFile));
        ++textFile;
        if (!main && plane.unit) lines.emplace_back("Unit of that file", plane.unit->name);
    }
    add("Unit of the text file", unitOf(scan).name);
    return lines;
}

GwyChannel channelOf(const ScanMap& map, const Plane& plane) {
    const Map& cells = map.maps[plane.map];
    GwyChannel channel;
    channel.title = plane.title;
    channel.palette = plane.palette;
    if (plane.unit) channel.unit = plane.unit->si;
    const size_t rows = cells.empty() ? 0 : cells.front().size();
    channel.values.reserve(cells.size() * rows);
    channel.unmeasured.reserve(cells.size() * rows);
    for (size_t row = 0; row < rows; ++row)
        for (size_t column = 0; column < cells.size(); ++column) {
            const float value = cells[column][row];
            // A number that is none would spoil the whole channel in the reader.
            const double finite = std::isfinite(value) ? static_cast<double>(value) : 0.0;
            const PointMark mark = map.marks[column][row];
            // The 0 of a cell that has no reading is none of the amplifier's volts.
            const bool isReading = std::isfinite(value) && mark != PointMark::NotMeasured;
            const double inSi = !plane.unit                            ? finite
                                : isReading || plane.unit->zero == 0.0 ? plane.unit->inSi(finite)
                                                                       : 0.0;
            channel.values.push_back(inSi);
            channel.unmeasured.push_back(isMasked(map, column, row, plane.map) ? 1 : 0);
        }
    return channel;
}

} // namespace

std::string quantity(double value, const char* unit) {
    return formatted("%.9g %s", value, unit);
}

std::string biasText(const ScanConditions& scan) {
    const std::string volts = quantity(static_cast<double>(scan.biasVoltage), "V");
    return instrumentKind(scan.ammeterKind).applyBias
               ? volts
               : volts + " in the settings, but no source of it";
}

Conditions setUpOf(const ScanConditions& scan) {
    constexpr const char* axisOrders[] = {"XYZ", "XZY", "YXZ", "YZX", "ZXY", "ZYX"};
    Conditions lines;
    const auto add = [&](const char* name, const std::string& value) {
        lines.emplace_back(name, value);
    };
    add("Program", scan.program);
    add("Set-up", printable(scan.setUpInForce));
    add("Started", timeText(scan.started));
    if (!scan.continued.empty()) add("Continued", printable(scan.continued));
    if (!scan.paused.empty()) add("Paused", printable(scan.paused));
    const Occasion& of = scan.occasion;
    if (!of.sample.empty()) add("Sample", printable(of.sample));
    if (!of.note.empty()) add("Note", printable(of.note));
    if (!of.list.empty()) add("Scan list", printable(of.list));
    if (!of.drift.empty()) add("Drift", printable(of.drift));
    add("Instrument", narrowed(instrumentKind(scan.ammeterKind).name));
    if (!scan.instrumentIdentity.empty())
        add("Instrument's answer to *IDN?", printable(scan.instrumentIdentity));
    if (!scan.settings.words.empty()) add("Instrument's settings", scan.settings.words);
    add("Current limit", quantity(static_cast<double>(scan.currentLimit), "A"));
    add("Laser intensity", quantity(scan.laserUa(), "uA"));
    if (scan.laserPowerUw >= 0.0) add("Laser power", quantity(scan.laserPowerUw, "uW"));
    add("Laser level as sent",
        formatted("%d of 255", laserDriveOf(scan.laserLevel, scan.laserFullScaleVolts)));
    add("Stage X at the start", placeUm(scan.homeXUm));
    add("Stage Y at the start", placeUm(scan.homeYUm));
    add("Stage Z at the start", placeUm(scan.homeZUm));
    if (scan.axisOrder >= 0 && scan.axisOrder < 6) add("Axis order", axisOrders[scan.axisOrder]);
    return lines;
}

GwyFrame frameOf(const ScanConditions& scan) {
    GwyFrame frame{scan.area.cols, scan.area.rows};
    const double step = scan.area.scanStep;
    const double left = scan.firstXUm() - step / 2, bottom = scan.firstYUm() - step / 2;
    frame.width = frame.columns * step * metresPerUm;
    frame.height = frame.rows * step * metresPerUm;
    frame.left = left * metresPerUm;
    frame.top = -(bottom + frame.rows * step) * metresPerUm;
    return frame;
}

std::string mapDocument(const ScanMap& map, const std::vector<std::wstring>& textFiles) {
    std::vector<GwyChannel> channels;
    for (const Plane& plane : planesOf(map)) channels.push_back(channelOf(map, plane));
    channels.front().conditions = conditionsOf(map, textFiles);
    return gwyFile(frameOf(*map.conditions), channels);
}

bool saveMapDocument(const ScanMap& map, const std::vector<std::wstring>& textFiles) {
    std::wstring path = mapPath(*map.conditions, "Lumascan", "", "", "gwy");
    for (int number = 1; fileExists(path); ++number)
        path = mapPath(*map.conditions, "Lumascan", formatted("(%d)", number), "", "gwy");
    try {
        if (writeDocument(path, mapDocument(map, textFiles), L"wb")) return true;
    } catch (const std::exception&) { // so large a map that memory or the format does not hold it
    }
    reportUnwritten(path, mapDocumentWords);
    return false;
}
