// The picture windows: they float above the main window, which owns them, and closing one hides it.
#include "window/picture_windows.h"

#include "mapping/map_rendering.h"
#include "platform/win32/handles.h"
#include "platform/win32/scaled_view.h"
#include "screen/screen.h"
#include "ui/map_window.h"
#include "window/fit_window.h"

#include <windowsx.h>

#include <algorithm>

static void repaint(WindowHandle window) {
    if (window == windows.map) repaintMapWindow();
    if (window == windows.confocal) repaintConfocalWindow();
    onMapPainted(window);
}

// The system tells once that the cursor has left, when it is asked to.
static void watchLeave(HWND window) {
    TRACKMOUSEEVENT watch{sizeof watch, TME_LEAVE, window, 0};
    TrackMouseEvent(&watch);
}

// In the pixels that the map is drawn in.
static POINT mouseAt(HWND window, LPARAM lParam) {
    POINT at{GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)};
    RECT shown{};
    GetClientRect(window, &shown);
    const Extent* drawn = scaledExtent(window);
    if (!drawn || shown.right <= 0 || shown.bottom <= 0) return at;
    return {MulDiv(at.x, drawn->width, shown.right), MulDiv(at.y, drawn->height, shown.bottom)};
}

// A question or a dialog that is open wants its answer first.
static bool mainWindowAnswers() {
    return windows.main && IsWindowEnabled(native(windows.main));
}

// As in the main window: a click that was held back by a question is over already.
static void captureHeldMouse(HWND window, int button) {
    if (GetKeyState(button) < 0) SetCapture(window);
}

LRESULT CALLBACK pictureWindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_SIZE:
        if (isScaled(window) && resizeScaled(window, {LOWORD(lParam), HIWORD(lParam)}))
            repaint(opaque(window));
        return 0;
    case WM_ERASEBKGND:
        if (isScaled(window)) return 1;
        break;
    case WM_PAINT: {
        if (isScaled(window)) return paintScaled(window), 0;
        PAINTSTRUCT paint;
        BeginPaint(window, &paint);
        EndPaint(window, &paint);
        repaint(opaque(window));
        return 0;
    }
    case WM_MOUSEMOVE:
        if (GetCapture() != window) watchLeave(window);
        onMapMouseMove(opaque(window), mouseAt(window, lParam).x, mouseAt(window, lParam).y,
                       (wParam & MK_LBUTTON) != 0, (wParam & MK_RBUTTON) != 0);
        return 0;
    case WM_MOUSELEAVE:
        onMapLeave(opaque(window));
        return 0;
    case WM_LBUTTONDOWN:
        if (!mainWindowAnswers()) return 0;
        captureHeldMouse(window, VK_LBUTTON);
        onMapButtonDown(opaque(window), MapButton::Left, mouseAt(window, lParam).x,
                        mouseAt(window, lParam).y);
        return 0;
    case WM_LBUTTONUP:
        ReleaseCapture();
        onMapButtonUp(opaque(window), MapButton::Left, mouseAt(window, lParam).x,
                      mouseAt(window, lParam).y);
        return 0;
    case WM_RBUTTONDOWN:
        if (!mainWindowAnswers()) return 0;
        captureHeldMouse(window, VK_RBUTTON);
        onMapButtonDown(opaque(window), MapButton::Right, mouseAt(window, lParam).x,
                        mouseAt(window, lParam).y);
        return 0;
    case WM_RBUTTONUP:
        ReleaseCapture();
        onMapButtonUp(opaque(window), MapButton::Right, mouseAt(window, lParam).x,
                      mouseAt(window, lParam).y);
        return 0;
    case WM_LBUTTONDBLCLK:
        if (!mainWindowAnswers()) return 0;
        onMapDoubleClick(opaque(window), mouseAt(window, lParam).x, mouseAt(window, lParam).y);
        return 0;
    case WM_CLOSE:
        focusMainWindow(); // first, or the system may hand the focus to another program
        ShowWindow(window, SW_HIDE);
        return 0;
    case WM_DESTROY:
        leaveMap();
        drawUnscaled(window);
        if (opaque(window) == windows.map) windows.map = nullptr;
        if (opaque(window) == windows.confocal) windows.confocal = nullptr;
        return 0;
    default:
        break;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

// Beside a scaled main window; where it is seen already it stays.
static void placeForScreen(HWND window, Picture which, Extent unscaled) {
    const OwnScale scale = scaleOwnWindow(window, unscaled);
    const std::vector<ScreenArea> screens = screensForWindows();
    ScreenArea place = areaOf(window);
    place.width = scale.outer.width;
    place.height = scale.outer.height;
    const bool isSeen = std::any_of(screens.begin(), screens.end(), [&](const ScreenArea& screen) {
        return screen.contains(place);
    });
    if (!IsWindowVisible(window) || !isSeen)
        place = placeOfMaps(which, scale.outer, areaOf(native(windows.main)), rightOfMainPicture(),
                            screens);
    SetWindowPos(window, nullptr, place.left, place.top, place.width, place.height,
                 SWP_NOZORDER | SWP_NOACTIVATE | SWP_SHOWWINDOW);
    if (scaleDrawingBy(window, scale.factor)) repaint(opaque(window));
}

static void place(WindowHandle& picture, const wchar_t* className, const wchar_t* title,
                  Picture which, int x, int y, int width, int height) {
    if (!windows.main) return;
    if (!picture) {
        picture = opaque(CreateWindowExW(0, className, title, WS_OVERLAPPEDWINDOW, x, y, width,
                                         height, native(windows.main), nullptr,
                                         GetModuleHandleW(nullptr), nullptr));
    }
    HWND window = native(picture);
    if (IsIconic(window) || IsZoomed(window)) ShowWindow(window, SW_SHOWNOACTIVATE);
    if (windowsAreScaled()) return placeForScreen(window, which, {width, height});
    drawUnscaled(window);
    // Without activation: the arrow keys go on moving the stage.
    SetWindowPos(window, nullptr, x, y, width, height,
                 SWP_NOZORDER | SWP_NOACTIVATE | SWP_SHOWWINDOW);
}

void placeMapWindow(int x, int y, int width, int height) {
    place(windows.map, L"Kestrel", L"Photocurrent map", Picture::First, x, y, width, height);
}

void placeConfocalWindow(int x, int y, int width, int height) {
    place(windows.confocal, L"CFI", L"Confocal image", Picture::Second, x, y, width, height);
}

void paintPending(WindowHandle window) {
    if (window) UpdateWindow(native(window));
}
