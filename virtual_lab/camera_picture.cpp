// What the camera's sensor sees: the sample in the illumination, the laser spot on it, noise.
#include "virtual_lab/lab_state.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

constexpr int pictureWidth = labRawWidth / 2, pictureHeight = labRawHeight / 2;

// Grey levels at reflectance 1 with 100 us and 1 dB.
constexpr double illuminationLevel = 120;
constexpr double laserLevelAtReference = 210; // in focus, middle of the spot
constexpr double referencePwm = 204;
constexpr double spotSigmaInFocus = 6; // picture pixels

// The sample's picture is kept in tiles of the raw mosaic, made when first seen: a picture row is a
// row R G R G ... and a row G B G B ... of reflectances, 255 for 1.
constexpr int tileSide = 256;       // picture pixels
constexpr int tilesFromCentre = 14; // about 520 um each way; beyond it the substrate goes on
constexpr int tilesAcross = 2 * tilesFromCentre + 1;
struct Tile {
    uint8_t rows[tileSide][2][2 * tileSide];
};
static std::array<std::unique_ptr<Tile>, tilesAcross * tilesAcross + 1> tiles;

static int floorDivide(int value, int divisor) {
    return value / divisor - (value % divisor < 0);
}

static std::unique_ptr<Tile> makeTile(int tileX, int tileY) {
    auto tile = std::make_unique<Tile>();
    auto byte = [](double reflectance) {
        return static_cast<uint8_t>(std::lround(reflectance * 255));
    };
    for (int row = 0; row < tileSide; ++row) {
        for (int column = 0; column < tileSide; ++column) {
            Rgb colour = textureAt((tileX * tileSide + column) * labUmPerPixel,
                                   (tileY * tileSide + row) * labUmPerPixel);
            tile->rows[row][0][2 * column] = byte(colour.red);
            tile->rows[row][0][2 * column + 1] = byte(colour.green);
            tile->rows[row][1][2 * column] = byte(colour.green);
            tile->rows[row][1][2 * column + 1] = byte(colour.blue);
        }
    }
    return tile;
}

static const Tile& tileAt(int tileX, int tileY) {
    size_t index = tiles.size() - 1; // plain substrate
    if (std::abs(tileX) <= tilesFromCentre && std::abs(tileY) <= tilesFromCentre)
        index =
            static_cast<size_t>((tileY + tilesFromCentre) * tilesAcross + tileX + tilesFromCentre);
    else
        tileX = tileY = 2 * tilesFromCentre;
    if (!tiles[index]) tiles[index] = makeTile(tileX, tileY);
    return *tiles[index];
}

// A row of noise starts anywhere in this tile: 0, 1 or 2, which stands for -1, 0, +1.
constexpr size_t noiseStarts = 16384;
static const uint8_t* noiseTile() {
    static const auto tile = [] {
        std::array<uint8_t, noiseStarts + labRawWidth> values;
        std::minstd_rand random(1);
        for (uint8_t& value : values) value = static_cast<uint8_t>(random() / 7 % 3);
        return values;
    }();
    return tile.data();
}

// The same for the same seed, frame and row.
static const uint8_t* noiseRow(int row) {
    uint64_t hash = (lab.seed * 31 + lab.camera.frameNumber) * 0x9E3779B97F4A7C15u;
    hash = (hash ^ (hash >> 29)) * 0xBF58476D1CE4E5B9u + static_cast<uint64_t>(row) * 2654435761u;
    return noiseTile() + (hash >> 13) % noiseStarts;
}

// scale: grey levels per reflectance step of 1/255, in 1/256. 16-bit arithmetic throughout, so that
// the compiler makes vectors of it. A sanitizer's check at every byte would undo that, and so would
// a call of std::min, which has one.
__attribute__((no_sanitize("address", "undefined"))) static void
brighten(uint8_t* __restrict out, const uint8_t* __restrict reflectance,
         const uint8_t* __restrict noise, int count, uint16_t scale) {
    for (int i = 0; i < count; ++i) {
        uint16_t wide = static_cast<uint16_t>(reflectance[i] << 8);
        uint16_t level = static_cast<uint16_t>((uint32_t{wide} * scale) >> 16);
        uint16_t noisy = static_cast<uint16_t>((level < 255 ? level : 255) + noise[i]);
        noisy = noisy < 1 ? 1 : noisy;
        out[i] = static_cast<uint8_t>((noisy < 256 ? noisy : 256) - 1);
    }
}

static void drawIlluminated(uint8_t* raw, double brightness) {
    auto scale =
        static_cast<uint16_t>(std::clamp(illuminationLevel * brightness / 255 * 256, 0.0, 65535.0));
    int left = static_cast<int>(std::lround(labStageUm(labX) / labUmPerPixel)) - labCentreColumn;
    int bottom = static_cast<int>(std::lround(labStageUm(labY) / labUmPerPixel)) - labCentreRow;
    for (int row = 0; row < pictureHeight; ++row) { // from the bottom
        int tileY = floorDivide(bottom + row, tileSide);
        int inTileY = bottom + row - tileY * tileSide;
        int rawRow = labRawHeight - 2 - 2 * row;
        uint8_t* out = raw + static_cast<size_t>(rawRow) * labRawWidth;
        const uint8_t* noise[2] = {noiseRow(rawRow), noiseRow(rawRow + 1)};
        for (int column = 0; column < pictureWidth;) {
            int tileX = floorDivide(left + column, tileSide);
            int inTileX = left + column - tileX * tileSide;
            int count = std::min(tileSide - inTileX, pictureWidth - column);
            const Tile& tile = tileAt(tileX, tileY);
            for (int line : {0, 1})
                brighten(out + line * labRawWidth + 2 * column,
                         tile.rows[inTileY][line] + 2 * inTileX, noise[line] + 2 * column,
                         2 * count, scale);
            column += count;
        }
    }
}

static void drawDark(uint8_t* raw) {
    for (int row = 0; row < labRawHeight; ++row)
        std::memcpy(raw + static_cast<size_t>(row) * labRawWidth, noiseRow(row), labRawWidth);
}

static void addSpot(uint8_t* raw, double brightness) {
    LabPoint place = labLaserSpotSample();
    double widening = spotWidening(labStageUm(labZ) - surfaceHeightAt(place.x, place.y));
    double sigma = spotSigmaInFocus * widening;
    double peak = laserLevelAtReference * lab.board.laserPwm / referencePwm * brightness /
                  (widening * widening); // the same light on a larger area
    if (peak < 0.5) return;
    double radius = sigma * std::sqrt(2 * std::log(peak / 0.5) + 1e-9);

    auto reach = [&](int centre, int end) {
        return std::pair(std::max(0, static_cast<int>(centre - radius)),
                         std::min(end - 1, static_cast<int>(centre + radius + 1)));
    };
    auto [left, right] = reach(labSpotPixel().column, pictureWidth);
    auto [bottom, top] = reach(labSpotPixel().row, pictureHeight);
    auto profile = [&](int distance) {
        return std::exp(-distance * distance / (2 * sigma * sigma));
    };
    std::array<double, pictureWidth> across;
    for (int column = left; column <= right; ++column)
        across[static_cast<size_t>(column)] = profile(column - labSpotPixel().column);

    Rgb colour = textureAt(place.x, place.y);
    for (int row = bottom; row <= top; ++row) {
        double rowPeak = peak * profile(row - labSpotPixel().row);
        uint8_t* upper = raw + static_cast<size_t>(labRawHeight - 2 - 2 * row) * labRawWidth;
        uint8_t* lower = upper + labRawWidth;
        auto add = [](uint8_t& pixel, double light) {
            pixel = static_cast<uint8_t>(std::min(255, pixel + static_cast<int>(light + 0.5)));
        };
        for (int column = left; column <= right; ++column) {
            double light = std::min(1000.0, rowPeak * across[static_cast<size_t>(column)]);
            add(upper[2 * column], light * colour.red);
            add(upper[2 * column + 1], light * colour.green);
            add(lower[2 * column], light * colour.green);
            add(lower[2 * column + 1], light * colour.blue);
        }
    }
}

void renderLabFrame(uint8_t* raw) {
    LabLock lock;
    double brightness = cameraSensitivity();
    if (lab.board.illuminated)
        drawIlluminated(raw, brightness);
    else
        drawDark(raw);
    if (lab.board.laserPwm > 0) addSpot(raw, brightness);
}
