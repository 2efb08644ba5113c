// The Configuration dialog in memory. The functions of screen/dialog.h serve a test as the
// operator's hands and eyes; `whileDialogOpen` is what he does in it.
#pragma once

#include "screen/dialog.h"

#include <functional>
#include <string>
#include <vector>

extern std::function<void()> whileDialogOpen; // empty: presses "Close"

// What the list offers.
std::vector<std::wstring>& dialogListItems(int id);

// All that stands in an edit, however little of it the program reads.
std::string dialogTextIn(int id);

void resetDialog();
