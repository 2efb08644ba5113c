// The program's records as its static initialisation leaves them.
#include "tests/doubles/doubles.h"

#include "app/data_folders.h"
#include "app/responsive_wait.h"
#include "motion/stage.h"

void resetProgram() {
    processRunning = 0;
    stopRequested = 0;
    stageX = stageY = stageZ = {};
    axisOrder = 2;
    prepareDataFolders(dataFolders);
}
