// Opening the stages as the operator sees it: what is said of controllers that are missing.
#pragma once

// Opens the stages in the order that is set and shows a box: "No devices found" when none is
// driven; otherwise, where axes have no controller, which have none and the device of each that has
// one, and where one is in an alarm, which. All three there: `allFound` under the caption "Scanner
// Initialized", nothing for null. Returns whether an axis is driven.
bool connectStagesAndTell(const char* allFound);

// Before a process that needs the stage: where some axes answer and some do not, the operator says
// whether it starts all the same. No axis at all is no question: the program runs without a stage.
bool partialStageAccepted();
