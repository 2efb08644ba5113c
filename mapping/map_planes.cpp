// Makes the table of a map's planes.
#include "mapping/map_planes.h"

#include "instruments/kinds.h"

#include <algorithm>
#include <cmath>

namespace {

const Plane colours[] = {
    {.of = Plane::Of::Colour,
     .map = planeRed,
     .name = "red",
     .title = "Confocal red",
     .palette = "RGB-Red",
     .filePrefix = "ConfocalR",
     .pictureName = "CONF_R"},
    {.of = Plane::Of::Colour,
     .map = planeGreen,
     .name = "green",
     .title = "Confocal green",
     .palette = "RGB-Green",
     .filePrefix = "ConfocalG",
     .pictureName = "CONF_G"},
    {.of = Plane::Of::Colour,
     .map = planeBlue,
     .name = "blue",
     .title = "Confocal blue",
     .palette = "RGB-Blue",
     .filePrefix = "ConfocalB",
     .pictureName = "CONF_B"},
};

Plane planeOf(const ScanPlan& plan, size_t number, size_t map) {
    const Channel& channel = channelsOf(plan.ammeterKind, plan.inVolts)[number];
    return {.of = Plane::Of::Channel,
            .map = map,
            .channel = number,
            .name = channel.name,
            .title = plan.amplifier.isKnown() ? "Photocurrent" : channel.title,
            .palette = channel.palette,
            .unit = unitBehind(plan.amplifier, channel),
            .filePrefix = channel.filePrefix,
            .pictureName = channel.pictureName};
}

// The title of an only channel's is that of all files so far.
Plane deviationOf(const ScanPlan& plan, size_t number, size_t map) {
    const Channel& channel = channelsOf(plan.ammeterKind, plan.inVolts)[number];
    Unit unit = unitBehind(plan.amplifier, channel);
    unit.zero = 0.0;
    unit.perValue = std::fabs(unit.perValue);
    unit.shownPerValue = std::fabs(unit.shownPerValue);
    std::string title = "Standard deviation";
    if (*channel.name) title += std::string(" of ") + channel.name;
    return {.of = Plane::Of::Deviation,
            .map = map,
            .channel = number,
            .title = title,
            .palette = "Gray",
            .unit = unit};
}

} // namespace

size_t mainChannelOf(const ScanPlan& plan) {
    const size_t count = channelsOf(plan.ammeterKind, plan.inVolts).size();
    return std::min(static_cast<size_t>(std::max(plan.options.mainChannel, 0)), count - 1);
}

std::vector<Plane> planesOf(const ScanPlan& plan) {
    const std::span<const Channel> channels = channelsOf(plan.ammeterKind, plan.inVolts);
    const size_t main = mainChannelOf(plan);
    std::vector<Plane> planes{planeOf(plan, main, planePhotocurrent)};
    // Whichever it is, the map of the photocurrent has the names that it always had.
    planes.front().filePrefix = "Kestrel";
    planes.front().pictureName = "KST";
    if (plan.confocal) planes.insert(planes.end(), std::begin(colours), std::end(colours));
    size_t map = firstFurtherMap;
    const auto isThere = [&](size_t i) { return !channels[i].onWish || plan.options.auxChannel; };
    for (size_t i = 0; i < channels.size(); ++i)
        if (i != main && isThere(i)) planes.push_back(planeOf(plan, i, map++));
    if (plan.hasSeveralReadings())
        for (size_t i = 0; i < channels.size(); ++i)
            if (channels[i].averaged && isThere(i)) planes.push_back(deviationOf(plan, i, map++));
    return planes;
}

size_t mapCountOf(const ScanPlan& plan) {
    ScanPlan confocal = plan;
    confocal.confocal = true;
    return planesOf(confocal).back().map + 1;
}
