// Lists the virtual instruments: one row for each with all that the links and the rest of the
// laboratory know of it.
#include "virtual_lab/lab_state.h"

constexpr size_t longScopeNumber = 40;

// In the order of LabInstrument, in which a search for USB instruments finds them.
const LabInstrumentKind labInstrumentKinds[labInstrumentCount] = {
    {
        .name = "multimeter",
        .takes = multimeterTakes,
        .renew = renewMultimeter,
        .gpibAddress = 18,
        .talks = multimeterTalks,
        .clears = clearMultimeter,
    },
    {
        .name = "sourcemeter",
        .takes = sourcemeterTakes,
        .renew = renewSourcemeter,
        .switchOff = switchOffSourcemeter,
        .gpibAddress = 24,
        .hadNothingToSay = sourcemeterHadNothingToSay,
        .source = sourcemeterSource,
    },
    {
        .name = "analyzer",
        .takes = analyzerTakes,
        .renew = renewAnalyzer,
        .gpibAddress = 17,
        .source = analyzerSource,
    },
    {
        .name = "sr830",
        .takes = sr830Takes,
        .renew = renewSr830,
        .switchOff = switchOffSr830,
        .gpibAddress = 8,
        .clears = clearSr830,
    },
    {
        .name = "sr860",
        .takes = sr860Takes,
        .renew = renewSr860,
        .switchOff = switchOffSr860,
        .resource = "USB0::0xB506::0x2000::004642::INSTR",
    },
    {
        .name = "k2450",
        .takes = sourcemeterTakes,
        .renew = renewSourcemeter,
        .switchOff = switchOffSourcemeter,
        .resource = "USB0::0x05E6::0x2450::04437886::INSTR",
        .hadNothingToSay = sourcemeterHadNothingToSay,
        .source = sourcemeterSource,
    },
    {
        .name = "scope",
        .takes = scopeTakes,
        .renew = renewScope,
        .resource = "USB0::0x0699::0x0368::C010001::INSTR",
        .longNumber = longScopeNumber,
    },
    {
        .name = "scope2",
        .takes = scopeTakes,
        .renew = renewScope,
        .resource = "USB0::0x0699::0x0368::C010002::INSTR",
        .longNumber = longScopeNumber,
    },
};
