// Reads a GWY file from the public description of the format, apart from the program's writer.
#pragma once

#include <map>
#include <string>
#include <vector>

// All components by their names from the top, joined by a blank: "/0/data xres". Numbers of every
// kind are doubles.
struct GwyContent {
    std::map<std::string, std::string> texts;
    std::map<std::string, double> numbers;
    std::map<std::string, std::vector<double>> arrays;
    std::map<std::string, std::string> types; // of the objects
};

// Throws std::runtime_error for what is not of the format, also when something is left over.
GwyContent readGwy(const std::string& bytes);
