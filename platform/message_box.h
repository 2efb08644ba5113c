// A modal question or notice.
#pragma once

#include "platform/window_handle.h"

enum class BoxButtons { Ok, YesNo, YesNoCancel };
enum class BoxAnswer { None, Ok, Yes, No, Cancel };

// Blocks until answered; None when the box could not be shown. `owner` may be null.
BoxAnswer showMessageBox(WindowHandle owner, const char* text, const char* caption,
                         BoxButtons buttons);
