// Takes what is typed into a set-up.
#include "ui/set_up_draft.h"

#include "calibration/matrix_fit.h"
#include "platform/text_format.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr char inUseField[] = "objective in use"; // is chosen in the menu

std::vector<std::string> textsIn(int objective, const SetUp& set) {
    std::vector<std::string> texts;
    for (const SetUpField& field : setUpFieldsOf(objective, set))
        texts.push_back(textOf(field, set));
    return texts;
}

} // namespace

std::vector<SetUpField> setUpFieldsOf(int objective, const SetUp& set) {
    std::vector<SetUpField> fields = setUpFields(set);
    std::erase_if(fields, [&](const SetUpField& field) {
        return field.objective != objective || field.name == inUseField;
    });
    return fields;
}

SetUpDraft::SetUpDraft(const SetUp& of)
    : ofNone(textsIn(0, of)), objectiveInUse(static_cast<int>(of.objectiveInUse)) {
    for (size_t i = 1; i <= of.objectives.size(); ++i)
        ofObjectives.push_back(textsIn(static_cast<int>(i), of));
}

const std::vector<std::string>& SetUpDraft::textsOf(int objective) const {
    return objective == 0 ? ofNone : ofObjectives.at(static_cast<size_t>(objective - 1));
}

std::vector<std::string>& SetUpDraft::textsOf(int objective) {
    return objective == 0 ? ofNone : ofObjectives.at(static_cast<size_t>(objective - 1));
}

std::string SetUpDraft::nameOf(int objective) const {
    const std::string& name = textsOf(objective).front(); // the first of its fields
    return std::to_string(objective) + (name.empty() ? "" : ": " + name) +
           (objective == objectiveInUse ? " (in use)" : "");
}

std::string SetUpDraft::addLike(int objective) {
    if (ofObjectives.size() == mostObjectives)
        return formatted("There are %d objectives already", objectives());
    std::vector<std::string> another = textsOf(objective);
    another.front().clear();
    ofObjectives.push_back(another);
    return {};
}

std::string SetUpDraft::remove(int objective) {
    if (objectives() == 1) return "It is the only objective";
    if (objective == objectiveInUse)
        return "It is in use: choose another one in the menu \"Camera\", \"Objective\" first";
    ofObjectives.erase(ofObjectives.begin() + objective - 1);
    if (objective < objectiveInUse) --objectiveInUse;
    return {};
}

SetUpRefusal SetUpDraft::takeInto(SetUp& set) const {
    SetUp taken = set;
    taken.objectives.assign(ofObjectives.size(), Objective());
    taken.objectiveInUse = objectiveInUse;
    for (int objective = 0; objective <= objectives(); ++objective) {
        const std::vector<SetUpField> fields = setUpFieldsOf(objective, taken);
        for (size_t i = 0; i < fields.size(); ++i)
            if (!takeField(fields[i], taken, textsOf(objective)[i]))
                return {fields[i].name + ": " + allowedFor(fields[i]), fields[i].name, objective};
    }
    const SetUpFault fault = faultIn(taken);
    if (!fault.words.empty()) {
        const std::vector<SetUpField> fields = setUpFields(taken);
        const auto field = std::find_if(fields.begin(), fields.end(), [&](const SetUpField& each) {
            return each.name == fault.field;
        });
        return {fault.words, fault.field, field == fields.end() ? 0 : field->objective};
    }
    set = taken;
    return {};
}

ScaleWords scaleWords(const PictureScale& scale) {
    const double column = scale.umPerColumn(), row = scale.umPerRow();
    if (!(column > 0.0 && row > 0.0)) return {"Columns or rows have no length", ""};
    const MatrixFit matrix = describedMatrix(scale);
    constexpr const char* mirrorings[] = {"not mirrored", "mirrored left to right",
                                          "mirrored upside down"};
    return {formatted("%.5f um per column, %.5f um per row, %.2f degrees off the right angle",
                      column, row, std::fabs(matrix.skewDegrees)),
            formatted("Camera turned by %.2f degrees against the stage, %s", matrix.rotationDegrees,
                      mirrorings[static_cast<size_t>(matrix.mirroring)])};
}
