// Least squares over the places that agree.
#include "calibration/matrix_fit.h"

#include "platform/text_format.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace {

constexpr double radian = 180.0 / std::numbers::pi; // degrees

// (1, columns, rows) of a place to um along one axis.
using Row = std::array<double, 3>;

struct Plane { // both axes
    Row x{}, y{};

    StageVector at(PixelVector px) const {
        return {x[0] + x[1] * px.columns + x[2] * px.rows,
                y[0] + y[1] * px.columns + y[2] * px.rows};
    }
    double distance(const MeasuredPlace& place) const {
        const StageVector fitted = at(place.shift);
        return std::hypot(fitted.x - place.stageUm.x, fitted.y - place.stageUm.y);
    }
};

// Sums of squares and products about the means.
struct Scatter {
    double count = 0.0;
    PixelVector middle;
    StageVector middleUm;
    double cc = 0.0, cr = 0.0, rr = 0.0;

    explicit Scatter(const std::vector<MeasuredPlace>& places)
        : count(static_cast<double>(places.size())) {
        for (const MeasuredPlace& place : places) {
            middle.columns += place.shift.columns / count;
            middle.rows += place.shift.rows / count;
            middleUm.x += place.stageUm.x / count;
            middleUm.y += place.stageUm.y / count;
        }
        for (const MeasuredPlace& place : places) {
            const double c = place.shift.columns - middle.columns;
            const double r = place.shift.rows - middle.rows;
            cc += c * c;
            cr += c * r;
            rr += r * r;
        }
    }
    double determinant() const { return cc * rr - cr * cr; }
    // The shorter extent over the longer one, 0 on a line.
    double roundness() const {
        const double half = (cc + rr) / 2.0;
        const double root = std::sqrt(std::max(half * half - determinant(), 0.0));
        return half + root > 0.0 ? std::sqrt(std::max(half - root, 0.0) / (half + root)) : 0.0;
    }
};

Plane planeThrough(const std::vector<MeasuredPlace>& places, const Scatter& scatter) {
    double xc = 0.0, xr = 0.0, yc = 0.0, yr = 0.0;
    for (const MeasuredPlace& place : places) {
        const double c = place.shift.columns - scatter.middle.columns;
        const double r = place.shift.rows - scatter.middle.rows;
        xc += c * (place.stageUm.x - scatter.middleUm.x);
        xr += r * (place.stageUm.x - scatter.middleUm.x);
        yc += c * (place.stageUm.y - scatter.middleUm.y);
        yr += r * (place.stageUm.y - scatter.middleUm.y);
    }
    const auto row = [&](double atColumns, double atRows, double middleUm) {
        const double a = (scatter.rr * atColumns - scatter.cr * atRows) / scatter.determinant();
        const double b = (scatter.cc * atRows - scatter.cr * atColumns) / scatter.determinant();
        return Row{middleUm - a * scatter.middle.columns - b * scatter.middle.rows, a, b};
    };
    return {row(xc, xr, scatter.middleUm.x), row(yc, yr, scatter.middleUm.y)};
}

// The plane through three of the places that most of all are near to, and how near half of them
// are.
struct Agreement {
    Plane plane;
    double medianUm = std::numeric_limits<double>::infinity();
};

constexpr double leastRoundness = 0.1;

// Nearer than this a place does not spoil the fit of others that happen to agree better.
constexpr double leastOutlierPx = 1.5;

Agreement mostAgreedOn(const std::vector<MeasuredPlace>& places) {
    Agreement best;
    std::vector<double> distances(places.size());
    const auto middle = distances.begin() + static_cast<std::ptrdiff_t>(places.size() / 2);
    for (size_t i = 0; i < places.size(); ++i)
        for (size_t j = i + 1; j < places.size(); ++j)
            for (size_t k = j + 1; k < places.size(); ++k) {
                const std::vector<MeasuredPlace> three{places[i], places[j], places[k]};
                const Scatter scatter(three);
                if (scatter.roundness() < leastRoundness) continue;
                const Plane plane = planeThrough(three, scatter);
                std::transform(places.begin(), places.end(), distances.begin(),
                               [&](const MeasuredPlace& place) { return plane.distance(place); });
                std::nth_element(distances.begin(), middle, distances.end());
                if (*middle < best.medianUm) best = {plane, *middle};
            }
    return best;
}

// A derivative of what is told of a matrix by each of its entries, with their uncertainties.
double uncertaintyOf(const MatrixFit& fit, double MatrixFit::*told) {
    double squares = 0.0;
    double PictureScale::*const entries[] = {&PictureScale::xPerColumn, &PictureScale::xPerRow,
                                             &PictureScale::yPerColumn, &PictureScale::yPerRow};
    for (size_t i = 0; i < fit.uncertainty.size(); ++i) {
        PictureScale moved = fit.matrix;
        moved.*entries[i] += fit.uncertainty[i];
        squares += std::pow(describedMatrix(moved).*told - fit.*told, 2);
    }
    return std::sqrt(squares);
}

// All places beside the plane by more than this are none of its.
std::vector<size_t> beside(const std::vector<MeasuredPlace>& places, const Plane& plane,
                           double limitUm) {
    std::vector<size_t> indices;
    for (size_t i = 0; i < places.size(); ++i)
        if (plane.distance(places[i]) > limitUm) indices.push_back(i);
    return indices;
}

std::vector<MeasuredPlace> without(std::vector<MeasuredPlace> places,
                                   const std::vector<size_t>& indices) {
    for (size_t i = indices.size(); i-- > 0;)
        places.erase(places.begin() + static_cast<std::ptrdiff_t>(indices[i]));
    return places;
}

double rmsDistance(const std::vector<MeasuredPlace>& places, const Plane& plane) {
    double squares = 0.0;
    for (const MeasuredPlace& place : places) squares += std::pow(plane.distance(place), 2);
    return std::sqrt(squares / static_cast<double>(places.size()));
}

MatrixFit refused(const std::string& why) {
    MatrixFit fit;
    fit.refusal = why;
    return fit;
}

} // namespace

MatrixFit describedMatrix(const PictureScale& matrix) {
    MatrixFit fit;
    fit.matrix = matrix;
    fit.umPerPixel = std::sqrt(std::fabs(matrix.determinant()));
    const double columns = std::atan2(matrix.yPerColumn, matrix.xPerColumn);
    const double rows = std::atan2(matrix.yPerRow, matrix.xPerRow);
    constexpr double right = std::numbers::pi / 2.0, full = 2.0 * std::numbers::pi;
    double turn = 0.0; // the mean of both
    if (!matrix.isMirrored()) {
        fit.skewDegrees = std::remainder(rows - columns - right, full) * radian;
        turn = columns + fit.skewDegrees / radian / 2.0;
    } else {
        fit.mirroring = Mirroring::UpsideDown;
        fit.skewDegrees = std::remainder(columns - rows - right, full) * radian;
        turn = columns - fit.skewDegrees / radian / 2.0;
        if (std::fabs(std::remainder(turn, full)) > right) {
            fit.mirroring = Mirroring::LeftRight;
            turn += std::numbers::pi;
        }
    }
    fit.rotationDegrees = std::remainder(turn, full) * radian;
    fit.rowsPerColumns = matrix.umPerRow() / matrix.umPerColumn();
    return fit;
}

MatrixFit fitMatrix(const std::vector<MeasuredPlace>& places) {
    if (places.size() < leastPlaces)
        return refused(formatted("%d places are too few, it needs %d",
                                 static_cast<int>(places.size()), static_cast<int>(leastPlaces)));
    if (Scatter(places).roundness() < leastRoundness)
        return refused("The picture moved along one line only");
    const Agreement agreed = mostAgreedOn(places);
    // Half of all distances of a normal scatter in two dimensions are below 1.18 deviations of one;
    // three places alone fit too well.
    const auto count = static_cast<double>(places.size());
    const double deviation = agreed.medianUm / 1.18 * (1.0 + 5.0 / (count - 3.0));
    const double pixelUm = std::hypot(agreed.plane.x[1], agreed.plane.y[1]);
    double limitUm = std::max(4.5 * deviation, leastOutlierPx * pixelUm);
    std::vector<size_t> outliers = beside(places, agreed.plane, limitUm);
    std::vector<MeasuredPlace> used = without(places, outliers);
    const auto enough = [&] {
        return used.size() >= leastPlaces && used.size() * 4 >= places.size() * 3 &&
               Scatter(used).roundness() >= leastRoundness;
    };
    // By the plane of all that agree once more: that of three has its own errors.
    for (int i = 0; i < 2 && enough(); ++i) {
        const Plane plane = planeThrough(used, Scatter(used));
        limitUm = std::max(4.0 * rmsDistance(used, plane), leastOutlierPx * pixelUm);
        outliers = beside(places, plane, limitUm);
        used = without(places, outliers);
    }
    if (!enough())
        return refused(formatted("Only %d of %d places agree", static_cast<int>(used.size()),
                                 static_cast<int>(places.size())));

    const Scatter scatter(used);
    const Plane plane = planeThrough(used, scatter);
    // The picture goes where the sample goes: against the way to what it then shows.
    MatrixFit fit = describedMatrix({-plane.x[1], -plane.x[2], -plane.y[1], -plane.y[2]});
    fit.outliers = outliers;
    StageVector squares;
    for (const MeasuredPlace& place : used) {
        const StageVector fitted = plane.at(place.shift);
        squares.x += std::pow(fitted.x - place.stageUm.x, 2);
        squares.y += std::pow(fitted.y - place.stageUm.y, 2);
    }
    fit.residualUm = std::sqrt((squares.x + squares.y) / scatter.count);
    const double freedom = scatter.count - 3.0;
    const double perColumn = std::sqrt(scatter.rr / scatter.determinant() / freedom);
    const double perRow = std::sqrt(scatter.cc / scatter.determinant() / freedom);
    const double x = std::sqrt(squares.x), y = std::sqrt(squares.y);
    fit.uncertainty = {x * perColumn, x * perRow, y * perColumn, y * perRow};
    fit.umPerPixelUncertainty = uncertaintyOf(fit, &MatrixFit::umPerPixel);
    fit.rotationUncertainty = uncertaintyOf(fit, &MatrixFit::rotationDegrees);
    return fit;
}

std::string MatrixFit::words() const {
    if (!isFound()) return refusal;
    constexpr const char* mirrored[] = {"not mirrored", "mirrored left to right",
                                        "mirrored upside down"};
    const int decimals = umPerPixel < 0.1 ? 6 : 5;
    std::string text =
        formatted("%.*f um per pixel (+- %.*f), turned by %.2f degrees (+- %.2f), %s, residual "
                  "%.2f um",
                  decimals, umPerPixel, decimals, umPerPixelUncertainty, rotationDegrees,
                  rotationUncertainty, mirrored[static_cast<size_t>(mirroring)], residualUm);
    constexpr double noticedSkew = 0.5, noticedRatio = 0.01; // degrees, part
    if (std::fabs(skewDegrees) > noticedSkew)
        text += formatted(", skew by %.2f degrees", skewDegrees);
    if (std::fabs(rowsPerColumns - 1.0) > noticedRatio)
        text += formatted(", a row is %.3f times a column", rowsPerColumns);
    for (size_t i = 0; i < outliers.size(); ++i)
        text +=
            formatted(i == 0 ? ", left out: place %d" : ", %d", static_cast<int>(outliers[i] + 1));
    return text;
}
