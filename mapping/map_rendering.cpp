// Draws maps into their windows.
#include "mapping/map_rendering.h"

#include "camera/display.h"
#include "camera/picture.h"
#include "instruments/ammeter.h"
#include "mapping/map_place.h"
#include "mapping/scan_area.h"
#include "platform/clock.h"
#include "platform/surface_owners.h"
#include "platform/text_format.h"
#include "platform/truncate.h"
#include "platform/widen.h"
#include "screen/screen.h"
#include "session/document.h"
#include "session/responsive_wait.h"

#include <algorithm>
#include <optional>

namespace {

constexpr Colour mapGround = colourRgb(0xC8, 0xC8, 0xC8);
constexpr int highestLevel = 1023;
constexpr int drawTries = 20;

// Where the picture windows stand on the screen: beside the main window, one above the other.
constexpr int picturesLeft = 1450;
constexpr int confocalTop = 450;

// What stands beside and below a map in its window.
constexpr int scaleWidthPx = 84;
constexpr int labelHeightPx = 16;

int columnsOf(const Map& map) {
    return static_cast<int>(map.size());
}

int rowsOf(const Map& map) {
    return map.empty() ? 0 : static_cast<int>(map.front().size());
}

int levelOf(float value, float lowest, float highest) {
    const float level = (value - lowest) * 1023.0f / (highest - lowest);
    return std::clamp(truncated(static_cast<double>(level)), 0, highestLevel);
}

// Colour values hold red in the low byte, pixels in the third.
uint32_t pixelOf(Colour colour) {
    return (colour & 0xFF) << 16 | (colour & 0xFF00) | (colour >> 16 & 0xFF);
}

bool isOfInstrument(int channel) {
    return channel == channelPhotocurrent || channel >= channelFurther;
}

// Also of a colour, for its size.
size_t instrumentPlane(const ScanMap& map, int channel) {
    return isOfInstrument(channel) ? planeShown(map, channel) : size_t{planePhotocurrent};
}

// How a map's values become colours: the lowest is that of the least current, which behind an
// inverting amplifier is the highest of the volts.
struct Scale {
    Extremes extremes{};
    Colour (*colour)(int level) = colourOf;
    float up = 1.0f; // to a value that stands for more
};

// Of the rows [first, end). An angle has a whole turn, whatever of it there is.
Scale scaleOf(const ScanMap& map, size_t plane, size_t first, size_t end) {
    const std::optional<Unit> unit = unitOfPlane(map, plane);
    if (unit && unit->closes) return {{-180.0f, 180.0f}, circleColourOf};
    const Extremes found = extremesOf(map, plane, first, end);
    if (unit && unit->falls()) return {{found.highest, found.lowest}, colourOf, -1.0f};
    return {found};
}

// Grey, as nothing in the scale, where the instrument's range was exceeded.
uint32_t currentPixel(const ScanMap& map, size_t plane, size_t column, size_t row,
                      const Scale& scale) {
    if (!isInScale(map, column, row, plane)) return pixelOf(mapGround);
    const float value = map.maps[plane][column][row];
    return pixelOf(scale.colour(levelOf(value, scale.extremes.lowest, scale.extremes.highest)));
}

uint32_t confocalPixel(const ScanMap& map, int channel, size_t column, size_t row) {
    uint32_t pixel = 0;
    for (int plane = planeRed; plane <= planeBlue; ++plane) {
        pixel <<= 8;
        if (channel != channelConfocal && channel != plane) continue;
        const float value = map.maps[static_cast<size_t>(plane)][column][row];
        pixel |= static_cast<uint32_t>(truncated(static_cast<double>(value))) & 255;
    }
    return pixel;
}

// Draws one row of cells as squares in one go; `pixelOfColumn` gives a cell's pixel.
template <class PixelOfColumn>
void drawRow(WindowHandle window, int columns, int row, PixelOfColumn pixelOfColumn) {
    const int cell = scanArea.cellPx;
    const int width = columns * cell;
    if (width <= 0) return; // no scan area yet
    std::vector<uint32_t> block(static_cast<size_t>(width) * static_cast<size_t>(cell));
    for (int column = 0; column < columns; ++column)
        std::fill_n(block.begin() + column * cell, cell,
                    pixelOfColumn(static_cast<size_t>(column)));
    for (int line = 1; line < cell; ++line)
        std::copy_n(block.begin(), width, block.begin() + line * width);
    const WindowContext target(window);
    if (!target.context) return;
    putPixels(target.context, 0, row * cell, width, cell, block.data());
}

// The whole map, one pixel a cell, rows top-down.
std::vector<uint32_t> renderCells(int channel) {
    const ScanMap& map = shownMap();
    const size_t plane = instrumentPlane(map, channel);
    const size_t columns = map.maps[plane].size();
    const auto rows = static_cast<size_t>(rowsOf(map.maps[plane]));
    std::vector<uint32_t> cells(columns * rows);
    Scale scale;
    if (isOfInstrument(channel)) {
        scale = scaleOf(map, plane, 0, rows);
        auto& [lowest, highest] = scale.extremes;
        // Only the maximum moves here, unlike in a live row.
        if (highest == lowest) highest = lowest + scale.up;
        scanMap.mapMin = lowest;
        scanMap.mapMax = highest;
    }
    for (size_t row = 0; row < rows; ++row) {
        for (size_t column = 0; column < columns; ++column) {
            uint32_t& cell = cells[row * columns + column];
            cell = isOfInstrument(channel) ? currentPixel(map, plane, column, row, scale)
                                           : confocalPixel(map, channel, column, row);
        }
    }
    return cells;
}

// One try to draw the map through a bitmap; true when it is on the window.
bool drawMapOnce(ContextHandle target, const std::vector<uint32_t>& cells, int columns, int rows,
                 int failures) {
    MemoryBitmap memory;
    memory.context = makeMemoryContext(target);
    if (!memory.context) {
        showInformation("CreateCompatibleDC has failed");
        return false;
    }
    memory.bitmap = makeBitmap(target, columns, rows);
    if (!memory.bitmap || !memory.select()) {
        showInformation("CreateCompatibleBitmap Failed");
        sleepMs(100);
        return false;
    }
    putPixels(memory.context, 0, 0, columns, rows, cells.data());
    const int cell = shownArea().cellPx; // 0 before there is a scan area
    if (cell == 0 ||
        stretchArea(target, columns * cell, rows * cell, memory.context, columns, rows))
        return true;
    showInformation(formatted("BitBlt to window has failed, error count: %d", failures).c_str());
    waitResponsive(100);
    return false;
}

} // namespace

int channelOf(const Plane& plane) {
    const auto map = static_cast<int>(plane.map);
    constexpr auto first = static_cast<int>(firstFurtherMap);
    return map < first ? map : channelFurther + map - first;
}

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

void drawMapRow(WindowHandle window, const Map& map, int row) {
    const auto r = static_cast<size_t>(row);
    Scale scale = scaleOf(scanMap, planePhotocurrent, r, r + 1);
    auto& [lowest, highest] = scale.extremes;
    if (highest - lowest == 0.0f) {
        highest += scale.up;
        lowest -= scale.up;
    }
    drawRow(window, columnsOf(map), row, [&](size_t column) {
        return currentPixel(scanMap, planePhotocurrent, column, r, scale);
    });
}

void drawConfocalRow(WindowHandle window, int row) {
    drawRow(window, columnsOf(scanMap.maps[planeRed]), row, [row](size_t column) {
        return confocalPixel(scanMap, channelConfocal, column, static_cast<size_t>(row));
    });
}

namespace {

bool drawMapOn(ContextHandle target, Extent size, int channel) {
    fillArea(target, size.width, size.height, mapGround);
    const int columns = columnsOf(shownMap().maps[planePhotocurrent]);
    const int rows = rowsOf(shownMap().maps[planePhotocurrent]);
    const std::vector<uint32_t> cells = renderCells(channel);
    int failures = 0;
    while (!drawMapOnce(target, cells, columns, rows, failures))
        if (++failures == drawTries) return false;
    return true;
}

void drawColourBarOn(ContextHandle target, int channel) {
    const std::optional<Unit> unit = unitOfPlane(shownMap(), instrumentPlane(shownMap(), channel));
    const auto colour = unit && unit->closes ? circleColourOf : colourOf;
    const int height = truncated(shownArea().mapHeightPx * 0.9);
    const int left = shownArea().mapWidthPx + 10;
    for (int i = 0; i < height; ++i) {
        const int y = truncated((height - i) + shownArea().mapHeightPx * 0.1);
        drawLine(target, left, y, left + 20, y, colour(i * highestLevel / height));
    }
}

void drawScaleLabelsOn(ContextHandle target, int channel) {
    const std::optional<Unit> unit = unitOfPlane(shownMap(), instrumentPlane(shownMap(), channel));
    const auto label = [&unit](float value) {
        const auto number = static_cast<double>(value);
        return unit ? formatted("%.*f%s", unit->decimals, unit->shown(number), unit->shownAs)
                    : formatted("%.1f", number);
    };
    const int left = shownArea().mapWidthPx + 10;
    drawText(target, left, 0, label(scanMap.mapMax).c_str(), 0, false);
    drawText(target, left, shownArea().mapHeightPx, label(scanMap.mapMin).c_str(), 0, false);
}

} // namespace

int drawMap(WindowHandle window, int channel) {
    const WindowContext target(window);
    if (!target.context) return 0;
    const bool drawn = drawMapOn(target.context, clientExtent(window), channel);
    (window == windows.map ? scanMap.views.mapChannel : scanMap.views.confocalChannel) = channel;
    return drawn ? 1 : 0;
}

void drawColourBar(WindowHandle window) {
    const WindowContext target(window);
    if (target.context) drawColourBarOn(target.context, scanMap.views.mapChannel);
}

void drawScaleLabels(WindowHandle window) {
    const WindowContext target(window);
    if (target.context) drawScaleLabelsOn(target.context, scanMap.views.mapChannel);
}

bool saveMapImage(WindowHandle window, int channel, const char* label) {
    if (!window) return true; // closed meanwhile
    // What the window shows may be black: a locked screen, a remote session that has ended.
    const bool larger = std::max(shownArea().cols, shownArea().rows) > shownArea().mapMaxPx;
    const Extent size = larger ? Extent{shownArea().mapWidthPx + scaleWidthPx,
                                        shownArea().mapHeightPx + labelHeightPx}
                               : clientExtent(window);
    const WindowContext like(window);
    MemoryBitmap memory;
    if (!like.context || !memory.make(like.context, size.width, size.height) ||
        !drawMapOn(memory.context, size, channel)) {
        reportUnwritten(widened(label), "a picture");
        return false;
    }
    if (isOfInstrument(channel)) {
        drawColourBarOn(memory.context, channel);
        drawScaleLabelsOn(memory.context, channel);
    }
    memory.deselect(); // the encoder reads a bitmap that nobody draws on
    return saveNumberedImage(foldersOfMap(), memory.bitmap, label);
}

void markPoint(ContextHandle view, int x, int y) {
    const int64_t pixels = int64_t{imageWidth} * imageHeight;
    for (int j = 0; j < 2; ++j) {
        for (int i = 0; i < 2; ++i) {
            const int64_t index = int64_t{x} + i + (int64_t{y} + j) * imageWidth;
            if (index >= 0 && index < pixels) setPixel(view, x + i, y + j, markGreen);
        }
    }
}

void drawMapWithScale(int channel) {
    drawMap(windows.map, channel);
    if (!isOfInstrument(channel)) return;
    drawColourBar(windows.map);
    drawScaleLabels(windows.map);
}

namespace {

void placeMapWindowForArea() {
    placeMapWindow(picturesLeft, 0, shownArea().mapWidthPx + 100, shownArea().mapHeightPx + 55);
}

} // namespace

void placePictureWindows() {
    placeMapWindowForArea();
    if (mapIsConfocal())
        placeConfocalWindow(picturesLeft, confocalTop, scanArea.mapWidthPx + 50,
                            scanArea.mapHeightPx + 40);
}

void showMapWindow(int channel) {
    placeMapWindowForArea();
    drawMapWithScale(channel);
}

namespace {

// Of what the window has shown before nothing may look like a row of this scan.
void coverWithGround(WindowHandle window) {
    const WindowContext target(window);
    if (!target.context) return;
    const Extent client = clientExtent(window);
    fillArea(target.context, client.width, client.height, mapGround);
}

} // namespace

void startLiveRows() {
    scanMap.views.liveRowsFrom = rowsOf(scanMap.maps[planePhotocurrent]);
    coverWithGround(windows.map);
    if (mapIsConfocal()) coverWithGround(windows.confocal);
}

void setLiveRows(int firstDrawnRow) {
    scanMap.views.liveRowsFrom = firstDrawnRow;
}

void repaintMapWindow() {
    if (scanMap.views.liveRowsFrom < 0) return drawMapWithScale(scanMap.views.mapChannel);
    coverWithGround(windows.map);
    const Map& map = scanMap.maps[planePhotocurrent];
    for (int row = scanMap.views.liveRowsFrom; row < rowsOf(map); ++row)
        drawMapRow(windows.map, map, row);
}

void repaintConfocalWindow() {
    if (scanMap.views.liveRowsFrom < 0) {
        drawMap(windows.confocal, scanMap.views.confocalChannel);
        return;
    }
    coverWithGround(windows.confocal);
    for (int row = scanMap.views.liveRowsFrom; row < rowsOf(scanMap.maps[planeRed]); ++row)
        drawConfocalRow(windows.confocal, row);
}
