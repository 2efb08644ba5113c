// The main window's title: the program's name and behind it what an operator must see from another
// desk.
#pragma once

#include <string>

// "Lumascan", then " - " and the loss, then " - " and the progress; an empty one is left out.
void titleLoss(const std::string& words);
void titleProgress(const std::string& words);
