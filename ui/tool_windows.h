// The tool windows of the point measurements: what stands in them and what their buttons do. The
// window "Continue last scan" has the same class, and passes through here.
#pragma once

#include "platform/window_handle.h"

#include <cstdint>
#include <string>
#include <vector>

enum class Tool { IvCurve, TimeEvolution };

// Switches the live view off and opens the tool's window; brings it to the front when it is open
// already. The I-V tool is refused while the selected instrument sets no bias.
void openTool(Tool tool);

// A button of a tool window: measures, saves, and lets the live view go on as it was. While another
// process is under way nothing happens.
void onToolCommand(WindowHandle window, int id);

// The operator closes a tool window. While its measurement runs that is asked to stop, and the
// window goes when it has ended.
void onToolClose(WindowHandle window);

// A key that the window itself was given; whether its keys steer the stage, as in the main window.
void onToolKey(WindowHandle window, uintptr_t virtualKey);
bool toolTakesKeys(WindowHandle window);

void onToolPaint(WindowHandle window);

// What stands in a cell of a table, and that another row is selected.
std::string onToolTable(WindowHandle window, int row, int column);
void onToolSelection(WindowHandle window);

// Of a PictureTable: the picture at the beginning of a row, 0x00RRGGBB, square, the top row first,
// empty where there is none; a heading that was pressed; a row that was opened by a double click or
// Enter, which is the selected one.
std::vector<uint32_t> onToolPicture(WindowHandle window, int row);
void onToolHeading(WindowHandle window, int column);
void onToolRowOpened(WindowHandle window);

// Whether Escape closes it.
bool toolClosesByEscape(WindowHandle window);

bool isToolWindow(WindowHandle window);

// A tool window is gone, together with its edits.
void forgetTool(WindowHandle window);
