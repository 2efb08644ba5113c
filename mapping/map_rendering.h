// Draws the maps: live row by row during a scan, whole afterwards.
#pragma once

#include "mapping/palettes.h"
#include "mapping/scan_map.h"
#include "platform/surface.h"

#include <cstdint>
#include <string>

// Which of them shows a plane.
int channelOf(const Plane& plane);

// One row of the photocurrent map, normalised to its own extremes, as squares of cellPx pixels.
void drawMapRow(WindowHandle window, const Map& map, int row);

// A row that a scan has finished: by its own extremes, or by one scale of all rows so far, which
// then stands beside it and lets the others be drawn anew where it has changed.
void drawLiveRow(int row);

// One row of the three colour maps in true colour.
void drawConfocalRow(WindowHandle window, int row);

// The whole map of a channel, scaled to cellPx pixels a point, on a grey ground; one of the
// instrument sets the extremes that the scale shows (scanMap.mapMin, mapMax). Returns 1, or 0 after
// 20 failures, each shown in the information text.
int drawMap(WindowHandle window, int channel);

// The colour scale beside the map of an instrument's channel and its extremes as text.
void drawColourBar(WindowHandle window);
void drawScaleLabels(WindowHandle window);

// The scan's green marker of 2 x 2 pixels on the camera view.
void markPoint(ContextHandle view, int x, int y);

// Places the windows of the maps beside the main window, sized for the scan area, and shows them;
// the one for the confocal maps only when the maps have such planes.
void placePictureWindows();

// Draws a channel into the map window; one of the instrument with its colour scale.
void drawMapWithScale(int channel);

// Saves a channel that its window shows, as saveWindowImage does, but drawn anew: a map that is
// larger than the screen is saved whole, and one that nobody can see all the same. A failure is
// reported; of a window that was closed nothing is saved, and that is none.
bool saveMapImage(WindowHandle window, int channel, const char* label);

// Creates or shows the map window with a channel of the map in memory.
void showMapWindow(int channel);

// Shows a map that was read from a file in the map window, with the channel that its views name;
// its conditions say how it is laid out. It is none of the program's own: nothing is saved of it,
// and the map in memory is back in the window with the next of showMapWindow, placePictureWindows
// and startLiveRows, so at the latest when a scan begins.
void showFileMap(ScanMap map, const std::string& title);
const ScanMap* shownFileMap(); // null while the window shows the map in memory
int32_t shownMapChannel();     // of the map that the map window shows; negative without one
void forgetFileMap();          // without a word to the window

// A scan begins to draw its rows: the windows of its maps show none yet.
void startLiveRows();

// While a scan draws its rows: the first row that is drawn already, counted from the top; rows of
// the map above it are not measured yet. No scan: -1.
void setLiveRows(int firstDrawnRow);

// What the two picture windows show, drawn again after they were uncovered.
void repaintMapWindow();
void repaintConfocalWindow();
