// Shows and takes the colours of the maps.
#include "ui/colours_dialog.h"

#include "camera/live_view.h"
#include "mapping/map_look.h"
#include "mapping/map_place.h"
#include "mapping/map_rendering.h"
#include "platform/si_prefix.h"
#include "platform/text_format.h"
#include "platform/typed_number.h"
#include "platform/widen.h"
#include "screen/control_ids.h"
#include "screen/dialog.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/message_box.h"
#include "session/process.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

bool askingBack = false; // a notice is open

// Of the numbers in the dialog: those of the map that is shown.
struct {
    std::string si;
    PrefixedUnit unit;
    double from = 0.0, to = 0.0; // SI, as they were filled in
} range;

// The ends by hand where the map has that unit, otherwise all that it has.
void findRange() {
    const ScanMap& map = shownMap();
    size_t plane = planeShown(map, std::max(shownMapChannel(), 0));
    if (!unitOfPlane(map, plane)) plane = planePhotocurrent; // a colour has none
    const std::optional<Unit> unit = unitOfPlane(map, plane);
    range.si = unit ? unit->si : mapLook.unit;
    range.from = mapLook.from;
    range.to = mapLook.to;
    if (unit && (mapLook.range != RangeWay::ByHand || range.si != mapLook.unit)) {
        const size_t rows = map.marks.empty() ? 0 : map.marks.front().size();
        const Extremes all = extremesOf(map, plane, 0, rows);
        range.from = unit->inSi(static_cast<double>(all.lowest));
        range.to = unit->inSi(static_cast<double>(all.highest));
        if (unit->falls()) std::swap(range.from, range.to);
    }
    range.unit = prefixedUnit(std::max(std::fabs(range.from), std::fabs(range.to)), range.si);
}

std::string shownAs(double si) {
    return formatted("%.5g", si / range.unit.factor);
}

void showWhetherByHand() {
    const bool byHand = selectedInDialogList(idRangeList) == static_cast<int>(RangeWay::ByHand);
    enableInDialog(idRangeFrom, byHand);
    enableInDialog(idRangeTo, byHand);
}

void opened() {
    std::vector<std::string> names;
    for (const Palette& palette : palettes()) names.emplace_back(palette.name);
    refillDialogList(idPaletteList, names);
    selectInDialogList(idPaletteList, mapLook.palette);
    fillDialogList(idRangeList, rangeWays, static_cast<int>(std::size(rangeWays)));
    selectInDialogList(idRangeList, static_cast<int>(mapLook.range));
    findRange();
    setDialogText(idRangeFrom, shownAs(range.from).c_str());
    setDialogText(idRangeTo, shownAs(range.to).c_str());
    setDialogText(idRangeUnit, range.unit.name.c_str());
    checkInDialog(idOneScaleCheck, mapLook.oneScale);
    checkInDialog(idLegendCheck, mapLook.legend);
    showWhetherByHand();
}

// Of an end that nobody has typed over the number as it was, with all its digits.
std::optional<double> endIn(int id, double asFilled) {
    const std::string text = dialogText(id, editCapacity);
    if (text == shownAs(asFilled)) return asFilled;
    const std::optional<float> typed = typedNumber(text);
    if (!typed || !std::isfinite(*typed)) return {};
    return static_cast<double>(*typed) * range.unit.factor;
}

void takeOver() {
    MapLook chosen = mapLook;
    chosen.palette = std::max(selectedInDialogList(idPaletteList), 0);
    chosen.range = static_cast<RangeWay>(std::max(selectedInDialogList(idRangeList), 0));
    chosen.oneScale = isCheckedInDialog(idOneScaleCheck);
    chosen.legend = isCheckedInDialog(idLegendCheck);
    if (chosen.range == RangeWay::ByHand) {
        const std::optional<double> from = endIn(idRangeFrom, range.from);
        const std::optional<double> to = endIn(idRangeTo, range.to);
        if (!from || !to || !(*from < *to)) {
            askingBack = true;
            showMessageBox(windows.main, "Range by hand: two numbers, the lower one first",
                           "Colours", BoxButtons::Ok);
            askingBack = false;
            return;
        }
        chosen.from = *from;
        chosen.to = *to;
        chosen.unit = range.si;
    }
    mapLook = chosen;
    logEvent(std::string("Colours: ") + palettes()[static_cast<size_t>(chosen.palette)].name +
             ", range " + narrowed(rangeWays[static_cast<size_t>(chosen.range)]));
    if (!writeMapLook()) showInformation("Options.ini could not be written");
    endDialog();
}

constexpr DialogFace face{idColoursDialog, opened, onColoursCommand,
                          [](int) { onColoursCommand(idSet); }, [] { return askingBack; }};

} // namespace

void chooseColours() {
    const MapLook before = mapLook;
    runDialog(face);
    if (mapLook == before || processUnderWay()) return;
    repaintMapWindow();
    repaintConfocalWindow();
}

void onColoursCommand(int id) {
    if (askingBack) return;
    resetIdle();
    if (id == idRangeList) showWhetherByHand();
    if (id == idSet && processUnderWay()) return refuseForProcess(); // begun from another window
    if (id == idSet) takeOver();
    if (id == idCloseDialog) endDialog();
}
