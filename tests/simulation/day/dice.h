// What is drawn for a day: the same seed draws the same.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>

class Dice {
public:
    explicit Dice(uint32_t seed) : random(seed) {}

    int below(int limit) { return static_cast<int>(random() % static_cast<uint32_t>(limit)); }

    template <class T, size_t count> T oneOf(const T (&choices)[count]) {
        return choices[below(static_cast<int>(count))];
    }

private:
    std::mt19937 random;
};
