// The drawing surface of the native tests: real pixels, recorded texts, failures on demand.
#include "tests/doubles/memory_surface.h"

#include "tests/doubles/temp_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

std::vector<DrawnText> drawnTexts;
std::vector<SavedImage> savedImages;

std::map<Drawing, int> drawingFailures;
int liveContexts, liveBitmaps, imagingStarts;
bool nobodyLooks = false;

static bool failsNow(Drawing kind) {
    int& left = drawingFailures[kind];
    return left > 0 && left-- > 0;
}

NativeBitmap blankBitmap(int width, int height, uint32_t pixel) {
    const auto count = static_cast<size_t>(width) * static_cast<size_t>(height);
    return {width, height, std::vector<uint32_t>(count, pixel)};
}

static uint32_t* pixelAt(NativeBitmap& bitmap, int x, int y) {
    if (x < 0 || y < 0 || x >= bitmap.width || y >= bitmap.height) return nullptr;
    return &bitmap.pixels[static_cast<size_t>(y) * static_cast<size_t>(bitmap.width) +
                          static_cast<size_t>(x)];
}

// Drawing on no context does nothing, as in the window system.
static void plot(ContextHandle context, int x, int y, uint32_t pixel) {
    if (!context || nobodyLooks) return;
    if (uint32_t* at = pixelAt(*context->target, x, y)) *at = pixel;
}

void startImaging() {
    imagingStarts++;
}

void stopImaging() {
    imagingStarts--;
}

Extent clientExtent(WindowHandle window) {
    return {window->client.width, window->client.height};
}

ContextHandle windowContext(WindowHandle window) {
    if (!window) return nullptr;
    liveContexts++;
    return new NativeContext{window, &window->client, {}};
}

void releaseWindowContext(WindowHandle window, ContextHandle context) {
    if (!context) return;
    EXPECT_EQ(context->window, window) << "a context released to another window";
    liveContexts--;
    delete context;
}

// Pictures of the camera's size come by the thousand: the memory of one serves the next.
static std::vector<uint32_t> sparePixels;

BitmapHandle makeBitmap(ContextHandle like, int width, int height) {
    if (!like || width <= 0 || height <= 0 || failsNow(Drawing::MakeBitmap)) return nullptr;
    liveBitmaps++;
    const auto count = static_cast<size_t>(width) * static_cast<size_t>(height);
    if (sparePixels.size() != count) return new NativeBitmap(blankBitmap(width, height, 0));
    if (!nobodyLooks) std::memset(sparePixels.data(), 0, count * sizeof(uint32_t));
    return new NativeBitmap{width, height, std::move(sparePixels)};
}

void deleteBitmap(BitmapHandle bitmap) {
    if (!bitmap) return;
    EXPECT_EQ(bitmap->selectedIn, nullptr) << "a bitmap deleted while it is selected leaks";
    liveBitmaps--;
    if (bitmap->pixels.size() >= sparePixels.size()) sparePixels = std::move(bitmap->pixels);
    delete bitmap;
}

ContextHandle makeMemoryContext(ContextHandle like) {
    if (!like || failsNow(Drawing::MakeContext)) return nullptr;
    liveContexts++;
    auto* context = new NativeContext{nullptr, nullptr, blankBitmap(1, 1, 0)};
    context->target = &context->stock;
    return context;
}

void deleteMemoryContext(ContextHandle context) {
    if (!context) return;
    EXPECT_EQ(context->window, nullptr) << "a window's context is released, not deleted";
    context->target->selectedIn = nullptr;
    liveContexts--;
    delete context;
}

BitmapHandle selectBitmap(ContextHandle memory, BitmapHandle bitmap) {
    if (!memory || !bitmap || memory->window) return nullptr;
    const bool restores = bitmap == &memory->stock; // that never fails
    if (!restores && failsNow(Drawing::SelectBitmap)) return nullptr;
    if (bitmap->selectedIn && bitmap->selectedIn != memory) return nullptr;
    NativeBitmap* previous = memory->target;
    previous->selectedIn = nullptr;
    memory->target = bitmap;
    bitmap->selectedIn = restores ? nullptr : memory;
    return previous;
}

// A check at every byte would take longer than all else that a frame costs in a test.
__attribute__((no_sanitize("address", "undefined"))) static void
copyPictureRow(uint32_t* __restrict to, const uint8_t* __restrict from, int count) {
    std::memcpy(to, from, static_cast<size_t>(count) * 4);
    for (int x = 0; x < count; x++) to[x] &= 0xFFFFFF;
}

bool setPicture(ContextHandle context, BitmapHandle bitmap, const uint8_t* pixels, int width,
                int height) {
    if (!context || !bitmap || !pixels || failsNow(Drawing::SetPicture)) return false;
    EXPECT_EQ(bitmap->selectedIn, nullptr) << "pixels set on a selected bitmap";
    if (nobodyLooks) return true;
    for (int y = 0; y < std::min(height, bitmap->height); y++) {
        const uint8_t* source =
            pixels + static_cast<size_t>(height - 1 - y) * static_cast<size_t>(width) * 4;
        copyPictureRow(pixelAt(*bitmap, 0, y), source, std::min(width, bitmap->width));
    }
    return true;
}

void putPixels(ContextHandle context, int x, int y, int width, int height, const uint32_t* pixels) {
    if (nobodyLooks) return;
    for (int row = 0; row < height; row++)
        for (int column = 0; column < width; column++)
            plot(context, x + column, y + row, *pixels++ & 0xFFFFFF);
}

bool copyArea(ContextHandle to, int width, int height, ContextHandle from) {
    if (!to || !from || failsNow(Drawing::CopyArea)) return false;
    if (nobodyLooks) return true;
    width = std::min({width, to->target->width, from->target->width});
    height = std::min({height, to->target->height, from->target->height});
    // AddressSanitizer's memmove, which std::copy calls, goes byte by byte.
    for (int y = 0; y < height; y++)
        std::memcpy(pixelAt(*to->target, 0, y), pixelAt(*from->target, 0, y),
                    static_cast<size_t>(width) * sizeof(uint32_t));
    return true;
}

bool stretchArea(ContextHandle to, int toWidth, int toHeight, ContextHandle from, int fromWidth,
                 int fromHeight) {
    return shrinkArea(to, 0, 0, toWidth, toHeight, from, 0, 0, fromWidth, fromHeight);
}

bool shrinkArea(ContextHandle to, int x, int y, int toWidth, int toHeight, ContextHandle from,
                int fromX, int fromY, int fromWidth, int fromHeight) {
    if (!to || !from || failsNow(Drawing::StretchArea)) return false;
    if (nobodyLooks) return true;
    for (int row = 0; row < toHeight; row++) {
        for (int column = 0; column < toWidth; column++) {
            const int inX = (2 * column + 1) * fromWidth / (2 * toWidth); // the middle one
            const int inY = (2 * row + 1) * fromHeight / (2 * toHeight);
            if (const uint32_t* source = pixelAt(*from->target, fromX + inX, fromY + inY))
                plot(to, x + column, y + row, *source);
        }
    }
    return true;
}

void setPixel(ContextHandle context, int x, int y, Colour colour) {
    plot(context, x, y, pixelOf(colour));
}

static void fillBox(ContextHandle context, int left, int top, int right, int bottom,
                    uint32_t pixel) {
    if (nobodyLooks) return;
    for (int y = top; y < bottom; y++)
        for (int x = left; x < right; x++) plot(context, x, y, pixel);
}

void fillArea(ContextHandle context, int width, int height, Colour colour) {
    fillBox(context, 0, 0, width, height, pixelOf(colour));
}

// Bresenham's line; the last point stays out, as the window system has it.
template <class Visit> static void walkLine(int x1, int y1, int x2, int y2, Visit visit) {
    const int dx = std::abs(x2 - x1), dy = -std::abs(y2 - y1);
    const int stepX = x1 < x2 ? 1 : -1, stepY = y1 < y2 ? 1 : -1;
    int error = dx + dy;
    while (x1 != x2 || y1 != y2) {
        visit(x1, y1);
        const int doubled = 2 * error;
        if (doubled >= dy) {
            error += dy;
            x1 += stepX;
        }
        if (doubled <= dx) {
            error += dx;
            y1 += stepY;
        }
    }
}

void drawLine(ContextHandle context, int x1, int y1, int x2, int y2, Colour colour) {
    walkLine(x1, y1, x2, y2, [&](int x, int y) { setPixel(context, x, y, colour); });
}

void drawLines(ContextHandle context, const PixelPoint* points, int count, Colour colour) {
    for (int i = 1; i < count; i++)
        drawLine(context, points[i - 1].x, points[i - 1].y, points[i].x, points[i].y, colour);
}

// Corners in any order, as the window system takes them.
template <class Visit>
static void walkOutline(int left, int top, int right, int bottom, Visit visit) {
    if (left > right) std::swap(left, right);
    if (top > bottom) std::swap(top, bottom);
    for (int x = left; x < right; x++) {
        visit(x, top);
        if (bottom - 1 != top) visit(x, bottom - 1);
    }
    for (int y = top + 1; y < bottom - 1; y++) {
        visit(left, y);
        if (right - 1 != left) visit(right - 1, y);
    }
}

void drawRectangle(ContextHandle context, int left, int top, int right, int bottom, Colour pen) {
    walkOutline(left, top, right, bottom, [&](int x, int y) { setPixel(context, x, y, pen); });
}

void drawFilledRectangle(ContextHandle context, int left, int top, int right, int bottom,
                         Colour pen, Colour fill) {
    fillBox(context, left, top, right, bottom, pixelOf(fill));
    drawRectangle(context, left, top, right, bottom, pen);
}

void drawEllipse(ContextHandle context, int left, int top, int right, int bottom, Colour pen) {
    const double a = (right - 1 - left) / 2.0, b = (bottom - 1 - top) / 2.0;
    const double centreX = left + a, centreY = top + b;
    if (a <= 0 || b <= 0) return;
    const int points = static_cast<int>(8 * (a + b)) + 8;
    for (int i = 0; i < points; i++) {
        const double angle = 2 * M_PI * i / points;
        setPixel(context, static_cast<int>(std::lround(centreX + a * std::cos(angle))),
                 static_cast<int>(std::lround(centreY + b * std::sin(angle))), pen);
    }
}

static void invertPixel(ContextHandle context, int x, int y) {
    if (!context) return;
    if (uint32_t* at = pixelAt(*context->target, x, y)) *at ^= 0xFFFFFF;
}

void invertRectangle(ContextHandle context, int left, int top, int right, int bottom) {
    walkOutline(left, top, right, bottom, [&](int x, int y) { invertPixel(context, x, y); });
}

void invertLine(ContextHandle context, int x1, int y1, int x2, int y2) {
    walkLine(x1, y1, x2, y2, [&](int x, int y) { invertPixel(context, x, y); });
}

void drawText(ContextHandle context, int x, int y, const char* text, Colour colour,
              bool transparent) {
    if (context && !nobodyLooks)
        drawnTexts.push_back({context->target, x, y, text, colour, transparent});
}

// The picture goes into memory and an empty file takes its place: what is tested is where a picture
// went and what was on it, the encoder is the window system's.
bool saveBitmapAsPng(BitmapHandle bitmap, const std::wstring& path) {
    if (!bitmap || failsNow(Drawing::Save)) return false;
    const File file = openFile(path, L"wb");
    if (!file) return false;
    if (!nobodyLooks) savedImages.push_back({path, bitmap->width, bitmap->height, bitmap->pixels});
    return true;
}
