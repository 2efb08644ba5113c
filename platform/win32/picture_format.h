// The format of the pictures: 32 bits a pixel, blue in the lowest byte.
#pragma once

#include <windows.h>

// Pixels; rows from the bottom, from the top where the height is negative.
inline BITMAPINFO pictureFormat(int width, int height) {
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    return info;
}
