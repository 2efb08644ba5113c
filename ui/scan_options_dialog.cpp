// Shows and takes the scan options.
#include "ui/scan_options_dialog.h"

#include "camera/live_view.h"
#include "door/door.h"
#include "instruments/ammeter.h"
#include "mapping/occasion.h"
#include "mapping/scan_options.h"
#include "mapping/scan_plan.h"
#include "platform/text_format.h"
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
constexpr int numberEdits[] = {idSettleTime, idReadingDelay, idReadingsPerPoint, idRunIn,
                               idSettledEdit};
static_assert(std::size(numberEdits) == std::size(scanNumbers));

bool askingBack = false; // a notice is open

// How long a point waits for the lock-in amplifier's filter with what is typed.
void showSettling() {
    const InstrumentSettings& settings = instrumentLink.settings;
    const ScanNumber& beforeReading = scanNumbers[1];
    const ScanNumber& settled = scanNumbers[std::size(scanNumbers) - 1];
    const std::optional<int32_t> typed = settled.typed(dialogText(idSettledEdit, editCapacity));
    std::string text = "no lock-in connected";
    if (settings.poles > 0 && typed && *typed > 0) {
        ScanOptions chosen{.settledTenths = *typed};
        const std::string wait = dialogText(idReadingDelay, editCapacity);
        chosen.beforeReadingMs = beforeReading.typed(wait).value_or(0);
        text = formatted("%u ms", readingDelayMs(chosen, settings));
    }
    if (settings.poles > 0 && typed && *typed == 0) text = "the wait above";
    if (settings.poles > 0 && !typed) text.clear();
    setDialogText(idSettledText, text.c_str());
}

void opened() {
    fillDialogList(idArrivalList, arrivalWays, static_cast<int>(std::size(arrivalWays)));
    selectInDialogList(idArrivalList, scanSettings.options.looksEarly ? 1 : 0);
    for (size_t i = 0; i < std::size(scanNumbers); ++i)
        setDialogText(numberEdits[i],
                      scanNumbers[i].textOf(scanSettings.options.*scanNumbers[i].value).c_str());
    checkInDialog(idUnitFileCheck, scanSettings.options.writesUnitFile);
    constexpr const wchar_t* channels[] = {L"R", L"X", L"Y", L"theta"};
    static_assert(std::size(channels) == std::size(mainChannels));
    fillDialogList(idMainChannelList, channels, static_cast<int>(std::size(channels)));
    selectInDialogList(idMainChannelList, scanSettings.options.mainChannel);
    checkInDialog(idAuxChannelCheck, scanSettings.options.auxChannel);
    setDialogText(idSampleEdit, occasion.sample.c_str());
    setDialogText(idNoteEdit, occasion.note.c_str());
    checkInDialog(idPauseBiasCheck, scanSettings.options.keepsBiasInAPause);
    checkInDialog(idScriptsCheck, doorSettings.isOpen);
    checkInDialog(idScriptsSwitchCheck, doorSettings.maySwitch);
    showSettling();
}

// At once. The file of the options has them, too; false when it was not written.
bool takeDoorSettings() {
    const DoorSettings before = doorSettings;
    doorSettings.isOpen = isCheckedInDialog(idScriptsCheck);
    doorSettings.maySwitch = isCheckedInDialog(idScriptsSwitchCheck);
    if (doorSettings == before) return true;
    if (doorSettings.maySwitch != before.maySwitch)
        logEvent(std::string("Scripts may ") + (doorSettings.maySwitch ? "" : "not ") +
                 "switch laser and bias");
    followDoorSettings();
    return writeDoorSettings();
}

void showRange(const ScanNumber& of) {
    askingBack = true;
    showMessageBox(
        windows.main,
        (std::string(of.label) + ": " + of.textOf(of.lowest) + " to " + of.textOf(of.highest))
            .c_str(),
        "Scan options", BoxButtons::Ok);
    askingBack = false;
}

void takeOver() {
    ScanOptions chosen = scanSettings.options;
    for (size_t i = 0; i < std::size(scanNumbers); ++i) {
        const ScanNumber& number = scanNumbers[i];
        const std::optional<int32_t> typed = number.typed(dialogText(numberEdits[i], editCapacity));
        if (!typed) return showRange(number);
        chosen.*number.value = *typed;
    }
    chosen.looksEarly = selectedInDialogList(idArrivalList) == 1;
    chosen.writesUnitFile = isCheckedInDialog(idUnitFileCheck);
    chosen.mainChannel = selectedInDialogList(idMainChannelList);
    chosen.auxChannel = isCheckedInDialog(idAuxChannelCheck);
    chosen.keepsBiasInAPause = isCheckedInDialog(idPauseBiasCheck);
    scanSettings.options = chosen;
    const std::string runIn = chosen.runInUm == 0 ? "one step" : formatted("%d um", chosen.runInUm);
    logEvent(formatted("Scan options: %s, wait %d ms and %d ms, %d readings per point, run-in %s%s",
                       chosen.looksEarly ? "early looks" : "looks every 50 ms", chosen.settleMs,
                       chosen.beforeReadingMs, chosen.readingsPerPoint, runIn.c_str(),
                       chosen.writesUnitFile ? ", .gwy" : "") +
             formatted("; lock-in: %s, %g %%%s", mainChannels[chosen.mainChannel],
                       chosen.settledTenths / 10.0, chosen.auxChannel ? ", aux 1" : ""));
    constexpr int wordCapacity = 200;
    const bool kept =
        keepOccasion(dialogText(idSampleEdit, wordCapacity), dialogText(idNoteEdit, wordCapacity));
    const bool doorWritten = takeDoorSettings();
    if (!writeScanOptions() || !kept || !doorWritten)
        showInformation("Options.ini could not be written");
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
    if (id == idSettledEdit || id == idReadingDelay) showSettling();
    if (id == idSet && processUnderWay()) return refuseForProcess(); // begun from another window
    if (id == idSet) takeOver();
    if (id == idCloseDialog) endDialog();
}
