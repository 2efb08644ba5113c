// What is drawn for a day: the same seed draws the same.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

class Dice {
public:
    explicit Dice(uint32_t seed) : random(seed) {}

    int below(int limit) { return static_cast<int>(random() % static_cast<uint32_t>(limit)); }
    int from(int lowest, int highest) { return lowest + below(highest - lowest + 1); }
    bool percent(int share) { return below(100) < share; }

    template <class T, size_t count> T oneOf(const T (&choices)[count]) {
        return choices[below(static_cast<int>(count))];
    }

private:
    std::mt19937 random;
};

// Kinds of things of which a day knows only some, each as often as its weight says.
class Weights {
public:
    // Of so many kinds, 0 and up: at least one is known.
    Weights(Dice& dice, size_t kinds) : each(kinds) {
        const int known = dice.from(1, static_cast<int>(kinds));
        for (int& weight : each)
            if (dice.below(static_cast<int>(kinds)) < known) weight = dice.from(1, 100);
        size_t one = static_cast<size_t>(dice.below(static_cast<int>(kinds)));
        each[one] += each[one] == 0;
    }

    void set(size_t kind, int weight) { each[kind] = weight; }

    size_t draw(Dice& dice) const {
        int sum = 0;
        for (const int weight : each) sum += weight;
        int left = dice.below(sum);
        size_t kind = 0;
        while (left >= each[kind]) left -= each[kind++];
        return kind;
    }

private:
    std::vector<int> each;
};
