// Windows on which everything appears larger or smaller than it is drawn: one draws on a picture in
// memory, in the pixels of the unscaled window, and WM_PAINT brings it onto the window.
#pragma once

#include "platform/surface.h"

#include <windows.h>

// From now on drawing on the window goes to a picture of `drawn` pixels, which the window shows in
// `shown` pixels at its top left. True when that picture is new: it is in the background's colour.
bool scaleDrawing(HWND window, Extent drawn, Extent shown);

// The window shows so many pixels, in the scale that it has. True as above.
bool resizeScaled(HWND window, Extent shown);

// As any other window; nothing happens to one that is. Necessary before it is destroyed.
void drawUnscaled(HWND window);

bool isScaled(HWND window);

// Nothing is drawn on it any more.
void eraseScaled(HWND window);

// Answers WM_PAINT, and WM_ERASEBKGND: the picture covers the background under it.
void paintScaled(HWND window);
void sparePicture(HWND window, HDC context);

// The context and the size of that picture; null for an unscaled window.
HDC scaledContext(HWND window);
const Extent* scaledExtent(HWND window);

// What has been drawn since the last time is to be painted. False when `context` is none of these.
bool finishScaled(HWND window, HDC context);
