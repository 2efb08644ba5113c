// How the display picture lies on the sample, from what the picture did when the stage moved.
#pragma once

#include "session/picture_scale.h"

#include <array>
#include <cstddef>
#include <string>
#include <vector>

// The stage stood at `stageUm`, and the picture had moved by `shift` against the one that all
// places are compared with.
struct MeasuredPlace {
    StageVector stageUm;
    PixelVector shift;
};
constexpr size_t leastPlaces = 8;

enum class Mirroring { None, LeftRight, UpsideDown };

struct MatrixFit {
    std::string refusal; // why there is none; empty when it was found
    PictureScale matrix;
    // Standard deviations: of xPerColumn, xPerRow, yPerColumn, yPerRow, um per pixel.
    std::array<double, 4> uncertainty{};
    double residualUm = 0.0;      // rms over the places that agree, of both axes together
    std::vector<size_t> outliers; // places that do not agree and were left out, by their index

    double umPerPixel = 0.0, umPerPixelUncertainty = 0.0; // root of the matrix' determinant
    // By how much the camera is turned: what lies along X of the stage lies so many degrees
    // clockwise of the columns; -90 to 90 where it is mirrored.
    double rotationDegrees = 0.0, rotationUncertainty = 0.0;
    Mirroring mirroring = Mirroring::None;
    double skewDegrees = 0.0;    // by which columns and rows are not at right angles on the sample
    double rowsPerColumns = 1.0; // um per row over um per column

    bool isFound() const { return refusal.empty(); }
    // "0.14610 um per pixel (+- 0.00003), turned by 0.02 degrees (+- 0.01), not mirrored, residual
    // 0.04 um"
    std::string words() const;
};

// Least squares of a matrix and of an offset, which is what the picture all are compared with is
// off. Places that lie by far more beside the others' matrix than these are left out and told. At
// least 8 must agree, three quarters of all, and they must not lie on a line; otherwise refused.
MatrixFit fitMatrix(const std::vector<MeasuredPlace>& places);

// The same matrix as scale, rotation, mirroring, skew; without uncertainties.
MatrixFit describedMatrix(const PictureScale& matrix);
