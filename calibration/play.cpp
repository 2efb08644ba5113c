// The mean of what the two sides differ by.
#include "calibration/play.h"

#include "platform/text_format.h"

#include <algorithm>
#include <cmath>

namespace {

// Of its resolution, better than which no picture is followed.
constexpr double leastPart = 0.05;
// And so many times it is no scatter of a stage that can be repeated.
constexpr double mostScatter = 5.0;

double medianOf(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

} // namespace

AxisPlay playOf(const std::vector<PlayVisit>& visits, double resolutionUm) {
    AxisPlay play;
    if (visits.size() < leastVisits) {
        play.refusal = formatted("%d places are too few", static_cast<int>(visits.size()));
        return play;
    }
    std::vector<double> plays, beside;
    for (const PlayVisit& visit : visits) plays.push_back(visit.fromAboveUm - visit.fromBelowUm);
    const double median = medianOf(plays);
    for (const double um : plays) beside.push_back(std::fabs(um - median));
    const double limit = std::max(5.0 * 1.48 * medianOf(beside), 2.0 * resolutionUm);
    std::erase_if(plays, [&](double um) { return std::fabs(um - median) > limit; });
    play.leftOut = visits.size() - plays.size();
    if (plays.size() < leastVisits || play.leftOut * 4 > visits.size()) {
        play.refusal = formatted("Only %d of %d places agree", static_cast<int>(plays.size()),
                                 static_cast<int>(visits.size()));
        return play;
    }
    const auto count = static_cast<double>(plays.size());
    for (const double um : plays) play.um += um / count;
    double squares = 0.0;
    for (const double um : plays) squares += (um - play.um) * (um - play.um);
    play.scatterUm = std::sqrt(squares / (count - 1.0));
    if (play.scatterUm > mostScatter * resolutionUm)
        play.refusal = formatted("The places differ by %.1f um", play.scatterUm);
    play.uncertaintyUm = std::hypot(play.scatterUm / std::sqrt(count), leastPart * resolutionUm);
    if (play.um < -std::max(3.0 * play.uncertaintyUm, resolutionUm))
        play.refusal = formatted("A play of %.2f um is none: camera and stage must be calibrated "
                                 "first",
                                 play.um);
    return play;
}

std::string AxisPlay::words() const {
    if (!isFound()) return refusal;
    std::string text = formatted("%.2f um (+- %.2f)", um, uncertaintyUm);
    if (leftOut > 0) text += formatted(", %d left out", static_cast<int>(leftOut));
    return text;
}

int runInFor(const AxisPlay& x, const AxisPlay& y) {
    double most = 0.0;
    for (const AxisPlay* axis : {&x, &y})
        if (axis->isFound()) most = std::max(most, 1.5 * axis->um + 3.0 * axis->scatterUm);
    return std::max(1, static_cast<int>(std::ceil(most)));
}
