// Scales the main window: the largest picture beside a column whose text can be read.
#include "ui/fit.h"

#include "camera/picture.h"

#include <algorithm>
#include <cmath>

namespace {

// What there is on the unscaled window, and what of it is column.
constexpr int contentWidth = 1446, contentHeight = imageHeight + 2;
constexpr int columnWidth = contentWidth - imageWidth;
constexpr int columnHeight = 735;
constexpr double columnShare = 0.25; // of the width, at most
constexpr double fontPx = 11.0;      // 8 points at 96 dpi

// A window picture stands so far over the main window's edge, most of which cannot be seen.
constexpr int overlapPx = 12;
constexpr int secondBelowPx = 450;

int rounded(double value) {
    return static_cast<int>(std::lround(value));
}

double largest(int dpi) {
    return static_cast<double>(dpi) / unscaledDpi;
}

// The picture's pixel under the middle of a window's.
int back(int at, int drawn, int shown) {
    return static_cast<int>(std::floor((at + 0.5) * drawn / shown));
}

int forth(int at, int drawn, int shown) {
    return static_cast<int>(std::floor((at + 0.5) * shown / drawn));
}

} // namespace

bool ScreenArea::contains(const ScreenArea& other) const {
    return other.left >= left && other.top >= top && other.right() <= right() &&
           other.bottom() <= bottom();
}

Extent Fit::shownPicture() const {
    return scaled(Extent{imageWidth, imageHeight}, picture);
}

Extent Fit::content() const {
    return {static_cast<int>(std::ceil(imageWidth * picture + columnWidth * column)),
            static_cast<int>(std::ceil(std::max(contentHeight * picture, columnHeight * column)))};
}

ScreenArea Fit::place(const ScreenArea& control) const {
    ScreenArea placed = control;
    placed.left -= imageWidth;
    placed = scaled(placed, column);
    placed.left += shownPicture().width;
    return placed;
}

PixelPoint Fit::toPicture(PixelPoint client) const {
    const Extent shown = shownPicture();
    return {back(client.x, imageWidth, shown.width), back(client.y, imageHeight, shown.height)};
}

PixelPoint Fit::toWindow(PixelPoint at) const {
    const Extent shown = shownPicture();
    return {forth(at.x, imageWidth, shown.width), forth(at.y, imageHeight, shown.height)};
}

Fit fullSize(int dpi) {
    return {largest(dpi), largest(dpi)};
}

Fit fitInto(Extent room, int dpi) {
    const double width = std::max(room.width, 100), height = std::max(room.height, 100);
    Fit fit;
    fit.column = std::min({largest(dpi), height / columnHeight, columnShare * width / columnWidth});
    fit.picture = std::min(
        {largest(dpi), height / contentHeight, (width - columnWidth * fit.column) / imageWidth});
    return fit;
}

Extent fittedClient(Extent room, int dpi) {
    const Fit fit = fitInto(room, dpi);
    if (fit == fullSize(dpi)) return room;
    return {std::min(room.width, fit.content().width), room.height};
}

double scaleOf(Extent client, Extent room, int dpi) {
    return std::min({largest(dpi), static_cast<double>(room.width) / client.width,
                     static_cast<double>(room.height) / client.height});
}

Extent scaled(Extent extent, double factor) {
    return {rounded(extent.width * factor), rounded(extent.height * factor)};
}

ScreenArea scaled(const ScreenArea& area, double factor) {
    const int left = rounded(area.left * factor), top = rounded(area.top * factor);
    return {left, top, rounded(area.right() * factor) - left,
            rounded(area.bottom() * factor) - top};
}

int fontHeight(double factor) {
    return static_cast<int>(fontPx * factor);
}

ScreenArea movedInto(const ScreenArea& screen, ScreenArea window) {
    window.left = std::max(std::min(window.left, screen.right() - window.width), screen.left);
    window.top = std::max(std::min(window.top, screen.bottom() - window.height), screen.top);
    return window;
}

ScreenArea placeOfMaps(Picture which, Extent size, const ScreenArea& mainWindow, int pictureRight,
                       const std::vector<ScreenArea>& screens) {
    const int below = which == Picture::Second ? secondBelowPx : 0;
    const ScreenArea beside{mainWindow.right() - overlapPx, mainWindow.top + below, size.width,
                            size.height};
    const ScreenArea& own = screens.front();
    for (const ScreenArea& screen : screens) {
        const ScreenArea wanted =
            screen == own ? beside
                          : ScreenArea{screen.left, screen.top + below, size.width, size.height};
        const ScreenArea moved = movedInto(screen, wanted);
        if (screen.contains(moved) && moved.left == wanted.left) return moved;
    }
    const int times = which == Picture::Second ? 2 : 1;
    const ScreenArea corner{pictureRight - times * size.width, mainWindow.bottom() - size.height,
                            size.width, size.height};
    return movedInto(own, corner);
}
