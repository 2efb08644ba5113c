// Pictures of the sample at places that the stage is sent to for them.
#pragma once

#include "calibration/borrowed.h"
#include "session/picture_scale.h"

#include <string>
#include <vector>

// From which side an axis comes to a place.
enum class Side { Below, Above };

struct Approach {
    Side x = Side::Below, y = Side::Below;
};

struct StagePicture {
    StageVector stageUm; // where the stage's controllers say that it stood
    GreyPicture picture;
};

// Takes pictures at places about the one where it stands when it is made; X and Y come to each by
// a run-in, so that the play is taken up. What fails is kept in `failure`, and nothing more is done
// after that.
class StagePictures {
public:
    explicit StagePictures(double runInUm);

    // Whether the set-up's limits let both axes go that far about the middle, run-ins included.
    bool mayReach(double wayXUm, double wayYUm) const;

    // False when it failed or was stopped.
    bool take(StageVector fromMiddleUm, StagePicture& into, Approach approach = {});

    StageVector middle() const { return centre; }
    std::string failure; // "Stage X lost (-4)", "The camera gives no picture"

private:
    const StageVector centre; // um
    const double runIn;       // um
};

// Why the stage cannot be used: an axis without a controller, lost or in an alarm; empty when it
// can.
std::string whyStageIsOut();

// Why the sample here cannot be followed; asked before the stage moves. Empty when it can.
std::string whyNothingToFollow();

// By how much the sample has moved in each picture against the first one, by its own structure:
// where pictures show that something stands still it is taken out of all of them. `expected` has a
// guess for each of them, right within `within` pixels.
// Empty when a stop was asked for.
std::vector<PictureShift> shiftsOf(const std::vector<StagePicture>& pictures,
                                   const std::vector<PixelVector>& expected, double within,
                                   const BorrowedSetUp& borrowed);
