// A cell of the map that counts as measured holds what was measured there, at its place.
#include "instruments/ammeter.h"
#include "platform/text_format.h"
#include "tests/simulation/judge/judge.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

// A reading as the laboratory knows it.
struct Taken {
    double timeMs, x, y, value;
};

class Cell : public Checker {
public:
    explicit Cell(Judge& all) : judge(all) {}

    void fieldIsShown(Field field) override {
        if (field == Field::MeasuredValue) shownMs = virtualNowMs();
    }

    void processBegins() override { originKnown = {}; }

    void cellIsMarked(size_t c, size_t m, PointMark mark) override {
        // Read since the value of the cell before was shown: an answer that came late belongs to no
        // later point.
        const double before = std::exchange(lastCellMs, shownMs);
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
        const bool placed = judgePlace(c, m, cells, count);
        if (placed) judge.count("points judged");
    }

private:
    static bool ofBoard() { return scanMap.conditions->ammeterKind == kindArduino; }

    std::vector<Taken> takenSince(double timeMs) const {
        std::vector<Taken> taken;
        const auto collect = [&](const auto& log, auto value) {
            for (size_t i = log.size(); i > 0 && log[i - 1].timeMs >= timeMs; --i)
                taken.push_back(
                    {log[i - 1].timeMs, log[i - 1].sampleX, log[i - 1].sampleY,
                     log[i - 1].*value * mainChannel(instrumentLink.ammeterKind).scale});
        };
        if (ofBoard())
            collect(labReads(), &LabRead::volts);
        else
            collect(labMeasurements(), &LabMeasurement::value);
        std::reverse(taken.begin(), taken.end());
        return taken;
    }

    // The board's number of one digit counts as 0.
    static double asTold(const Taken& taken) {
        return ofBoard() && taken.value < 9.5 * labAdcStepVolts ? 0.0 : taken.value;
    }

    static double meanOf(const Taken* taken, size_t count) {
        double sum = 0;
        for (size_t i = 0; i < count; ++i) sum += asTold(taken[i]);
        return sum / static_cast<double>(count);
    }

    static bool holds(double cell, const Taken* taken, size_t count) {
        const double is = meanOf(taken, count);
        return std::fabs(cell - is) <= 1e-3 * std::fabs(is) + 1e-9;
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
        const double row = scan.area.rows - 1.0 - static_cast<double>(m);
        const double ways[] = {static_cast<double>(c) * scan.area.scanStep,
                               row * scan.area.scanStep};
        const double starts[] = {scan.firstXUm(), scan.firstYUm()};
        const LabPixel spot = labSpotPixel();
        const double spots[] = {(spot.column - labCentreColumn) * labUmPerPixel,
                                (spot.row - labCentreRow) * labUmPerPixel};
        // Where the way since the row's begin has not taken up the play of X, nothing is promised.
        const double runIn = scan.options.runInUm > 0 ? scan.options.runInUm : scan.area.scanStep;
        const bool playTakenUp = runIn + ways[labX] >= judge.playUm(labX);
        bool judged = true;
        for (int axis : {labX, labY}) {
            const AxisView& view = judge.axes[axis];
            if (view.doubtful || (axis == labX && !playTakenUp)) {
                judged = false;
                continue;
            }
            for (size_t i = 0; i < count; ++i) {
                const double stood = (axis == labX ? taken[i].x : taken[i].y) - spots[axis];
                judgeStand(axis, stood - ways[axis], view.zeroUm + starts[axis], c, m);
            }
        }
        return judged;
    }

    void judgeStand(int axis, double originUm, double zeroUm, size_t c, size_t m) {
        const char* const name = judge.axes[axis].name;
        const double farUm = judge.playUm(axis) + umPerFullStep + 0.1;
        if (std::fabs(originUm - zeroUm) > farUm)
            judge.find(Rule::Cell, formatted("%s stood %.2f um beside the place of cell %zu, %zu",
                                             name, originUm - zeroUm, c, m));
        if (!originKnown[static_cast<size_t>(axis)]) origin[static_cast<size_t>(axis)] = originUm;
        originKnown[static_cast<size_t>(axis)] = true;
        const double beside = originUm - origin[static_cast<size_t>(axis)];
        if (std::fabs(beside) > scanMap.conditions->area.scanStep / 4)
            judge.find(Rule::Cell, formatted("%s stood %.2f um from where cell %zu, %zu lies by "
                                             "the others of its scan",
                                             name, beside, c, m));
    }

    Judge& judge;
    double lastCellMs = -1;
    double shownMs = -1; // when the measured value was shown last
    // By the first cell that was judged, of X and Y: where the scan's first point lies.
    std::array<double, 2> origin{};
    std::array<bool, 2> originKnown{};
};

} // namespace

std::unique_ptr<Checker> checkCell(Judge& judge) {
    return std::make_unique<Cell>(judge);
}
