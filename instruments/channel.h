// What the values of a reading are: an instrument lists its channels, a map has a plane for each.
#pragma once

// What a number means, as it stands in the maps.
struct Unit {
    const char* name;    // the true unit of a value in the text files: "V", "uA" or "A"
    double perValue;     // times the value it is in the SI's unit
    const char* si;      // that unit: "A" or "V"
    const char* label;   // beside the measured value in the control column
    const char* shownAs; // behind the numbers at the colour bar
    int decimals;        // of these
    bool closes = false; // an angle in degrees: -180 and 180 are the same
    // What stands for none of it, and what makes of the rest the number that is shown.
    double zero = 0.0, shownPerValue = 1.0;

    double inSi(double value) const { return times(value, perValue); }
    double shown(double value) const { return times(value, shownPerValue); }
    bool falls() const { return perValue < 0.0; } // the larger the value, the less it stands for

private:
    // Its zero is no "-0.0", whichever way it counts.
    double times(double value, double factor) const {
        return factor < 0.0 ? (zero - value) * -factor : (value - zero) * factor;
    }
};

struct Channel {
    const char* name;  // among those of its instrument; empty for the only one
    const char* title; // of its plane
    const Unit* unit;
    const char* filePrefix;  // of its text file
    const char* pictureName; // of its numbered picture
    const char* palette;     // by Gwyddion's name
    double scale = 1.0;      // makes the unit's value of the instrument's own
    bool averaged = true; // over the readings of a point; another one follows from those that are
    bool onWish = false;  // there where the scan options say so
};
