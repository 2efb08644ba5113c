// What a journal holds before its points: a line "name = value" for each condition. One function
// names them all, for whoever writes and for whoever reads them.
#pragma once

#include "mapping/scan_plan.h"
#include "session/journal.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// Puts the values down as lines: eachCondition(conditions, lines).
class JournalLines {
public:
    template <class Value> void operator()(const char* name, const Value& value) {
        add(name, textOf(value));
    }
    // A value that journals of earlier versions are without.
    template <class Value> void added(const char* name, const Value& value) {
        add(name, textOf(value));
    }
    // The lines, and the one behind which the points stand.
    std::vector<std::string> ended() const;

private:
    static std::string textOf(int32_t value);
    static std::string textOf(uint32_t value);
    static std::string textOf(double value);
    static std::string textOf(float value);
    static std::string textOf(bool value);
    static std::string textOf(const std::string& value);
    void add(const char* name, const std::string& value);

    std::vector<std::string> lines;
};

// Takes the values from the lines of a journal up to the points, the same way.
class JournalValues {
public:
    explicit JournalValues(const NextLine& next);

    template <class Value> void operator()(const char* name, Value& value) {
        const auto found = values.find(name);
        whole = found != values.end() && take(found->second, value) && whole;
    }
    // One that is not there leaves `value` as it is.
    template <class Value> void added(const char* name, Value& value) {
        const auto found = values.find(name);
        if (found != values.end()) whole = take(found->second, value) && whole;
    }

    // Whether every value so far was there and was one, and the next line may be a point's.
    bool areWhole() const { return whole; }

private:
    static bool take(const std::string& text, int32_t& value);
    static bool take(const std::string& text, uint32_t& value);
    static bool take(const std::string& text, double& value);
    static bool take(const std::string& text, float& value);
    static bool take(const std::string& text, bool& value);
    static bool take(const std::string& text, std::string& value);

    std::map<std::string, std::string> values;
    bool whole = false;
};

// All that a measurement is taken with but `continued`.
template <class Conditions, class Visit> void eachCondition(Conditions& c, Visit& visit) {
    visit("program", c.program);
    visit("year", c.started.year);
    visit("month", c.started.month);
    visit("day", c.started.day);
    visit("hour", c.started.hour);
    visit("minute", c.started.minute);
    visit("second", c.started.second);
    visit("columns", c.area.cols);
    visit("rows", c.area.rows);
    visit("step um", c.area.scanStep);
    visit("laser level V", c.laserLevel);
    visit("bias V", c.biasVoltage);
    visit("current limit A", c.currentLimit);
    visit("instrument kind", c.ammeterKind);
    visit("instrument", c.instrumentIdentity);
    visit("confocal", c.confocal);
    visit("home x um", c.homeXUm);
    visit("home y um", c.homeYUm);
    visit("home z um", c.homeZUm);
    visit("offset x um", c.area.offsetXUm);
    visit("offset y um", c.area.offsetYUm);
    visit("gain", c.gain);
    visit("exposure us", c.exposureUs);
    visit("aperture px", c.aperturePx);
    visit("spot x px", c.laserSpot.x);
    visit("spot y px", c.laserSpot.y);
    visit("axis order", c.axisOrder);
    visit("row settles ms", c.rowSettleMs);
    visit("looks early", c.options.looksEarly);
    visit("settles ms", c.options.settleMs);
    visit("before reading ms", c.options.beforeReadingMs);
    visit("readings per point", c.options.readingsPerPoint);
    visit("writes unit file", c.options.writesUnitFile);
    visit.added("run-in um", c.options.runInUm);
    visit.added("main channel", c.options.mainChannel);
    visit.added("aux channel", c.options.auxChannel);
    visit.added("settled tenths", c.options.settledTenths);
    visit.added("in volts", c.inVolts);
    visit.added("instrument settings", c.settings.words);
    visit.added("instrument settings kept", c.settings.kept);
    visit.added("filter time constant ms", c.settings.timeConstantMs);
    visit.added("filter poles", c.settings.poles);
    visit.added("filter sync ms", c.settings.syncMs);
    visit.added("taken gain", c.takenGain);
    visit.added("taken exposure us", c.takenExposureUs);
    visit.added("blue only", c.blueOnly);
    visit.added("set-up", c.setUpInForce);
    visit.added("laser uA per V", c.laserUaPerVolt);
    visit.added("laser full scale V", c.laserFullScaleVolts);
    visit.added("laser power uW", c.laserPowerUw);
    visit.added("amplifier V per A", c.amplifier.voltsPerAmpere);
    visit.added("amplifier inverts", c.amplifier.inverts);
    visit.added("amplifier offset V", c.amplifier.offsetVolts);
    visit.added("sample", c.occasion.sample);
    visit.added("note", c.occasion.note);
    visit.added("list", c.occasion.list);
    visit.added("keeps bias in a pause", c.options.keepsBiasInAPause);
    visit.added("drift", c.occasion.drift);
    visit.added("objective", c.home.objective);
    visit.added("zero known", c.zeroKnown);
    visit.added("zero x um", c.zeroXUm);
    visit.added("zero y um", c.zeroYUm);
}
