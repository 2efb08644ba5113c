// A list measures each row at its own place with its own settings into a folder of its own, its
// record says so, and a pause and the end are dark.
#include "tests/simulation/judge/lists.h"

#include "instruments/kinds.h"
#include "lists/list_run.h"
#include "mapping/scan_map.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "session/document.h"
#include "session/pause.h"
#include "tests/doubles/gwy_reader.h"
#include "tests/simulation/judge/judge.h"

#include <algorithm>
#include <map>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace {

using Cells = std::map<std::pair<size_t, size_t>, double>; // column and map row: SI

class Lists : public Checker {
public:
    explicit Lists(Judge& all) : judge(all) {}

    void broken() override {
        busDoubtful |= judge.blamesBus();
        lookAtFiles();
    }

    void commandComes(int id) override {
        askedForLaser |= id == idLaserOn || id == idLaserView || id == idSampleView;
    }

    void causeEnds() override {
        intensityTyped |= judge.causes.back().what.find("intensity") != std::string::npos;
    }

    // Also that of a row.
    void processBegins() override {
        busDoubtful = judge.blamesBus();
        intensityTyped = biasRefused = false;
        pwmSeen = 0;
        darkSinceMs = -1;
    }

    void fieldIsShown(Field field) override {
        if (field == Field::Information)
            biasRefused |= textIn(Field::Information).find("Bias refused") != std::string::npos;
    }

    void boxOpens(const ShownBox& box) override {
        skipsRows |= box.text.starts_with("Does the whole list end");
        const bool itsOwn = !judge.causes.empty() && judge.causes.back().what == listName;
        const auto begins = [&box](const char* part) { return box.text.starts_with(part); };
        if (itsOwn && judge.rowOfList() && !begins("Do") && !begins("Hysteresis"))
            judge.find(Rule::List, "a box holds the night up: " + box.text);
    }

    void look() override {
        lookAtFiles();
        if (const int pwm = labLaserPwm(); pwm != 0) pwmSeen = pwm;
        if (!judge.list || !judge.runningList()) return;
        rowsBegan |= judge.rowOfList().has_value();
        if (!judge.listWaits()) {
            darkSinceMs = -1;
            return;
        }
        if (darkSinceMs < 0) {
            darkSinceMs = testTimeMs();
            judge.count(isPaused() ? "pauses of lists" : "waits of lists");
        }
        constexpr double longEnoughMs = 1500;
        if (testTimeMs() - darkSinceMs < longEnoughMs) return;
        const bool keeps = judge.list->list.keepsBiasInAPause && isPaused();
        judgeDark(isPaused() ? "in a pause" : "between repeats", keeps);
    }

    void cellIsMarked(size_t c, size_t m, PointMark mark) override {
        askedForLaser = false; // whoever did so did it before this point
        const std::optional<size_t> row = judge.rowOfList();
        if (!row) return;
        const ListRow& of = judge.list->list.rows[*row];
        const ScanConditions& scan = *scanMap.conditions;
        if (row == judge.list->beyondLimit || of.kind != ListKind::Map)
            judge.find(Rule::List, "a row is mapped that is none");
        if (scan.area.cols != static_cast<int>(of.columns) ||
            scan.area.rows != static_cast<int>(of.rows) || scan.area.scanStep != of.stepUm)
            judge.find(Rule::List, "another area than the row's");
        const double firsts[] = {scan.firstXUm(), scan.firstYUm()};
        for (const int axis : {labX, labY})
            if (const double is = firsts[axis], own = judge.list->places[*row][axis];
                std::fabs(is - own) > 0.1)
                judge.find(Rule::List, formatted("%s of the row begins at %.2f um and not at %.2f",
                                                 judge.axes[axis].name, is, own));
        lookAtLevel(of);
        if (mark == PointMark::Measured)
            cells[fileNameOf(foldersOfMap().sessionFolder)][{c, m}] =
                static_cast<double>(scanMap.maps[planePhotocurrent][c][m]) / mainChannel().scale;
    }

    void cellCounts(const Taken* taken, size_t count) override {
        const std::optional<size_t> row = judge.rowOfList();
        if (!row || !instrumentKind(instrumentLink.ammeterKind).applyBias) return;
        if (busDoubtful || biasRefused || judge.biasSaidLost) return;
        const double own = judge.list->list.rows[*row].biasVolts;
        for (size_t i = 0; i < count; ++i)
            if (std::fabs(taken[i].biasVolts - own) > 1e-3)
                judge.find(Rule::List, formatted("%g V at a row of %g V", taken[i].biasVolts, own));
        judge.count("points of lists judged");
    }

    void processEnds(const Cause& cause, const std::string&) override {
        if (cause.what != listName) return;
        if (std::exchange(rowsBegan, false)) judgeDark("at the list's end", false);
        ends();
    }

    void ends() override {
        if (!judge.list) return;
        for (const std::string& name : recordsOnDesktop())
            if (recordsSeen.insert(name).second && !filesBroke) judgeRecord(contentOf(name));
        skipsRows = false;
    }

private:
    void lookAtFiles() { filesBroke |= foldersRefused || diskFull || !refusedFile.empty(); }

    void lookAtLevel(const ListRow& row) {
        if (intensityTyped || judge.boardDoubtful || judge.boardSaidLost || pwmSeen == 0) return;
        const double level = row.laserUa / 20.0 * 255.0; // 4 uA a volt, 5 V
        if (std::fabs(pwmSeen - level) > 1.01)
            judge.find(Rule::List, formatted("the laser is at %d of 255, and the row's is %.0f",
                                             pwmSeen, level));
    }

    void judgeDark(const char* when, bool keepsBias) {
        if (labLaserPwm() != 0 && !askedForLaser && !judge.boardSaidLost && !judge.boardDoubtful)
            judge.find(Rule::List, std::string("the laser is on ") + when);
        if (labBiasVolts() != 0.0 && !keepsBias && !judge.biasSaidLost && !busDoubtful)
            judge.find(Rule::List, formatted("%g V ", labBiasVolts()) + when);
    }

    void judgeRecord(const std::string& record) {
        for (const std::string& wrong : wrongIn(record, *judge.list, skipsRows))
            judge.find(Rule::List, wrong);
        for (const RecordedRow& line : rowsIn(record)) {
            const auto index = static_cast<size_t>(line.row - 1);
            const ListRow& row = judge.list->list.rows.at(index);
            judge.count("rows of lists: " + line.how.substr(0, line.how.find(',')));
            if (index == judge.list->beyondLimit && line.how.starts_with("finished"))
                judge.find(Rule::List, "a row beyond a limit is finished");
            if (row.kind != ListKind::Map) continue;
            const std::vector<std::string> maps = mapsIn(line.folder);
            if (maps.empty() && line.isSound())
                judge.find(Rule::List, formatted("row %d is finished and has no map", line.row));
            for (const std::string& map : maps) judgeMap(map, line, row);
        }
    }

    void judgeMap(const std::string& name, const RecordedRow& line, const ListRow& row) {
        const auto columns = static_cast<size_t>(row.columns);
        const size_t count = columns * static_cast<size_t>(row.rows);
        GwyContent file;
        try {
            file = readGwy(contentOf(name));
        } catch (const std::runtime_error&) {
            return judge.find(Rule::List, "no map: " + name);
        }
        const std::vector<double>& values = file.arrays["/0/data data"];
        const std::vector<double>& mask = file.arrays["/0/mask data"];
        if (values.size() != count || file.numbers["/0/data xres"] != row.columns)
            return judge.find(Rule::List, "another size: " + name);
        if (line.isSound() && std::count(mask.begin(), mask.end(), 1.0) != 0)
            judge.find(Rule::List, "finished, and cells are in doubt: " + name);
        for (const auto& [cell, value] : cells[line.folder]) {
            const size_t at = cell.second * columns + cell.first;
            if (!mask.empty() && mask[at] == 1.0) continue; // put in doubt later
            if (std::fabs(values[at] - value) > 1e-5 * std::fabs(value) + 1e-15)
                judge.find(Rule::List,
                           formatted("a file says %g, measured was %g: ", values[at], value) +
                               name);
            judge.count("cells of lists' files judged");
        }
    }

    Judge& judge;
    std::map<std::string, Cells> cells; // by their folder
    double darkSinceMs = -1;
    bool rowsBegan = false; // of the list that runs
    int pwmSeen = 0;        // the last that was not 0, in the row
    bool askedForLaser = false, intensityTyped = false, biasRefused = false, busDoubtful = false;
    std::set<std::string> recordsSeen;
    bool skipsRows = false;  // the operator has ended one
    bool filesBroke = false; // since the day began
};

} // namespace

bool RecordedRow::isDone() const {
    for (const char* cut : {"window closed", "stopped, the computer", "forced end"})
        if (how.starts_with(cut)) return false;
    return how != "declined"; // the operator said No, and may go on with the list later
}

std::vector<RecordedRow> rowsIn(const std::string& record) {
    std::vector<RecordedRow> rows;
    std::istringstream lines(record);
    for (std::string line; std::getline(lines, line);) {
        std::vector<std::string> cells;
        std::istringstream text(line);
        for (std::string cell; std::getline(text, cell, '\t');) cells.push_back(cell);
        if (cells.size() == 7 && cells[0] != "row")
            rows.push_back({std::stoi(cells[0]), std::stoi(cells[1]), cells[5], cells[6]});
    }
    return rows;
}

std::vector<std::string> recordsOnDesktop() {
    std::vector<std::string> records;
    for (const std::string& name : filesOnDesktop())
        if (name.starts_with(std::string(listFolder) + "night-")) records.push_back(name);
    return records;
}

std::vector<std::string> mapsIn(const std::string& folder) {
    std::vector<std::string> maps;
    for (const std::string& name : filesOnDesktop())
        if (name.starts_with("KST_Data/" + folder + "/") && name.ends_with(".gwy"))
            maps.push_back(name);
    return maps;
}

std::vector<std::string> wrongIn(const std::string& record, const ListAtWork& of, bool skipsRows) {
    std::vector<std::string> wrong;
    std::set<std::string> folders;
    std::map<std::pair<int, int>, int> done;
    for (const RecordedRow& line : rowsIn(record)) {
        if (!folders.insert(line.folder).second)
            wrong.push_back("two rows name the folder " + line.folder);
        skipsRows |= line.how.starts_with("stopped");
        if (line.isDone() && ++done[{line.row, line.repeat}] == 2)
            wrong.push_back(formatted("row %d, repeat %d is done twice", line.row, line.repeat));
    }
    if (skipsRows || record.find("\tScan list finished") == std::string::npos) return wrong;
    for (size_t row = 0; row < of.list.rows.size(); ++row)
        for (int repeat = 1; repeat <= static_cast<int>(of.list.rows[row].repeats); ++repeat)
            if (done[{static_cast<int>(row + 1), repeat}] != (of.list.rows[row].on ? 1 : 0))
                wrong.push_back(formatted("row %d, repeat %d is not in the record of a list that "
                                          "is finished",
                                          static_cast<int>(row + 1), repeat));
    return wrong;
}

std::unique_ptr<Checker> checkLists(Judge& judge) {
    return std::make_unique<Lists>(judge);
}
