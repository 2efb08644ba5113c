// Plays one run of the program.
#include "tests/simulation/whole_run.h"

#include "app/program.h"
#include "camera/spot.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "session/process.h"
#include "session/responsive_wait.h"

#include <algorithm>
#include <cmath>
#include <sstream>

void WholeRunTest::writeSettings(double step, bool confocal) {
    const LabPixel spot = labSpotPixel();
    writeDesktopFile("KST_Data/Config.txt",
                     formatted("step:%.1f, laser:4.00, laser correct:(%d,%d), Ammeter:0, GPIB:18, "
                               "IP:192,168,0,10,1225, Standa:2, arduino_LD:10, %d\n",
                               step, spot.column, spot.row, confocal ? 1 : 0));
}

static bool informationShown(const char* text) {
    const std::vector<std::string>& shown = historyOf(Field::Information);
    return std::find(shown.begin(), shown.end(), text) != shown.end();
}

void WholeRunTest::runProgramOver(double widthUm, double heightUm, BoxAnswer hysteresis) {
    const int halfWidth = static_cast<int>(widthUm / labUmPerPixel / 2);
    const int halfHeight = static_cast<int>(heightUm / labUmPerPixel / 2);
    when([] { return timerRuns(); },
         [=] {
             // From the lower right to the upper left: any corner may come first.
             postDrag(616 + halfWidth, 514 + halfHeight, 616 - halfWidth, 514 - halfHeight);
         });
    answer("Do you want to set it for next scan area", BoxAnswer::Yes);
    when([] { return textIn(Field::Progress) == "New scan area was selected."; },
         [] { postCommand(idStart); });
    answer("Hysteresis compensated. Is it okay?", hysteresis);
    when([] { return informationShown("Mapping finished") && !session.processRunning; },
         [] { post(messageClose); });
    EXPECT_EQ(runProgram(1), 0);
}

void WholeRunTest::afterReadings(size_t readings, std::function<void()> action) {
    when([readings] { return labCounters().analogReads >= readings; }, std::move(action));
}

ListRow mapRowAt(double dx, double dy, double biasVolts) {
    ListRow row;
    row.xUm = ofController(stageX, dx);
    row.yUm = ofController(stageY, dy);
    row.columns = 6;
    row.rows = 4;
    row.stepUm = 3.0;
    row.biasVolts = biasVolts;
    row.limitAmperes = 1e-3;
    return row;
}

LabPoint placeOfCell(int column, int mapRow) {
    const int scannedRow = scanArea.rows - 1 - mapRow;
    return {scanArea.offsetXUm + column * scanArea.scanStep +
                (labSpotPixel().column - labCentreColumn) * labUmPerPixel,
            scanArea.offsetYUm + scannedRow * scanArea.scanStep +
                (labSpotPixel().row - labCentreRow) * labUmPerPixel};
}

bool isNear(double value, double tolerance, LabPoint place,
            const std::function<double(double x, double y)>& truth) {
    constexpr double placeTolerance = 0.02; // um: several microsteps
    double lowest = 1e9, highest = -1e9;
    for (double dx : {-placeTolerance, 0.0, placeTolerance})
        for (double dy : {-placeTolerance, 0.0, placeTolerance}) {
            lowest = std::min(lowest, truth(place.x + dx, place.y + dy));
            highest = std::max(highest, truth(place.x + dx, place.y + dy));
        }
    return value > lowest - tolerance && value < highest + tolerance;
}

bool agreesWithLandscape(double volts, LabPoint place, double zUm) {
    constexpr double tolerance = 4 * labAdcStepVolts;      // a step and five times the noise
    constexpr double leastReading = 9.5 * labAdcStepVolts; // one digit counts as 0
    return isNear(volts, tolerance, place, [&](double x, double y) {
        const double expected = std::min(expectedVolts(x, y, laserLink.laserLevel, zUm), 5.0);
        return volts == 0.0 && expected < leastReading + tolerance ? 0.0 : expected;
    });
}

std::vector<std::vector<double>> numbersOf(const std::string& text) {
    std::vector<std::vector<double>> rows;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        rows.emplace_back();
        std::istringstream cells(line);
        for (std::string cell; std::getline(cells, cell, ',');)
            rows.back().push_back(std::stod(cell));
    }
    return rows;
}

std::string sessionFile(const std::string& prefix, const std::string& folder) {
    std::string found;
    for (const std::string& name : filesOnDesktop()) {
        const size_t slash = name.rfind('/');
        if (name.compare(slash + 1, prefix.size(), prefix) != 0) continue;
        if (name.find(folder) == std::string::npos || name.ends_with(".meta.txt")) continue;
        EXPECT_EQ(found, "") << "more than one " << prefix;
        found = name;
    }
    return found;
}
