// The main window's title: the program's name and behind it what an operator must see from another
// desk.
#pragma once

#include <string>

// "Lumascan", then " - " and each loss, then " - " and the progress; an empty one is left out.
void titleLoss(const std::string& words); // of a light
void titleBias(const std::string& words);
void titleScript(const std::string& words); // that is connected or in command
void titleList(const std::string& words);   // before the progress of one of its rows
void titleProgress(const std::string& words);

// To a new main window: what was to be said before there was one.
void showMainTitle();
