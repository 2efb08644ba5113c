// Draws a profile and saves it.
#include "ui/profile_window.h"

#include "camera/live_view.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "screen/screen.h"
#include "spectroscopy/curve_plot.h"

#include <iterator>
#include <utility>
#include <vector>

namespace {

struct {
    WindowHandle window = nullptr;
    MapProfile profile;
} state;

constexpr int outerWidth = 500, outerHeight = 420, left = 700; // pixels

constexpr ToolControl controls[] = {
    {ToolControl::Kind::Label, "", 10, 345, 400, 40, idProfileText},
    {ToolControl::Kind::Button, "Save", 416, 352, 66, 26, idProfileSave},
};

// What the axes are, and how much of the line is left out.
std::string wordsOf(const MapProfile& profile) {
    int masked = 0;
    for (const std::string& note : profile.notes) masked += note.empty() ? 0 : 1;
    std::string words = profile.title;
    if (!profile.unit.empty()) words += " (" + profile.unit + ")";
    words += formatted(" over %.1f um", static_cast<double>(profile.placesUm.back()));
    if (masked > 0) words += formatted(", %d points masked", masked);
    return words;
}

} // namespace

void showProfile(const MapProfile& profile) {
    if (profile.values.empty()) return;
    if (!state.window)
        state.window =
            createToolWindow(L"Profile", left, controls, static_cast<int>(std::size(controls)),
                             nullptr, outerWidth, outerHeight);
    if (!state.window) return;
    state.profile = profile;
    setToolText(state.window, idProfileText, wordsOf(profile).c_str());
    raiseToolWindow(state.window);
    paintProfile();
}

bool isProfileWindow(WindowHandle window) {
    return window && window == state.window;
}

void onProfileCommand(int id) {
    resetIdle();
    if (id != idProfileSave) return;
    const std::string name = saveProfile(state.profile);
    const std::string words = name.empty() ? "The profile was not saved" : "Saved: " + name;
    setToolText(state.window, idProfileText, words.c_str());
}

void paintProfile() {
    // The line goes straight over what is masked.
    std::vector<float> xs, ys;
    for (size_t i = 0; i < state.profile.values.size(); ++i) {
        if (!state.profile.notes[i].empty()) continue;
        xs.push_back(state.profile.placesUm[i]);
        ys.push_back(state.profile.values[i]);
    }
    drawCurve(state.window, xs.data(), ys.data(), 0, static_cast<int>(xs.size()),
              colourRgb(0, 0, 255));
}

void forgetProfile() {
    state.window = nullptr;
}
