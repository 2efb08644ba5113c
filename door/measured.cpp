// Answers with what has been measured.
#include "door/measured.h"

#include "camera/camera.h"
#include "camera/display.h"
#include "camera/live_view.h"
#include "door/door.h"
#include "instruments/ammeter.h"
#include "lists/list_run.h"
#include "mapping/map_planes.h"
#include "mapping/raster_scan.h"
#include "mapping/scan_map.h"
#include "platform/files.h"
#include "platform/surface_owners.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/data_folders.h"
#include "session/day_log.h"
#include "session/pause.h"
#include "session/process.h"
#include "spectroscopy/sweep_record.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace {

static_assert(std::endian::native == std::endian::little);
static_assert(sizeof(float) == 4);

std::string blockOfNumbers(const std::vector<float>& numbers) {
    return blockOf({reinterpret_cast<const char*>(numbers.data()), numbers.size() * sizeof(float)});
}

// The deviation of a value has no zero of its own.
double inSi(const Plane& plane, double value) {
    if (!plane.unit) return value;
    return plane.of == Plane::Of::Deviation ? std::fabs(plane.unit->perValue) * value
                                            : plane.unit->inSi(value);
}

std::string nameOf(const Plane& plane) {
    return plane.name.empty() ? "photocurrent" : plane.name;
}

const Plane* planeFor(const std::vector<Plane>& planes, const std::string& text) {
    for (size_t i = 0; i < planes.size(); ++i)
        if (text == std::to_string(i) || isWord(text, nameOf(planes[i]))) return &planes[i];
    return nullptr;
}

std::string endOf(const char* process) {
    const std::optional<Outcome> last = lastOutcomeOf(process);
    if (!last) return "IDLE";
    // A search that has met any trouble has not found the focus.
    const bool lost = std::strcmp(process, focusProcess) == 0 && !last->isSound();
    const bool failed = lost || last->end == ProcessEnd::Declined ||
                        last->end == ProcessEnd::Forced || !last->endedBy.empty() ||
                        !last->notWritten.empty();
    return failed ? "FAILED" : last->end == ProcessEnd::Finished ? "DONE" : "STOPPED";
}

} // namespace

Reply readAllChannels(const Call&) {
    const Reading reading = readPhotocurrent();
    const auto channels = channelsOf(instrumentLink.ammeterKind, instrumentLink.inVolts);
    if (!reading.answered) return refusal(-240, "the instrument does not answer");
    std::string text;
    for (size_t i = 0; i < channels.size(); ++i) {
        const double value = channels[i].unit->inSi(static_cast<double>(reading.values[i]));
        text += (i == 0 ? "" : ",") +
                (reading.overloaded ? std::string("9.91E37") : formatted("%.7E", value));
    }
    return said(text);
}

Reply sayUnits(const Call&) {
    std::string text;
    for (const Channel& each : channelsOf(instrumentLink.ammeterKind, instrumentLink.inVolts))
        text += (text.empty() ? "" : ",") + quoted(each.unit->si);
    return said(text);
}

std::string stateOf(const char* process, const char* begun) {
    const char* const runs = processUnderWayName();
    if ((runs && std::strcmp(runs, process) == 0) || clientBegins(begun)) return "RUN";
    return endOf(process);
}

Reply sayScanState(const Call&) {
    if (const std::optional<ScanProgress> now = scanProgress())
        return said(formatted("%s,%d,%d", isPaused() ? "PAUSED" : "RUN", now->done, now->of));
    const std::string state = stateOf(scanProcess, "a mapping");
    return said(state == "RUN" ? formatted("RUN,0,%d", scanArea.totalPoints) : state);
}

Reply reportOf(const char* process) {
    const char* const runs = processUnderWayName();
    const bool isNow = runs && std::strcmp(runs, process) == 0;
    if (isNow || (scanProgress() && std::strcmp(process, scanProcess) == 0))
        return said(quoted(std::string(process) + " runs"));
    const std::optional<Outcome> last = lastOutcomeOf(process);
    return said(quoted(last ? last->words() : ""));
}

Reply sayListState(const Call&) {
    std::string text = stateOf(listProcess, "a list");
    for (const std::string& how : listProgress.hows) text += "," + quoted(how);
    return said(text);
}

Reply listPlanes(const Call&) {
    std::string text;
    for (const Plane& plane : planesOf(scanMap))
        text += (text.empty() ? "" : ",") + quoted(nameOf(plane)) + "," +
                quoted(plane.unit ? plane.unit->si : "");
    return said(text);
}

Reply sayMapSize(const Call&) {
    const size_t columns = scanMap.marks.size();
    return said(std::to_string(columns) + "," +
                std::to_string(columns == 0 ? 0 : scanMap.marks.front().size()));
}

Reply sayMap(const Call& call) {
    const std::vector<Plane> planes = planesOf(scanMap);
    const bool mask = isWord(call.texts[0], "MASK");
    const Plane* const plane = mask ? nullptr : planeFor(planes, call.texts[0]);
    if (!mask && !plane) return refusal(-224, "channel " + call.texts[0] + ", see SCAN:CHANnels?");
    const size_t columns = scanMap.marks.size();
    const size_t rows = columns == 0 ? 0 : scanMap.marks.front().size();
    // The answer as it goes out, line feed included: a map of millions of points is there once.
    std::string block = blockHeaderOf(columns * rows * sizeof(float));
    const size_t header = block.size();
    try {
        block.reserve(header + columns * rows * sizeof(float) + 1);
        block.resize(header + columns * rows * sizeof(float));
    } catch (const std::bad_alloc&) {
        return refusal(-310, "not enough memory");
    }
    const bool colour = plane && plane->ofCamera();
    // The map lies by columns, the block by rows: a few rows at once, for the processor's cache.
    constexpr size_t together = 16;
    for (size_t top = 0; top < rows; top += together)
        for (size_t c = 0; c < columns; ++c)
            for (size_t r = top; r < std::min(top + together, rows); ++r) {
                const PointMark mark = scanMap.marks[c][r];
                float number = std::numeric_limits<float>::quiet_NaN();
                if (mask)
                    number = static_cast<float>(mark);
                else if (mark != PointMark::NotMeasured && !(colour && mark == PointMark::NoColour))
                    number = static_cast<float>(
                        inSi(*plane, static_cast<double>(scanMap.maps[plane->map][c][r])));
                std::memcpy(&block[header + (r * columns + c) * sizeof number], &number,
                            sizeof number);
            }
    return said(std::move(block));
}

Reply sayCurve(bool ofSeries) {
    const SweepRecord& record = sweepRecord;
    std::vector<float> numbers;
    if (record.holdsSeries == ofSeries) {
        const std::vector<float>& xs = ofSeries ? record.extraValues : record.xValues;
        const auto count = static_cast<size_t>(std::max(record.currentIndex, 0));
        constexpr double amperesPerValue = 1e-6; // of a sweep
        const auto channels = channelsOf(record.setUp.ammeterKind, record.setUp.inVolts);
        for (size_t i = 0; i < std::min(count, xs.size()); ++i) {
            const auto value = static_cast<double>(record.yValues[i]);
            numbers.push_back(xs[i]);
            numbers.push_back(static_cast<float>(
                ofSeries ? channels[mainChannelOf(record.setUp)].unit->inSi(value)
                         : value * amperesPerValue));
        }
    }
    return said(blockOfNumbers(numbers));
}

Reply sendPicture(const Call&) {
    const bool busy = programIsBusy();
    if (!busy) {
        connectMissingCamera(); // let go when nobody has done anything for long
        grabFrames(cameraState, 1);
    }
    if (!cameraState.connected || (!busy && !cameraState.fresh)) return refusal(-241, "no camera");
    const WindowContext window(windows.main);
    MemoryBitmap memory;
    const std::wstring path = dataFolders.dataRoot + L"\\picture for a script.tmp";
    if (!window.context || !cameraImage.pixels ||
        !makeCameraPicture(window.context, cameraImage.pixels.get(), memory))
        return refusal(-310, "no memory for a picture");
    if (!saveBitmapAsPng(memory.bitmap, path)) return refusal(-250, "the picture was not written");
    const std::optional<std::string> png = contentOfFile(path);
    removeFile(path);
    return png ? said(blockOf(*png)) : refusal(-250, "the picture was not read back");
}

Reply sendLog(const Call& call) {
    constexpr long longest = 65536; // bytes
    const File file = openFile(dayLogPath(), L"rb");
    std::string text;
    if (file && std::fseek(file.get(), 0, SEEK_END) == 0) {
        const long size = std::ftell(file.get());
        const long from = std::max(0l, size - longest);
        text.resize(static_cast<size_t>(size - from));
        std::fseek(file.get(), from, SEEK_SET);
        text.resize(std::fread(text.data(), 1, text.size(), file.get()));
    }
    size_t lines = call.given > 0 ? static_cast<size_t>(call.numbers[0]) : 20;
    size_t begin = text.size();
    while (begin > 0 && lines > 0) {
        const size_t end = begin < 2 ? std::string::npos : text.rfind('\n', begin - 2);
        begin = end == std::string::npos ? 0 : end + 1;
        --lines;
    }
    return said(blockOf(text.substr(begin)));
}
