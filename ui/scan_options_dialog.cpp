// Shows and takes the scan options.
#include "ui/scan_options_dialog.h"

#include "camera/live_view.h"
#include "mapping/scan_options.h"
#include "platform/text_format.h"
#include "platform/typed_number.h"
#include "screen/control_ids.h"
#include "screen/dialog.h"
#include "screen/screen.h"
#include "session/message_box.h"

#include <iterator>
#include <optional>

namespace {

constexpr const wchar_t* arrivalWays[] = {L"every 50 ms", L"as soon as it can be there"};

struct NumberEdit {
    int id;
    const char* name;
    int32_t ScanOptions::*value;
    int32_t lowest, highest;
};

constexpr NumberEdit numberEdits[] = {
    {idSettleTime, "Wait after arrival (ms)", &ScanOptions::settleMs, 0, longestScanWaitMs},
    {idReadingDelay, "Wait before the reading (ms)", &ScanOptions::beforeReadingMs, 0,
     longestScanWaitMs},
    {idReadingsPerPoint, "Readings per point", &ScanOptions::readingsPerPoint, 1,
     mostReadingsPerPoint},
};

bool askingBack = false; // a notice is open

void opened() {
    fillDialogList(idArrivalList, arrivalWays, static_cast<int>(std::size(arrivalWays)));
    selectInDialogList(idArrivalList, scanOptions.looksEarly ? 1 : 0);
    for (const NumberEdit& edit : numberEdits)
        setDialogText(edit.id, formatted("%d", scanOptions.*edit.value).c_str());
    checkInDialog(idUnitFileCheck, scanOptions.writesUnitFile);
}

void sayRange(const NumberEdit& edit) {
    askingBack = true;
    showMessageBox(mainWindow,
                   formatted("%s: %d to %d", edit.name, edit.lowest, edit.highest).c_str(),
                   "Scan options", BoxButtons::Ok);
    askingBack = false;
}

void takeOver() {
    ScanOptions chosen = scanOptions;
    for (const NumberEdit& edit : numberEdits) {
        const std::optional<int> typed = typedInteger(dialogText(edit.id, editCapacity));
        if (!typed || *typed < edit.lowest || *typed > edit.highest) return sayRange(edit);
        chosen.*edit.value = *typed;
    }
    chosen.looksEarly = selectedInDialogList(idArrivalList) == 1;
    chosen.writesUnitFile = isCheckedInDialog(idUnitFileCheck);
    scanOptions = chosen;
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
    if (id == idSet) takeOver();
    if (id == idCloseDialog) endDialog();
}
