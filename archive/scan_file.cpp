// Makes rows and maps of .gwy files.
#include "archive/scan_file.h"

#include "mapping/map_rendering.h"
#include "platform/files.h"
#include "platform/si_prefix.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <exception>
#include <limits>
#include <set>
#include <span>

namespace {

constexpr double umPerMetre = 1e6;
constexpr char mainUnitName[] = "Unit of the text file";

// Units by their prefixes, the largest first.
constexpr Unit amperes[] = {{"A", 1.0, "A", "", "A", 2},     {"mA", 1e-3, "A", "", "mA", 1},
                            {"uA", 1e-6, "A", "", "uA", 1},  {"nA", 1e-9, "A", "", "nA", 1},
                            {"pA", 1e-12, "A", "", "pA", 1}, {"fA", 1e-15, "A", "", "fA", 1}};
constexpr Unit volts[] = {{"V", 1.0, "V", "", "V", 2},
                          {"mV", 1e-3, "V", "", "mV", 1},
                          {"uV", 1e-6, "V", "", "uV", 1},
                          {"nV", 1e-9, "V", "", "nV", 1}};
// In any other unit, with its prefix; the names stay for as long as the program runs.
std::optional<Unit> otherUnit(const std::string& si, double largest) {
    constexpr size_t longestUnit = 16;
    if (si.empty() || si.size() > longestUnit) return {};
    static std::set<std::string> names;
    const PrefixedUnit with = prefixedUnit(largest, si);
    const char* const name = names.insert(with.name).first->c_str();
    return Unit{name, with.factor, names.insert(si).first->c_str(), "", name, 1};
}

constexpr Unit degrees{"deg", 1.0, "deg", "", "", 0, true};

// The one of the text file, or the largest in which the largest number has a digit before the
// point.
std::optional<Unit> unitFor(const std::string& si, const std::string& inTextFile, double largest) {
    if (si == "deg") return degrees;
    const std::span<const Unit> units = si == "A"   ? std::span<const Unit>(amperes)
                                        : si == "V" ? std::span<const Unit>(volts)
                                                    : std::span<const Unit>();
    if (units.empty()) return otherUnit(si, largest);
    for (const Unit& unit : units)
        if (inTextFile == unit.name && inTextFile != "A") return unit;
    for (const Unit& unit : units)
        if (largest >= unit.perValue) return unit;
    return largest > 0.0 ? units.back() : units.front();
}

double stepUmOf(const GwyFrame& frame) {
    return frame.width / frame.columns * umPerMetre;
}

// Whether the frame's points lie a step apart, both ways: another program may have resampled it.
bool hasStep(const GwyFrame& frame, double stepUm) {
    const auto agrees = [stepUm](double um) { return std::fabs(um - stepUm) < 1e-3 * stepUm; };
    return agrees(stepUmOf(frame)) && agrees(frame.height / frame.rows * umPerMetre);
}

// A value that counts: none behind a mask, and a number.
class Rows {
public:
    Rows(const GwySource& from, const GwyChannelThere& of) : source(from), channel(of) {}

    bool read(int32_t row) {
        return readRow(source, channel.data, row, values) &&
               (!channel.mask || readRow(source, *channel.mask, row, masks));
    }
    bool counts(size_t column) const {
        return std::isfinite(values[column]) && (!channel.mask || masks[column] == 0.0);
    }
    double value(size_t column) const { return values[column]; }

private:
    const GwySource& source;
    const GwyChannelThere& channel;
    std::vector<double> values, masks;
};

size_t at(int row, int column, int columns) {
    return static_cast<size_t>(row) * static_cast<size_t>(columns) + static_cast<size_t>(column);
}

// The first channel, made as small as the picture, with its sides as they are.
bool drawPicture(const GwySource& source, const GwyChannelThere& channel, ScanPicture& picture) {
    picture.fill(noLevel);
    const GwyFrame& frame = channel.data.frame;
    const int32_t longer = std::max(frame.columns, frame.rows);
    const auto size = [&](int32_t points) {
        return std::max(1, static_cast<int>(int64_t{points} * scanPicturePx / longer));
    };
    const int width = size(frame.columns), height = size(frame.rows);
    const auto nowhere = std::numeric_limits<double>::quiet_NaN();
    std::vector<double> cells(static_cast<size_t>(width) * static_cast<size_t>(height), nowhere);
    double lowest = std::numeric_limits<double>::infinity(), highest = -lowest;
    Rows rows(source, channel);
    for (int y = 0, last = -1; y < height; ++y) {
        const auto row = static_cast<int32_t>((int64_t{2} * y + 1) * frame.rows / (2 * height));
        if (row != last && !rows.read(row)) return false;
        last = row;
        for (int x = 0; x < width; ++x) {
            const auto column =
                static_cast<size_t>((int64_t{2} * x + 1) * frame.columns / (2 * width));
            if (!rows.counts(column)) continue;
            const double value = rows.value(column);
            cells[at(y, x, width)] = value;
            lowest = std::min(lowest, value);
            highest = std::max(highest, value);
        }
    }
    const int left = (scanPicturePx - width) / 2, top = (scanPicturePx - height) / 2;
    const double range = highest > lowest ? highest - lowest : 1.0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const double value = cells[at(y, x, width)];
            if (std::isnan(value)) continue;
            const double part = std::clamp((value - lowest) / range, 0.0, 1.0);
            picture[at(top + y, left + x, scanPicturePx)] =
                static_cast<uint8_t>(part * (noLevel - 1));
        }
    return true;
}

} // namespace

ScanConditions gridOf(const GwyContents& contents) {
    const GwyFrame& frame = contents.channels.front().data.frame;
    const Conditions& texts = contents.channels.front().conditions;
    ScanConditions scan;
    ScanArea& area = scan.area;
    area.placed = true;
    area.cols = frame.columns;
    area.rows = frame.rows;
    const double stepSaid = numberAt(valueIn(texts, "Step")).value_or(stepUmOf(frame));
    const bool stepHolds = hasStep(frame, stepSaid);
    area.scanStep = stepHolds ? stepSaid : stepUmOf(frame);
    const double left = frame.left * umPerMetre + area.scanStep / 2;
    const double bottom = -(frame.top + frame.height) * umPerMetre + area.scanStep / 2;
    scan.homeXUm = numberAt(valueIn(texts, "Stage X at the start")).value_or(0.0);
    scan.homeYUm = numberAt(valueIn(texts, "Stage Y at the start")).value_or(0.0);
    area.offsetXUm = numberAt(valueIn(texts, "First point X")).value_or(left) - scan.homeXUm;
    area.offsetYUm = numberAt(valueIn(texts, "First point Y")).value_or(bottom) - scan.homeYUm;
    computeScanArea(area, {}, false);
    const std::optional<double> zeroX = numberAt(valueIn(texts, "Controller's count at X 0"));
    const std::optional<double> zeroY = numberAt(valueIn(texts, "Controller's count at Y 0"));
    scan.zeroKnown = zeroX && zeroY;
    scan.zeroXUm = zeroX.value_or(0.0);
    scan.zeroYUm = zeroY.value_or(0.0);
    // The stage goes there: where the file says it twice, it says the same. A continued scan has
    // its start in the one and where the operator brought the sample back in the other.
    const SamplePlace home = placeIn(texts);
    const auto isAlike = [](double a, double b) { return std::fabs(a - b) < 0.01; }; // um
    const bool isAtStart = isAlike(home.x.steps / home.x.perUm, scan.homeXUm + scan.zeroXUm) &&
                           isAlike(home.y.steps / home.y.perUm, scan.homeYUm + scan.zeroYUm);
    if (stepHolds && (isAtStart || !valueIn(texts, "Continued").empty()) &&
        isAlike(scan.firstXUm(), left) && isAlike(scan.firstYUm(), bottom))
        scan.home = home;
    scan.setUpInForce = valueIn(texts, "Set-up");
    scan.occasion = {valueIn(texts, "Sample"), valueIn(texts, "Note"), valueIn(texts, "Scan list")};
    return scan;
}

namespace {

// Where a channel lies among the maps: colours at their places, the others behind them.
size_t placeAmongMaps(const std::string& title, size_t number, size_t& further) {
    if (number == 0) return planePhotocurrent;
    if (title == "Confocal red") return planeRed;
    if (title == "Confocal green") return planeGreen;
    if (title == "Confocal blue") return planeBlue;
    return further++;
}

bool fillPlane(ScanMap& map, const GwySource& source, const GwyChannelThere& channel, Plane& plane,
               const std::string& inTextFile) {
    const GwyFrame& frame = channel.data.frame;
    Rows rows(source, channel);
    double largest = 0.0;
    for (int32_t row = 0; row < frame.rows; ++row) {
        if (!rows.read(row)) return false;
        for (int32_t column = 0; column < frame.columns; ++column)
            if (rows.counts(static_cast<size_t>(column)))
                largest = std::max(largest, std::fabs(rows.value(static_cast<size_t>(column))));
    }
    plane.unit = unitFor(channel.data.unit, inTextFile, largest);
    const double perValue = plane.unit ? plane.unit->perValue : 1.0;
    for (int32_t row = 0; row < frame.rows; ++row) {
        if (!rows.read(row)) return false;
        for (int32_t column = 0; column < frame.columns; ++column) {
            const auto c = static_cast<size_t>(column), r = static_cast<size_t>(row);
            const double value = rows.value(c);
            const bool hasMark = plane.map == planePhotocurrent || plane.ofCamera();
            const float none = hasMark ? 0.0f : std::numeric_limits<float>::quiet_NaN();
            map.maps[plane.map][c][r] = std::isfinite(value) && (hasMark || rows.counts(c))
                                            ? static_cast<float>(value / perValue)
                                            : none;
            PointMark& mark = map.marks[c][r];
            if (plane.map == planePhotocurrent)
                mark = rows.counts(c) ? PointMark::Measured : PointMark::NotMeasured;
            else if (plane.ofCamera() && mark == PointMark::Measured && !rows.counts(c))
                mark = PointMark::NoColour;
        }
    }
    return true;
}

bool fillMap(ScanMap& map, const GwySource& source, const GwyContents& contents) {
    const GwyFrame& frame = contents.channels.front().data.frame;
    std::vector<const GwyChannelThere*> fitting;
    for (const GwyChannelThere& channel : contents.channels)
        if (channel.data.frame.columns == frame.columns && channel.data.frame.rows == frame.rows &&
            fitting.size() < mostMaps)
            fitting.push_back(&channel);
    size_t further = firstFurtherMap;
    for (size_t i = 0; i < fitting.size(); ++i) {
        Plane plane;
        plane.title = fitting[i]->title;
        plane.map = placeAmongMaps(plane.title, i, further);
        if (plane.map > planePhotocurrent && plane.map < firstFurtherMap)
            plane.of = Plane::Of::Colour;
        if (plane.title.starts_with("Standard deviation")) plane.of = Plane::Of::Deviation;
        map.planes.push_back(plane);
    }
    emptyMaps(map, map.conditions->area, further);
    const std::string mainUnit = valueIn(contents.channels.front().conditions, mainUnitName);
    for (size_t i = 0; i < fitting.size(); ++i)
        if (!fillPlane(map, source, *fitting[i], map.planes[i], i == 0 ? mainUnit : ""))
            return false;
    return true;
}

} // namespace

std::optional<double> numberAt(const std::string& text) {
    double number = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || !std::isfinite(number)) return {};
    return number;
}

std::optional<double> biasOf(const Conditions& conditions) {
    const std::string text = valueIn(conditions, "Bias");
    return text.find("no source") == std::string::npos ? numberAt(text) : std::nullopt;
}

GwyContents contentsOfFile(const std::wstring& path) {
    const File file = openFile(path, L"rb");
    if (!file) return {{}, cannotBeRead};
    return contentsOf(sourceOf(file.get()));
}

void describeScan(const std::wstring& path, ScanRow& row) {
    row.isRead = true;
    row.started = timeOfFolder(row.path);
    row.picture.fill(noLevel);
    const File file = openFile(path, L"rb");
    const GwySource source = file ? sourceOf(file.get()) : GwySource{};
    const GwyContents contents = file ? contentsOf(source) : GwyContents{{}, cannotBeRead};
    row.fault = contents.fault;
    if (!row.fault.empty()) return;
    const GwyChannelThere& first = contents.channels.front();
    if (!drawPicture(source, first, row.picture)) {
        row.fault = cannotBeRead;
        return;
    }
    const Conditions& texts = first.conditions;
    row.columns = first.data.frame.columns;
    row.rows = first.data.frame.rows;
    row.stepUm = numberAt(valueIn(texts, "Step"));
    if (!row.stepUm) row.stepUm = stepUmOf(first.data.frame);
    row.biasVolts = biasOf(texts);
    row.laserUa = numberAt(valueIn(texts, "Laser intensity"));
    row.instrument = valueIn(texts, "Instrument");
    row.sample = valueIn(texts, "Sample");
    row.note = valueIn(texts, "Note");
    if (const std::string started = valueIn(texts, "Started"); !started.empty())
        row.started = started;
}

std::optional<ScanMap> mapOfFile(const std::wstring& path, std::string& fault) {
    const File file = openFile(path, L"rb");
    const GwySource source = file ? sourceOf(file.get()) : GwySource{};
    const GwyContents contents = file ? contentsOf(source) : GwyContents{{}, cannotBeRead};
    fault = contents.fault;
    if (!fault.empty()) return {};
    try {
        ScanMap map;
        map.conditions = gridOf(contents);
        if (fillMap(map, source, contents)) return map;
        fault = cannotBeRead;
    } catch (const std::exception&) {
        fault = "it is too large for this computer's memory";
    }
    return {};
}
