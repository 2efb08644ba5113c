// Shows a picture in another size: each pixel shown is the mean of what it covers, so that no line
// of one pixel gets lost and a part looks as it does in the whole. GDI's own means, as Wine has
// them, are too slow for a live view.
#pragma once

#include "platform/surface.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

class AreaScaler {
public:
    // Pixels, none of them 0.
    AreaScaler(Extent drawn, Extent shown)
        : drawnWidth(drawn.width), drawnHeight(drawn.height), columns(drawn.width, shown.width),
          rows(drawn.height, shown.height) {}

    // The part that begins at (left, top) of what is shown and is `part` large, top row first.
    // `pixels` are the whole picture's (blue, green, red, unused), bottom row first. The result
    // holds until the next call.
    const std::vector<uint32_t>& scale(const uint8_t* pixels, int left, int top, Extent part) {
        result.resize(size(part.width) * size(part.height));
        if (result.empty()) return result;
        const int first = columns.covers[size(left)].first;
        const Cover& last = columns.covers[size(left + part.width - 1)];
        const int width = last.first + last.count - first;
        line.resize(size(width) * 4);
        for (int y = 0; y < part.height; ++y) {
            addRows(pixels, rows.covers[size(top + y)], first);
            addColumns(left, first, result.data() + size(y) * size(part.width), part.width);
        }
        return result;
    }

private:
    // What a pixel shown covers in one direction.
    struct Cover {
        int first = 0, count = 0; // of the pixels drawn
        size_t weights = 0;       // where their shares begin
    };

    struct Direction {
        Direction(int drawn, int shown) {
            const double each = static_cast<double>(drawn) / shown;
            for (int i = 0; i < shown; ++i) {
                const double from = i * each, to = std::min((i + 1) * each, double(drawn));
                const int first = std::min(static_cast<int>(from + 1e-9), drawn - 1);
                const int end = std::max(static_cast<int>(std::ceil(to - 1e-9)), first + 1);
                covers.push_back({first, end - first, shares.size()});
                int given = 0; // all of them are 256
                for (int at = first; at < end; ++at) {
                    const double until = std::min((at + 1 - from) / (to - from), 1.0);
                    const int sum = at + 1 == end ? 256 : static_cast<int>(until * 256 + 0.5);
                    shares.push_back(static_cast<uint16_t>(sum - given));
                    given = sum;
                }
            }
        }

        std::vector<Cover> covers;
        std::vector<uint16_t> shares;
    };

    static size_t size(int value) { return static_cast<size_t>(value); }

    // The line's bytes in 256ths.
    void addRows(const uint8_t* pixels, const Cover& cover, int first) {
        std::fill(line.begin(), line.end(), uint16_t{0});
        for (int i = 0; i < cover.count; ++i) {
            const int row = drawnHeight - 1 - cover.first - i;
            const uint8_t* from = pixels + (size(row) * size(drawnWidth) + size(first)) * 4;
            const uint16_t share = rows.shares[cover.weights + size(i)];
            uint16_t* to = line.data();
            for (size_t byte = 0; byte < line.size(); ++byte)
                to[byte] = static_cast<uint16_t>(to[byte] + from[byte] * share);
        }
    }

    void addColumns(int left, int first, uint32_t* to, int width) const {
        const Cover* cover = columns.covers.data() + left;
        for (int x = 0; x < width; ++x, ++cover) {
            const uint16_t* from = line.data() + size(cover->first - first) * 4;
            const uint16_t* share = columns.shares.data() + cover->weights;
            uint32_t blue = 0x8000, green = 0x8000, red = 0x8000;
            for (int i = 0; i < cover->count; ++i, from += 4) {
                blue += uint32_t{from[0]} * share[i];
                green += uint32_t{from[1]} * share[i];
                red += uint32_t{from[2]} * share[i];
            }
            to[x] = blue >> 16 | (green >> 16) << 8 | (red >> 16) << 16;
        }
    }

    int drawnWidth, drawnHeight;
    Direction columns, rows;
    std::vector<uint16_t> line;
    std::vector<uint32_t> result;
};
