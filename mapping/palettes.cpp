// The table of the palettes.
#include "mapping/palettes.h"

#include <algorithm>
#include <iterator>

Colour colourOf(int level) {
    const auto part = [](int value) { return static_cast<unsigned>(std::max(value, 0)) & 255; };
    return colourRgb(part(level / 4), part(std::max(level - 512, 0) / 2), part(level - 768));
}

Colour circleColourOf(int level) {
    constexpr int sixth = 171;            // of the levels: from one full colour to the next
    const auto part = [level](int from) { // rises, stays for two sixths, falls
        const int at = (level + from) % (6 * sixth);
        const int height = at < sixth ? at : at < 3 * sixth ? sixth : std::max(4 * sixth - at, 0);
        return static_cast<unsigned>(height * 255 / sixth);
    };
    return colourRgb(part(2 * sixth), part(0), part(4 * sixth));
}

namespace {

// "Viridis" of Smith, van der Walt and Firing, given into the public domain (CC0), at every 32nd of
// its length, 0xRRGGBB. Between them straight lines are off by less than two of 255.
constexpr uint32_t viridis[] = {
    0x440154, 0x470D60, 0x48186A, 0x482374, 0x472D7B, 0x453681, 0x424086, 0x3F4989, 0x3B528B,
    0x375A8D, 0x33638D, 0x2F6A8E, 0x2C728E, 0x297A8E, 0x26818E, 0x23898E, 0x21908C, 0x1F988B,
    0x1F9F88, 0x21A685, 0x28AE80, 0x31B57B, 0x3EBC74, 0x4CC26C, 0x5DC963, 0x6ECE58, 0x82D34C,
    0x96D83F, 0xABDC32, 0xC0DF24, 0xD5E21A, 0xEAE51A, 0xFDE725};

Colour viridisColourOf(int level) {
    constexpr auto last = static_cast<int>(std::size(viridis)) - 1;
    const int at = level * last, below = std::min(at / highestLevel, last - 1);
    const int rest = at - below * highestLevel;
    const auto part = [&](unsigned shift) {
        const auto a = static_cast<int>(viridis[below] >> shift & 255);
        const auto b = static_cast<int>(viridis[below + 1] >> shift & 255);
        return static_cast<unsigned>((a * (highestLevel - rest) + b * rest + highestLevel / 2) /
                                     highestLevel);
    };
    return colourRgb(part(16), part(8), part(0));
}

Colour greyColourOf(int level) {
    const auto grey = static_cast<unsigned>(level / 4);
    return colourRgb(grey, grey, grey);
}

constexpr Palette table[] = {
    {"Heat", colourOf}, {"Viridis", viridisColourOf}, {"Grey", greyColourOf}};

} // namespace

std::span<const Palette> palettes() {
    return table;
}
