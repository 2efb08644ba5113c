// Puts the picture on the main window and saves pictures and windows as image files.
#pragma once

#include "platform/surface_owners.h"
#include "platform/window_handle.h"
#include "session/data_folders.h"

#include <cstdint>

// The rectangle that the operator drew last, in window pixels; part of a saved camera picture.
struct PictureRectangle {
    int32_t x1 = 0, y1 = 0, x2 = 0, y2 = 0;
    int32_t viewScale = 1; // of the view that it was drawn on: 1, or 3 for the wide view
};

struct Display {
    int32_t cameraImageCounter = 0; // numbers the saved camera pictures of this run
    int32_t windowImageCounter = 0; // numbers the saved window images, whatever their label
    int32_t wideView = 0;           // 1 while the window shows a wide view
    int32_t wideFactor = 1;         // picture scale of the wide view, 3 once there was one
    PictureRectangle drawnRectangle;
    // Draws over each picture that is shown, not over one that is saved; null: nothing.
    void (*overlay)(ContextHandle picture) = nullptr;
    void (*marks)(ContextHandle picture) = nullptr;   // the same, below it
    void (*pointer)(ContextHandle picture) = nullptr; // above it: where the cursor is on a map
    bool isPlain = false; // without these three: the window is being saved
    void drawOver(ContextHandle picture) const {
        if (isPlain) return;
        if (marks) marks(picture);
        if (overlay) overlay(picture);
        if (pointer) pointer(picture);
    }
};
extern Display display;

constexpr Colour markRed = colourRgb(255, 0, 0);
constexpr Colour markGreen = colourRgb(0, 255, 0);

// The picture in a bitmap of its own, not yet selected. False when it could not be made; each
// failure is shown in the information text.
bool makeCameraPicture(ContextHandle like, const uint8_t* pixels, MemoryBitmap& memory);

// Draws the display picture with the scale bar and the laser spot's mark at the top left of the
// main window (laserOffset, cameraAperture, the view's scale and, in a saved picture,
// drawnRectangle are read); with `save` also writes it into the session folder, which must be
// there. Returns 1, or 0 when no bitmap could be made. Each failure is shown in the information
// text.
int64_t drawCameraFrame(const uint8_t* pixels, uint32_t save);

// Saves what a window shows as "<label>(<number>).jpg" (PNG inside, as all image files) in the
// session folder. A non-zero `pictureSize` saves the picture's 1232 x 1028 instead of the client
// area. Returns 1, or 0 after 20 failures and without a window.
int64_t saveWindowImage(DataFolders& folders, WindowHandle window, uint32_t pictureSize,
                        const char* label);

// Saves a bitmap that is not selected as the next "<label>(<number>).jpg". A failure is reported.
bool saveNumberedImage(DataFolders& folders, BitmapHandle bitmap, const char* label);

// The longest of 1, 2, 5, 10, ... um that is no longer than `most`, which is above 0.
double roundLengthUm(double most);

// A scale bar of a round length (10 um as built, three times that in the wide view) near the lower
// right corner of a picture.
void drawScaleBar(ContextHandle context, int width, int height);

void drawCircleMark(WindowHandle window, int x, int y, int radius, Colour colour);
void drawApertureMark(ContextHandle context, int x, int y, int radius);
