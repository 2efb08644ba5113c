// Shows the places and goes to them.
#include "ui/places_window.h"

#include "camera/camera.h"
#include "camera/display.h"
#include "camera/live_view.h"
#include "camera/picture_file.h"
#include "mapping/scan_area.h"
#include "motion/focus_plane.h"
#include "motion/places.h"
#include "motion/stage.h"
#include "motion/travel.h"
#include "platform/files.h"
#include "platform/surface_owners.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "screen/screen.h"
#include "session/announce.h"
#include "session/day_log.h"
#include "session/document.h"
#include "session/message_box.h"
#include "session/process.h"
#include "ui/commands.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>

namespace {

using enum ToolControl::Kind;

constexpr int margin = 10, height = 22;
constexpr int tableWidth = 626, tableHeight = 257, tableTop = margin;
constexpr int pictureLeft = margin + tableWidth + margin;
constexpr int nameTop = tableTop + tableHeight + 8;
constexpr int buttonsTop = nameTop + 30;
constexpr int planeTop = buttonsTop + 32;
constexpr int innerWidth = pictureLeft + thumbnailWidth + margin;
constexpr int outerWidth = innerWidth + 6, outerHeight = planeTop + 2 * height + margin + 29;

struct {
    WindowHandle window = nullptr;
    WindowHandle name = nullptr; // its edit
    std::vector<Place> places;
    int selected = -1;
    std::vector<uint32_t> picture;        // of the selected place; empty where it has none
    std::map<int32_t, double> residualUm; // by the number of a place that the plane was made of
} state;

void tell(const std::string& words) {
    showMessageBox(windows.main, words.c_str(), "Places", BoxButtons::Ok);
}

Place* selectedPlace() {
    const auto at = static_cast<size_t>(state.selected);
    return state.selected >= 0 && at < state.places.size() ? &state.places[at] : nullptr;
}

void showSelected() {
    const Place* place = selectedPlace();
    state.picture.clear();
    if (place)
        state.picture =
            thumbnailOfBitmap(contentOfFile(picturePath(*place)).value_or(std::string()));
    setWindowText(state.name, place ? place->name.c_str() : "");
    paintPlacesWindow();
}

void showRows(int selected) {
    const auto count = static_cast<int>(state.places.size());
    state.selected = std::min(selected, count - 1);
    fillToolTable(state.window, idPlacesTable, count, state.selected);
    showSelected();
    onPaint(); // no frame may come by itself
}

// From the file, which somebody may have changed.
void readAgain(int32_t number) {
    std::vector<std::string> refused;
    state.places = readPlaces(refused);
    int selected = state.places.empty() ? -1 : 0;
    for (size_t i = 0; i < state.places.size(); ++i)
        if (state.places[i].number == number) selected = static_cast<int>(i);
    showRows(selected);
    std::string text;
    for (const std::string& line : refused) {
        announce(Severity::Failure, line);
        text += line + "\n";
    }
    if (refused.empty()) return;
    if (processUnderWay())
        return showInformation(refused.front().c_str()); // a box would hold it up
    tell(text + "These lines are left out; they stay in the file.");
}

// False, and said.
bool written(bool wasWritten) {
    if (!wasWritten) tell("Places.ini could not be written");
    return wasWritten;
}

void keepPicture(const Place& place) {
    removeFile(picturePath(place)); // another place's, until there is the new one
    if (cameraState.connected) grabFrames(cameraState, 1);
    const std::vector<uint32_t> pixels =
        cameraState.connected && cameraState.fresh ? thumbnail() : std::vector<uint32_t>();
    if (pixels.empty()) return;
    if (!writeDocument(picturePath(place), bitmapOfThumbnail(pixels), L"wb"))
        reportUnwritten(picturePath(place), "the place's picture");
}

std::string placeWords(const Place& place) {
    std::string words = "\"" + place.name + "\":";
    for (const StageAxis* axis : {&stageX, &stageY, &stageZ})
        if (const std::optional<double> um = umOf(place, *axis))
            words += formatted(" %c %.1f", "XYZ"[indexOf(*axis)], *um);
    return words + " um";
}

bool stageIsFree() {
    if (stageIsMoving()) return showInformation("Not while the stage moves"), false;
    if (processUnderWay()) return refuseForProcess(), false;
    return true;
}

// The place where the stage stands, in the line of `before` or behind the others.
void keepHere(const Place& before) {
    std::string fault;
    std::optional<Place> place = presentPlace(fault);
    if (!place) return tell("Not remembered: " + fault);
    place->number = before.number;
    place->name = before.name;
    place->isFocus = before.isFocus && place->counts[2].isKnown();
    if (!written(writePlace(*place))) return;
    keepPicture(*place);
    state.residualUm.clear();
    const std::string words = "Remembered " + placeWords(*place);
    logEvent(words);
    readAgain(place->number);
    showInformation(words.c_str());
}

void rememberHere() {
    keepHere({.name = formatted("Place %d", static_cast<int>(state.places.size()) + 1)});
}

bool confirmed(const char* question, const Place& place) {
    return showMessageBox(windows.main, (question + placeWords(place) + "?").c_str(), "Places",
                          BoxButtons::YesNo) == BoxAnswer::Yes &&
           stageIsFree();
}

void update(const Place& place) {
    if (confirmed("Does the stage stand now where this place is to be? Before: ", place))
        keepHere(place);
}

void remove(const Place& place) {
    if (!confirmed("Forget ", place) || !written(removePlace(place))) return;
    logEvent("Forgotten " + placeWords(place));
    state.residualUm.erase(place.number);
    readAgain(0);
}

// Into the file, whatever of it has changed.
void keepChanged(Place place) {
    if (!written(writePlace(place))) return;
    readAgain(place.number);
}

void rename(Place place) {
    place.name = windowText(state.name, 100);
    if (place.name.find_first_not_of(' ') == std::string::npos) return tell("A place needs a name");
    keepChanged(place);
}

void switchFocus(Place place) {
    if (!place.counts[2].isKnown()) return tell("This place has no Z");
    place.isFocus = !place.isFocus;
    state.residualUm.clear();
    keepChanged(place);
}

void goThere(const Place& place) {
    if (const std::string why = whyLost(place); !why.empty()) return tell("Not gone: " + why);
    readPosition(stageX);
    readPosition(stageY);
    readPosition(stageZ);
    const bool zStays = !isOfPresentObjective(place);
    const StagePlace to{umOf(place, stageX).value_or(stageX.positionUm),
                        umOf(place, stageY).value_or(stageY.positionUm),
                        zStays ? stageZ.positionUm
                               : umOf(place, stageZ).value_or(stageZ.positionUm)};
    if (!farFocusMoveAccepted(to.zUm) || !stageIsFree()) return;
    bool fromBelow = false;
    const std::string why = travelToFocus(to, fromBelow);
    if (!windows.main) return; // closed meanwhile
    refreshPositions();
    leaveStaleWideView();
    if (!display.wideView) grabAndDraw();
    std::string words = why.empty() ? "At " + placeWords(place) : "Not at the place: " + why;
    if (fromBelow) words += "; Z came from below, too near to its highest place: mind its play";
    if (zStays) words += "; Z stays: it was remembered with another objective, " + place.objective;
    logEvent(words);
    showInformation(words.c_str());
}

std::string planeWords() {
    const FocusPlane& plane = *planeInUse.plane;
    return formatted("Focus plane: %.2f degrees, ", plane.degrees()) +
           wordsOf({true, plane.perX, plane.perY});
}

// Of the foci, those that can be gone to with this objective.
void makePlane() {
    std::vector<FocusPoint> points;
    std::vector<int32_t> numbers;
    int leftOut = 0;
    for (const Place& place : state.places) {
        if (!place.isFocus) continue;
        const auto x = umOf(place, stageX), y = umOf(place, stageY), z = umOf(place, stageZ);
        const bool counts = x && y && z && whyLost(place).empty() && isOfPresentObjective(place);
        leftOut += !counts;
        if (!counts) continue;
        points.push_back({*x, *y, *z});
        numbers.push_back(place.number);
    }
    const std::string without =
        leftOut == 0 ? "" : formatted(" (%d left out: place lost, or another objective)", leftOut);
    std::string fault;
    const std::optional<FocusFit> fit = fitFocusPlane(points, fault);
    if (!fit)
        return tell(fault + without + (planeInUse.plane ? ". The plane of before stays" : ""));
    usePlane(fit->plane);
    state.residualUm.clear();
    for (size_t i = 0; i < numbers.size(); ++i) state.residualUm[numbers[i]] = fit->residualsUm[i];
    const std::string words = planeWords() +
                              formatted(". Of %d foci, %.2f um off it at most",
                                        static_cast<int>(points.size()), fit->largestUm()) +
                              without;
    logEvent(words);
    setToolText(state.window, idPlacesPlane, words.c_str());
    showRows(state.selected);
}

// Where the light acts when the stage stands there.
void drawPlaces(ContextHandle picture) {
    constexpr int arm = 6;
    for (size_t i = 0; i < state.places.size(); ++i) {
        const Place& place = state.places[i];
        const auto x = umOf(place, stageX), y = umOf(place, stageY);
        if (!x || !y || !whyLost(place).empty()) continue;
        const PixelPoint at = spotOnPresentView(*x - stageX.positionUm, *y - stageY.positionUm);
        const Colour colour =
            static_cast<int>(i) == state.selected ? markRed : colourRgb(255, 255, 0);
        drawLine(picture, at.x - arm, at.y, at.x + arm + 1, at.y, colour);
        drawLine(picture, at.x, at.y - arm, at.x, at.y + arm + 1, colour);
        drawText(picture, at.x + arm, at.y + 1, place.name.c_str(), colour, true);
    }
}

std::vector<ToolControl> controls() {
    std::vector<ToolControl> all = {
        {Table, "No.:36 Name:130 X:65 Y:65 Z:60 Focus:46 Residual:64 State:150", margin, tableTop,
         tableWidth, tableHeight, idPlacesTable},
        {Label, "Name", margin, nameTop, 40, height},
        {Edit, "", 56, nameTop, 260, height, idPlacesName},
        {Button, "Rename", 322, nameTop - 1, 80, height + 2, idPlacesRename}};
    int x = margin;
    const auto button = [&](const char* name, int id, int width) {
        all.push_back({Button, name, x, buttonsTop, width, height + 2, id});
        x += width + 5;
    };
    button("Remember here", idPlacesRemember, 110);
    button("Go there", idPlacesGo, 90);
    button("Update", idPlacesUpdate, 80);
    button("Remove", idPlacesRemove, 80);
    button("Focus yes/no", idPlacesFocus, 100);
    button("Make focus plane", idPlacesMakePlane, 126);
    all.push_back(
        {Label, "", margin, planeTop, innerWidth - 2 * margin, 2 * height, idPlacesPlane});
    return all;
}

} // namespace

void openPlacesWindow() {
    if (state.window) return raiseToolWindow(state.window);
    const std::vector<ToolControl> all = controls();
    state.window = createToolWindow(L"Places", 60, all.data(), static_cast<int>(all.size()),
                                    &state.name, outerWidth, outerHeight);
    if (!state.window) return;
    state.residualUm.clear();
    display.marks = drawPlaces;
    if (planeInUse.plane) setToolText(state.window, idPlacesPlane, planeWords().c_str());
    readAgain(0);
}

void rememberPlace() {
    openPlacesWindow();
    if (state.window && stageIsFree()) rememberHere();
}

bool isPlacesWindow(WindowHandle window) {
    return window && window == state.window;
}

void onPlacesCommand(int id) {
    resetIdle();
    const bool isButton = id >= idPlacesRemember && id <= idPlacesMakePlane;
    if (!isButton || !stageIsFree()) return;
    if (id == idPlacesRemember) return rememberHere();
    if (id == idPlacesMakePlane) return makePlane();
    if (!selectedPlace()) return tell("Select a place first");
    const Place place = *selectedPlace(); // the list may be another one behind a question
    if (id == idPlacesGo) goThere(place);
    if (id == idPlacesRename) rename(place);
    if (id == idPlacesUpdate) update(place);
    if (id == idPlacesFocus) switchFocus(place);
    if (id == idPlacesRemove) remove(place);
}

void onPlacesSelection() {
    state.selected = selectedInToolTable(state.window, idPlacesTable);
    showSelected();
    onPaint();
}

std::string placesCell(int row, int column) {
    if (row < 0 || static_cast<size_t>(row) >= state.places.size()) return {};
    const Place& of = state.places[static_cast<size_t>(row)];
    const auto number = [](const std::optional<double>& um) {
        return um ? formatted("%.1f", std::fabs(*um) < 0.05 ? 0.0 : *um) : std::string();
    };
    switch (column) {
    case 0:
        return std::to_string(row + 1);
    case 1:
        return of.name;
    case 2:
        return number(umOf(of, stageX));
    case 3:
        return number(umOf(of, stageY));
    case 4:
        return number(umOf(of, stageZ));
    case 5:
        return of.isFocus ? "yes" : "";
    case 6: {
        const auto found = state.residualUm.find(of.number);
        return found == state.residualUm.end() ? "" : formatted("%+.2f", found->second);
    }
    default:
        return whyLost(of);
    }
}

void paintPlacesWindow() {
    const WindowContext window(state.window);
    if (!window.context) return;
    constexpr Colour black = 0, white = colourRgb(255, 255, 255);
    if (!state.picture.empty())
        return putPixels(window.context, pictureLeft, tableTop, thumbnailWidth, thumbnailHeight,
                         state.picture.data());
    drawFilledRectangle(window.context, pictureLeft, tableTop, pictureLeft + thumbnailWidth,
                        tableTop + thumbnailHeight, black, white);
    if (selectedPlace())
        drawText(window.context, pictureLeft + 20, tableTop + 20, "No picture was kept.", black,
                 true);
}

void forgetPlacesWindow() {
    state = {};
    display.marks = nullptr;
}
