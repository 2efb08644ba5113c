// The program's windows in memory: what stands in every field, and how it came there.
#pragma once

#include "screen/screen.h"
#include "tests/doubles/memory_surface.h"

#include <map>
#include <string>
#include <vector>

// An empty main window without the program's own texts, for tests of a single part.
void openBareWindow();

std::vector<std::string>& historyOf(Field field);
std::string textIn(Field field);
void typeInto(Field field, const std::string& text);

// The button of the group that `first` begins that is checked now; 0 when none was.
int checkedRadio(int first);

extern bool mainWindowRefused; // createMainWindow fails
extern bool fittedToScreen;    // the last fitToScreen
extern bool textIsSharp;       // what it answers
extern int focusCount;         // calls of focusMainWindow

extern std::string shownPage;                     // of the devices
extern std::vector<std::string> startupTexts;     // of showAtStartup
extern int taskbarProgress;                       // -1 none
extern std::vector<std::wstring> startedPrograms; // with their argument
extern std::vector<WindowHandle> toolWindows;     // open now, oldest first

void resetScreen();
