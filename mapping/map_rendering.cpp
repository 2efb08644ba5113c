// Draws maps into their windows.
#include "mapping/map_rendering.h"

#include "camera/display.h"
#include "camera/picture.h"
#include "instruments/ammeter.h"
#include "mapping/map_legend.h"
#include "mapping/map_look.h"
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
#include <memory>
#include <optional>
#include <utility>

namespace {

constexpr Colour mapGround = colourRgb(0xC8, 0xC8, 0xC8);
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

// The map that was read from a file, while the map window shows it.
std::unique_ptr<ScanMap> fileMap;

// In this object's block the windows' map is that of the scans: the confocal window, and what is
// saved, know no file.
class WithoutFile {
public:
    WithoutFile() : hidden(std::exchange(fileMapShown, nullptr)) {}
    ~WithoutFile() { fileMapShown = hidden; }
    WithoutFile(const WithoutFile&) = delete;
    WithoutFile& operator=(const WithoutFile&) = delete;

private:
    const ScanMap* const hidden;
};

MapViews& viewsOf(WindowHandle window) {
    return window == windows.map && fileMap ? fileMap->views : scanMap.views;
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

// Nothing that a scale has, for cells that hold no measured number.
uint32_t hatched(int x, int y) {
    constexpr int period = 4;
    return (x + y) % period == 0 ? 0x808080 : pixelOf(mapGround);
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

// Some rows of a map, a pixel a cell, top-down.
struct Cells {
    int columns = 0, rows = 0, firstRow = 0;
    std::vector<uint32_t> pixels;
    std::vector<uint8_t> masked; // by row: whether a cell of it is
};
constexpr uint32_t maskedCell = 0xFF000000; // no colour has the fourth byte

// The rows [first, end) of a channel.
Cells cellsOf(const ScanMap& map, int channel, const MapScale& scale, size_t first, size_t end) {
    const size_t plane = isOfInstrument(channel) ? planeShown(map, channel) : size_t{planeRed};
    const size_t columns = map.maps[plane].size();
    Cells cells{static_cast<int>(columns), static_cast<int>(end - first), static_cast<int>(first)};
    cells.pixels.resize(columns * (end - first));
    cells.masked.resize(end - first);
    for (size_t row = first; row < end; ++row)
        for (size_t column = 0; column < columns; ++column) {
            uint32_t& cell = cells.pixels[(row - first) * columns + column];
            if (isMasked(map, column, row, plane)) {
                cell = maskedCell;
                cells.masked[row - first] = 1;
            } else if (isOfInstrument(channel)) {
                cell = pixelOf(scale.of(map.maps[plane][column][row]));
            } else {
                cell = confocalPixel(map, channel, column, row);
            }
        }
    return cells;
}

// Draws one of their rows as squares in one go, the masked ones hatched.
void drawCellRow(ContextHandle target, const Cells& cells, int row, int cell) {
    const int width = cells.columns * cell, top = (cells.firstRow + row) * cell;
    if (width <= 0) return; // no scan area yet
    std::vector<uint32_t> block(static_cast<size_t>(width) * static_cast<size_t>(cell));
    const uint32_t* const pixels =
        cells.pixels.data() + static_cast<ptrdiff_t>(row) * cells.columns;
    auto to = block.begin();
    for (int line = 0; line < cell; ++line)
        for (int x = 0; x < width; ++x) {
            const uint32_t pixel = pixels[x / cell];
            *to++ = pixel == maskedCell ? hatched(x, top + line) : pixel;
        }
    putPixels(target, 0, top, width, cell, block.data());
}

MapScale wholeScaleOf(const ScanMap& map, int channel) {
    const size_t plane = planeShown(map, channel);
    const auto rows = static_cast<size_t>(rowsOf(map.maps[plane]));
    MapScale scale = scaleOf(map, plane, 0, rows, mapLook);
    // Only the maximum moves here, unlike in a live row.
    if (scale.highest == scale.lowest) scale.highest = scale.lowest + scale.up;
    return scale;
}

// The whole map; one of the instrument tells its ends.
Cells renderCells(int channel) {
    const ScanMap& map = shownMap();
    MapScale scale;
    if (isOfInstrument(channel)) {
        scale = wholeScaleOf(map, channel);
        scanMap.mapMin = scale.lowest;
        scanMap.mapMax = scale.highest;
    }
    return cellsOf(map, channel, scale, 0,
                   static_cast<size_t>(rowsOf(map.maps[planePhotocurrent])));
}

// One try to draw the map through a bitmap; true when it is on the window.
bool drawMapOnce(ContextHandle target, const Cells& cells, int failures) {
    const int columns = cells.columns, rows = cells.rows;
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
    putPixels(memory.context, 0, 0, columns, rows, cells.pixels.data());
    const int cell = shownArea().cellPx; // 0 before there is a scan area
    if (cell == 0) return true;
    if (stretchArea(target, columns * cell, rows * cell, memory.context, columns, rows)) {
        for (int row = 0; row < rows; ++row)
            if (cells.masked[static_cast<size_t>(row)]) drawCellRow(target, cells, row, cell);
        return true;
    }
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

void drawMapRow(WindowHandle window, const Map& map, int row) {
    const auto r = static_cast<size_t>(row);
    // A row by itself shows all of it.
    MapLook own = mapLook;
    own.range = RangeWay::Whole;
    MapScale scale = scaleOf(scanMap, planePhotocurrent, r, r + 1, own);
    if (scale.highest - scale.lowest == 0.0f) {
        scale.highest += scale.up;
        scale.lowest -= scale.up;
    }
    const WindowContext target(window);
    if (target.context && columnsOf(map) > 0)
        drawCellRow(target.context, cellsOf(scanMap, channelPhotocurrent, scale, r, r + 1), 0,
                    scanArea.cellPx);
}

void drawConfocalRow(WindowHandle window, int row) {
    const auto r = static_cast<size_t>(row);
    const WindowContext target(window);
    if (target.context && columnsOf(scanMap.maps[planeRed]) > 0)
        drawCellRow(target.context, cellsOf(scanMap, channelConfocal, {}, r, r + 1), 0,
                    scanArea.cellPx);
}

namespace {

bool drawMapOn(ContextHandle target, Extent size, int channel) {
    fillArea(target, size.width, size.height, mapGround);
    const Cells cells = renderCells(channel);
    int failures = 0;
    while (!drawMapOnce(target, cells, failures))
        if (++failures == drawTries) return false;
    return true;
}

void drawColourBarOn(ContextHandle target, int channel) {
    const ScanArea& area = shownArea();
    const auto colour =
        scaleOf(shownMap(), instrumentPlane(shownMap(), channel), 0, 0, mapLook).colour;
    const int height = truncated(area.mapHeightPx * 0.9);
    const int left = area.mapWidthPx + 10;
    for (int i = 0; i < height; ++i) {
        const int y = truncated((height - i) + area.mapHeightPx * 0.1);
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

int legendTop() {
    return shownArea().mapHeightPx + labelHeightPx + 4;
}

std::string titleOf(int channel) {
    if (channel == channelConfocal) return "Confocal image";
    for (const Plane& plane : planesOf(shownMap()))
        if (plane.map == planeShown(shownMap(), channel)) return plane.title;
    return "";
}

} // namespace

int drawMap(WindowHandle window, int channel) {
    const WindowContext target(window);
    if (!target.context) return 0;
    MapViews& views = viewsOf(window);
    (window == windows.map ? views.mapChannel : views.confocalChannel) = channel;
    if (window == windows.map) return drawMapOn(target.context, clientExtent(window), channel);
    const WithoutFile scanned;
    return drawMapOn(target.context, clientExtent(window), channel);
}

void drawColourBar(WindowHandle window) {
    const WindowContext target(window);
    if (target.context) drawColourBarOn(target.context, viewsOf(window).mapChannel);
}

void drawScaleLabels(WindowHandle window) {
    const WindowContext target(window);
    if (target.context) drawScaleLabelsOn(target.context, viewsOf(window).mapChannel);
}

bool saveMapImage(WindowHandle window, int channel, const char* label) {
    if (!window) return true; // closed meanwhile
    const WithoutFile scanned;
    // What the window shows may be black: a locked screen, a remote session that has ended.
    const bool larger = std::max(shownArea().cols, shownArea().rows) > shownArea().mapMaxPx;
    Extent size = larger ? Extent{shownArea().mapWidthPx + scaleWidthPx,
                                  shownArea().mapHeightPx + labelHeightPx}
                         : clientExtent(window);
    if (mapLook.legend) {
        const Extent legend = legendExtent();
        size.width = std::max({size.width, shownArea().mapWidthPx + scaleWidthPx, legend.width});
        size.height = legendTop() + legend.height;
    }
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
    if (mapLook.legend) {
        drawMapScale(memory.context);
        drawLegend(memory.context, legendTop(), titleOf(channel).c_str());
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
    const WindowContext target(windows.map);
    if (target.context) drawMapScale(target.context);
    drawColourBar(windows.map);
    drawScaleLabels(windows.map);
}

namespace {

void placeMapWindowForArea() {
    placeMapWindow(picturesLeft, 0, shownArea().mapWidthPx + 100, shownArea().mapHeightPx + 55);
}

// The map window shows no file any more.
void leaveFileMap() {
    if (!fileMap) return;
    forgetFileMap();
    setWindowText(windows.map, "Photocurrent map");
}

} // namespace

void placePictureWindows() {
    leaveFileMap();
    placeMapWindowForArea();
    if (mapIsConfocal())
        placeConfocalWindow(picturesLeft, confocalTop, scanArea.mapWidthPx + 50,
                            scanArea.mapHeightPx + 40);
}

void showMapWindow(int channel) {
    leaveFileMap();
    placeMapWindowForArea();
    drawMapWithScale(channel);
}

void showFileMap(ScanMap map, const std::string& title) {
    fileMap = std::make_unique<ScanMap>(std::move(map));
    fileMapShown = fileMap.get();
    placeMapWindowForArea();
    setWindowText(windows.map, title.c_str());
    drawMapWithScale(fileMap->views.mapChannel);
}

const ScanMap* shownFileMap() {
    return fileMap.get();
}

int32_t shownMapChannel() {
    return viewsOf(windows.map).mapChannel;
}

void forgetFileMap() {
    fileMapShown = nullptr;
    fileMap.reset();
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
    leaveFileMap();
    scanMap.views.liveRowsFrom = rowsOf(scanMap.maps[planePhotocurrent]);
    coverWithGround(windows.map);
    if (mapIsConfocal()) coverWithGround(windows.confocal);
}

void setLiveRows(int firstDrawnRow) {
    scanMap.views.liveRowsFrom = firstDrawnRow;
}

namespace {

// The rows so far by one scale.
void drawLiveRows(const MapScale& scale, int first) {
    const WindowContext target(windows.map);
    const int rows = rowsOf(scanMap.maps[planePhotocurrent]);
    if (!target.context) return;
    const Cells cells = cellsOf(scanMap, channelPhotocurrent, scale, static_cast<size_t>(first),
                                static_cast<size_t>(rows));
    for (int row = 0; row < cells.rows; ++row)
        drawCellRow(target.context, cells, row, scanArea.cellPx);
}

void drawLiveScale(const MapScale& scale) {
    const WindowContext target(windows.map);
    if (!target.context) return;
    scanMap.mapMin = scale.lowest;
    scanMap.mapMax = scale.highest;
    drawColourBarOn(target.context, channelPhotocurrent);
    drawScaleLabelsOn(target.context, channelPhotocurrent);
}

// Of the rows from that one on, down to the first that was scanned.
MapScale liveScaleFrom(int row) {
    const int rows = rowsOf(scanMap.maps[planePhotocurrent]);
    MapScale scale = scaleOf(scanMap, planePhotocurrent, static_cast<size_t>(row),
                             static_cast<size_t>(rows), mapLook);
    if (scale.highest == scale.lowest) scale.highest = scale.lowest + scale.up;
    return scale;
}

} // namespace

void drawLiveRow(int row) {
    if (!mapLook.oneScale) return drawMapRow(windows.map, scanMap.maps[planePhotocurrent], row);
    const MapScale scale = liveScaleFrom(row);
    const bool isAsBefore = scale.lowest == scanMap.mapMin && scale.highest == scanMap.mapMax;
    if (isAsBefore && row + 1 < rowsOf(scanMap.maps[planePhotocurrent])) {
        const WindowContext target(windows.map);
        const auto r = static_cast<size_t>(row);
        if (target.context)
            drawCellRow(target.context, cellsOf(scanMap, channelPhotocurrent, scale, r, r + 1), 0,
                        scanArea.cellPx);
        return;
    }
    coverWithGround(windows.map); // longer labels
    drawLiveRows(scale, row);
    drawLiveScale(scale);
}

void repaintMapWindow() {
    const int first = scanMap.views.liveRowsFrom;
    if (first < 0) return drawMapWithScale(viewsOf(windows.map).mapChannel);
    coverWithGround(windows.map);
    const Map& map = scanMap.maps[planePhotocurrent];
    if (first >= rowsOf(map)) return;
    if (mapLook.oneScale) {
        const MapScale scale = liveScaleFrom(first);
        drawLiveRows(scale, first);
        return drawLiveScale(scale);
    }
    for (int row = first; row < rowsOf(map); ++row) drawMapRow(windows.map, map, row);
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
