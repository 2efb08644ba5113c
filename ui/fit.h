// How the windows are scaled so that the screen holds them, and how the picture's pixels lie on a
// scaled main window. Pixels of the screen unless something else is said.
#pragma once

#include "platform/surface.h"

#include <vector>

constexpr int unscaledDpi = 96;

struct ScreenArea {
    int left = 0, top = 0, width = 0, height = 0;

    int right() const { return left + width; }
    int bottom() const { return top + height; }
    bool contains(const ScreenArea& other) const;
    bool operator==(const ScreenArea&) const = default;
};

// The scale of the main window. The column has one of its own: it is less high than the picture,
// and its text is to be read where the picture must shrink.
struct Fit {
    double picture = 1.0;
    double column = 1.0;

    // Of the picture on the window, whose top left corner it has.
    Extent shownPicture() const;

    // What picture and column take of the window.
    Extent content() const;

    // Where a control lies that has that place on the unscaled window.
    ScreenArea place(const ScreenArea& control) const;

    // The picture's pixel that lies at that one of the window, which may be outside the picture;
    // and the window's pixel in the middle of a picture's.
    PixelPoint toPicture(PixelPoint client) const;
    PixelPoint toWindow(PixelPoint picture) const;

    bool operator==(const Fit&) const = default;
};

// At full size, and the largest that is no larger and leaves nothing outside a client area of
// `room`.
Fit fullSize(int dpi);
Fit fitInto(Extent room, int dpi);

// The client area that the main window takes of the room that there is for it: no broader than what
// is in it, when that had to shrink.
Extent fittedClient(Extent room, int dpi);

// Of a window with everything in it, whose client area is `client` at 96 dpi.
double scaleOf(Extent client, Extent room, int dpi);

// At 1.0 it is the same.
Extent scaled(Extent extent, double factor);
ScreenArea scaled(const ScreenArea& area, double factor);

// The height of a font of 8 points, never higher than the place that is scaled with it.
int fontHeight(double factor);

// Moved so that it lies on the screen; the top left corner does in any case.
ScreenArea movedInto(const ScreenArea& screen, ScreenArea window);

// Where a window with maps goes: beside the main window, or else onto the first other screen that
// has room for it, or over the picture's lower right corner, or left of the first one there: never
// over the column. `screens` begins with the main window's own; `pictureRight` is the picture's
// right edge on the screen.
enum class Picture { First, Second };
ScreenArea placeOfMaps(Picture which, Extent size, const ScreenArea& mainWindow, int pictureRight,
                       const std::vector<ScreenArea>& screens);
