// The file with units that a scan has left.
#pragma once

#include "tests/doubles/gwy_reader.h"
#include "virtual_lab/lab.h"

#include <functional>
#include <string>

// The file of the session.
class SavedMap {
public:
    // The folder is needed where there are several.
    explicit SavedMap(const std::string& folder = "");

    // Gwyddion opens the file without losing anything of it. Takes seconds.
    void expectGwyddionAgrees() const;

    int columns = 0, rows = 0, channels = 0;
    double value(int channel, int column, int row) const; // SI; row 0 is the top
    bool masked(int channel, int column, int row) const;
    int maskedCells(int channel) const;
    std::string unit(int channel) const;
    std::string condition(const std::string& name) const; // "" when it is not there

    // The sample point of a cell, um, as the file says: stage position and laser spot.
    LabPoint placeOf(int column, int row) const;

    // Fails the test unless `holds` is true of each cell that is not masked.
    void expectCells(int channel, const std::function<bool(double value, LabPoint)>& holds) const;

private:
    std::string name(int channel, const char* what) const;
    double number(const std::string& of) const { return content.numbers.at(of); }

    std::string file;
    GwyContent content;
};
