// Moves the three axes in the order that is safe.
#include "motion/travel.h"

#include "motion/stage.h"

std::string travelTo(const StagePlace& to) {
    const std::pair<const StageAxis&, double> targets[] = {
        {stageX, to.xUm}, {stageY, to.yUm}, {stageZ, to.zUm}};
    for (const auto& [axis, um] : targets)
        if (std::string why = beyondLimit(axis, um); !why.empty()) return why;
    if (to.zUm < stageZ.positionUm && !moveTo(stageZ, to.zUm)) return missedText(stageZ);
    const bool stays = to.xUm == stageX.positionUm && to.yUm == stageY.positionUm;
    if (!stays && !moveXYTo(to.xUm, to.yUm, motorSpeed)) return missedXyText();
    return moveTo(stageZ, to.zUm) ? "" : missedText(stageZ);
}
