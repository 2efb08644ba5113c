// All that a script can say, in one table: the guide's table is made of it.
#include "door/verbs.h"

#include "actions/measurements.h"
#include "actions/settings.h"
#include "camera/camera.h"
#include "camera/live_view.h"
#include "door/door.h"
#include "door/measured.h"
#include "instruments/ammeter.h"
#include "instruments/bias.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "lists/list_record.h"
#include "lists/list_run.h"
#include "mapping/raster_scan.h"
#include "mapping/scan_map.h"
#include "mapping/scan_options.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "screen/screen.h"
#include "session/data_folders.h"
#include "session/message_box.h"
#include "session/process.h"
#include "session/set_up.h"
#include "spectroscopy/sweep_record.h"

#include <algorithm>
#include <iterator>

namespace {

using enum Argument::Kind;

Reply saidNumber(double number) {
    return said(formatted("%.9g", number == 0.0 ? 0.0 : number));
}

// As short as it can be typed.
Reply saidFloat(float number) {
    return said(formatted("%.7g", static_cast<double>(number == 0.0f ? 0.0f : number)));
}

Reply saidSwitch(bool on) {
    return said(on ? "1" : "0");
}

unsigned masked(const Call& call, unsigned mask) {
    return static_cast<unsigned>(call.numbers[0]) & mask;
}

// --- Of every instrument -------------------------------------------------------------------------

// A sum: 1 an axis without its controller, 2 the laser board, 4 the instrument, 8 the camera.
Reply testItself(const Call&) {
    const bool axes =
        silentAxes().empty() && !axisIsOut(stageX) && !axisIsOut(stageY) && !axisIsOut(stageZ);
    const bool instrument = !selectedInstrument().open || instrumentLink.opened;
    return said(std::to_string((axes ? 0 : 1) + (laserLink.disconnected == 0 ? 0 : 2) +
                               (instrument ? 0 : 4) + (cameraState.connected ? 0 : 8)));
}

Reply giveHelp(const Call&) {
    std::string lines;
    for (const Verb& verb : verbTable()) lines += usageOf(verb) + "  " + verb.help + "\n";
    return said(blockOf(lines));
}

// --- Stage and lights ----------------------------------------------------------------------------

Reply goTo(const Call& call) {
    StageTarget to{call.numbers[0], call.numbers[1], {}};
    if (call.given == 3) to.z = call.numbers[2];
    std::string farFocus;
    if (const std::string why = whyNotMoved(to, farFocus); !why.empty()) return refusal(-222, why);
    if (!farFocus.empty()) return refusal(-222, farFocus);
    beginForClient("a move", [to]() -> std::optional<Outcome> {
        std::string farOff; // another move may have come before
        std::string missed = whyNotMoved(to, farOff);
        if (missed.empty()) missed = farOff.empty() ? moveStage(to) : farOff;
        if (windows.main) leaveStaleWideView(); // a click would mean another place
        if (missed.empty()) return Outcome{};
        return Outcome{.end = ProcessEnd::Declined, .lastWords = "Not there", .troubles = {missed}};
    });
    return done();
}

Reply sayLimits(const Call&) {
    std::string text;
    for (const auto& [axis, typed] :
         {std::pair{0, xyLimitUm}, std::pair{1, xyLimitUm}, std::pair{2, zLimitUm}}) {
        const AxisRange& range = setUp.ranges[static_cast<size_t>(axis)];
        const StageAxis& of = axis == 0 ? stageX : axis == 1 ? stageY : stageZ;
        const double zero = ofController(of, 0.0); // the set-up counts as the controllers do
        text += formatted("%s%.9g,%.9g", axis == 0 ? "" : ",",
                          std::max(-double{1} * typed, range.lowest - zero),
                          std::min(double{1} * typed, range.highest - zero));
    }
    return said(text);
}

Reply switchLaser(const Call& call) {
    setLaserLevel(call.isOn(0) ? 1 : 0);
    noteLaserOfClient(call.isOn(0));
    if (laserLink.disconnected == 0) return done();
    return refusal(-241, lightLeftOn().empty() ? "no laser board" : lightLeftOn());
}

Reply switchLamp(const Call& call) {
    setLaserOutput(call.isOn(0) ? 1 : 0);
    return laserLink.disconnected == 0 ? done() : refusal(-241, "no laser board");
}

// --- Instrument ----------------------------------------------------------------------------------

Reply selectInstrument(const Call& call) {
    const auto kind = static_cast<int32_t>(call.numbers[0]);
    std::vector<std::string> boxes;
    {
        const NobodyToAsk nobody(boxes); // one says also that it went well
        connectInstrument(kind);
    }
    setField(Field::UnitLabel, unitLabel());
    if (instrumentLink.ammeterKind == kind && (!selectedInstrument().open || instrumentLink.opened))
        return done();
    return refusal(-241, boxes.empty() ? "not connected" : boxes.back());
}

Reply listInstruments(const Call&) {
    std::string names;
    for (int32_t kind = 0; kind < equipmentKindCount; ++kind)
        names += (kind == 0 ? "" : ",") + quoted(narrowed(instrumentKind(kind).name));
    return said(names);
}

Reply putBias(const Call& call) {
    const auto volts = static_cast<float>(call.numbers[0]);
    if (volts != 0.0f && !selectedInstrument().applyBias)
        return refusal(-241, "the instrument is no source");
    noteSourceBeforeClient();
    if (volts != 0.0f) noteBiasOfClient(true);
    const std::string refused = setBias(volts, instrumentLink.currentLimit);
    noteSourceOfClient();
    if (refused.empty() && volts == 0.0f) noteBiasOfClient(false);
    return unless(-240, refused);
}

Reply limitCurrent(const Call& call) {
    noteSourceBeforeClient();
    const auto limit = static_cast<float>(call.numbers[0]);
    std::string refused;
    if (instrumentLink.bias.volts == 0.0f)
        instrumentLink.currentLimit = limit;
    else // at once
        refused = setBias(instrumentLink.bias.volts, limit);
    noteSourceOfClient();
    return unless(-240, refused);
}

// --- Scans ---------------------------------------------------------------------------------------

struct {
    bool area = false;
    std::optional<ScanList> list;
    double rangeVolts = 0.5;
    int32_t quarterPoints = 50;
    SeriesPlan series{5.0f, 2.0f, 3};
} chosen;

Reply chooseArea(const Call& call) {
    const std::string refused =
        setScanRectangle({call.numbers[0], call.numbers[1], call.numbers[2], call.numbers[3]});
    chosen.area |= refused.empty();
    return unless(-222, refused);
}

// The operator may have drawn another area since, and would be asked about that.
std::string whyNotThisArea() {
    const bool another = chosen.area && !scanRectangleIsInForce();
    return another ? "the scan area is no longer the script's" : "";
}

Outcome notBegun(const char* process, const std::string& why) {
    Outcome outcome{.end = ProcessEnd::Declined, .lastWords = why};
    keepOutcome(process, outcome);
    return outcome;
}

Reply beginScan(const Call&) {
    if (const std::string why = whyNotThisArea(); !why.empty()) return refusal(-221, why);
    placeScanRectangle();
    if (const std::string why = whyNotScanned(presentPlan()); !why.empty())
        return refusal(-222, why);
    forgetOutcome("Mapping");
    beginForClient("a mapping", []() -> std::optional<Outcome> {
        if (const std::string why = whyNotThisArea(); !why.empty()) return notBegun("Mapping", why);
        placeScanRectangle();
        return startMapping(Consent::GivenBefore);
    });
    return done();
}

Reply stop(const Call&) {
    return unless(-221, stopForClient());
}

template <int32_t ScanOptions::*value, size_t number> Reply takeOption(const Call& call) {
    const auto typed = static_cast<int32_t>(call.numbers[0]);
    if (!scanNumbers[number].allows(typed))
        return refusal(-222, std::string(scanNumbers[number].label));
    scanSettings.options.*value = typed;
    return done();
}

// --- Lists and curves ----------------------------------------------------------------------------

Reply loadList(const Call& call) {
    const std::string& name = call.texts[0];
    if (name.empty() || name.find_first_of("\\/:*?\"<>|") != std::string::npos)
        return refusal(-224, "the name of a list");
    std::string fault;
    std::optional<ScanList> list = readScanList(name, fault);
    if (!list) return refusal(-250, fault);
    chosen.list = std::move(list);
    return done();
}

std::string whyNotListed(const ScanList& list) {
    if (std::none_of(list.rows.begin(), list.rows.end(), [](const ListRow& row) { return row.on; }))
        return "no row of the list is switched on";
    if (const std::string left = listThatWasCutOff(); !left.empty())
        return left + "; the operator decides over it";
    const std::string other = otherSetUpOf(list);
    return other.empty() ? "" : "the list was made under another set-up: " + other;
}

Reply beginList(const Call&) {
    if (!chosen.list) return refusal(-221, "LIST:LOAD comes first");
    if (const std::string why = whyNotListed(*chosen.list); !why.empty()) return refusal(-221, why);
    forgetOutcome("Scan list");
    beginForClient("a list", [list = *chosen.list]() -> std::optional<Outcome> {
        if (const std::string why = whyNotListed(list); !why.empty())
            return notBegun("Scan list", why);
        return startListRun([&list] { return startScanList(list, Consent::GivenBefore); });
    });
    return done();
}

Reply beginSweep(const Call&) {
    if (!selectedInstrument().canSweep) return refusal(-241, "the instrument is no source");
    forgetOutcome("I-V curve");
    const auto range = static_cast<float>(chosen.rangeVolts);
    const SweepPlan plan{range, range / static_cast<float>(chosen.quarterPoints),
                         chosen.quarterPoints};
    beginForClient("an I-V curve", [plan] { return startSweep(plan); });
    return done();
}

Reply beginSeries(const Call&) {
    forgetOutcome("Time evolution");
    beginForClient("a time evolution", [plan = chosen.series] { return startSeries(plan); });
    return done();
}

Reply beginFocus(const Call&) {
    forgetOutcome("Focus");
    beginForClient("a focus search", [] {
        const bool wasOn = laserIsOn();
        std::optional<Outcome> outcome = startFocus();
        if (!wasOn && laserIsOn()) noteLaserOfClient(true); // it leaves it on
        return outcome;
    });
    return done();
}

// One entry a command.
// clang-format off
const std::vector<Verb> verbs = {
    {"*CLS", {}, needsNothing, [](const Call& call) { call.session.status.clear(); call.session.completeWanted = false; return done(); },
     "forgets errors and events; stops nothing"},
    {"*ESE", {{"mask", Number, "", 0, 255, true}}, needsNothing, [](const Call& call) { call.session.status.eventsEnabled = masked(call, 255); return done(); },
     "which events count in bit 5 of the status byte"},
    {"*ESE?", {}, needsNothing, [](const Call& call) { return said(std::to_string(call.session.status.eventsEnabled)); },
     "what *ESE has set"},
    {"*ESR?", {}, needsNothing, [](const Call& call) { return said(std::to_string(call.session.status.takeEvents())); },
     "the events since it was last asked: 1 operation complete, 4 query, 8 device, 16 execution, 32 command error, 128 power on"},
    {"*IDN?", {}, needsNothing, [](const Call&) { return said("Lumascan,Lumascan,0," LUMASCAN_VERSION); },
     "who answers"},
    {"*OPC", {}, needsNothing, [](const Call& call) { call.session.completeWanted = true; return done(); },
     "sets bit 0 of *ESR? when what the script has started has ended"},
    {"*OPC?", {}, needsNothing, [](const Call&) { Reply reply = said("1"); reply.waits = true; return reply; },
     "answers 1 when what the script has started has ended; another message gives the answer up (-410)"},
    {"*OPT?", {}, needsNothing, [](const Call&) { return said("0"); },
     "the options that are built in: none"},
    {"*RST", {}, needsIdle, [](const Call& call) { forgetClientsDoings(); call.session.completeWanted = false; return done(); },
     "laser and bias that the script has switched on go off; the operator's settings stay"},
    {"*SRE", {{"mask", Number, "", 0, 255, true}}, needsNothing, [](const Call& call) { call.session.status.serviceEnabled = masked(call, 191); return done(); },
     "which bits count in bit 6 of the status byte"},
    {"*SRE?", {}, needsNothing, [](const Call& call) { return said(std::to_string(call.session.status.serviceEnabled)); },
     "what *SRE has set"},
    {"*STB?", {}, needsNothing, [](const Call& call) { return said(std::to_string(call.session.status.byte(!call.session.output.empty()))); },
     "the status byte: 4 an error waits, 8 questionable, 16 an answer waits, 32 event, 64 service, 128 operation"},
    {"*TST?", {}, needsNothing, testItself,
     "0, or a sum: 1 a stage axis, 2 the laser board, 4 the instrument, 8 the camera does not answer"},
    {"*WAI", {}, needsNothing, [](const Call&) { return Reply{.waits = true}; },
     "what follows waits until what the script has started has ended, but for the stops"},

    {"SYSTem:ERRor[:NEXT]?", {}, needsNothing, [](const Call& call) { return said(call.session.status.nextError()); },
     "the oldest error, which leaves the queue"},
    {"SYSTem:ERRor:COUNt?", {}, needsNothing, [](const Call& call) { return said(std::to_string(call.session.status.errorCount())); },
     "how many errors wait"},
    {"SYSTem:VERSion?", {}, needsNothing, [](const Call&) { return said("1999.0"); },
     "the SCPI that is spoken"},
    {"SYSTem:HELP?", {}, needsNothing, giveHelp,
     "this table, as a block"},
    {"STATus:OPERation[:EVENt]?", {}, needsNothing, [](const Call& call) { return said(std::to_string(call.session.status.operation.takeEvent())); },
     "which of these began since it was last asked: 2 the stage moves or what the script has begun is under way, 16 something is measured"},
    {"STATus:OPERation:CONDition?", {}, needsNothing, [](const Call& call) { return said(std::to_string(call.session.status.operation.condition)); },
     "the same now"},
    {"STATus:OPERation:ENABle", {{"mask", Number, "", 0, 32767, true}}, needsNothing, [](const Call& call) { call.session.status.operation.enable = masked(call, registerMask); return done(); },
     "which of them count in bit 7 of the status byte"},
    {"STATus:OPERation:ENABle?", {}, needsNothing, [](const Call& call) { return said(std::to_string(call.session.status.operation.enable)); },
     "what that has set"},
    {"STATus:QUEStionable[:EVENt]?", {}, needsNothing, [](const Call& call) { return said(std::to_string(call.session.status.questionable.takeEvent())); },
     "which of these began since it was last asked: 1 a bias may be left on, 8 a light may be left on, 512 the last map has points in doubt"},
    {"STATus:QUEStionable:CONDition?", {}, needsNothing, [](const Call& call) { return said(std::to_string(call.session.status.questionable.condition)); },
     "the same now"},
    {"STATus:QUEStionable:ENABle", {{"mask", Number, "", 0, 32767, true}}, needsNothing, [](const Call& call) { call.session.status.questionable.enable = masked(call, registerMask); return done(); },
     "which of them count in bit 3 of the status byte"},
    {"STATus:QUEStionable:ENABle?", {}, needsNothing, [](const Call& call) { return said(std::to_string(call.session.status.questionable.enable)); },
     "what that has set"},
    {"STATus:PRESet", {}, needsNothing, [](const Call& call) { call.session.status.preset(); return done(); },
     "none of them count any more"},

    {"STAGe:POSition", {{"x", Number, "um", -xyLimitUm, xyLimitUm}, {"y", Number, "um", -xyLimitUm, xyLimitUm}, {"z", Number, "um", -zLimitUm, zLimitUm, false, true}}, needsIdle, goTo,
     "begins a move of the stage; down first, up last"},
    {"STAGe:POSition?", {}, needsNothing, [](const Call&) { return said(formatted("%.4f,%.4f,%.4f", stageX.positionUm, stageY.positionUm, stageZ.positionUm)); },
     "where the stage stands, x, y, z in um"},
    {"STAGe:LIMits?", {}, needsNothing, sayLimits,
     "where a script may send it: lowest and highest x, y, z in um"},
    {"STAGe:STOP", {}, passesWaits, stop,
     "stops what the script has started, and the stage where no process of the operator's runs"},
    {"LASer:LEVel", {{"intensity", Number, "uA", 0, 1000000}}, needsIdle | needsPermission, [](const Call& call) { return unless(-222, setLaserIntensity(call.numbers[0])); },
     "the laser's intensity as the window shows it, also of scans"},
    {"LASer:LEVel?", {}, needsNothing, [](const Call&) { return saidNumber(laserLink.laserLevel * setUp.laserUaPerVolt); },
     "the same in uA"},
    {"LASer[:STATe]", {{"on", Switch}}, needsIdle | needsPermission, switchLaser,
     "the laser on or off; a script that is gone leaves it off"},
    {"LASer[:STATe]?", {}, needsNothing, [](const Call&) { return saidSwitch(laserIsOn()); },
     "1 while it is on"},
    {"ILLumination[:STATe]", {{"on", Switch}}, needsIdle, switchLamp,
     "the illumination on or off"},
    {"ILLumination[:STATe]?", {}, needsNothing, [](const Call&) { return saidSwitch(illuminationIsOn()); },
     "1 while it is on"},

    {"INSTrument[:SELect]", {{"kind", Number, "", 0, equipmentKindCount - 1, true}}, needsIdle, selectInstrument,
     "connects the instrument with that number in INSTrument:CATalog?, which begins at 0"},
    {"INSTrument[:SELect]?", {}, needsNothing, [](const Call&) { return said(std::to_string(instrumentLink.ammeterKind)); },
     "the number of the present one"},
    {"INSTrument:CATalog?", {}, needsNothing, listInstruments,
     "the names of all"},
    {"SOURce:VOLTage", {{"bias", Number, "V", -largestBiasTyped, largestBiasTyped}}, needsIdle | needsPermission, putBias,
     "the bias, at once and of scans; a script that is gone leaves it at 0 V"},
    {"SOURce:VOLTage?", {}, needsNothing, [](const Call&) { return saidFloat(instrumentLink.biasVoltage); },
     "the bias of scans in V"},
    {"SOURce:VOLTage:ILIMit", {{"limit", Number, "A", smallestLimitTyped, largestLimitTyped}}, needsIdle | needsPermission, limitCurrent,
     "the source's current limit"},
    {"SOURce:VOLTage:ILIMit?", {}, needsNothing, [](const Call&) { return saidFloat(instrumentLink.currentLimit); },
     "the same in A"},
    {"READ?", {}, needsIdle, readAllChannels,
     "a reading: the values of all channels in units of the SI; 9.91E37 stands for none"},
    {"UNIT?", {}, needsNothing, sayUnits,
     "the units of READ?, one for each channel"},

    {"SCAN:AREA", {{"left", Number, "um", -xyLimitUm, xyLimitUm}, {"bottom", Number, "um", -xyLimitUm, xyLimitUm}, {"width", Number, "um", 0, 2 * xyLimitUm}, {"height", Number, "um", 0, 2 * xyLimitUm}}, needsIdle,
     chooseArea,
     "the scan area on the stage: where the stage stands at the first point, and how far the points reach"},
    {"SCAN:AREA?", {}, needsNothing, [](const Call&) { const StageRectangle of = scanRectangle(); return said(formatted("%.9g,%.9g,%.9g,%.9g", of.left, of.bottom, of.width, of.height)); },
     "the same in um, whoever chose it"},
    {"SCAN:STEP", {{"step", Number, "um", scanStepLowest, scanStepHighest}}, needsIdle, [](const Call& call) { return unless(-222, setScanStep(call.numbers[0])); },
     "from point to point"},
    {"SCAN:STEP?", {}, needsNothing, [](const Call&) { return saidNumber(scanArea.scanStep); },
     "the same in um"},
    {"SCAN:SIZE?", {}, needsNothing, [](const Call&) { return said(formatted("%d,%d", scanArea.cols, scanArea.rows)); },
     "columns and rows of the next scan"},
    {"SCAN:CONFocal", {{"on", Switch}}, needsIdle, [](const Call& call) { scanSettings.confocalEnabled = call.isOn(0) ? 1 : 0; computeScanArea(scanArea); allocateMaps(); return done(); },
     "whether the spot's colour is taken at each point"},
    {"SCAN:CONFocal?", {}, needsNothing, [](const Call&) { return saidSwitch(scanSettings.confocalEnabled != 0); },
     "1 when it is"},
    {"SCAN:OPTions:ARRival", {{"way", Word, "", 0, 0, false, false, "SLOW|EARLy"}}, needsIdle, [](const Call& call) { scanSettings.options.looksEarly = call.numbers[0] != 0.0; return done(); },
     "looks for the stage's arrival every 50 ms, or as soon as it can be there; like all options for this run of the program"},
    {"SCAN:OPTions:ARRival?", {}, needsNothing, [](const Call&) { return said(scanSettings.options.looksEarly ? "EARL" : "SLOW"); },
     "which of the two"},
    {"SCAN:OPTions:SETTle", {{"wait", Number, "ms", 0, 10000, true}}, needsIdle, takeOption<&ScanOptions::settleMs, 0>,
     "the wait after the arrival at a point"},
    {"SCAN:OPTions:SETTle?", {}, needsNothing, [](const Call&) { return saidNumber(scanSettings.options.settleMs); },
     "the same in ms"},
    {"SCAN:OPTions:DELay", {{"wait", Number, "ms", 0, 10000, true}}, needsIdle, takeOption<&ScanOptions::beforeReadingMs, 1>,
     "the wait before the reading"},
    {"SCAN:OPTions:DELay?", {}, needsNothing, [](const Call&) { return saidNumber(scanSettings.options.beforeReadingMs); },
     "the same in ms"},
    {"SCAN:OPTions:READings", {{"count", Number, "", 1, 1000, true}}, needsIdle, takeOption<&ScanOptions::readingsPerPoint, 2>,
     "readings of a point, whose mean the map has"},
    {"SCAN:OPTions:READings?", {}, needsNothing, [](const Call&) { return saidNumber(scanSettings.options.readingsPerPoint); },
     "the same"},
    {"SCAN:OPTions:RUNin", {{"way", Number, "um", 0, 100, true}}, needsIdle, takeOption<&ScanOptions::runInUm, 3>,
     "the way to a row's first point; 0 for one step"},
    {"SCAN:OPTions:RUNin?", {}, needsNothing, [](const Call&) { return saidNumber(scanSettings.options.runInUm); },
     "the same in um"},
    {"SCAN:OPTions:CHANnel", {{"channel", Word, "", 0, 0, false, false, "R|X|Y|THETa"}}, needsIdle, [](const Call& call) { scanSettings.options.mainChannel = static_cast<int32_t>(call.numbers[0]); return done(); },
     "which channel of a lock-in amplifier the map shows"},
    {"SCAN:OPTions:CHANnel?", {}, needsNothing, [](const Call&) { return said(mainChannels[scanSettings.options.mainChannel]); },
     "the same"},
    {"SCAN:STARt", {}, needsIdle | needsPermission, beginScan,
     "begins the scan, laser on, with the bias of scans; whoever starts it vouches for its area, and nobody is asked"},
    {"SCAN:PAUSe", {}, passesWaits, [](const Call&) { return unless(-221, pauseForClient(true)); },
     "pauses it behind its present point, laser off"},
    {"SCAN:RESume", {}, passesWaits, [](const Call&) { return unless(-221, pauseForClient(false)); },
     "lets it go on, where the script has paused it"},
    {"SCAN:STOP", {}, passesWaits, stop,
     "stops what the script has started; what is measured is saved"},
    {"SCAN:STATe?", {}, needsNothing, sayScanState,
     "IDLE, RUN,n,N of points, PAUSED,n,N, DONE, STOPPED or FAILED, whoever started it"},
    {"SCAN:REPort?", {}, needsNothing, sayReport<scanProcess>,
     "what the operator is told of the last scan"},
    {"SCAN:FILE?", {}, needsNothing, [](const Call&) { return said(quoted(scanMap.conditions ? narrowed(foldersOfMap().sessionFolder) : "")); },
     "the folder of the last scan's files"},
    {"SCAN:CHANnels?", {}, needsNothing, listPlanes,
     "what the map has, by its numbers from 0: name and unit of each"},
    {"SCAN:DATA:SIZE?", {}, needsNothing, sayMapSize,
     "columns and rows of the map in memory"},
    {"SCAN:DATA?", {{"channel", Word}}, needsNothing, sayMap,
     "the map as a block of 32-bit numbers, little endian, rows from the top; by the number or name of a channel, or MASK. What is not measured is no number; of the mask 0 not measured, 1 measured, more is in doubt"},

    {"LIST:LOAD", {{"name", Text}}, needsIdle, loadList,
     "reads a list of KST_Data/Scan lists"},
    {"LIST:STARt", {}, needsIdle | needsPermission, beginList,
     "begins it: its rows have laser and bias of their own"},
    {"LIST:STATe?", {}, needsNothing, sayListState,
     "IDLE, RUN, DONE, STOPPED or FAILED; then how each row has ended"},
    {"SWEep:RANGe", {{"range", Number, "V", 0.01, 10}}, needsIdle, [](const Call& call) { chosen.rangeVolts = call.numbers[0]; return done(); },
     "the I-V curve's reach to either side of 0 V"},
    {"SWEep:RANGe?", {}, needsNothing, [](const Call&) { return saidNumber(chosen.rangeVolts); },
     "the same in V"},
    {"SWEep:POINts", {{"count", Number, "", 1, 10000, true}}, needsIdle, [](const Call& call) { chosen.quarterPoints = static_cast<int32_t>(call.numbers[0]); return done(); },
     "points in a quarter of the loop 0, +, -, 0"},
    {"SWEep:POINts?", {}, needsNothing, [](const Call&) { return saidNumber(chosen.quarterPoints); },
     "the same"},
    {"SWEep:STARt", {}, needsIdle | needsPermission, beginSweep,
     "begins the curve where the stage stands"},
    {"SWEep:STATe?", {}, needsNothing, [](const Call&) { return said(stateOf("I-V curve", "an I-V curve")); },
     "IDLE, RUN, DONE, STOPPED or FAILED"},
    {"SWEep:REPort?", {}, needsNothing, sayReport<sweepProcess>,
     "what the operator is told of the last one"},
    {"SWEep:DATA?", {}, needsNothing, [](const Call&) { return sayCurve(false); },
     "the curve as a block of 32-bit numbers: V, A, V, A, ..."},
    {"TIME:ON", {{"time", Number, "s", 0, 10000}}, needsIdle, [](const Call& call) { chosen.series.onSeconds = static_cast<float>(call.numbers[0]); return done(); },
     "how long the laser is on in a light cycle"},
    {"TIME:ON?", {}, needsNothing, [](const Call&) { return saidFloat(chosen.series.onSeconds); },
     "the same in s"},
    {"TIME:OFF", {{"time", Number, "s", 0, 10000}}, needsIdle, [](const Call& call) { chosen.series.offSeconds = static_cast<float>(call.numbers[0]); return done(); },
     "how long it is off"},
    {"TIME:OFF?", {}, needsNothing, [](const Call&) { return saidFloat(chosen.series.offSeconds); },
     "the same in s"},
    {"TIME:CYCLes", {{"count", Number, "", 1, 200, true}}, needsIdle, [](const Call& call) { chosen.series.repeats = static_cast<int32_t>(call.numbers[0]); return done(); },
     "light cycles"},
    {"TIME:CYCLes?", {}, needsNothing, [](const Call&) { return saidNumber(chosen.series.repeats); },
     "the same"},
    {"TIME:STARt", {}, needsIdle | needsPermission, beginSeries,
     "begins the time evolution where the stage stands"},
    {"TIME:STATe?", {}, needsNothing, [](const Call&) { return said(stateOf("Time evolution", "a time evolution")); },
     "IDLE, RUN, DONE, STOPPED or FAILED"},
    {"TIME:REPort?", {}, needsNothing, sayReport<seriesProcess>,
     "what the operator is told of the last one"},
    {"TIME:DATA?", {}, needsNothing, [](const Call&) { return sayCurve(true); },
     "its samples as a block of 32-bit numbers: s, value, s, value, ... in the first unit of UNIT?"},

    {"CAMera:PICTure?", {}, needsNothing, sendPicture,
     "the camera's picture as a block, a PNG file; while something is under way the last one"},
    {"CAMera:GAIN", {{"gain", Number, "dB", gainLowest, gainHighest, true}}, needsIdle, [](const Call& call) { return unless(-240, setGain(static_cast<int>(call.numbers[0]))); },
     "the camera's gain; it no longer adjusts itself then"},
    {"CAMera:GAIN?", {}, needsNothing, [](const Call&) { return saidNumber(cameraState.gain); },
     "the same in dB"},
    {"CAMera:EXPosure", {{"time", Number, "us", exposureLowestUs, exposureHighestUs}}, needsIdle, [](const Call& call) { return unless(-240, setExposure(call.numbers[0])); },
     "its exposure time, likewise"},
    {"CAMera:EXPosure?", {}, needsNothing, [](const Call&) { return saidNumber(cameraState.exposureUs); },
     "the same in us"},
    {"FOCus:STARt", {}, needsIdle | needsPermission, beginFocus,
     "begins the autofocus, which switches the laser on"},
    {"FOCus:STATe?", {}, needsNothing, [](const Call&) { return said(stateOf("Focus", "a focus search")); },
     "IDLE, RUN, DONE, STOPPED or FAILED"},
    {"FOCus:REPort?", {}, needsNothing, sayReport<focusProcess>,
     "what the operator is told of the last one"},
    {"SETup?", {}, needsNothing, [](const Call&) { return said(quoted(setUpWords(setUp))); },
     "what of the set-up is otherwise than as built"},
    {"LOG?", {{"lines", Number, "", 1, 1000, true, true}}, needsNothing, sendLog,
     "the last lines, 20 if no number is given, of the log of the day, as a block"},
};
// clang-format on

} // namespace

void forgetChoices() {
    chosen = {};
}

std::span<const Verb> verbTable() {
    return verbs;
}

std::string verbTableText() {
    std::string text = "| command | what it takes | what it does |\n| --- | --- | --- |\n";
    for (const Verb& verb : verbs) {
        std::string takes;
        for (const Argument& each : verb.arguments) {
            if (!takes.empty()) takes += "; ";
            takes += each.name;
            const std::string bounds =
                each.kind == Word && *each.words == '\0' ? "" : boundsOf(each);
            if (!bounds.empty()) takes += ": " + bounds;
            if (each.optional) takes += " (may be left out)";
        }
        if ((verb.needs & needsPermission) != 0) takes += takes.empty() ? "[L]" : " [L]";
        text += std::string("| `") + verb.header + "` | " + takes + " | " + verb.help + " |\n";
    }
    return text;
}
