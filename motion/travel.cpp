// Moves the three axes in the order that is safe.
#include "motion/travel.h"

#include "motion/stage.h"
#include "session/session_state.h"

std::string travelTo(const StagePlace& to) {
    const std::pair<const StageAxis&, double> targets[] = {
        {stageX, to.xUm}, {stageY, to.yUm}, {stageZ, to.zUm}};
    for (const auto& [axis, um] : targets)
        if (std::string why = beyondLimit(axis, um); !why.empty()) return why;
    // A stop may come when a move has just ended.
    const auto isStopped = [stops = session.moveStops] { return session.moveStops != stops; };
    if (to.zUm < stageZ.positionUm && !moveTo(stageZ, to.zUm)) return missedText(stageZ);
    if (isStopped()) return "stopped";
    const bool stays = to.xUm == stageX.positionUm && to.yUm == stageY.positionUm;
    if (!stays && !moveXYTo(to.xUm, to.yUm, motorSpeed)) return missedXyText();
    if (isStopped()) return "stopped";
    return moveTo(stageZ, to.zUm) ? "" : missedText(stageZ);
}

std::string travelToFocus(const StagePlace& to, bool& fromBelow) {
    constexpr double aboveUm = 2.0;
    StagePlace above = to;
    const bool rises = to.zUm > stageZ.positionUm;
    fromBelow = rises && !beyondLimit(stageZ, to.zUm + aboveUm).empty();
    if (rises && !fromBelow) above.zUm += aboveUm;
    const int32_t stops = session.moveStops;
    std::string why = travelTo(above);
    if (!why.empty() || above.zUm == to.zUm) return why;
    if (session.moveStops != stops) return "stopped";
    return moveTo(stageZ, to.zUm) ? "" : missedText(stageZ);
}
