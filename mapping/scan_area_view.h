// The scan area's rectangle on the camera view.
#pragma once

// Draws the scan area's rectangle on the camera view; it stays through repaints until the next
// frame.
void showScanArea();

// For a repaint of the picture: draws the rectangle again where it was shown on this picture.
void repaintScanArea();
