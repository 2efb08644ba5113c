// What the devices refuse, and that they work again, on standard output: the vendor's own words,
// once, though the same call is made again ten times a second. Called from the program's one thread
// only.
#pragma once

#include <string>

// Prints "<device>: <words>" unless these were the last words printed for the device. `device` is
// the link's own name for itself, as "Camera"; line ends in `words` become blanks.
void printRefusal(const char* device, const std::string& words);

// The device did what it was asked: its next refusal is news again, whatever its words.
void forgetRefusal(const char* device);
void forgetAllRefusals();
