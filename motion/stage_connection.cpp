// Opens the stages and tells the operator.
#include "motion/stage_connection.h"

#include "motion/stage.h"
#include "screen/screen.h"
#include "session/message_box.h"

#include <string>

bool connectStagesAndTell(const char* allFound) {
    const bool opened = openStages(controllers.axisOrder, motorSpeed);
    if (!opened) {
        showMessageBox(windows.main, "No devices found", "Scanner Error", BoxButtons::Ok);
    } else if (!silentAxes().empty()) {
        const std::string text = "Not every axis of the stage has a controller:\n\n" + axisList();
        showMessageBox(windows.main, text.c_str(), "Scanner Warning", BoxButtons::Ok);
    } else if (axisIsOut(stageX) || axisIsOut(stageY) || axisIsOut(stageZ)) {
        const std::string text = "Not every axis of the stage moves:\n\n" + axisList();
        showMessageBox(windows.main, text.c_str(), "Scanner Warning", BoxButtons::Ok);
    } else if (allFound) {
        showMessageBox(windows.main, allFound, "Scanner Initialized", BoxButtons::Ok);
    }
    return opened;
}

bool partialStageAccepted() {
    const bool anyAxis = stageX.axisNumber != 0 || stageY.axisNumber != 0 || stageZ.axisNumber != 0;
    if (!anyAxis || silentAxes().empty()) return true;
    const std::string text =
        "No controller answers for " + silentAxes() + ". Start all the same?\n\n" + axisList();
    return showMessageBox(windows.main, text.c_str(), "Scanner Warning", BoxButtons::YesNo) ==
           BoxAnswer::Yes;
}
