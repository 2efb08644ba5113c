// Moves the serial stepper stage by text commands and follows its replies.
#include "motion/serial_stage.h"

#include "motion/stage.h"
#include "platform/clock.h"
#include "platform/text_format.h"
#include "platform/truncate.h"
#include "screen/screen.h"
#include "session/responsive_wait.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr char moveLetters[] = "mML";
constexpr char arrivalLetters[] = "XYZ";
constexpr char positionLetters[] = "pPQ";

double travelMs(const LaserLink& link, int axis, double targetUm) {
    const int32_t speed = std::max(link.channelSetting[axis], 1); // um/s
    return std::fabs(targetUm - link.channelValue[axis]) * 1000.0 / speed;
}

// The end of the way: the stage says that it has arrived, perhaps at a limit switch.
bool isArrivalReport(LaserLink& link, int axis, const std::string& reply) {
    if (reply.empty() || reply[0] != arrivalLetters[axis]) return false;
    const char side = reply.size() > 1 ? reply[1] : '\0';
    if (side == 'L') link.channelMaximum[axis] = link.channelValue[axis];
    if (side == 'R') link.channelMinimum[axis] = link.channelValue[axis];
    if (side == 'L' || side == 'R')
        showInformation(formatted("Limited: %s", reply.c_str()).c_str());
    return true;
}

// Stores a position report; true when it lies at the target.
bool takePositionReport(LaserLink& link, int axis, const std::string& reply, int32_t targetSteps,
                        int32_t elapsed, int32_t timeoutMs) {
    int32_t steps = 0;
    if (reply.empty() || reply[0] != positionLetters[axis]) return false;
    if (std::sscanf(reply.c_str() + 1, "%d", &steps) != 1) return false;
    link.channelValue[axis] = laserChannelFromRaw(link, axis, steps);
    if (std::llabs(int64_t{steps} - targetSteps) >= 2) {
        showProgress(formatted("moving: %d/%d", elapsed, timeoutMs).c_str());
        return false;
    }
    showProgress(formatted("arrived(%d) : %d/%d", 1, elapsed, timeoutMs).c_str());
    return true;
}

} // namespace

bool startSerialMove(LaserLink& link, int axis, double targetUm) {
    if (link.portHandle == invalidPort()) return false;
    if (link.disconnected) {
        link.channelValue[axis] = targetUm;
        return false;
    }
    if (targetUm < link.channelMinimum[axis] || targetUm > link.channelMaximum[axis]) {
        showInformation("Error: Out of Motor range");
        waitResponsive(100);
        return false;
    }
    const int32_t steps = laserChannelRaw(link, axis, targetUm);
    laserSend(link, formatted("%c%d", moveLetters[axis], steps).c_str());
    return true;
}

bool waitForSerialArrival(LaserLink& link, int axis, double targetUm, int32_t timeoutMs) {
    if (link.portHandle == invalidPort()) return false;
    const int32_t targetSteps = laserChannelRaw(link, axis, targetUm);
    const uint64_t start = tickCountMs();
    for (;;) {
        const std::string reply = laserReceive(link);
        const uint64_t elapsed = tickCountMs() - start;
        if (isArrivalReport(link, axis, reply)) break;
        if (takePositionReport(link, axis, reply, targetSteps, static_cast<int32_t>(elapsed),
                               timeoutMs))
            break;
        if (elapsed >= 2 * static_cast<uint64_t>(timeoutMs)) {
            laserChannelValue(link, axis);
            return true;
        }
        refreshPositions();
        waitResponsive(10);
    }
    return true;
}

bool moveSerialAxisTo(LaserLink& link, int axis, double targetUm) {
    const int32_t timeoutMs = truncated(100.0 + travelMs(link, axis, targetUm));
    if (!startSerialMove(link, axis, targetUm)) return false;
    if (!waitForSerialArrival(link, axis, targetUm, timeoutMs)) return false;
    link.channelValue[axis] = targetUm;
    return true;
}

bool moveTwoSerialAxesTo(LaserLink& link, int axisA, int axisB, double targetA, double targetB) {
    const bool aIsQuicker = travelMs(link, axisA, targetA) < travelMs(link, axisB, targetB);
    const int quicker = aIsQuicker ? axisA : axisB;
    const bool started = startSerialMove(link, quicker, aIsQuicker ? targetA : targetB);
    const bool moved =
        moveSerialAxisTo(link, aIsQuicker ? axisB : axisA, aIsQuicker ? targetB : targetA);
    laserChannelValue(link, quicker);
    return started && moved;
}
