// Keeps a picture in memory for each scaled window.
#include "platform/win32/scaled_view.h"

#include "platform/area_scaler.h"
#include "platform/win32/picture_format.h"

#include <map>
#include <optional>

namespace {

struct View {
    Extent drawn, shown;
    HDC context = nullptr;
    HBITMAP bitmap = nullptr;
    HGDIOBJ previous = nullptr;
    uint8_t* pixels = nullptr; // the bitmap's, bottom row first
    std::optional<AreaScaler> scaler;
};

std::map<HWND, View> views;

View* viewOf(HWND window) {
    const auto found = views.find(window);
    return found == views.end() ? nullptr : &found->second;
}

void paintPart(HDC target, View& view, const RECT& asked) {
    const RECT all{0, 0, view.shown.width, view.shown.height};
    RECT part{};
    if (!IntersectRect(&part, &all, &asked)) return;
    const Extent size{part.right - part.left, part.bottom - part.top};
    GdiFlush(); // what is drawn is in the bitmap from then on
    const auto& pixels = view.scaler->scale(view.pixels, part.left, part.top, size);
    const BITMAPINFO format = pictureFormat(size.width, -size.height);
    SetDIBitsToDevice(target, part.left, part.top, static_cast<DWORD>(size.width),
                      static_cast<DWORD>(size.height), 0, 0, 0, static_cast<UINT>(size.height),
                      pixels.data(), &format, DIB_RGB_COLORS);
}

void release(View& view) {
    if (view.previous) SelectObject(view.context, view.previous);
    if (view.bitmap) DeleteObject(view.bitmap);
    if (view.context) DeleteDC(view.context);
    view = {};
}

void erase(const View& view) {
    const RECT all{0, 0, view.drawn.width, view.drawn.height};
    FillRect(view.context, &all, GetSysColorBrush(COLOR_WINDOW));
}

bool make(HWND window, View& view, Extent drawn) {
    HDC screen = GetDC(window);
    view.context = CreateCompatibleDC(screen);
    ReleaseDC(window, screen);
    const BITMAPINFO format = pictureFormat(drawn.width, drawn.height);
    void* pixels = nullptr;
    view.bitmap = CreateDIBSection(nullptr, &format, DIB_RGB_COLORS, &pixels, nullptr, 0);
    view.pixels = static_cast<uint8_t*>(pixels);
    view.previous = view.context && view.bitmap ? SelectObject(view.context, view.bitmap) : nullptr;
    if (!view.previous) return false;
    view.drawn = drawn;
    erase(view);
    SetBoundsRect(view.context, nullptr, DCB_ENABLE | DCB_RESET);
    return true;
}

bool isSame(Extent a, Extent b) {
    return a.width == b.width && a.height == b.height;
}

} // namespace

bool scaleDrawing(HWND window, Extent drawn, Extent shown) {
    View& view = views[window];
    const bool isNew = !view.context || !isSame(view.drawn, drawn);
    if (isNew) {
        release(view);
        if (!make(window, view, drawn)) {
            drawUnscaled(window); // too large, but not lost
            return true;
        }
    }
    if (isNew || !isSame(view.shown, shown)) view.scaler.emplace(drawn, shown);
    view.shown = shown;
    InvalidateRect(window, nullptr, TRUE);
    return isNew;
}

bool resizeScaled(HWND window, Extent shown) {
    const View* view = viewOf(window);
    if (!view || isSame(view->shown, shown) || shown.width == 0 || shown.height == 0) return false;
    return scaleDrawing(window,
                        {MulDiv(shown.width, view->drawn.width, view->shown.width),
                         MulDiv(shown.height, view->drawn.height, view->shown.height)},
                        shown);
}

void drawUnscaled(HWND window) {
    View* view = viewOf(window);
    if (!view) return;
    release(*view);
    views.erase(window);
    InvalidateRect(window, nullptr, TRUE);
}

bool isScaled(HWND window) {
    return viewOf(window) != nullptr;
}

void eraseScaled(HWND window) {
    if (const View* view = viewOf(window)) erase(*view);
}

void paintScaled(HWND window) {
    PAINTSTRUCT paint;
    HDC target = BeginPaint(window, &paint);
    if (View* view = viewOf(window)) paintPart(target, *view, paint.rcPaint);
    EndPaint(window, &paint);
}

void sparePicture(HWND window, HDC context) {
    if (const View* view = viewOf(window))
        ExcludeClipRect(context, 0, 0, view->shown.width, view->shown.height);
}

HDC scaledContext(HWND window) {
    const View* view = viewOf(window);
    return view ? view->context : nullptr;
}

const Extent* scaledExtent(HWND window) {
    const View* view = viewOf(window);
    return view ? &view->drawn : nullptr;
}

bool finishScaled(HWND window, HDC context) {
    const View* view = viewOf(window);
    if (!view || view->context != context) return false;
    RECT drawn{};
    if (GetBoundsRect(context, &drawn, DCB_RESET) & DCB_SET) {
        // Each pixel shown is made of those around it, too.
        const RECT shown{MulDiv(drawn.left - 2, view->shown.width, view->drawn.width) - 1,
                         MulDiv(drawn.top - 2, view->shown.height, view->drawn.height) - 1,
                         MulDiv(drawn.right + 2, view->shown.width, view->drawn.width) + 1,
                         MulDiv(drawn.bottom + 2, view->shown.height, view->drawn.height) + 1};
        InvalidateRect(window, &shown, FALSE);
    }
    return true;
}
