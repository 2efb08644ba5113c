// What the camera's sensor sees: the sample in the illumination, the laser spot on it, noise.
#include "virtual_lab/defocus.h"
#include "virtual_lab/lab_state.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>

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

// A row of noise starts anywhere in these tiles.
constexpr size_t noiseStarts = 16384;
struct Noise {
    std::array<uint8_t, noiseStarts + labRawWidth> lit;    // 0, 1 or 2, which stands for -1, 0, +1
    std::array<uint8_t, noiseStarts + labRawWidth> dark;   // 1 in one of 64 pixels, otherwise 0
    std::array<float, noiseStarts + labRawWidth> fraction; // of a grey level
};
static const Noise& noise() {
    static const Noise tiles = [] {
        Noise made;
        std::minstd_rand random(1);
        for (uint8_t& value : made.lit) value = static_cast<uint8_t>(random() / 7 % 3);
        for (uint8_t& value : made.dark) value = random() / 7 % 64 == 0;
        for (float& value : made.fraction) value = static_cast<float>(random() % 65536) / 65536;
        return made;
    }();
    return tiles;
}

// Where in the tiles a raw row starts: the same for the same seed, frame and row.
static size_t noiseStart(int row) {
    uint64_t hash = (lab.seed * 31 + lab.camera.frameNumber) * 0x9E3779B97F4A7C15u;
    hash = (hash ^ (hash >> 29)) * 0xBF58476D1CE4E5B9u + static_cast<uint64_t>(row) * 2654435761u;
    return (hash >> 13) % noiseStarts;
}

static const uint8_t* litNoise(int row) {
    return noise().lit.data() + noiseStart(row);
}

// Whether anyone looks at a picture row, from the bottom.
static std::array<bool, pictureHeight> isSeen;
static void chooseRows() {
    const int top = automaticTop();
    for (int row = 0; row < pictureHeight; ++row) {
        int fromTop = labRawHeight - 2 - 2 * row - top;
        isSeen[static_cast<size_t>(row)] = lab.rowsAroundSpot < 0 || fromTop % automaticStep == 0 ||
                                           std::abs(row - labSpotPixel().row) <= lab.rowsAroundSpot;
    }
}

bool labRowIsShown(int rawRow) {
    return isSeen[static_cast<size_t>(labRawHeight - 1 - rawRow) / 2];
}

// scale: grey levels per reflectance step of 1/255, in 1/256. 16-bit arithmetic throughout, so that
// the compiler makes vectors of it. A sanitizer's check at every byte would undo that, and so would
// a call of std::min, which has one.
#define LAB_VECTORS no_sanitize("address", "undefined")
__attribute__((always_inline, LAB_VECTORS)) static inline void
brightenPixels(uint8_t* __restrict out, const uint8_t* __restrict reflectance,
               const uint8_t* __restrict noise, int count, uint16_t scale) {
    for (int i = 0; i < count; ++i) {
        uint16_t wide = static_cast<uint16_t>(reflectance[i] << 8);
        uint16_t level = static_cast<uint16_t>((uint32_t{wide} * scale) >> 16);
        int16_t noisy = static_cast<int16_t>((level < 255 ? level : 255) + noise[i] - 1);
        noisy = noisy > 0 ? noisy : 0;
        out[i] = static_cast<uint8_t>(noisy < 255 ? noisy : 255);
    }
}

__attribute__((target("avx2"), LAB_VECTORS)) static void brightenAtOnce(uint8_t* out,
                                                                        const uint8_t* reflectance,
                                                                        const uint8_t* noise,
                                                                        int count, uint16_t scale) {
    brightenPixels(out, reflectance, noise, count, scale);
}

__attribute__((LAB_VECTORS)) static void brighten(uint8_t* out, const uint8_t* reflectance,
                                                  const uint8_t* noise, int count, uint16_t scale) {
    static const bool can = __builtin_cpu_supports("avx2");
    if (can)
        brightenAtOnce(out, reflectance, noise, count, scale);
    else
        brightenPixels(out, reflectance, noise, count, scale);
}

static void drawSharp(uint8_t* raw, uint16_t scale, int left, int bottom) {
    for (int row = 0; row < pictureHeight; ++row) { // from the bottom
        if (!isSeen[static_cast<size_t>(row)]) continue;
        int tileY = floorDivide(bottom + row, tileSide);
        int inTileY = bottom + row - tileY * tileSide;
        int rawRow = labRawHeight - 2 - 2 * row;
        uint8_t* out = raw + static_cast<size_t>(rawRow) * labRawWidth;
        const uint8_t* noise[2] = {litNoise(rawRow), litNoise(rawRow + 1)};
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

// Of a camera that is turned, or looks through another objective: the nearest point of the tiles
// for each pixel. It is never blurred.
static void drawTurned(uint8_t* raw, uint16_t scale) {
    const LabPoint origin = fromCentre(-labCentreColumn, -labCentreRow);
    const LabPoint perColumn = fromCentre(1, 0), perRow = fromCentre(0, 1);
    const LabPoint centre = sampleAtCentre();
    const double x0 = centre.x + origin.x, y0 = centre.y + origin.y;
    uint8_t lines[2][labRawWidth];
    for (int row = 0; row < pictureHeight; ++row) {
        if (!isSeen[static_cast<size_t>(row)]) continue;
        for (int column = 0; column < pictureWidth; ++column) {
            const double x = x0 + column * perColumn.x + row * perRow.x;
            const double y = y0 + column * perColumn.y + row * perRow.y;
            const int across = static_cast<int>(std::lround(x / labUmPerPixel));
            const int up = static_cast<int>(std::lround(y / labUmPerPixel));
            const int tileX = floorDivide(across, tileSide), tileY = floorDivide(up, tileSide);
            const Tile& tile = tileAt(tileX, tileY);
            const int inX = 2 * (across - tileX * tileSide), inY = up - tileY * tileSide;
            for (int line : {0, 1})
                std::memcpy(lines[line] + 2 * column, tile.rows[inY][line] + inX, 2);
        }
        const int rawRow = labRawHeight - 2 - 2 * row;
        for (int line : {0, 1})
            brighten(raw + static_cast<size_t>(rawRow + line) * labRawWidth, lines[line],
                     litNoise(rawRow + line), labRawWidth, scale);
    }
}

static void drawDefocused(uint8_t* raw, uint16_t scale, int left, int bottom, double sigma) {
    static DefocusedSample sample;
    defocusSample(sample, left, bottom, sigma);
    uint8_t lines[2][labRawWidth];
    for (int row = 0; row < pictureHeight; ++row) {
        if (!isSeen[static_cast<size_t>(row)]) continue;
        int rawRow = labRawHeight - 2 - 2 * row;
        defocusedRow(sample, row, lines[0], lines[1]);
        for (int line : {0, 1})
            brighten(raw + static_cast<size_t>(rawRow + line) * labRawWidth, lines[line],
                     litNoise(rawRow + line), labRawWidth, scale);
    }
}

// How far the sample's picture is blurred, picture pixels: by what the spot is wider than in focus.
static double illuminatedSigma() {
    const LabPoint centre = sampleAtCentre();
    double defocus = labStageUm(labZ) - surfaceHeightAt(centre.x, centre.y);
    return spotSigmaInFocus * (spotWidening(defocus) - 1);
}

static void drawIlluminated(uint8_t* raw, double brightness) {
    auto scale =
        static_cast<uint16_t>(std::clamp(illuminationLevel * brightness / 255 * 256, 0.0, 65535.0));
    if (!lab.faults.setUp.isStraight()) return drawTurned(raw, scale);
    const LabPoint centre = sampleAtCentre();
    int left = static_cast<int>(std::lround(centre.x / labUmPerPixel)) - labCentreColumn;
    int bottom = static_cast<int>(std::lround(centre.y / labUmPerPixel)) - labCentreRow;
    double sigma = illuminatedSigma();
    if (sigma >= 1)
        drawDefocused(raw, scale, left, bottom, sigma);
    else
        drawSharp(raw, scale, left, bottom);
}

static void drawDark(uint8_t* raw) {
    for (int row = 0; row < labRawHeight; ++row)
        if (isSeen[static_cast<size_t>(labRawHeight - 1 - row) / 2])
            std::memcpy(raw + static_cast<size_t>(row) * labRawWidth,
                        noise().dark.data() + noiseStart(row), labRawWidth);
}

// A fraction of a grey level shows in as many of the pixels, so that their mean is the light.
__attribute__((LAB_VECTORS)) static void addLight(uint8_t* __restrict out,
                                                  const float* __restrict profile, float peak,
                                                  const float* __restrict fraction,
                                                  const uint8_t* __restrict lit, int count) {
    constexpr float overflow = 300;
    for (int i = 0; i < count; ++i) {
        float light = profile[i] * peak;
        int level = static_cast<int>((light < overflow ? light : overflow) + fraction[i]);
        int sum = out[i] + level + (light < 1 ? 0 : lit[i] - 1);
        out[i] = static_cast<uint8_t>(sum < 255 ? sum : 255);
    }
}

static void addSpot(uint8_t* raw, double brightness) {
    LabPoint place = labSampleAt(labSpotPixel().column, labSpotPixel().row);
    double widening = spotWidening(labStageUm(labZ) - surfaceHeightAt(place.x, place.y));
    double sigma = spotSigmaInFocus * widening;
    double peak = laserLevelAtReference * lab.board.laserPwm / referencePwm * brightness /
                  (widening * widening);   // the same light on a larger area
    constexpr double faintest = 1.0 / 256; // nothing is drawn of what is less
    if (peak <= faintest) return;
    double radius = sigma * std::sqrt(2 * std::log(peak / faintest));

    auto reach = [&](int centre, int end) {
        return std::pair(std::max(0, static_cast<int>(centre - radius)),
                         std::min(end - 1, static_cast<int>(centre + radius + 1)));
    };
    auto [left, right] = reach(labSpotPixel().column, pictureWidth);
    auto [bottom, top] = reach(labSpotPixel().row, pictureHeight);
    auto profile = [&](int distance) {
        return std::exp(-distance * distance / (2 * sigma * sigma));
    };
    Rgb colour = textureAt(place.x, place.y);
    std::array<float, labRawWidth> across[2]; // of the two raw lines of a row
    for (int column = left; column <= right; ++column) {
        size_t at = 2 * static_cast<size_t>(column);
        double part = profile(column - labSpotPixel().column);
        across[0][at] = static_cast<float>(part * colour.red);
        across[0][at + 1] = across[1][at] = static_cast<float>(part * colour.green);
        across[1][at + 1] = static_cast<float>(part * colour.blue);
    }
    for (int row = bottom; row <= top; ++row) {
        if (!isSeen[static_cast<size_t>(row)]) continue;
        auto rowPeak = static_cast<float>(peak * profile(row - labSpotPixel().row));
        for (int line : {0, 1}) {
            int rawRow = labRawHeight - 2 - 2 * row + line;
            size_t start = noiseStart(rawRow) + 2 * static_cast<size_t>(left);
            addLight(raw + static_cast<size_t>(rawRow) * labRawWidth + 2 * left,
                     across[line].data() + 2 * left, rowPeak, noise().fraction.data() + start,
                     noise().lit.data() + start, 2 * (right - left + 1));
        }
    }
}

static size_t spotLine() {
    return static_cast<size_t>(labRawHeight - 2 - 2 * labSpotPixel().row);
}

// What a frame shows, up to its noise.
struct Scene {
    double brightness, x, y, z;
    int laserPwm;
    bool illuminated;
    int firstSeen;
    bool operator==(const Scene&) const = default;
};

// By its memory, what was drawn there last, with the line through the spot: another may lie there
// since.
struct Drawn {
    Scene scene;
    std::array<uint8_t, labRawWidth> line;
};
static std::map<const uint8_t*, Drawn> drawn;

static bool isStillThere(const uint8_t* raw, const Scene& scene) {
    const uint8_t* line = raw + size_t{labRawWidth} * spotLine();
    const auto last = drawn.find(raw);
    return last != drawn.end() && last->second.scene == scene &&
           std::memcmp(line, last->second.line.data(), labRawWidth) == 0;
}

void setLabRowsAroundSpot(int rows) {
    LabLock lock;
    lab.rowsAroundSpot = rows;
    drawn.clear();
}

void renderLabFrame(uint8_t* raw) {
    LabLock lock;
    double brightness = cameraSensitivity();
    const LabPoint centre = sampleAtCentre();
    const Scene scene = {brightness,       centre.x,           centre.y,
                         labStageUm(labZ), lab.board.laserPwm, lab.board.illuminated,
                         automaticTop()};
    const bool nobodyLooks = lab.rowsAroundSpot >= 0;
    if (nobodyLooks && isStillThere(raw, scene)) return;
    chooseRows();
    if (lab.board.illuminated)
        drawIlluminated(raw, brightness);
    else
        drawDark(raw);
    if (lab.board.laserPwm > 0) addSpot(raw, brightness);
    if (!nobodyLooks) return;
    Drawn& now = drawn[raw];
    now.scene = scene;
    std::memcpy(now.line.data(), raw + size_t{labRawWidth} * spotLine(), labRawWidth);
}
