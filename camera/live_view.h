// The live camera view: what the picture shows between and during the processes.
#pragma once

#include <cstdint>

struct LiveViewState {
    int idleTicks = 0;
    bool wasOn = false;        // before it was last switched
    uint64_t framesShown = 0;  // fresh ones; what was drawn over an earlier one is gone
    bool noticeStands = false; // in the information text, until the operator does something
    // When the live view goes on: the scan's geometry belongs to the view. Set at start-up.
    void (*onStart)() = [] {};
    // When a fresh frame is on the main window; set by whoever shows frames too.
    void (*onFreshFrame)() = [] {};
};
extern LiveViewState liveViewState;

enum class LiveView {
    Off, // timer off
    On,  // leave the wide view, look for a missing camera when the next search is due, timer on
    AsBefore,   // on or off as before the last of these two
    FreshFrame, // timer off and one fresh frame, or the wide view, on the screen: there the scan
                // area is judged
};
void switchLiveView(LiveView to);

// Connects the camera and opens it with automatic gain and exposure; silent when there is none but
// for the camera's own status text.
void connectCamera();

// The same, at once, where the camera has been lost or released; nothing while it is there. The
// live view by itself looks again only ten times as long after the last search as that took, two
// seconds at least.
void connectMissingCamera();

// Grabs one frame and draws it in place of whatever the window shows.
void grabAndDraw();

// Does so where the window shows a wide view of another place: behind whatever may have moved the
// stage.
void leaveStaleWideView();

// One tick of timer 1: counts the idle time, switches the light sources and the camera off after
// 50 s without input, and otherwise shows a fresh frame, the spot's colour and its mean value.
void liveViewTick();

// Operator input: the idle time starts anew, and a notice has been seen.
void resetIdle();
