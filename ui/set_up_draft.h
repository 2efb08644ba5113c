// A set-up while it is typed: texts, field by field, that are taken together or not at all.
#pragma once

#include "session/set_up.h"

#include <string>
#include <vector>

// Why a draft is not taken, and the field that it is about; no words when it is.
struct SetUpRefusal {
    std::string words, field;
    int objective = 0; // whose field it is, counted from 1; 0: of none
};

class SetUpDraft {
public:
    explicit SetUpDraft(const SetUp& of);

    int objectives() const { return static_cast<int>(ofObjectives.size()); }
    int inUse() const { return objectiveInUse; }

    // Texts in the order of setUpFields: of an objective, counted from 1, or (0) of none.
    std::vector<std::string>& textsOf(int objective);
    const std::vector<std::string>& textsOf(int objective) const;

    // "2: 20x (in use)".
    std::string nameOf(int objective) const;

    // Another one like that, at the end; "" or why not.
    std::string addLike(int objective);
    std::string remove(int objective);

    // Into a set-up, all or nothing.
    SetUpRefusal takeInto(SetUp& set) const;

private:
    std::vector<std::string> ofNone;
    std::vector<std::vector<std::string>> ofObjectives;
    int objectiveInUse = 1;
};

// The fields of an objective, or (0) those of none.
std::vector<SetUpField> setUpFieldsOf(int objective, const SetUp& set);

// What the four numbers of an objective mean.
struct ScaleWords {
    std::string scale, turn;
};
ScaleWords scaleWords(const PictureScale& scale);
