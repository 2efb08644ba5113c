// The GPIB bus behind the functions of its library: one board, four instruments.
#include "virtual_lab/faces.h"
#include "virtual_lab/lab_state.h"

#include <cstring>

using namespace LabNi488;

using Status = unsigned long;
constexpr size_t systemErrorNumber = 0xE0140025; // as of an adapter that has been pulled
constexpr int boardDescriptor = 0;
constexpr int busInstruments = labSr830 + 1; // the first ones

// Of the calling thread's last call.
struct CallOutcome {
    Status status = statusComplete;
    Status error = 0;
    Status count = 0;
};
static thread_local CallOutcome last;

static Status finish(Status status, Status error = 0, size_t count = 0) {
    last = {status | statusComplete, error, static_cast<Status>(count)};
    return last.status;
}

// After these two errors the driver's count is an error number of the operating system.
static Status fail(Status error) {
    const bool system = error == driverError || error == fileSystemError;
    return finish(statusError, error, system ? systemErrorNumber : 0);
}

static bool brokenNow(const char* call, bool usesBus) {
    LabFaults& faults = lab.faults;
    if (faults.gpibFailing == "all") return usesBus;
    if (faults.gpibFailing != call) return false;
    if (faults.gpibFailingFrom <= 1) return true;
    --faults.gpibFailingFrom;
    return false;
}

static int addressOf(int who) {
    return lab.faults.gpibAddresses[who] ? lab.faults.gpibAddresses[who]
                                         : lab.instruments.gpibAddresses[who];
}

static LabInstrument instrumentAt(int address) {
    // What the fault text has moved stands in front of what was there.
    for (bool moved : {true, false})
        for (int who = 0; who < busInstruments; ++who)
            if (moved == (lab.faults.gpibAddresses[who] != 0) && addressOf(who) == address &&
                instrumentPresent(static_cast<LabInstrument>(who)))
                return static_cast<LabInstrument>(who);
    return labInstrumentCount;
}

static bool busIsEmpty() {
    for (int who = 0; who < busInstruments; ++who)
        if (addressOf(who) != 0 && instrumentPresent(static_cast<LabInstrument>(who))) return false;
    return true;
}

// What a call needs to know of the device; null when it has failed already.
static LabGpibDevice* deviceFor(int descriptor, const char* call) {
    auto found = lab.instruments.gpibDevices.find(descriptor);
    if (found == lab.instruments.gpibDevices.end()) {
        fail(badHandle);
        return nullptr;
    }
    if (lab.faults.gpibAbsent || brokenNow(call, true)) {
        fail(lab.faults.gpibAbsent ? driverError : busError);
        return nullptr;
    }
    // Even addressing needs someone who takes the command bytes.
    if (busIsEmpty()) {
        fail(noListener);
        return nullptr;
    }
    return &found->second;
}

void setLabGpibAddress(LabInstrument instrument, int address) {
    LabLock lock;
    if (instrument < 0 || instrument >= busInstruments) return;
    for (int& other : lab.instruments.gpibAddresses)
        if (other == address) other = 0;
    lab.instruments.gpibAddresses[instrument] = address;
}

extern "C" {

int ibdev(int board, int pad, int sad, int tmo, int eot, int eos) {
    LabLock lock;
    bool secondary = sad == 0 || (sad >= 0x60 && sad <= 0x7E);
    bool timeoutKnown = tmo >= 0 && tmo < static_cast<int>(std::size(timeoutsMs));
    if (lab.faults.gpibAbsent || board != 0) {
        fail(noBoard);
    } else if (pad < 0 || pad > 30 || !secondary || !timeoutKnown || eot == 0 || eos != 0) {
        fail(badArgument); // writes that do not end a message are not modelled
    } else if (brokenNow("ibdev", false)) {
        fail(driverError);
    } else {
        int descriptor = ++lab.instruments.lastDescriptor;
        lab.instruments.gpibDevices[descriptor] = {pad, timeoutsMs[tmo]};
        finish(statusComplete);
        return descriptor;
    }
    return -1;
}

unsigned long ibclr(int descriptor) {
    double timeoutMs = 0;
    {
        LabLock lock;
        if (descriptor == boardDescriptor) return fail(badArgument);
        LabGpibDevice* device = deviceFor(descriptor, "ibclr");
        if (!device) return last.status;
        LabInstrument who = instrumentAt(device->address);
        // The others on the bus take the command bytes, so a wrong address goes unnoticed here.
        if (who == labInstrumentCount) return finish(statusComplete);
        if (!lab.faults.instruments[who].stuck) {
            lab.instruments.lines[who].output.clear();
            if (labInstrumentKinds[who].clears) labInstrumentKinds[who].clears();
            ++lab.counters.deviceClears;
            return finish(statusComplete);
        }
        timeoutMs = device->timeoutMs;
    }
    labSleepMs(timeoutMs);
    return fail(busError);
}

unsigned long ibwrt(int descriptor, const void* bytes, size_t count) {
    std::string message;
    double timeoutMs = 0;
    LabInstrument who = labInstrumentCount;
    {
        LabLock lock;
        if (descriptor == boardDescriptor) return fail(addressError);
        LabGpibDevice* device = deviceFor(descriptor, "ibwrt");
        if (!device) return last.status;
        if (!bytes) return fail(badArgument);
        who = instrumentAt(device->address);
        if (who == labInstrumentCount) return fail(noListener);
        message.assign(static_cast<const char*>(bytes), count);
        timeoutMs = device->timeoutMs;
    }
    if (sendToInstrument(who, message, timeoutMs) == LabTransfer::Ended)
        return finish(statusComplete, 0, count);
    return finish(statusError | statusTimeout, aborted);
}

unsigned long ibrd(int descriptor, void* buffer, size_t count) {
    double timeoutMs = 0;
    LabInstrument who = labInstrumentCount;
    {
        LabLock lock;
        if (descriptor == boardDescriptor) return fail(addressError);
        LabGpibDevice* device = deviceFor(descriptor, "ibrd");
        if (!device) return last.status;
        if (!buffer) return fail(badArgument);
        who = instrumentAt(device->address);
        timeoutMs = device->timeoutMs;
    }
    size_t received = 0;
    LabTransfer transfer = LabTransfer::Lost;
    if (who != labInstrumentCount)
        transfer = receiveFromInstrument(who, buffer, count, timeoutMs, received);
    if (transfer == LabTransfer::Ended) return finish(statusEnd, 0, received);
    if (transfer == LabTransfer::Full) return finish(statusComplete, 0, received);
    if (transfer == LabTransfer::Lost) labSleepMs(timeoutMs); // nobody talks
    return finish(statusError | statusTimeout, aborted, received);
}

unsigned long ibonl(int descriptor, int online) {
    LabLock lock;
    if (lab.faults.gpibAbsent) return fail(driverError);
    if (descriptor == boardDescriptor) return finish(statusComplete);
    if (!lab.instruments.gpibDevices.count(descriptor)) return fail(badHandle);
    if (brokenNow("ibonl", false)) return fail(driverError);
    if (!online) lab.instruments.gpibDevices.erase(descriptor);
    return finish(statusComplete);
}

unsigned long ThreadIbsta() {
    return last.status;
}

unsigned long ThreadIberr() {
    return last.error;
}

unsigned long ThreadIbcnt() {
    return last.count;
}

} // extern "C"
