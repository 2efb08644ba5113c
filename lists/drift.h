// By how much the sample has moved on the stage since a list began, by the camera's picture.
#pragma once

#include "calibration/phase_correlation.h"
#include "lists/list_record.h"
#include "session/outcome.h"

#include <optional>
#include <string>

// A picture of the sample where a list began.
struct FirstPicture {
    GreyPicture picture;
    StageVector stageUm;  // where the stage stood, by the controllers' own count
    PictureScale scale;   // of the objective in use
    double quality = 0.0; // of its shift to another one of the begin (PictureShift)
};

// As a portable grey map of 16 bits (P5, 0 to 765: the sum of the three colours) whose comments
// have the rest; nothing of what is none of these, or not whole.
std::string textOf(const FirstPicture& first);
std::optional<FirstPicture> firstPictureOf(const std::string& file);

class DriftWatch {
public:
    // Of a list that goes on the first picture is the one that its begin has left on the disk.
    explicit DriftWatch(const ListPlace& place);

    // Takes a picture and compares it: always of the place where the list began, with its Z, in
    // the lamp's light, with X and Y coming from below. The stage is left there; lights and
    // exposure are given back. The first picture that can be followed becomes the list's first one
    // and goes to the disk. To be called between rows or in a map's pause, in the process of the
    // list; takes some seconds, and moves nothing without a camera. What could not be given back or
    // written is added to the outcome's troubles.
    void look(const ListPlace& place, Outcome& outcome);

    // Of the last look, um along the stage's axes: a row's place lies there now. Nothing where it
    // is not known.
    const std::optional<StageVector>& drift() const { return seen; }

    // Lets the stage follow it, by changing `place.followed`; says why it does not, and then
    // changes nothing. What the stage has to go at once counts, not the whole way of a night.
    std::string follow(ListPlace& place) const;
    static constexpr double mostAtOnceUm = 10.0;

    // "X +1.52, Y -0.31 um since the list's first picture", "unknown: The picture is plain"
    std::string words() const;

private:
    std::string whyNotSeen(const ListPlace& place, Outcome& outcome);
    std::string whyNotCompared(const ListPlace& place, Outcome& outcome);

    std::optional<FirstPicture> first;
    std::string whyNoFirst; // it was taken and is lost
    std::optional<StageVector> seen;
    StageVector lastSeen; // um; where to look for it
    std::string why = "not looked at";
};
