// The window "Scans": those of KST_Data, of all days; shown in the map window, marked, used again.
#pragma once

#include "platform/window_handle.h"

#include <cstdint>
#include <string>
#include <vector>

// Opens it, or brings it to the front and lists anew. What is not known yet is read behind it, in
// small parts, never while a process runs or the stage moves.
void openScansWindow();
bool isScansWindow(WindowHandle window);

void onScansCommand(int id);
void onScansSelection();
void onScansHeading(int column); // sorts by it; once more turns the order
void onScansRowOpened();         // a double click, or Enter

std::string scansCell(int row, int column);

// 0x00RRGGBB, scanPicturePx to each side, the top row first; empty where there is none yet.
std::vector<uint32_t> scansPicture(int row);

void scansTick();
void forgetScansWindow();
