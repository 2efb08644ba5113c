// Keeps whether the windows are scaled.
#include "ui/fit_option.h"

#include "screen/screen.h"
#include "session/options.h"

namespace {

constexpr char optionName[] = "fit to screen";

bool on = false;

} // namespace

void restoreFit() {
    on = false;
    takeOption(optionName, on);
    if (on) fitToScreen(true);
}

void toggleFit() {
    on = !on;
    const bool sharp = fitToScreen(on);
    const bool kept = writeOptions({{optionName, on ? "yes" : "no"}});
    if (!sharp) showInformation("The text is sharp from the next start");
    if (!kept) showInformation("For this run only: Options.ini was not written");
}

bool fitIsOn() {
    return on;
}
