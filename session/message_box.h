// A modal question or notice; the log of the day has its text when it opens, and its answer.
#pragma once

#include "platform/message_box.h"

// Blocks until answered; None when the box could not be shown. `owner` may be null.
BoxAnswer showMessageBox(WindowHandle owner, const char* text, const char* caption,
                         BoxButtons buttons);
