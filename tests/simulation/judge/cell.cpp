// A cell of the map that counts as measured holds what was measured there, at its place.
#include "camera/camera.h"
#include "instruments/ammeter.h"
#include "platform/text_format.h"
#include "tests/doubles/gwy_reader.h"
#include "tests/simulation/judge/judge.h"

#include <algorithm>
#include <array>
#include <map>
#include <stdexcept>
#include <utility>

namespace {

class Cell : public Checker {
public:
    explicit Cell(Judge& all) : judge(all) {}

    void fieldIsShown(Field field) override {
        if (field == Field::MeasuredValue) shownMs = virtualNowMs();
    }

    // Another play is taken up with the next row.
    void broken() override {
        if (std::exchange(playKnown, plays()) == plays()) return;
        originKnown = {};
        doubtfulRows = 2; // this one, and one that it is on its way to
        for (int axis : {labX, labY}) mostPlay[axis] = std::max(mostPlay[axis], judge.playUm(axis));
    }

    void boxOpens(const ShownBox& box) override {
        if (box.text.starts_with("Hysteresis not compensated")) yMissedAt = 0;
    }

    void processBegins() override {
        originKnown = {};
        readings.clear();
        filesBefore = unitFiles();
        amplifiersWereTold = judge.laboratory.amplifiersAreTold;
        yMissedAt = judge.devicesBroke ? 0 : -1e9;
        for (int axis : {labX, labY}) homeUm[axis] = judge.axes[axis].axis.positionUm;
    }

    void cellIsMarked(size_t c, size_t m, PointMark mark) override {
        // Read since the value of the cell before was shown: an answer that came late belongs to no
        // later point.
        const double before = std::exchange(lastCellMs, shownMs);
        if (mark == PointMark::NotReached) {
            yMissedAt = 1e9; // from where it came back to a later row is not known
            originKnown[labY] = false;
        }
        if (mark != PointMark::Measured) return;
        const std::vector<Taken> taken = takenSince(before);
        const auto count = static_cast<size_t>(scanMap.conditions->options.readingsPerPoint);
        const auto cell = static_cast<double>(scanMap.maps[planePhotocurrent][c][m]);
        if (taken.size() < count)
            return judge.find(Rule::Cell,
                              formatted("measured by %zu of its readings", taken.size()));
        // A row begins with a reading that no cell keeps, and one may have come behind the last.
        const Taken* const newest = &taken.back() - (count - 1);
        const Taken* cells = newest;
        while (cells > taken.data() && !holds(cell, cells, count)) --cells;
        if (!holds(cell, cells, count)) cells = newest;
        judgeValue(cell, cells, count);
        judge.cellCounts(cells, count);
        readings[{c, m}] = meanOf(cells, count);
        if (scanMap.conditions->confocal) judgeColour(c, m, cells[count - 1]);
        const bool placed = judgePlace(c, m, cells, count);
        if (placed) judge.count("points judged");
    }

    void processEnds(const Cause& cause, const std::string&) override {
        const bool amplified = ofBoard() || scanMap.conditions->ammeterKind == kindOscilloscope;
        if (cause.what != scanName || !amplified) return;
        for (const std::string& name : unitFiles())
            if (!filesBefore.contains(name)) judgeFile(contentOf(name));
    }

private:
    const Laboratory::Amplifier& amplifier() const {
        return ofBoard() ? judge.laboratory.board : judge.laboratory.scope;
    }

    static std::set<std::string> unitFiles() {
        std::set<std::string> names;
        for (const std::string& name : filesOnDesktop())
            if (name.ends_with(".gwy")) names.insert(name);
        return names;
    }

    // In amperes before the laboratory's amplifier, or in volts for want of its V/A.
    void judgeFile(const std::string& bytes) {
        GwyContent file;
        try {
            file = readGwy(bytes);
        } catch (const std::runtime_error&) { // the disk was full
            return;
        }
        const bool amperes = file.texts["/0/data si_unit_z unitstr"] == "A";
        if (amperes != (amplifiersWereTold && amplifier().voltsPerAmpere != 0))
            judge.find(Rule::Cell, "a file has another unit");
        const std::vector<double>& values = file.arrays["/0/data data"];
        const std::vector<double>& masked = file.arrays["/0/mask data"]; // empty: none is
        const size_t columns = scanMap.marks.size();
        for (const auto& [cell, volts] : readings) {
            const auto [c, m] = cell;
            if (scanMap.marks[c][m] != PointMark::Measured) continue;
            // Saved on the operator's word before this cell came.
            if (!masked.empty() && masked.at(m * columns + c) != 0) continue;
            const auto [gain, offset] = amplifier();
            const double is = amperes ? (volts - offset) / gain : volts;
            const double hair = 1e-4 / (amperes ? std::fabs(gain) : 1) + 1e-4 * std::fabs(is);
            const double told = values.at(m * columns + c);
            if (std::fabs(told - is) > hair)
                judge.find(Rule::Cell, formatted("a file says %g, measured was %g", told, is));
            judge.count("cells of .gwy files judged");
        }
    }

    // The spot has the colour of the sample where it is seen, whatever the sensor's order of
    // colours.
    void judgeColour(size_t c, size_t m, const Taken& taken) {
        const LabPoint acts = judge.laboratory.inUse().acts;
        const Rgb is = textureAt(taken.x - acts.x, taken.y - acts.y);
        const auto part = [&](size_t plane) { return double{scanMap.maps[plane][c][m]}; };
        const double red = part(planeRed), blue = part(planeBlue);
        if (!spotIsTrue() || cameraState.blueOnly != 0) return;
        const bool grey = judge.laboratory.pixelFormat == "Mono8";
        const bool saturated = std::max(red, blue) >= 230; // some of the pixels of the mean
        const double ratio = is.blue / is.red;
        // Each part is a whole number; light from noise that is cut off at 255 is missing.
        if (grey ? red != blue
                 : !saturated && std::fabs(blue - ratio * red) >
                                     1.5 * (1 + ratio) + 0.04 * std::max(red, blue))
            judge.find(Rule::Picture, formatted("red %g, blue %g where the sample has %g, %g", red,
                                                blue, is.red, is.blue));
        judge.count("colours judged");
    }

    // Nobody has picked another one.
    static bool spotIsTrue() {
        const PicturePoint told = scanMap.conditions->laserSpot;
        return told.x == labSpotPixel().column && told.y == labSpotPixel().row;
    }

    // The sample point that the picture showed at the lowest X and Y of the rectangle, from the
    // stage's place, um.
    static std::array<double, 2> cornerUm(const ScanArea& area) {
        std::array<double, 2> least = {1e9, 1e9};
        for (const int x : {area.rectX1, area.rectX2})
            for (const int y : {area.rectY1, area.rectY2}) {
                const LabPoint at =
                    labSampleAt(labCentreColumn + (x - labCentreColumn) * area.viewScale,
                                labCentreRow + (1028 - y - labCentreRow) * area.viewScale);
                least = {std::min(least[0], at.x - labStageUm(labX)),
                         std::min(least[1], at.y - labStageUm(labY))};
            }
        return least;
    }

    static bool ofBoard() { return scanMap.conditions->ammeterKind == kindArduino; }

    std::vector<Taken> takenSince(double timeMs) const {
        std::vector<Taken> taken;
        const bool behindAmplifier = instrumentKind(scanMap.conditions->ammeterKind).derive &&
                                     judge.laboratory.lockInVoltsPerAmpere > 0;
        const double scale =
            mainChannel().scale / (behindAmplifier ? judge.laboratory.lockInVoltsPerAmpere : 1.0);
        const double highest = std::exp2(judge.laboratory.inputBits) - 1;
        if (ofBoard())
            for (size_t i = labReads().size(); i > 0 && labReads()[i - 1].timeMs >= timeMs; --i) {
                const LabRead& at = labReads()[i - 1];
                taken.push_back({at.timeMs, at.sampleX, at.sampleY, at.volts, 0.0, at.laser,
                                 at.lamp, at.volts >= highest * judge.laboratory.adcStepVolts()});
            }
        else
            for (size_t i = labMeasurements().size();
                 i > 0 && labMeasurements()[i - 1].timeMs >= timeMs; --i) {
                const LabMeasurement& at = labMeasurements()[i - 1];
                taken.push_back({at.timeMs, at.sampleX, at.sampleY, at.value * scale, at.biasVolts,
                                 at.laser, at.lamp, isOverload(at), at.lockInX * scale,
                                 at.lockInY * scale});
            }
        std::reverse(taken.begin(), taken.end());
        return taken;
    }

    // By the manuals: the multimeter's letter stands beside 9.99999E9, the analyzer's beside the
    // end of its largest range, and the others say 9.9E37.
    static bool isOverload(const LabMeasurement& taken) {
        if (taken.flagged) return true;
        const double end = taken.by == labMultimeter ? 9e9 : taken.by == labAnalyzer ? 0.105 : 9e37;
        return std::fabs(taken.value) >= end;
    }

    // The board's smallest numbers count as 0.
    double asTold(const Taken& taken) const {
        const double dead = (judge.laboratory.deadCounts - 0.5) * judge.laboratory.adcStepVolts();
        return ofBoard() && taken.value < dead ? 0.0 : taken.value;
    }

    std::array<double, 2> plays() const { return {judge.playUm(labX), judge.playUm(labY)}; }

    // From the first row to that of the map, um.
    static double wayY(size_t mapRow) {
        const ScanArea& area = scanMap.conditions->area;
        return (area.rows - 1.0 - static_cast<double>(mapRow)) * area.scanStep;
    }

    // Of several readings of a lock-in amplifier it is R of the mean components: where noise turns
    // the phase that is less than each of them.
    double meanOf(const Taken* taken, size_t count) const {
        double sum = 0, x = 0, y = 0;
        for (size_t i = 0; i < count; ++i) {
            sum += asTold(taken[i]);
            x += taken[i].lockInX;
            y += taken[i].lockInY;
        }
        const bool derived = instrumentKind(scanMap.conditions->ammeterKind).derive && count > 1;
        return (derived ? std::hypot(x, y) : sum) / static_cast<double>(count);
    }

    bool holds(double cell, const Taken* taken, size_t count) const {
        const double is = meanOf(taken, count);
        double largest = 0; // an instrument tells five digits
        for (size_t i = 0; i < count; ++i) largest = std::max(largest, std::fabs(taken[i].value));
        return std::fabs(cell - is) <= 1e-3 * std::fabs(is) + 1e-5 * largest + 1e-9;
    }

    void judgeValue(double cell, const Taken* taken, size_t count) {
        if (!holds(cell, taken, count))
            judge.find(Rule::Cell,
                       formatted("holds %g, measured was %g", cell, meanOf(taken, count)));
    }

    // Each reading was taken at the cell's place: by the stage's zero within what that knows of
    // play and microsteps, and beside the other cells of its scan within a quarter of the step.
    bool judgePlace(size_t c, size_t m, const Taken* taken, size_t count) {
        const ScanConditions& scan = *scanMap.conditions;
        const double ways[] = {static_cast<double>(c) * scan.area.scanStep, wayY(m)};
        // One that goes on does so from where the stage then stands.
        const bool goesOn = !scan.continued.empty();
        const double starts[] = {(goesOn ? homeUm[labX] : scan.homeXUm) + scan.area.offsetXUm,
                                 (goesOn ? homeUm[labY] : scan.homeYUm) + scan.area.offsetYUm};
        const LabPoint spot = labLaserSpotSample();
        const double spots[] = {spot.x - labStageUm(labX), spot.y - labStageUm(labY)};
        const std::array<double, 2> corner = cornerUm(scan.area);
        const LabPoint told = judge.laboratory.wronglyToldUm();
        const double shown[] = {homeUm[labX] + corner[labX] + told.x,
                                homeUm[labY] + corner[labY] + told.y};
        const bool isDrawn = !goesOn && spotIsTrue() && scan.area.rectX1 != scan.area.rectX2;
        if (std::exchange(rowSeen, m) != m && doubtfulRows > 0) --doubtfulRows;
        // Where the way since the row's begin has not taken up the play of X, nothing is promised;
        // for Y the swing does it, unless it fails, and a row that was not reached undoes it.
        const double runIn = scan.options.runInUm > 0 ? scan.options.runInUm : scan.area.scanStep;
        const bool playTakenUp[] = {doubtfulRows == 0 && runIn + ways[labX] >= judge.playUm(labX),
                                    ways[labY] - yMissedAt >= judge.playUm(labY)};
        bool judged = true;
        for (int axis : {labX, labY}) {
            const AxisView& view = judge.axes[axis];
            // Where a limit switch stops it within what counts as arrived, it stands beside its
            // place.
            const bool limited = judge.blames(formatted("limit %s", view.name).c_str());
            if (view.doubtful || !playTakenUp[axis] || limited) {
                judged = false;
                continue;
            }
            for (size_t i = 0; i < count; ++i) {
                const double stood = (axis == labX ? taken[i].x : taken[i].y) - spots[axis];
                judgeStand(axis, stood - ways[axis], view.zeroUm + starts[axis], c, m);
                const double besideUm = (axis == labX ? taken[i].x : taken[i].y) - ways[axis] -
                                        view.zeroUm - shown[axis];
                if (isDrawn && std::fabs(besideUm) > farUm(axis))
                    judge.find(Rule::Picture,
                               formatted("%s of cell %zu, %zu lies %.2f um from where the picture "
                                         "showed it",
                                         view.name, c, m, besideUm));
            }
            if (isDrawn) judge.count("cells judged by the picture");
        }
        return judged;
    }

    double farUm(int axis) const {
        return std::max(mostPlay[axis], judge.playUm(axis)) +
               judge.laboratory.drives[static_cast<size_t>(axis)].stepUm() + 0.1;
    }

    void judgeStand(int axis, double originUm, double zeroUm, size_t c, size_t m) {
        const char* const name = judge.axes[axis].name;
        if (std::fabs(originUm - zeroUm) > farUm(axis))
            judge.find(Rule::Cell, formatted("%s stood %.2f um beside the place of cell %zu, %zu",
                                             name, originUm - zeroUm, c, m));
        if (!originKnown[static_cast<size_t>(axis)]) origin[static_cast<size_t>(axis)] = originUm;
        originKnown[static_cast<size_t>(axis)] = true;
        const double beside = originUm - origin[static_cast<size_t>(axis)];
        const double ofMotorUm = judge.laboratory.drives[static_cast<size_t>(axis)].microstepUm();
        if (std::fabs(beside) > scanMap.conditions->area.scanStep / 4 + ofMotorUm)
            judge.find(Rule::Cell, formatted("%s stood %.2f um from where cell %zu, %zu lies by "
                                             "the others of its scan",
                                             name, beside, c, m));
    }

    Judge& judge;
    double homeUm[2] = {};
    std::map<std::pair<size_t, size_t>, double> readings; // by cell, as told
    std::set<std::string> filesBefore;
    bool amplifiersWereTold = false; // when the process began
    double lastCellMs = -1;
    double shownMs = -1; // when the measured value was shown last
    // By the first cell that was judged, of X and Y: where the scan's first point lies.
    std::array<double, 2> origin{};
    std::array<bool, 2> originKnown{};
    double mostPlay[2] = {}; // since the day began: a carriage may lag by that
    std::array<double, 2> playKnown = plays();
    double yMissedAt = 0; // where the play of Y was last not known to be taken up
    int doubtfulRows = 0; // since something was broken
    size_t rowSeen = 0;
};

} // namespace

std::unique_ptr<Checker> checkCell(Judge& judge) {
    return std::make_unique<Cell>(judge);
}
