// The picture is black beside the true part of the sensor, and no area is drawn there. Where a map
// lies in it: cell.cpp.
#include "camera/camera.h"
#include "camera/display.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "tests/simulation/judge/judge.h"

#include <algorithm>

namespace {

class Picture : public Checker {
public:
    explicit Picture(Judge& all) : judge(all) {}

    void commandComes(int id) override {
        if (id == idSaveCameraImage && display.wideView == 0 && cameraState.fresh) lookBeside();
    }

    void boxOpens(const ShownBox& box) override {
        const PictureRectangle& drag = display.drawnRectangle;
        if (!box.text.starts_with("Do you want to set it") || drag.viewScale != 1 ||
            cameraState.connected == 0)
            return;
        const Laboratory::Part part = judge.laboratory.seen();
        const int top = 1028 - part.bottom - part.height;
        const auto [left, right] = std::minmax(drag.x1, drag.x2);
        const auto [upper, lower] = std::minmax(drag.y1, drag.y2);
        if (left < part.left || right > part.left + part.width || upper < top ||
            lower > top + part.height)
            judge.find(Rule::Picture, formatted("an area at %d, %d to %d, %d beside the sensor",
                                                left, upper, right, lower));
        judge.count("areas within the sensor");
    }

    void processEnds(const Cause& cause, const std::string&) override {
        if (cause.what == scanName && cameraState.fresh) lookBeside();
    }

private:
    void lookBeside() {
        const Laboratory::Part part = judge.laboratory.seen();
        for (int row = 0; row < 1028; row += 7)
            for (int column = 0; column < 1232; column += 3) {
                const bool seen = column >= part.left && column < part.left + part.width &&
                                  row >= part.bottom && row < part.bottom + part.height;
                const auto colour = [&](auto pixel) { return pixel(cameraImage, column, row); };
                if (!seen && colour(pixelRed) + colour(pixelGreen) + colour(pixelBlue) != 0)
                    return judge.find(Rule::Picture, formatted("something at %d, %d beside what "
                                                               "the sensor sees",
                                                               column, row));
            }
        judge.count("pictures looked at");
    }

    Judge& judge;
};

} // namespace

std::unique_ptr<Checker> checkPicture(Judge& judge) {
    return std::make_unique<Picture>(judge);
}
