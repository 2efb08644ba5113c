// What one draws on, given back at the end of the block.
#pragma once

#include "platform/surface.h"

// A window's drawing context; `context` is null when there is none.
struct WindowContext {
    explicit WindowContext(WindowHandle window) : window(window), context(windowContext(window)) {}
    WindowContext(const WindowContext&) = delete;
    WindowContext& operator=(const WindowContext&) = delete;
    ~WindowContext() {
        if (context) releaseWindowContext(window, context);
    }

    WindowHandle const window;
    ContextHandle const context;
};

// A bitmap and the memory context that draws on it; either may be null. Released in the order that
// the system asks for: deselect, bitmap, context.
struct MemoryBitmap {
    ContextHandle context = nullptr;
    BitmapHandle bitmap = nullptr;
    BitmapHandle previous = nullptr; // what the context drew on before; null while not selected

    MemoryBitmap() = default;
    MemoryBitmap(const MemoryBitmap&) = delete;
    MemoryBitmap& operator=(const MemoryBitmap&) = delete;
    ~MemoryBitmap() { release(); }

    // Both, the bitmap selected; nothing is left where one of them failed.
    bool make(ContextHandle like, int width, int height) {
        release();
        context = makeMemoryContext(like);
        bitmap = makeBitmap(like, width, height);
        if (context && bitmap && select()) return true;
        release();
        return false;
    }
    bool select() {
        previous = selectBitmap(context, bitmap);
        return previous != nullptr;
    }
    void deselect() {
        if (previous) selectBitmap(context, previous);
        previous = nullptr;
    }
    void release() {
        deselect();
        if (bitmap) deleteBitmap(bitmap);
        if (context) deleteMemoryContext(context);
        bitmap = nullptr;
        context = nullptr;
    }
};
