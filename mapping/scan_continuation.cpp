// Puts a scan of an earlier run back into the program.
#include "mapping/scan_continuation.h"

#include "instruments/ammeter.h"
#include "mapping/map_saving.h"
#include "motion/axis.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/set_up.h"

#include <utility>

namespace {

// Whether the instrument is selected and gives a reading. It is opened where it has not been, or
// does not answer: one that is only selected may be switched off.
bool instrumentAnswers(int32_t kind) {
    const auto answers = [kind] {
        const bool open = instrumentLink.opened || !instrumentKind(kind).open;
        return instrumentLink.ammeterKind == kind && open && readPhotocurrent().answered;
    };
    if (answers()) return true;
    connectInstrument(kind);
    return answers();
}

bool refuse(const std::string& why) {
    showInformation(("Not continued: " + why).c_str());
    logEvent("Not continued: " + why);
    return false;
}

// It is the map in memory from then on, and its files go into its own folder.
void showScan(JournaledScan scan) {
    scan.map.saveCount = scanMap.saveCount;
    scan.map.folders = foldersIn(dataFolders, scan.folder);
    scanMap = std::move(scan.map);
}

} // namespace

bool takeOverScan(JournaledScan scan) {
    const ScanConditions& conditions = *scan.map.conditions;
    // The rows would lie across those that are there.
    if (controllers.axisOrder != conditions.axisOrder)
        return refuse("the axis order is not that of the scan (Configuration)");
    const std::string other = setUpDifference(conditions.setUpInForce, setUpWords(setUp));
    if (!other.empty()) return refuse("the set-up is another one, " + other);
    if (!instrumentAnswers(conditions.ammeterKind))
        return refuse("the scan's instrument does not answer: " +
                      narrowed(instrumentKind(conditions.ammeterKind).name));
    if (!askSettings()) return refuse("the instrument does not say what is set at it");
    if (instrumentLink.inVolts != conditions.inVolts)
        return refuse("the values would not be in the unit of the scan (amplifier, input)");
    putInForce(conditions);
    showScan(std::move(scan));
    return true;
}

bool recoverScan(const LeftJournal& left) {
    std::optional<JournaledScan> scan = readScanJournal(left);
    if (!scan) return false;
    const int points = scan->points;
    showScan(std::move(*scan));
    scanMap.outcome.end = ProcessEnd::CutOff;
    scanArea = scanMap.conditions->area;
    const SamplePlace& home = scanMap.conditions->home;
    if (scanArea.placed && home.isKnown()) // it stays there, whatever has become of the stage
        scanArea.part = {home.by({scanArea.offsetXUm, scanArea.offsetYUm}),
                         (scanArea.cols - 1) * scanArea.scanStep,
                         (scanArea.rows - 1) * scanArea.scanStep};
    const bool saved = saveScan(Asking::Quietly).numbers;
    if (saved) removeLeftJournal(left);
    showInformation(
        formatted(saved ? "Recovered: %d of %d points" : "Not all files written: the journal stays",
                  points, scanArea.totalPoints)
            .c_str());
    // It may be scanned again, with the laser spot of today; under another set-up it would be
    // another place.
    if (scanMap.conditions->setUpInForce != setUpWords(setUp))
        scanArea = {.scanStep = scanArea.scanStep, .mapMaxPx = scanArea.mapMaxPx};
    computeScanArea(scanArea);
    return true;
}
