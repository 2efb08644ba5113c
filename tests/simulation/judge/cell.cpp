// A cell of the map that counts as measured holds what was measured there, at its place.
#include "instruments/ammeter.h"
#include "platform/text_format.h"
#include "tests/simulation/judge/judge.h"

#include <utility>

namespace {

class Cell : public Checker {
public:
    explicit Cell(Judge& all) : judge(all) {}

    void fieldIsShown(Field field) override {
        if (field == Field::MeasuredValue) shownMs = virtualNowMs();
    }

    void cellIsMarked(size_t c, size_t m, PointMark mark) override {
        const ScanConditions& scan = *scanMap.conditions;
        const bool board = scan.ammeterKind == kindArduino;
        const double scale = selectedInstrument().readingScale;
        const auto cell = static_cast<double>(scanMap.maps[planePhotocurrent][c][m]);
        struct {
            double timeMs = -1, x = 0, y = 0, value = 0;
        } read;
        // A row begins with a reading that no cell keeps.
        const auto isTheCells = [&](double timeMs, double x, double y, double value) {
            if (timeMs < lastCellMs) return true;
            read = {timeMs, x, y, value};
            // The board's number of one digit counts as 0.
            const bool tooSmall = board && cell == 0.0 && value < 10.5 * labAdcStepVolts;
            return tooSmall || std::fabs(cell - value * scale) <= 1e-3 * std::fabs(cell);
        };
        const auto search = [&](const auto& readings, auto value) {
            for (size_t i = readings.size(); i > 0; --i)
                if (const auto& at = readings[i - 1];
                    isTheCells(at.timeMs, at.sampleX, at.sampleY, at.*value))
                    break;
        };
        if (board)
            search(labReads(), &LabRead::volts);
        else
            search(labMeasurements(), &LabMeasurement::value);
        // Read since the value of the cell before was shown: an answer that came late belongs to no
        // later point.
        const double before = std::exchange(lastCellMs, shownMs);
        if (mark != PointMark::Measured) return;
        if (read.timeMs < before || read.timeMs < 0)
            return judge.find(Rule::Cell, "marked measured without a reading");
        const double row = scan.rows - 1.0 - static_cast<double>(m);
        const double x = judge.axes[labX].zeroUm + scan.homeXUm + scan.offsetXUm +
                         static_cast<double>(c) * scan.stepUm +
                         (labSpotPixel().column - labCentreColumn) * labUmPerPixel;
        const double y = judge.axes[labY].zeroUm + scan.homeYUm + scan.offsetYUm +
                         row * scan.stepUm + (labSpotPixel().row - labCentreRow) * labUmPerPixel;
        const bool doubtful = judge.axes[labX].doubtful || judge.axes[labY].doubtful;
        if (!doubtful && std::hypot(read.x - x, read.y - y) > placeToleranceUm)
            judge.find(Rule::Cell, formatted("measured at (%.1f, %.1f) um, belongs to (%.1f, %.1f)",
                                             read.x, read.y, x, y));
        const double is = read.value * scale;
        if (board && cell == 0.0 && is < 10.5 * labAdcStepVolts) return; // too few steps
        if (std::fabs(cell - is) > 1e-3 * std::fabs(is) + 1e-9)
            judge.find(Rule::Cell, formatted("holds %g, measured was %g", cell, is));
    }

private:
    Judge& judge;
    double lastCellMs = -1;
    double shownMs = -1; // when the measured value was shown last
};

} // namespace

std::unique_ptr<Checker> checkCell(Judge& judge) {
    return std::make_unique<Cell>(judge);
}
