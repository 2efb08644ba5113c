// Windows, bitmaps and drawing contexts as pixel arrays, and what was drawn, saved and leaked.
#pragma once

#include "platform/surface.h"

#include <map>
#include <string>
#include <vector>

struct NativeBitmap {
    int width = 0;
    int height = 0;
    std::vector<uint32_t> pixels; // top-down, 0x00RRGGBB
    NativeContext* selectedIn = nullptr;

    uint32_t at(int x, int y) const {
        return pixels.at(static_cast<size_t>(y) * static_cast<size_t>(width) +
                         static_cast<size_t>(x));
    }
};

struct NativeWindow {
    NativeBitmap client;
    int timesPainted = 0;
    std::string text;
    // Of a tool window; by control id.
    std::vector<NativeWindow*> edits;
    std::map<int, std::string> texts;
    std::map<int, bool> hidden, checked;
    int tableRows = 0, selectedRow = -1;
};

struct NativeContext {
    NativeWindow* window = nullptr; // null: a memory context
    NativeBitmap* target = nullptr;
    NativeBitmap stock; // what a memory context draws on before the first selection
};

struct DrawnText {
    const NativeBitmap* target; // may be gone by the time a test looks; for comparison only
    int x, y;
    std::string text;
    Colour colour;
    bool transparent;
};

struct SavedImage {
    std::wstring path;
    int width, height;
    std::vector<uint32_t> pixels;
};

extern std::vector<DrawnText> drawnTexts;
extern std::vector<SavedImage> savedImages;

enum class Drawing {
    MakeBitmap,
    MakeContext,
    SelectBitmap,
    SetPicture,
    CopyArea,
    StretchArea,
    Save,
};

// How many of the next calls of a kind fail.
extern std::map<Drawing, int> drawingFailures;

// Contexts and bitmaps that are not released, and imaging that is not stopped.
extern int liveContexts, liveBitmaps, imagingStarts;

// Nobody looks at pixels and texts: calls succeed and fail as ever, and draw nothing.
extern bool nobodyLooks;

NativeBitmap blankBitmap(int width, int height, uint32_t pixel);
