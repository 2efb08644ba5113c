// Draws a list, lets it run, and looks at what became of it after a power cut.
#include "tests/simulation/day/list_day.h"
#include "actions/measurements.h"

#include "instruments/kinds.h"
#include "lists/list_run.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "screen/control_ids.h"
#include "session/pause.h"
#include "session/process.h"
#include "session/set_up.h"
#include "tests/doubles/gwy_reader.h"
#include "tests/simulation/day/swarm.h"
#include "tests/simulation/judge/judge.h"
#include "ui/set_up_change.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace {

constexpr double limitUm = 150; // from where the stage stands

} // namespace

ListRow ListDay::drawnRow(const Swarm& swarm) {
    ListRow row;
    row.kind = dice.oneOf(
        {ListKind::Map, ListKind::Map, ListKind::Map, ListKind::IvCurve, ListKind::Series});
    row.stepUm = dice.oneOf({1.0, 2.0, 4.0, 7.5});
    row.columns = dice.from(2, swarm.confocal ? 3 : 6);
    row.rows = dice.from(1, swarm.confocal ? 2 : 4);
    row.laserUa = dice.oneOf({4.0, 8.0, 16.0, 20.0});
    row.biasVolts = dice.oneOf({0.0, 0.3, -0.5});
    row.limitAmperes = dice.oneOf({1e-4, 1e-3});
    if (dice.percent(30)) row.repeats = 2;
    row.everyMinutes = dice.oneOf({0.0, 0.2, 0.4});
    row.quarterPoints = dice.from(1, 3);
    row.onSeconds = 1.0;
    row.offSeconds = 0.5;
    row.lightCycles = dice.from(1, 2);
    row.on = !dice.percent(10);
    return row;
}

// Around where the stage stands.
ListAtWork ListDay::drawn(const Swarm& swarm) {
    ListAtWork drawn;
    drawn.list.name = "night";
    drawn.list.goesOnAfterFailure = dice.percent(80);
    drawn.list.keepsBiasInAPause = dice.percent(40);
    const int count = dice.from(2, 4);
    for (int i = 0; i < count; ++i) {
        ListRow row = drawnRow(swarm);
        if (i == 0) row.kind = ListKind::Map;
        if (i == 0) row.on = true;
        if (i > 0 && dice.percent(12)) drawn.beyondLimit = drawn.list.rows.size();
        const bool beyond = drawn.beyondLimit == drawn.list.rows.size();
        const double x = stageX.positionUm + (beyond ? limitUm + 10 : dice.from(-60, 60));
        const double y = stageY.positionUm + dice.from(-60, 60);
        row.xUm = ofController(stageX, x);
        row.yUm = ofController(stageY, y);
        if (dice.percent(20)) row.zUm = ofController(stageZ, stageZ.positionUm) + dice.from(-2, 2);
        drawn.list.rows.push_back(row);
        drawn.places.push_back({x, y});
    }
    return drawn;
}

void ListDay::begins(const Swarm& swarm, Judge& judge) {
    if (stageIsBusy()) return;
    const ListAtWork next = drawn(swarm);
    if (next.beyondLimit) {
        SetUp limited = setUp;
        limited.ranges[labX].highest = ofController(stageX, stageX.positionUm) + limitUm;
        takeSetUp(limited);
    }
    judge.list = next;
    judge.lists.push_back(next);
    std::string rows;
    for (const ListRow& row : next.list.rows) rows += "\n              " + lineOf(row);
    judge.note("starts a list" + rows);
    judge.begin({listName, allAxes, true});
    startListRun([&] { return startScanList(next.list); });
    judge.end();
}

void ListDay::pauses(Judge& judge) {
    if (!processUnderWay() || isPaused()) return;
    const int id = dice.oneOf({idPause, idPause, idPauseBehindRow});
    judge.note(formatted("command %d: pause", id));
    postCommand(id);
    in(dice.from(500, 9000), [&judge] {
        if (!isPaused()) return;
        judge.note("resumes");
        postCommand(idPause);
    });
}

void ListDay::stops(Judge& judge) {
    if (!processUnderWay()) return;
    judge.note("clicks for a stop");
    stopWanted = true;
    postClick(100, 100);
}

void ListDay::plan(double firstMs, double lastMs, const Swarm& swarm, Judge& judge) {
    judge.count("days of lists");
    for (double ms = firstMs; ms < lastMs; ms += 20000)
        at(ms, [&] { postCall([&] { begins(swarm, judge); }); });
    for (int left = dice.below(5); left > 0; --left)
        at(firstMs + dice.below(static_cast<int>(lastMs - firstMs)), [&] { pauses(judge); });
    if (dice.percent(30))
        at(firstMs + dice.below(static_cast<int>(lastMs - firstMs)), [&] { stops(judge); });
    // Nobody forgets a pause for long.
    for (double ms = firstMs; ms < lastMs; ms += 10000)
        at(ms, [] {
            in(9500, [] {
                if (isPaused()) postCommand(idPause);
            });
        });
}

std::optional<BoxAnswer> ListDay::answers(const ShownBox& box) {
    if (!happens) return {};
    if (box.text.starts_with("Do you want to stop") && stopWanted) {
        stopWanted = false;
        return BoxAnswer::Yes;
    }
    if (box.text.starts_with("Does the whole list end"))
        return dice.percent(60) ? BoxAnswer::No : BoxAnswer::Yes;
    return {};
}

namespace {

// As its file has them, all of them.
std::string rowsOf(const ScanList& list) {
    std::string text;
    for (const ListRow& row : list.rows) text += "\n" + lineOf(row);
    return text + "\n#";
}

} // namespace

bool ListAfterCut::isLeft() const {
    return contentOf(std::string(listFolder) + "Unfinished.txt").find("\n#place ") !=
           std::string::npos;
}

void ListAfterCut::goOn(double atMs, const Action& ended) {
    left = contentOf(std::string(listFolder) + "Unfinished.txt");
    const size_t begin = left.find("#record ") + std::string("#record ").size();
    record = listFolder + left.substr(begin, left.find('\n', begin) - begin);
    at(atMs, [this] {
        counted[0] = ofController(stageX, stageX.positionUm) - labStageUm(labX);
        counted[1] = ofController(stageY, stageY.positionUm) - labStageUm(labY);
        postCommand(idContinueList);
    });
    when(
        [this] {
            const std::string text = contentOf(record);
            const size_t goesOn = text.find("continued after it was cut off");
            return goesOn != std::string::npos &&
                   text.find("\tScan list ", goesOn) != std::string::npos && !processUnderWay();
        },
        ended);
}

std::vector<std::string> ListAfterCut::wrong(const std::vector<ListAtWork>& begun, int kind,
                                             bool takesUpPlay,
                                             std::map<std::string, uint64_t>& counts) const {
    const std::string text = contentOf(record);
    // Another may have begun since the cut: the day went on without it.
    const auto found = std::find_if(begun.rbegin(), begun.rend(), [this](const ListAtWork& each) {
        return left.find(rowsOf(each.list)) != std::string::npos;
    });
    if (found == begun.rend()) return {"it is none of those that began: " + left};
    const ListAtWork& list = *found;
    std::vector<std::string> wrong = wrongIn(text, list, false);
    for (std::string& each : wrong) each += ": " + text;
    const size_t goesOn = text.find("continued after it was cut off");
    // The instrument of the start, and not the one that was chosen later: it is refused, and said.
    const std::string with = "#measured with " + narrowed(instrumentKind(kind).name);
    if (goesOn == std::string::npos && left.find(with) == std::string::npos) return wrong;
    if (goesOn == std::string::npos) return {"the list did not go on: " + text};
    if (text.find("\tScan list finished", goesOn) == std::string::npos &&
        list.list.goesOnAfterFailure)
        wrong.push_back("the list did not end: " + text);
    ++counts["lists continued"];
    for (const RecordedRow& line : rowsIn(text.substr(goesOn))) {
        ++counts["rows measured in them"];
        const auto index = static_cast<size_t>(line.row - 1);
        const ListRow& row = list.list.rows.at(index);
        if (index == list.beyondLimit && line.isSound())
            wrong.push_back("a row beyond a limit is measured");
        if (row.kind != ListKind::Map || index == list.beyondLimit || !takesUpPlay) continue;
        const std::vector<std::string> maps = mapsIn(line.folder);
        if (maps.empty() && line.isSound()) wrong.push_back("no map: " + text);
        for (const std::string& map : maps)
            if (const std::string why = wrongMap(map, row, kind); !why.empty())
                wrong.push_back(why + " in " + map);
    }
    return wrong;
}

std::string ListAfterCut::wrongMap(const std::string& name, const ListRow& row, int kind) const {
    GwyContent file;
    try {
        file = readGwy(contentOf(name));
    } catch (const std::runtime_error&) {
        return "no map";
    }
    // What was measured before the cut may have been spoilt by what was broken then.
    if (file.texts.contains("/0/meta Continued") || row.zUm) return "";
    const bool current = kind == kindGpibMultimeter || kind == kindGpibSourcemeter ||
                         kind == kindUsbSourcemeter || kind == kindAnalyzerEthernet;
    if (!current && kind != kindArduino) return "";
    const double bias = kind == kindGpibMultimeter ? 0.0 : row.biasVolts;
    const double level = row.laserUa / 4.0; // 4 uA a volt
    const double z = labStageUm(labZ);      // as the list began

    const std::vector<double>& values = file.arrays["/0/data data"];
    const std::vector<double>& mask = file.arrays["/0/mask data"];
    const auto columns = static_cast<size_t>(row.columns), rows = static_cast<size_t>(row.rows);
    if (values.size() != columns * rows) return "another size";
    const LabPixel spot = labSpotPixel();
    for (size_t i = 0; i < values.size(); ++i) {
        if (!mask.empty() && mask[i] == 1.0) continue;
        const double x = row.xUm - counted[0] + static_cast<double>(i % columns) * row.stepUm +
                         (spot.column - labCentreColumn) * labUmPerPixel;
        const double y = row.yUm - counted[1] +
                         static_cast<double>(rows - 1 - i / columns) * row.stepUm +
                         (spot.row - labCentreRow) * labUmPerPixel;
        double lowest = 1e9, highest = -1e9;
        for (const double dx : {-0.2, 0.0, 0.2})
            for (const double dy : {-0.2, 0.0, 0.2}) {
                const double is = current ? expectedCurrent(x + dx, y + dy, level, z, bias)
                                          : std::min(expectedVolts(x + dx, y + dy, level, z), 5.0);
                lowest = std::min(lowest, is);
                highest = std::max(highest, is);
            }
        const double hair = current ? 0.02e-6 + 0.01 * std::fabs(highest) : 4 * labAdcStepVolts;
        const bool dark = !current && values[i] == 0.0 && lowest < 14 * labAdcStepVolts;
        if (!dark && (values[i] < lowest - hair || values[i] > highest + hair))
            return formatted("a cell says %g, true is %g to %g", values[i], lowest, highest);
    }
    return "";
}
