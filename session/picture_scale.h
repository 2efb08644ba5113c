// How the display picture lies on the sample.
#pragma once

#include <cmath>

// Of the stage's axes, um.
struct StageVector {
    double x = 0.0, y = 0.0;
};

// Display pixels to the right and upwards.
struct PixelVector {
    double columns = 0.0, rows = 0.0;
};

// What a pixel that lies (columns, rows) from another one shows lies the matrix times that from
// what the other one shows. As the microscope was built 1232 columns are 180 um.
struct PictureScale {
    double xPerColumn = 180.0 / 1232.0, xPerRow = 0.0; // um
    double yPerColumn = 0.0, yPerRow = 180.0 / 1232.0;

    StageVector umOf(PixelVector px) const {
        return {xPerColumn * px.columns + xPerRow * px.rows,
                yPerColumn * px.columns + yPerRow * px.rows};
    }
    PixelVector pixelsOf(StageVector um) const {
        return {(yPerRow * um.x - xPerRow * um.y) / determinant(),
                (xPerColumn * um.y - yPerColumn * um.x) / determinant()};
    }
    double determinant() const { return xPerColumn * yPerRow - xPerRow * yPerColumn; }
    double umPerColumn() const { return std::hypot(xPerColumn, yPerColumn); }
    double umPerRow() const { return std::hypot(xPerRow, yPerRow); }
    bool isMirrored() const { return determinant() < 0.0; }
    // Columns along X and rows along Y, in one scale: a rectangle of the picture is one of the
    // stage.
    bool isStraight() const {
        return xPerRow == 0.0 && yPerColumn == 0.0 && xPerColumn == yPerRow && xPerColumn > 0.0;
    }
    bool operator==(const PictureScale&) const = default;
};
