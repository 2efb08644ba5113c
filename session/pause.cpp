// Holds a process while the windows stay alive.
#include "session/pause.h"

#include "platform/clock.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/main_title.h"
#include "session/responsive_wait.h"
#include "session/session_state.h"

#include <utility>

namespace {

struct {
    int holders = 0; // a list and the scan of its row
    PauseBehind finest = PauseBehind::Point;
    PauseBehind wanted = PauseBehind::Nothing;
    PauseBy by = PauseBy::Operator;
    bool paused = false;
} pauseState;

void showButton() {
    const bool asked = pauseState.wanted != PauseBehind::Nothing;
    setField(Field::PauseButton, asked ? "Resume" : "Pause");
    showMainControl(idPause, pauseState.holders > 0);
}

} // namespace

CanPause::CanPause(PauseBehind finest) : before(std::exchange(pauseState.finest, finest)) {
    if (pauseState.holders++ == 0) pauseState.wanted = PauseBehind::Nothing;
    showButton();
}

CanPause::~CanPause() {
    --pauseState.holders;
    pauseState.finest = before;
    showButton();
}

std::string askForPause(PauseBehind behind, PauseBy by) {
    if (pauseState.holders == 0) {
        std::string why = "Only a mapping and a scan list can pause";
        showInformation(why.c_str());
        return why;
    }
    if (behind == PauseBehind::Point) behind = pauseState.finest;
    pauseState.wanted = behind;
    pauseState.by = by;
    showButton();
    constexpr const char* words[] = {"No pause", "Pause behind the present point",
                                     "Pause behind the present row"};
    logEvent(words[static_cast<size_t>(behind)]);
    showInformation(words[static_cast<size_t>(behind)]);
    return {};
}

bool pauseIsOperators() {
    return pauseState.wanted != PauseBehind::Nothing && pauseState.by == PauseBy::Operator;
}

void switchPause() {
    const bool asked = pauseState.wanted != PauseBehind::Nothing;
    askForPause(asked ? PauseBehind::Nothing : PauseBehind::Point);
}

bool pauseIsDue(PauseBehind justDone) {
    return pauseState.wanted == justDone ||
           (justDone == PauseBehind::Row && pauseState.wanted == PauseBehind::Point);
}

bool isPaused() {
    return pauseState.paused;
}

bool waitWhilePaused(const std::string& what) {
    const LocalTime since = localTime();
    const std::string words = what + formatted(" paused since %02d:%02d", since.hour, since.minute);
    logEvent(what + " paused");
    titleProgress("paused");
    pauseState.paused = true;
    while (pauseState.wanted != PauseBehind::Nothing && !session.stopRequested) {
        showProgress(words.c_str());
        waitResponsive(1000);
    }
    pauseState.paused = false;
    pauseState.wanted = PauseBehind::Nothing;
    showButton();
    titleProgress("");
    logEvent(what + (session.stopRequested ? " stopped in the pause" : " resumed"));
    return !session.stopRequested;
}
