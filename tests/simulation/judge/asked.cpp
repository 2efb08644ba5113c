// Z, whose controller has lost its place, is sent nowhere before the operator has said Yes to that.
#include "tests/simulation/judge/judge.h"

namespace {

class Asked : public Checker {
public:
    explicit Asked(Judge& all) : judge(all) {}

    void moveIsSent(int axis, bool) override {
        if (axis == labZ && judge.zMustAsk)
            judge.find(Rule::Asked, "z was sent though its place is lost");
    }

private:
    Judge& judge;
};

} // namespace

std::unique_ptr<Checker> checkAsked(Judge& judge) {
    return std::make_unique<Asked>(judge);
}
