// Keeps and saves the curve of a point measurement.
#include "spectroscopy/sweep_record.h"

#include "instruments/ammeter.h"
#include "platform/files.h"
#include "platform/message_box.h"
#include "platform/surface_owners.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "screen/screen.h"
#include "session/data_folders.h"

#include <algorithm>

SweepRecord sweepRecord;

void allocateSweep(SweepRecord& record) {
    const auto points = 4 * static_cast<size_t>(record.pointsPerQuarter);
    for (std::vector<float>* values : {&record.xValues, &record.yValues, &record.extraValues})
        if (record.holdsSeries || values->size() != points) values->assign(points, 0.0f);
    record.holdsSeries = false;
}

void showEndMessage(const SweepRecord& record, const char* message) {
    constexpr Colour black = 0;
    const WindowContext plot(record.plotWindow);
    if (plot.context) drawText(plot.context, 15, 45, message, black, false);
}

void endBias(const char* name, int32_t readings, int32_t unanswered) {
    std::string trouble;
    if (unanswered > 0) trouble = formatted(". No reading: %d of %d", unanswered, readings);
    trouble += biasTrouble(); // before the bias goes
    applyBias(0.0, static_cast<double>(instrumentLink.currentLimit));
    if (!trouble.empty()) showInformation((name + trouble).c_str());
}

namespace {

bool writeCurve(FILE* file, const char* heading, const std::vector<float>& xs,
                const std::vector<float>& ys, int32_t count) {
    if (std::fprintf(file, "%s\n", heading) < 0) return false;
    const size_t points = std::min({static_cast<size_t>(count), xs.size(), ys.size()});
    for (size_t i = 0; i < points; ++i)
        if (std::fprintf(file, "%f,%f\n", static_cast<double>(xs[i]), static_cast<double>(ys[i])) <
            0)
            return false;
    return std::fflush(file) == 0;
}

} // namespace

bool saveCurve(const char* fileName, const char* heading, const std::vector<float>& xs,
               const std::vector<float>& ys, int32_t count, bool quietly) {
    ensureSessionFolder(dataFolders);
    const File file = openFile(dataFolders.sessionFolder + L"\\" + widened(fileName), L"w");
    if (file && writeCurve(file.get(), heading, xs, ys, count)) return true;
    if (!quietly)
        showMessageBox(mainWindow, "File saving error", "I-V save Process", BoxButtons::Ok);
    return false;
}
