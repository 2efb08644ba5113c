// Opens the file, and once through Gwyddion.
#include "tests/simulation/saved_map.h"

#include "tests/simulation/whole_run.h"

#include <algorithm>
#include <cstdlib>

namespace {

// What Gwyddion makes of the file, without the components that are its own.
GwyContent throughGwyddion(const std::string& file) {
    const std::string copy = "converted.gwy";
    const std::string command = "gwyddion --convert-to-gwy='" + pathOnDesktop(copy) + "' '" +
                                pathOnDesktop(file) + "' >/dev/null";
    EXPECT_EQ(std::system(command.c_str()), 0) << command; // NOLINT: a fixed program
    GwyContent content = readGwy(contentOf(copy));
    removeFile(desktopFolder() + L"\\converted.gwy");
    content.texts.erase("/filename");
    return content;
}

// An empty unit is none there.
void dropEmptyUnits(GwyContent& content) {
    std::erase_if(content.texts, [&](const auto& text) {
        const bool unit = text.second.empty() && text.first.ends_with(" unitstr");
        if (unit) content.types.erase(text.first.substr(0, text.first.rfind(' ')));
        return unit;
    });
}

} // namespace

SavedMap::SavedMap(const std::string& folder) : file(sessionFile("Lumascan", folder)) {
    content = readGwy(contentOf(file));
    while (content.types.contains(name(channels, "/data"))) ++channels;
    columns = static_cast<int>(number("/0/data xres"));
    rows = static_cast<int>(number("/0/data yres"));
}

void SavedMap::expectGwyddionAgrees() const {
    const GwyContent opened = throughGwyddion(file);
    GwyContent written = content;
    dropEmptyUnits(written);
    EXPECT_EQ(opened.texts, written.texts);
    EXPECT_EQ(opened.numbers, written.numbers);
    EXPECT_EQ(opened.arrays, written.arrays);
    EXPECT_EQ(opened.types, written.types);
}

std::string SavedMap::name(int channel, const char* what) const {
    return "/" + std::to_string(channel) + what;
}

double SavedMap::value(int channel, int column, int row) const {
    return content.arrays.at(name(channel, "/data data"))
        .at(static_cast<size_t>(row * columns + column));
}

bool SavedMap::masked(int channel, int column, int row) const {
    const auto mask = content.arrays.find(name(channel, "/mask data"));
    return mask != content.arrays.end() &&
           mask->second.at(static_cast<size_t>(row * columns + column)) == 1.0;
}

int SavedMap::maskedCells(int channel) const {
    const auto mask = content.arrays.find(name(channel, "/mask data"));
    if (mask == content.arrays.end()) return 0;
    return static_cast<int>(std::count(mask->second.begin(), mask->second.end(), 1.0));
}

std::string SavedMap::unit(int channel) const {
    return content.texts.at(name(channel, "/data si_unit_z unitstr"));
}

std::string SavedMap::condition(const std::string& condition) const {
    const auto found = content.texts.find("/0/meta " + condition);
    return found == content.texts.end() ? "" : found->second;
}

LabPoint SavedMap::placeOf(int column, int row) const {
    const double pixelX = number("/0/data xreal") / columns;
    const double pixelY = number("/0/data yreal") / rows;
    const LabPixel spot = labSpotPixel();
    return {1e6 * (number("/0/data xoff") + (column + 0.5) * pixelX) +
                (spot.column - labCentreColumn) * labUmPerPixel,
            -1e6 * (number("/0/data yoff") + (row + 0.5) * pixelY) +
                (spot.row - labCentreRow) * labUmPerPixel};
}

void SavedMap::expectCells(int channel,
                           const std::function<bool(double value, LabPoint)>& holds) const {
    int wrong = 0;
    for (int row = 0; row < rows; ++row)
        for (int column = 0; column < columns; ++column)
            if (!masked(channel, column, row) &&
                !holds(value(channel, column, row), placeOf(column, row)) && ++wrong < 5)
                ADD_FAILURE() << "channel " << channel << " cell " << column << "," << row
                              << " holds " << value(channel, column, row) << " " << unit(channel);
    EXPECT_EQ(wrong, 0);
}
