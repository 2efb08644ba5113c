// Draws the picture through a bitmap in memory, so that it appears whole with its marks.
#include "camera/display.h"

#include "camera/camera.h"
#include "camera/spot.h"
#include "platform/clock.h"
#include "platform/surface_owners.h"
#include "platform/text_format.h"
#include "platform/truncate.h"
#include "platform/widen.h"
#include "screen/screen.h"
#include "session/document.h"
#include "session/responsive_wait.h"
#include "session/set_up.h"

#include <cmath>

Display display;

namespace {

constexpr int bitmapTries = 5;
constexpr int pictureTries = 3;
constexpr int copyTries = 10;
constexpr int windowImageTries = 20;

// On the camera's own picture, where a wide view shows its surroundings too.
void outlineDrawnRectangle(ContextHandle picture) {
    const PictureRectangle& drawn = display.drawnRectangle;
    const auto x = [&](int32_t at) {
        return (at - imageWidth / 2) * drawn.viewScale + imageWidth / 2;
    };
    const auto y = [&](int32_t at) {
        return (at - imageHeight / 2) * drawn.viewScale + imageHeight / 2;
    };
    drawRectangle(picture, x(drawn.x1), y(drawn.y1), x(drawn.x2), y(drawn.y2), markGreen);
}

bool saveNumbered(const DataFolders& folders, BitmapHandle bitmap, const char* label,
                  int32_t& counter) {
    const std::string name = nextFreeName(folders.sessionFolder, label, counter, L".jpg");
    const std::wstring path = folders.sessionFolder + L"\\" + widened(name) + L".jpg";
    const bool saved = logFile(path, saveBitmapAsPng(bitmap, path));
    if (!saved) reportUnwritten(path, "a picture");
    return saved;
}

void savePicture(MemoryBitmap& memory) {
    outlineDrawnRectangle(memory.context);
    memory.deselect(); // the encoder reads a bitmap that nobody draws on
    saveNumbered(dataFolders, memory.bitmap, "camera", display.cameraImageCounter);
    memory.select();
}

void showCopyFailure(int count) {
    showInformation(formatted("BitBlt to window has failed, error count: %d", count).c_str());
    waitResponsive(100);
}

} // namespace

bool makeCameraPicture(ContextHandle like, const uint8_t* pixels, MemoryBitmap& memory) {
    int bitmapFailures = 0;
    for (int attempt = 0; attempt < pictureTries;) {
        memory.bitmap = makeBitmap(like, imageWidth, imageHeight);
        if (!memory.bitmap) {
            showInformation(
                formatted("CreateCompatibleBitmap failed, error count: %d", bitmapFailures)
                    .c_str());
            if (++bitmapFailures == bitmapTries) return false;
            sleepMs(100);
            continue;
        }
        memory.context = makeMemoryContext(like);
        if (!memory.context) {
            showInformation("CreateCompatibleDC has failed");
        } else if (setPicture(memory.context, memory.bitmap, pixels, imageWidth, imageHeight)) {
            return true;
        } else {
            showInformation(formatted("SetDIBits has failed, error count: %d", attempt).c_str());
            sleepMs(100);
        }
        memory.release();
        ++attempt;
    }
    return false;
}

int64_t drawCameraFrame(const uint8_t* pixels, uint32_t save) {
    WindowContext window(windows.main);
    if (!window.context || !pixels) return 0;
    MemoryBitmap memory;
    if (!makeCameraPicture(window.context, pixels, memory)) return 0;
    if (!memory.select()) return 0;
    drawScaleBar(memory.context, imageWidth, imageHeight);
    drawApertureMark(memory.context, cameraState.laserOffset.x,
                     truncated(static_cast<double>(imageHeight) - cameraState.laserOffset.y),
                     cameraState.cameraAperture);
    if (save) savePicture(memory);
    display.drawOver(memory.context);
    for (int failures = 0; !copyArea(window.context, imageWidth, imageHeight, memory.context);) {
        showCopyFailure(failures);
        if (++failures == copyTries) break;
    }
    return 1;
}

int64_t saveWindowImage(DataFolders& folders, WindowHandle window, uint32_t pictureSize,
                        const char* label) {
    if (!window) return 0; // closed meanwhile
    paintPending(window);
    int failures = 0;
    for (; failures < windowImageTries; ++failures) {
        WindowContext source(window);
        MemoryBitmap memory;
        memory.context = makeMemoryContext(source.context);
        const Extent client = clientExtent(window);
        const Extent size = pictureSize ? Extent{imageWidth, imageHeight} : client;
        memory.bitmap = makeBitmap(source.context, size.width, size.height);
        if (!memory.bitmap) {
            showInformation("CreateCompatibleBitmap Failed");
            sleepMs(100);
            continue;
        }
        if (!memory.context || !memory.select()) {
            showInformation("CreateCompatibleDC has failed");
            continue;
        }
        if (!copyArea(memory.context, size.width, size.height, source.context)) {
            showCopyFailure(failures);
            continue;
        }
        memory.deselect();
        saveNumberedImage(folders, memory.bitmap, label);
        return 1;
    }
    reportUnwritten(widened(label), "a picture");
    return 0;
}

bool saveNumberedImage(DataFolders& folders, BitmapHandle bitmap, const char* label) {
    ensureSessionFolder(folders);
    return saveNumbered(folders, bitmap, label, display.windowImageCounter);
}

double roundLengthUm(double most) {
    const double decade = std::pow(10.0, std::floor(std::log10(most)));
    for (const double part : {5.0, 2.0})
        if (part * decade <= most) return part * decade;
    return decade;
}

void drawScaleBar(ContextHandle context, int width, int height) {
    constexpr Colour black = 0;
    constexpr Colour yellow = colourRgb(255, 255, 0);
    const int x0 = width - 150;
    const int y0 = height - 100;
    const double fieldUm = setUp.objective().umPerColumn() * imageWidth;
    const double length = roundLengthUm(fieldUm / 12);
    drawFilledRectangle(context, x0, y0, x0 + truncated(width * length / fieldUm), y0 + 5, black,
                        yellow);
    const std::string label = formatted("%g um", display.wideView ? 3 * length : length);
    // Outlined in black, so that it reads on any picture.
    drawText(context, x0 + 1, y0 + 5, label.c_str(), black, true);
    drawText(context, x0 - 1, y0 + 5, label.c_str(), black, true);
    drawText(context, x0, y0 + 6, label.c_str(), black, true);
    drawText(context, x0, y0 + 4, label.c_str(), black, true);
    drawText(context, x0, y0 + 5, label.c_str(), yellow, true);
}

void drawApertureMark(ContextHandle context, int x, int y, int radius) {
    const auto edge = [](double value) { return truncated(value); };
    drawEllipse(context, edge(double{1} * x - radius), edge(double{1} * y - radius),
                edge(double{1} * x + radius), edge(double{1} * y + radius), markRed);
}

void drawCircleMark(WindowHandle window, int x, int y, int radius, Colour colour) {
    WindowContext target(window);
    drawEllipse(target.context, x - radius, y - radius, x + radius, y + radius, colour);
}
