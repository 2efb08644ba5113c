// "Help > Devices": what each device was looked for with, and what came of it.
#pragma once

#include <string>

// For each device what was looked for and when, its library's full path and file version, what it
// answered, and what failed last with the vendor's words.
std::string devicesPage();
