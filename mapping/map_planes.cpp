// Makes the table of a map's planes.
#include "mapping/map_planes.h"

#include "instruments/kinds.h"

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

Plane planeOf(const Channel& channel, size_t number, size_t map) {
    return {.of = Plane::Of::Channel,
            .map = map,
            .channel = number,
            .name = channel.name,
            .title = channel.title,
            .palette = channel.palette,
            .unit = channel.unit,
            .filePrefix = channel.filePrefix,
            .pictureName = channel.pictureName};
}

// The title of the first one is that of all files so far.
Plane deviationOf(const Channel& channel, size_t number, size_t map) {
    std::string title = "Standard deviation";
    if (number > 0) title += std::string(" of ") + channel.name;
    return {.of = Plane::Of::Deviation,
            .map = map,
            .channel = number,
            .title = title,
            .palette = "Gray",
            .unit = channel.unit};
}

} // namespace

std::vector<Plane> planesOf(int32_t kind, bool confocal, bool severalReadings) {
    const std::span<const Channel> channels = instrumentKind(kind).channels;
    std::vector<Plane> planes{planeOf(channels.front(), 0, planePhotocurrent)};
    if (confocal) planes.insert(planes.end(), std::begin(colours), std::end(colours));
    size_t map = firstFurtherMap;
    for (size_t i = 1; i < channels.size(); ++i) planes.push_back(planeOf(channels[i], i, map++));
    if (severalReadings)
        for (size_t i = 0; i < channels.size(); ++i)
            if (channels[i].averaged) planes.push_back(deviationOf(channels[i], i, map++));
    return planes;
}

size_t mapCountOf(int32_t kind, bool severalReadings) {
    return planesOf(kind, true, severalReadings).back().map + 1;
}
