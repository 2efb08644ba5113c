// A point of the sample that stays the same one whatever is done to the program's zero, the set-up
// and the objective: by where the stage stands when the light acts on it.
#pragma once

#include "camera/picture.h"
#include "motion/axis.h"
#include "session/document.h"
#include "session/picture_scale.h"

#include <string>

// How the optics lie over the sample, um along the stage's axes from what the picture's middle
// shows to where the light acts.
StageVector lightPlace(const PictureScale& picture, double correctionXUm, double correctionYUm,
                       PicturePoint laserSpot);
StageVector presentLightPlace(); // of the objective in use

struct SamplePlace {
    AxisCount x, y;        // of the stage, with the light ...
    StageVector light;     // ... that acted there then, as far as one knew
    std::string objective; // of then: presentObjective; empty: not known

    bool isKnown() const { return x.isKnown() && y.isKnown(); }
    SamplePlace by(StageVector um) const { return {x.by(um.x), y.by(um.y), light, objective}; }
};

// Why nobody can go to a place that is known any more; empty when one can. Another objective needs
// a laser spot of its own.
std::string whyLost(const SamplePlace& place);

// What a measurement's conditions say of the place at which the stage stood, and back: not known
// where they do not say it.
void addPlace(Conditions& lines, const SamplePlace& home);
SamplePlace placeIn(const Conditions& lines);

// Where the stage is to stand, um from the program's zero, so that the light of today acts there.
// Through the same objective that is where it stood then: a laser spot that was set anew since is
// known better, and the light fell where it did.
StageVector stageFor(const SamplePlace& place);

// Where the picture that is shown now has it: window pixels, also beside the picture.
struct PicturePlace {
    double x = 0.0, y = 0.0;
};
PicturePlace onPicture(const SamplePlace& place);
