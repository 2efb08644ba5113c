// The sample: a flake between gold contacts on a plain substrate, with marks that tell left from
// right and top from bottom.
#include "virtual_lab/lab.h"

#include <array>
#include <cmath>
#include <numbers>

enum class Material { Substrate, Flake, DeadSpot, ContactEdge, ContactOnFlake, Gold };

struct Box {
    double left, bottom, right, top; // um
};

static bool inside(const Box& box, double x, double y) {
    return x >= box.left && x < box.right && y >= box.bottom && y < box.top;
}

// Corners of the flake, counter-clockwise.
constexpr std::array<LabPoint, 7> flakeCorners = {
    {{-18, -11}, {-6, -15}, {12, -13}, {20, -2}, {15, 12}, {2, 15}, {-14, 10}}};
constexpr Box flakeBox = {-18, -15, 20, 15};

constexpr Box contacts[] = {
    {-48, -4, -12, 5}, {-75, -14, -48, 15}, // left lead and pad
    {13, -1, 48, 9},   {48, -10, 78, 22},   // right
    {-4, 9, 1, 50},    {-14, 50, 11, 68},   // top
};

// A strip of the flake beside the right contact collects all carriers.
constexpr Box rightContactEdge = {11, -1, 13, 9};

constexpr LabPoint deadSpotCentre = {-2, -6};
constexpr double deadSpotRadius = 3; // um

// The letter F, upright in a picture that is the right way round.
constexpr Box letter[] = {{-45, 25, -42, 43}, {-45, 40, -33, 43}, {-45, 33, -36, 36}};
constexpr Box letterBox = {-45, 25, -33, 43};

static bool onFlake(double x, double y) {
    if (!inside(flakeBox, x, y)) return false;
    for (size_t i = 0; i < flakeCorners.size(); ++i) {
        const LabPoint& a = flakeCorners[i];
        const LabPoint& b = flakeCorners[(i + 1) % flakeCorners.size()];
        if ((b.x - a.x) * (y - a.y) - (b.y - a.y) * (x - a.x) < 0) return false;
    }
    return true;
}

// Outside the device: a cross every 100 um, with as many dots to its right as it lies fields to the
// right of the leftmost one, and above it likewise.
static bool onFieldMark(double x, double y) {
    constexpr double pitch = 100;
    constexpr int outermost = 4; // fields from the centre
    double column = std::round(x / pitch), row = std::round(y / pitch);
    if (std::abs(column) > outermost || std::abs(row) > outermost) return false;
    if (column == 0 && row == 0) return false;
    double dx = x - column * pitch, dy = y - row * pitch;
    if (std::abs(dx) < 6 && std::abs(dy) < 0.8) return true;
    if (std::abs(dy) < 6 && std::abs(dx) < 0.8) return true;
    auto onDots = [](double along, double across, int count) {
        double dot = std::floor((along - 8) / 2.5);
        return dot >= 0 && dot < count && along - 8 - dot * 2.5 < 1.2 && std::abs(across) < 0.6;
    };
    return onDots(dx, dy, static_cast<int>(column) + outermost) ||
           onDots(dy, dx, static_cast<int>(row) + outermost);
}

static Material materialAt(double x, double y) {
    bool flake = onFlake(x, y);
    for (const Box& contact : contacts)
        if (inside(contact, x, y)) return flake ? Material::ContactOnFlake : Material::Gold;
    if (flake) {
        if (std::hypot(x - deadSpotCentre.x, y - deadSpotCentre.y) < deadSpotRadius)
            return Material::DeadSpot;
        return inside(rightContactEdge, x, y) ? Material::ContactEdge : Material::Flake;
    }
    if (inside(letterBox, x, y))
        for (const Box& stroke : letter)
            if (inside(stroke, x, y)) return Material::Gold;
    return onFieldMark(x, y) ? Material::Gold : Material::Substrate;
}

double landscapeAt(double xUm, double yUm) {
    switch (materialAt(xUm, yUm)) {
    case Material::Flake:
        return 0.50 + 0.35 * xUm / 20 + 0.10 * yUm / 15;
    case Material::ContactEdge:
        return 1.0;
    case Material::DeadSpot:
        return 0.06;
    case Material::ContactOnFlake:
        return 0.10;
    case Material::Gold:
        return 0.03;
    case Material::Substrate:
        break;
    }
    return 0.02;
}

Rgb textureAt(double xUm, double yUm) {
    switch (materialAt(xUm, yUm)) {
    case Material::Flake:
    case Material::ContactEdge: { // thicker towards the right: bluer
        double thickness = (xUm + 20) / 40;
        return {0.34 - 0.14 * thickness, 0.56 - 0.10 * thickness, 0.44 + 0.22 * thickness};
    }
    case Material::DeadSpot:
        return {0.52, 0.40, 0.30};
    case Material::ContactOnFlake:
        return {0.88, 0.74, 0.42};
    case Material::Gold:
        return {0.95, 0.78, 0.38};
    case Material::Substrate:
        break;
    }
    return {0.33, 0.25, 0.36};
}

double surfaceHeightAt(double xUm, double yUm) {
    const LabSetUp setUp = labSetUp();
    const auto slope = [](double degrees) { return std::tan(degrees * std::numbers::pi / 180); };
    return 0.25 * std::sin(xUm / 45) + 0.15 * std::cos(yUm / 35) - 0.15 + slope(setUp.tiltX) * xUm +
           slope(setUp.tiltY) * yUm;
}
