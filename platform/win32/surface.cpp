// Drawing with GDI, saving with GDI+.
#include "platform/surface.h"

#include "platform/win32/handles.h"
#include "platform/win32/picture_format.h"
#include "platform/win32/scaled_view.h"

#include <algorithm>
#include <memory>
#include <vector>

#include <objidl.h>

#include <gdiplus.h>

static ULONG_PTR gdiplusToken;

void startImaging() {
    Gdiplus::GdiplusStartupInput input;
    if (Gdiplus::GdiplusStartup(&gdiplusToken, &input, nullptr) != Gdiplus::Ok) gdiplusToken = 0;
}

void stopImaging() {
    if (gdiplusToken) Gdiplus::GdiplusShutdown(gdiplusToken);
    gdiplusToken = 0;
}

Extent clientExtent(WindowHandle window) {
    if (const Extent* drawn = scaledExtent(native(window))) return *drawn;
    RECT client{};
    GetClientRect(native(window), &client);
    return {client.right, client.bottom};
}

ContextHandle windowContext(WindowHandle window) {
    if (!window) return nullptr; // the system would hand out the whole screen
    if (HDC picture = scaledContext(native(window))) return opaque(picture);
    return opaque(GetDC(native(window)));
}

void releaseWindowContext(WindowHandle window, ContextHandle context) {
    if (!finishScaled(native(window), native(context))) ReleaseDC(native(window), native(context));
}

BitmapHandle makeBitmap(ContextHandle like, int width, int height) {
    return opaque(CreateCompatibleBitmap(native(like), width, height));
}

void deleteBitmap(BitmapHandle bitmap) {
    DeleteObject(native(bitmap));
}

ContextHandle makeMemoryContext(ContextHandle like) {
    return opaque(CreateCompatibleDC(native(like)));
}

void deleteMemoryContext(ContextHandle context) {
    DeleteDC(native(context));
}

BitmapHandle selectBitmap(ContextHandle memory, BitmapHandle bitmap) {
    HGDIOBJ previous = SelectObject(native(memory), native(bitmap));
    return opaque(static_cast<HBITMAP>(previous));
}

bool setPicture(ContextHandle context, BitmapHandle bitmap, const uint8_t* pixels, int width,
                int height) {
    BITMAPINFO info = pictureFormat(width, height);
    return SetDIBits(native(context), native(bitmap), 0, static_cast<UINT>(height), pixels, &info,
                     DIB_RGB_COLORS) != 0;
}

void putPixels(ContextHandle context, int x, int y, int width, int height, const uint32_t* pixels) {
    BITMAPINFO info = pictureFormat(width, -height);
    SetDIBitsToDevice(native(context), x, y, static_cast<DWORD>(width), static_cast<DWORD>(height),
                      0, 0, 0, static_cast<UINT>(height), pixels, &info, DIB_RGB_COLORS);
}

bool copyArea(ContextHandle to, int width, int height, ContextHandle from) {
    return BitBlt(native(to), 0, 0, width, height, native(from), 0, 0, SRCCOPY) != 0;
}

static bool stretch(int mode, ContextHandle to, int x, int y, int toWidth, int toHeight,
                    ContextHandle from, int fromX, int fromY, int fromWidth, int fromHeight) {
    int previousMode = SetStretchBltMode(native(to), mode);
    SetBrushOrgEx(native(to), 0, 0, nullptr); // which halftones start from
    BOOL copied = StretchBlt(native(to), x, y, toWidth, toHeight, native(from), fromX, fromY,
                             fromWidth, fromHeight, SRCCOPY);
    SetStretchBltMode(native(to), previousMode);
    return copied != 0;
}

bool stretchArea(ContextHandle to, int toWidth, int toHeight, ContextHandle from, int fromWidth,
                 int fromHeight) {
    // Cells keep sharp edges.
    return stretch(COLORONCOLOR, to, 0, 0, toWidth, toHeight, from, 0, 0, fromWidth, fromHeight);
}

bool shrinkArea(ContextHandle to, int x, int y, int toWidth, int toHeight, ContextHandle from,
                int fromX, int fromY, int fromWidth, int fromHeight) {
    return stretch(HALFTONE, to, x, y, toWidth, toHeight, from, fromX, fromY, fromWidth,
                   fromHeight);
}

// Selects the system's own pen and brush in the wanted colours, which nobody has to delete, and
// puts the context's previous ones back.
class DrawingTools {
public:
    DrawingTools(ContextHandle context, Colour pen)
        : dc(native(context)), previousPen(SelectObject(dc, GetStockObject(DC_PEN))),
          previousBrush(SelectObject(dc, GetStockObject(HOLLOW_BRUSH))) {
        SetDCPenColor(dc, pen);
    }
    DrawingTools(ContextHandle context, Colour pen, Colour fill) : DrawingTools(context, pen) {
        SelectObject(dc, GetStockObject(DC_BRUSH));
        SetDCBrushColor(dc, fill);
    }
    ~DrawingTools() {
        SelectObject(dc, previousBrush);
        SelectObject(dc, previousPen);
    }
    DrawingTools(const DrawingTools&) = delete;
    DrawingTools& operator=(const DrawingTools&) = delete;

private:
    HDC dc;
    HGDIOBJ previousPen;
    HGDIOBJ previousBrush;
};

void setPixel(ContextHandle context, int x, int y, Colour colour) {
    SetPixelV(native(context), x, y, colour);
}

void fillArea(ContextHandle context, int width, int height, Colour colour) {
    SetDCBrushColor(native(context), colour);
    RECT area{0, 0, width, height};
    FillRect(native(context), &area, static_cast<HBRUSH>(GetStockObject(DC_BRUSH)));
}

void drawLine(ContextHandle context, int x1, int y1, int x2, int y2, Colour colour) {
    DrawingTools tools(context, colour);
    MoveToEx(native(context), x1, y1, nullptr);
    LineTo(native(context), x2, y2);
}

void drawLines(ContextHandle context, const PixelPoint* points, int count, Colour colour) {
    std::vector<POINT> corners(static_cast<size_t>(count));
    std::transform(points, points + count, corners.begin(), [](const PixelPoint& point) {
        return POINT{point.x, point.y};
    });
    DrawingTools tools(context, colour);
    Polyline(native(context), corners.data(), count);
}

void drawRectangle(ContextHandle context, int left, int top, int right, int bottom, Colour pen) {
    DrawingTools tools(context, pen);
    Rectangle(native(context), left, top, right, bottom);
}

void drawFilledRectangle(ContextHandle context, int left, int top, int right, int bottom,
                         Colour pen, Colour fill) {
    DrawingTools tools(context, pen, fill);
    Rectangle(native(context), left, top, right, bottom);
}

void drawEllipse(ContextHandle context, int left, int top, int right, int bottom, Colour pen) {
    DrawingTools tools(context, pen);
    Ellipse(native(context), left, top, right, bottom);
}

void invertRectangle(ContextHandle context, int left, int top, int right, int bottom) {
    int previousMode = SetROP2(native(context), R2_NOT);
    drawRectangle(context, left, top, right, bottom, 0);
    SetROP2(native(context), previousMode);
}

void invertLine(ContextHandle context, int x1, int y1, int x2, int y2) {
    int previousMode = SetROP2(native(context), R2_NOT);
    drawLine(context, x1, y1, x2, y2, 0);
    SetROP2(native(context), previousMode);
}

void drawText(ContextHandle context, int x, int y, const char* text, Colour colour,
              bool transparent) {
    HDC dc = native(context);
    int previousMode = SetBkMode(dc, transparent ? TRANSPARENT : OPAQUE);
    COLORREF previousColour = SetTextColor(dc, colour);
    TextOutA(dc, x, y, text, lstrlenA(text));
    SetTextColor(dc, previousColour);
    SetBkMode(dc, previousMode);
}

// The index of the image encoder for a MIME type such as "image/png", or -1.
static int findEncoderClsid(const wchar_t* mime, CLSID* clsid) {
    UINT count = 0, bytes = 0;
    if (Gdiplus::GetImageEncodersSize(&count, &bytes) != Gdiplus::Ok || bytes == 0) return -1;
    // The encoders' texts lie behind their records in the same block.
    std::vector<Gdiplus::ImageCodecInfo> encoders(bytes / sizeof(Gdiplus::ImageCodecInfo) + 1);
    if (Gdiplus::GetImageEncoders(count, bytes, encoders.data()) != Gdiplus::Ok) return -1;
    for (UINT i = 0; i < count; ++i) {
        if (lstrcmpW(encoders[i].MimeType, mime) != 0) continue;
        *clsid = encoders[i].Clsid;
        return static_cast<int>(i);
    }
    return -1;
}

bool saveBitmapAsPng(BitmapHandle bitmap, const std::wstring& path) {
    CLSID png;
    if (findEncoderClsid(L"image/png", &png) < 0) return false;
    std::unique_ptr<Gdiplus::Bitmap> image(Gdiplus::Bitmap::FromHBITMAP(native(bitmap), nullptr));
    return image && image->Save(path.c_str(), &png, nullptr) == Gdiplus::Ok;
}
