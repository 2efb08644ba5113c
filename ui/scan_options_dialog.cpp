// Shows and takes the scan options.
#include "ui/scan_options_dialog.h"

#include "camera/live_view.h"
#include "mapping/scan_options.h"
#include "platform/text_format.h"
#include "platform/typed_number.h"
#include "screen/control_ids.h"
#include "screen/dialog.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/message_box.h"
#include "session/process.h"

#include <iterator>
#include <optional>

namespace {

constexpr const wchar_t* arrivalWays[] = {L"every 50 ms", L"as soon as it can be there"};

// Of the numbers, in their order.
constexpr int numberEdits[] = {idSettleTime, idReadingDelay, idReadingsPerPoint, idRunIn};
static_assert(std::size(numberEdits) == std::size(scanNumbers));

bool askingBack = false; // a notice is open

void opened() {
    fillDialogList(idArrivalList, arrivalWays, static_cast<int>(std::size(arrivalWays)));
    selectInDialogList(idArrivalList, scanSettings.options.looksEarly ? 1 : 0);
    for (size_t i = 0; i < std::size(scanNumbers); ++i)
        setDialogText(numberEdits[i],
                      formatted("%d", scanSettings.options.*scanNumbers[i].value).c_str());
    checkInDialog(idUnitFileCheck, scanSettings.options.writesUnitFile);
}

void showRange(const ScanNumber& of) {
    askingBack = true;
    showMessageBox(windows.main, formatted("%s: %d to %d", of.label, of.lowest, of.highest).c_str(),
                   "Scan options", BoxButtons::Ok);
    askingBack = false;
}

void takeOver() {
    ScanOptions chosen = scanSettings.options;
    for (size_t i = 0; i < std::size(scanNumbers); ++i) {
        const ScanNumber& number = scanNumbers[i];
        const std::optional<int> typed = typedInteger(dialogText(numberEdits[i], editCapacity));
        if (!typed || !number.allows(*typed)) return showRange(number);
        chosen.*number.value = *typed;
    }
    chosen.looksEarly = selectedInDialogList(idArrivalList) == 1;
    chosen.writesUnitFile = isCheckedInDialog(idUnitFileCheck);
    scanSettings.options = chosen;
    const std::string runIn = chosen.runInUm == 0 ? "one step" : formatted("%d um", chosen.runInUm);
    logEvent(formatted("Scan options: %s, wait %d ms and %d ms, %d readings per point, run-in %s%s",
                       chosen.looksEarly ? "early looks" : "looks every 50 ms", chosen.settleMs,
                       chosen.beforeReadingMs, chosen.readingsPerPoint, runIn.c_str(),
                       chosen.writesUnitFile ? ", .gwy" : ""));
    if (!writeScanOptions()) showInformation("Options.ini could not be written");
    endDialog();
}

constexpr DialogFace face{idScanOptionsDialog, opened, onScanOptionsCommand,
                          [](int) { onScanOptionsCommand(idSet); }, [] { return askingBack; }};

} // namespace

void chooseScanOptions() {
    runDialog(face);
}

void onScanOptionsCommand(int id) {
    if (askingBack) return;
    resetIdle();
    if (id == idSet && processUnderWay()) return refuseForProcess(); // begun from another window
    if (id == idSet) takeOver();
    if (id == idCloseDialog) endDialog();
}
