// Modal questions and notices.
#include "platform/message_box.h"

#include "platform/win32/handles.h"

static UINT boxStyle(BoxButtons buttons) {
    switch (buttons) {
    case BoxButtons::YesNo:
        return MB_YESNO;
    case BoxButtons::YesNoCancel:
        return MB_YESNOCANCEL;
    case BoxButtons::Ok:
        break;
    }
    return MB_OK;
}

BoxAnswer runMessageBox(WindowHandle owner, const char* text, const char* caption,
                        BoxButtons buttons) {
    switch (MessageBoxA(native(owner), text, caption, boxStyle(buttons))) {
    case IDOK:
        return BoxAnswer::Ok;
    case IDYES:
        return BoxAnswer::Yes;
    case IDNO:
        return BoxAnswer::No;
    case IDCANCEL:
        return BoxAnswer::Cancel;
    default:
        return BoxAnswer::None;
    }
}
