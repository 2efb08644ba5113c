// Keeps whether the windows are scaled.
#include "ui/fit_option.h"

#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/announce.h"
#include "session/options.h"

namespace {

constexpr char optionName[] = "fit to screen";

bool on = false;

} // namespace

void restoreFit() {
    const std::string text = readOption(optionName);
    on = text == "yes";
    if (!on && !text.empty() && text != "no")
        announce(Severity::Trouble,
                 formatted("Options.ini: \"%s = %s\" is not known, the default holds", optionName,
                           text.c_str()));
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
