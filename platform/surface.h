// Drawing on windows and bitmaps, and saving a bitmap as an image file.
#pragma once

#include "platform/window_handle.h"

#include <cstdint>
#include <string>

struct NativeContext; // what one draws on: a window or a bitmap selected into memory
struct NativeBitmap;
using ContextHandle = NativeContext*;
using BitmapHandle = NativeBitmap*;

using Colour = uint32_t; // red in the low byte, green in the next, blue in the third

constexpr Colour colourRgb(unsigned red, unsigned green, unsigned blue) {
    return red | green << 8 | blue << 16;
}

// The same as a pixel, 0x00RRGGBB.
constexpr uint32_t pixelOf(Colour colour) {
    return (colour & 0xFF) << 16 | (colour & 0xFF00) | (colour >> 16 & 0xFF);
}

struct Extent {
    int width = 0;
    int height = 0;
};

// Image encoders need a start before the first save and a stop after the last.
void startImaging();
void stopImaging();

Extent clientExtent(WindowHandle window);
ContextHandle windowContext(WindowHandle window); // null on failure
void releaseWindowContext(WindowHandle window, ContextHandle context);

BitmapHandle makeBitmap(ContextHandle like, int width, int height); // null on failure
void deleteBitmap(BitmapHandle bitmap);
ContextHandle makeMemoryContext(ContextHandle like); // null on failure
void deleteMemoryContext(ContextHandle context);

// Makes the bitmap the one that `memory` draws on; returns the previous one, null on failure.
BitmapHandle selectBitmap(ContextHandle memory, BitmapHandle bitmap);

// Copies a bottom-up picture of 4 bytes a pixel (blue, green, red, unused) into a bitmap that is
// not selected. False on failure.
bool setPicture(ContextHandle context, BitmapHandle bitmap, const uint8_t* pixels, int width,
                int height);

// Writes a block of top-down pixels (0x00RRGGBB) with its top left corner at (x, y).
void putPixels(ContextHandle context, int x, int y, int width, int height, const uint32_t* pixels);

// Copies width x height from the top left of one context to that of another. False on failure.
bool copyArea(ContextHandle to, int width, int height, ContextHandle from);
bool stretchArea(ContextHandle to, int toWidth, int toHeight, ContextHandle from, int fromWidth,
                 int fromHeight);

// The same of a rectangle at (fromX, fromY) into one at (x, y), with the mean of the pixels that
// fall together.
bool shrinkArea(ContextHandle to, int x, int y, int toWidth, int toHeight, ContextHandle from,
                int fromX, int fromY, int fromWidth, int fromHeight);

void setPixel(ContextHandle context, int x, int y, Colour colour);
void fillArea(ContextHandle context, int width, int height, Colour colour);
void drawLine(ContextHandle context, int x1, int y1, int x2, int y2, Colour colour);

struct PixelPoint {
    int x = 0;
    int y = 0;
};

// A line through all points; like every line it leaves out its last pixel.
void drawLines(ContextHandle context, const PixelPoint* points, int count, Colour colour);

// One-pixel outlines; right and bottom are the first pixels outside.
void drawRectangle(ContextHandle context, int left, int top, int right, int bottom, Colour pen);
void drawFilledRectangle(ContextHandle context, int left, int top, int right, int bottom,
                         Colour pen, Colour fill);
void drawEllipse(ContextHandle context, int left, int top, int right, int bottom, Colour pen);

// Inverts the outline's pixels, so that drawing it again erases it.
void invertRectangle(ContextHandle context, int left, int top, int right, int bottom);
void invertLine(ContextHandle context, int x1, int y1, int x2, int y2);

// `transparent` leaves the background between the letters as it is.
void drawText(ContextHandle context, int x, int y, const char* text, Colour colour,
              bool transparent);

// Saves as PNG whatever the file name says. False when the file was not written.
bool saveBitmapAsPng(BitmapHandle bitmap, const std::wstring& path);
