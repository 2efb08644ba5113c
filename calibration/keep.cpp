// Looks at a measured set-up as if somebody had typed it.
#include "calibration/keep.h"

std::string keepMeasured(const SetUp& changed) {
    if (const SetUpFault fault = faultIn(changed); !fault.words.empty()) return fault.words;
    SetUp copy = changed;
    for (const SetUpField& field : setUpFields(changed))
        if (!takeField(field, copy, textOf(field, changed)))
            return field.name + ": " + allowedFor(field);
    return keepSetUp(changed) ? "" : "Setup.ini was not written, it holds for this run";
}
