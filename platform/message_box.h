// A modal question or notice.
#pragma once

#include "platform/window_handle.h"

enum class BoxButtons { Ok, YesNo, YesNoCancel };
enum class BoxAnswer { None, Ok, Yes, No, Cancel };

// Blocks until answered; None when the box could not be shown. `owner` may be null. For
// session/message_box.h alone, which tells the log.
BoxAnswer runMessageBox(WindowHandle owner, const char* text, const char* caption,
                        BoxButtons buttons);
