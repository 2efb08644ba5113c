// What the devices refuse, and that they work again, on standard output and in the log of the day:
// the vendor's own words, once, though the same call is made again ten times a second. A device
// that changes between two refusals does not fill the log either: ten lines at once and one a
// minute, the others are counted. Another thread than the windows' is told and logged each time.
#pragma once

#include <string>

// Prints "<device>: <words>" unless these were the last words of the device, and keeps them as what
// failed last. `device` is the link's own name for itself, as "Camera"; line ends in `words` become
// blanks.
void printRefusal(const char* device, const std::string& words);

// The same for words that are no refusal: what was found, or that it works again.
void printNews(const char* device, const std::string& words);

// A refusal that standard output is told in another way, or not at all.
void noteRefusal(const char* device, const std::string& words);

// The device did what it was asked: its next refusal is news again, whatever its words.
void forgetRefusal(const char* device);
void forgetAllRefusals();
