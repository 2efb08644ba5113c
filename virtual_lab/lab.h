// The virtual laboratory as tests see it: the truth about the sample and the set-up, the faults
// that can be made, and the way to the vendors' functions that act on it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// --- Life ------------------------------------------------------------------------------------

// Where the laboratory gets its time, in milliseconds, and how a device that makes its caller wait
// (the camera, an instrument) lets time pass. Until this is called time stands still at 0.
void setLabClock(double (*nowMs)(), void (*sleepMs)(double ms));

// All devices in their initial state, nothing broken, logs empty: the stage stands at controller
// counts that are not 0, laser and illumination are off. Noise follows from the seed.
void resetLab(uint64_t seed);

// --- The sample --------------------------------------------------------------------------------
// Sample coordinates in um; x to the right and y upwards in the picture. (0, 0) is the point under
// the picture's centre while the stage stands where it stood at resetLab.

constexpr double labUmPerPixel = 180.0 / 1232.0; // picture pixel on the sample
constexpr int labCentreColumn = 616;             // picture pixel whose sample point is the stage's
constexpr int labCentreRow = 514;                // position; rows counted from the bottom

struct Rgb {
    double red = 0, green = 0, blue = 0; // 0..1
};

struct LabPoint {
    double x = 0, y = 0; // um
};

struct LabPixel {
    int column = 0;
    int row = 0; // from the bottom
};

// Photocurrent relative to the strongest place, 0..1, for light in focus.
double landscapeAt(double xUm, double yUm);

// Reflectance.
Rgb textureAt(double xUm, double yUm);

// Stage height, in um, at which the surface is in focus.
double surfaceHeightAt(double xUm, double yUm);

// --- How it is built
// ------------------------------------------------------------------------------

// Without a word of it in the fault file it is the microscope as built: all that stands here.
struct LabSetUp {
    // A picture pixel that lies (columns, rows) from the picture's centre, rows upwards, shows the
    // sample point that lies that, mirrored at the row's axis where the camera is mirrored, turned
    // anticlockwise, times `umPerPixel` from the stage's position.
    double umPerPixel = labUmPerPixel;
    double degrees = 0;
    bool mirrored = false;
    LabPixel spot = {640, 500}; // where the picture shows the laser spot
    LabPoint spotActsUm;        // from there to where its light acts
    double umPerTurn[3] = {250, 250, 250};
    bool reversed[3] = {}; // its controller counts down where the carriage goes up
    // Before the board's analog input a transimpedance amplifier, V/A, negative where it inverts;
    // 0: the photovoltage itself. The same before the oscilloscope.
    double boardVoltsPerAmpere = 0, scopeVoltsPerAmpere = 0;
    double boardOffsetVolts = 0, scopeOffsetVolts = 0; // of the amplifier without a current
    // The board: its analog input and converter, its pins, what level its lamp is switched on by,
    // and the laser's drive level at 255.
    double inputVolts = 5;
    int inputBits = 10;
    int laserPin = 5, lampPin = 6, lampOnLevel = 5;
    double laserFullScaleVolts = 5;
    // The camera's sensor and what its colours are called; Mono8 where it has none.
    int sensorWidth = 2464, sensorHeight = 2056;
    std::string pixelFormat = "BayerRG8";
    bool centred = false; // a stored user set keeps its region of interest in the middle
    // How far the sample is tilted: it rises so much along x and along y, degrees.
    double tiltX = 0, tiltY = 0;

    bool isStraight() const { return umPerPixel == labUmPerPixel && degrees == 0 && !mirrored; }
};
LabSetUp labSetUp();

// The sample point that a picture pixel shows now.
LabPoint labSampleAt(double column, double rowFromBottom);

// How far the sample has drifted on the stage since resetLab, um along the stage's axes: what lay
// under the picture's centre is there again when the stage has moved by that.
LabPoint labDriftUm();

// The controllers lose their supply: they are gone until they are opened again, count 0 where they
// stand, and give the windings no current.
void cycleLabStagePower();

// --- The set-up now ------------------------------------------------------------------------------

enum LabAxis : int { labX = 0, labY = 1, labZ = 2 };

// Where the carriage really is (the controllers know only their motors), um from where it stood at
// resetLab.
double labStageUm(int axis);
bool labStageMoves(int axis); // its motor is under way
// What its controller counts, um, with the carriage's sign: without asking it.
double labCountedUm(int axis);

LabPixel labSpotPixel();       // place of the laser spot in the picture
LabPoint labLaserSpotSample(); // sample point under the laser spot
bool labIlluminated();
int labLaserPwm(); // 0..255, the laser's pin

// Photovoltage and photocurrent are what the light gives in the end (expectedVolts,
// expectedCurrent), times the population of the carriers that it makes, 0..1. While the laser is on
// that goes towards 1, as 1 - exp(-t / labRiseMs); after it has gone off it decays as
// exp(-t / labDecayMs), and what is measured then belongs to the level before. Another level of a
// laser that is on, another place and another height act at once. Long enough to be resolved by a
// reading every 30 ms, over before a map takes its first point, 1.5 s after the light came on.
constexpr double labRiseMs = 150;
constexpr double labDecayMs = 250;
double labLightResponse(); // the population now

// The laser's beam is a Gaussian one: on a surface dz from the focus the spot is
// w = sqrt(1 + (dz / labDepthOfFocusUm)^2) times as wide as in focus, and its middle w^2 times as
// faint, in the picture and for the photocurrent. From the 0.88 um (6 picture pixels, rms) in focus
// it opens as behind an objective of numerical aperture 0.5.
constexpr double labDepthOfFocusUm = 3.0;

// Noiseless voltage at the board's analog input; the input itself ends at 5 V.
double labPhotoVoltage();

// What it settles at for a laser spot at a sample point, an intensity setting in volts (0..5) and a
// stage height in um.
double expectedVolts(double xUm, double yUm, double laserLevelVolts, double zUm);

constexpr double labAdcStepVolts = 5.0 / 1024.0;
constexpr double labAdcNoiseVolts = 0.5 * labAdcStepVolts; // rms

// --- The contacts --------------------------------------------------------------------------------
// One instrument at a time lies across the sample's two contacts, which conduct like two diodes
// against each other: the current is a dark current that saturates on both sides (about 50 nA at
// 0.5 V) and the photocurrent (0.9 uA at landscape 1, intensity 4.0 V, in focus, and a tenth more
// for each volt on either side).

// Noiseless settled current in amperes for a laser spot at a sample point, an intensity setting in
// volts, a stage height in um and a voltage across the contacts.
double expectedCurrent(double xUm, double yUm, double laserLevelVolts, double zUm,
                       double biasVolts);

double labPhotoCurrent(double biasVolts); // the photocurrent's part of it now, A
double labDarkCurrent(double biasVolts);  // A

double labBiasVolts();    // what the sources whose output is on have been set to; otherwise 0
double labCurrentLimit(); // A; of the source whose output is on, infinite when none is
bool labOutputOn();

// rms noise of every current reading, as a part of the range it was taken in. Ranges of the
// multimeter: 2 uA to 20 mA in decades; of the sourcemeters 10 nA to 1 A, of the analyzer 1 nA to
// 100 mA, likewise. Steps: 1/200000 of the range, 1/1000000 and the five digits of the reply.
constexpr double labRangeNoise = 2e-5;
constexpr double labScopeNoiseVolts = 0.002; // rms

// --- The instruments -----------------------------------------------------------------------------

enum LabInstrument : int {
    labMultimeter,     // on the GPIB bus; at first at address 18
    labSourcemeter,    // on the GPIB bus; 24
    labAnalyzer,       // on the GPIB bus (17) and on the network (192.168.0.10, 1225)
    labSr830,          // lock-in amplifier on the GPIB bus; 8
    labSr860,          // the same, USB0::0xB506::0x2000::004642::INSTR
    labUsbSourcemeter, // USB0::0x05E6::0x2450::04437886::INSTR
    labScope,          // USB0::0x0699::0x0368::C010001::INSTR
    labSecondScope,    // there when the fault file says so; C010002, found after the first
    labInstrumentCount,
};

// Moves one of the first four to another primary address, 1..30; what stood there leaves the bus.
void setLabGpibAddress(LabInstrument instrument, int address);
void setLabAnalyzerNetwork(const std::string& address, int port);

// Every message that an instrument got, byte for byte.
const std::vector<std::string>& labInstrumentCommands(LabInstrument instrument);

// The instrument's errors, oldest first, as "-113 :SOUR:VLT 1": the number that it has for it and
// the command. Asking the instrument for its errors does not take them out of here.
const std::vector<std::string>& labInstrumentErrors(LabInstrument instrument);

struct LabMeasurement {
    LabInstrument by;
    double timeMs;
    double sampleX, sampleY; // um, under the laser spot
    double biasVolts;
    double value;            // as answered, with noise: A or V
    bool laser, lamp;        // shone then
    bool flagged;            // a lock-in amplifier's: overloaded, or without its reference
    double lockInX, lockInY; // beside it, of the same moment: its value is R
};
const std::vector<LabMeasurement>& labMeasurements();

// --- The lock-in amplifiers ----------------------------------------------------------------------
// They measure the photocurrent, without a bias, while a chopper lets the laser through for half of
// each of its periods: a current switched between 0 and A. The other instruments, the board and the
// camera see the laser as without a chopper. Of a square wave from 0 to A the fundamental has an
// rms value of sqrt(2) / pi = 0.450 times A, its h-th harmonic a h-th of that where h is odd, none
// where it is even. What the light gives (labLightResponse) is A's envelope.
//
// R, X and Y come through a filter of as many equal poles as the slope says, which sees its input
// without a gap, however seldom it is asked: behind a step it has settled by 99 % after 4.6, 6.6,
// 8.4 and 10.0 time constants. There is a ripple of twice the detection frequency (that of the
// synchronous filter is none below 200 Hz; how long it takes is not modelled), and noise.

enum class LabLockInInput { A, AMinusB, Current1MOhm, Current100MOhm };

// What an operator sets at the front panel. What an instrument does not have becomes the nearest
// that it has.
struct LabLockInSettings {
    double sensitivityVolts = 1; // full scale, rms
    double timeConstantMs = 30;
    int poles = 2;              // 1 to 4: 6, 12, 18, 24 dB per octave
    int reserve = 2;            // SR830: 0 high, 1 normal, 2 low noise
    double inputRangeVolts = 1; // SR860: peak
    bool sync = false;
    LabLockInInput input = LabLockInInput::A;
    bool internalReference = false; // else the chopper
    double internalHz = 1000;
    double phaseDegrees = 0;
    int harmonic = 1;
    double offsetPercent[3] = {};       // of X, Y, R
    int expand[3] = {1, 1, 1};          // 1, 10, 100
    int dataChannels[4] = {0, 1, 2, 3}; // SR860: what its four displays show, as it numbers it
    bool repliesOverRs232 = true;       // SR830: until it is told otherwise
};
const LabLockInSettings& labLockInSettings(LabInstrument who);
void setLabLockIn(LabInstrument who, const LabLockInSettings& settings);

// How both are wired.
struct LabLockInWiring {
    double chopperHz = 1013;
    double amplifierVoltsPerAmpere = 1e4; // before the inputs A and B
    double signalDegrees = 35;            // of the photocurrent's fundamental to the reference
    // What a current input's outputs are: volts, as the manuals say, or amperes, as some have it.
    bool currentInputInAmperes = false;
    double photodiodeOffsetVolts = 0; // at aux input 1
};
void wireLabLockIns(const LabLockInWiring& wiring);

struct LabLockInReading {
    double x = 0, y = 0, r = 0; // A rms, without offsets
    double theta = 0;           // degrees, -180 to 180
};

// Noiseless and settled, with the settings as they are now, but for offsets and overloads.
LabLockInReading expectedLockIn(LabInstrument who, double xUm, double yUm, double laserLevelVolts,
                                double zUm);

// rms noise of X and of Y, A: the sample's and the amplifier's, through the filter's equivalent
// noise bandwidth, which is 1/4, 1/8, 3/32 and 5/64 of the inverse time constant.
constexpr double labLockInNoise = 2e-11; // A per root of a Hz
double expectedLockInNoise(LabInstrument who);

// A photodiode for the reflected laser light at aux input 1 of both; the others are open (0 V).
double expectedReflectionVolts(double xUm, double yUm, double laserLevelVolts);
constexpr double labPhotodiodeNoiseVolts = 0.001; // rms

// --- What happened ------------------------------------------------------------------------------

struct LabRead {
    double timeMs;
    double sampleX, sampleY; // um, under the laser spot
    double volts;            // as converted, with noise
    double restedMs;         // since X or Y moved
    bool laser, lamp;        // shone then
};

struct LabCounters {
    uint64_t analogReads = 0;
    uint64_t moves = 0; // move commands that a controller took
    uint64_t frames = 0;
    uint64_t boardErrors = 0;      // commands that the board did not understand
    uint64_t cameraDevices = 0;    // camera devices made and not destroyed
    uint64_t openAxes = 0;         // controllers open now
    uint64_t instrumentErrors = 0; // of all instruments
    uint64_t gpibDescriptors = 0;  // devices on the GPIB bus opened and not taken offline
    uint64_t deviceClears = 0;     // that reached an instrument on the bus
    uint64_t visaSessions = 0;     // open now: resource managers, find lists and instruments
    uint64_t networkLinks = 0;     // connections to the analyzer open now, 0 or 1
};

// The references stay valid; the contents change with every call into the laboratory. The logs
// keep the newest entries, at least half a million.
const LabCounters& labCounters();
const std::vector<std::string>& labBoardCommands();
const std::vector<LabRead>& labReads();

// --- What is broken -----------------------------------------------------------------------------

// Replaces all faults; one on each line, blank lines and lines that begin with '#' are skipped:
//   sample drifts <x> <y>               on the stage, um an hour; mended, it stays where it is
//   sample shifted <x> <y>              on the stage, um, at once; mended, it is back
//   camera absent | camera lost | camera sfnc 1
//   camera lacks <feature name>         it has no such feature; several lines, several features
//   camera unsettled                    an automatic function that works once never ends
//   camera silent                       it answers every call, but no frame comes
//   stage absent | stage count 1|2|3    they drive Y, X, Z in this order
//   stage order <letters>               a search finds their axes' controllers so; otherwise "yxz"
//   stage stranger                      another set-up's controller is found before them
//   stage calls <ms>                    each call to a controller takes so long
//   axis x|y|z absent                   its controller is not found, the others move up in the list
//   axis x|y|z replaced                 by a controller of another name
//   axis x|y|z stalled
//   axis x|y|z lost [<n>]               gone, from the n-th call from now on
//   axis x|y|z disturbed <n>            each n-th call is answered by an error, at once
//   axis x|y|z alarm current|heat|supply [<n>]   raised at the n-th call from now; a stop ends it,
//                                       that of the supply once the fault is mended
//   axis x|y|z unpowered                its windings get no current, the controller counts on
//   axis x|y|z slips <um>               loses so much of its way from now on; its encoder tells
//   axis x|y|z turn 1..1000             its motor's full steps per turn: 200 when nothing is said
//   axis x|y|z overshoot <um>           goes past its target and comes back
//   axis x|y|z mute                     each call takes 7 s and fails
//   axis x|y|z slow <steps/s>           its own speed; the program's limit may be lower
//   axis x|y|z microsteps 1..9          its mode: 9 is 1/256 of a step, 8 is 1/128
//   axis x|y|z old                      its status is the one of the call before
//   limit x|y|z right|left at <um>      true carriage position from resetLab
//   board absent | board unplugged
//   board overload                      more than 5 V at its analog input
//   board quiet                         its converter has no noise
//   backlash x|y|z <um>                 2, 2 and 0.8 when nothing is said
//   optics <um a pixel> <degrees> [mirrored]   of the camera against the stage
//   spot at <column> <row>              of the laser on the picture, from the bottom
//   spot acts <x um> <y um>             its light, so far from where it is seen
//   axis x|y|z pitch <um>               its screw's, a turn; 250 when nothing is said
//   axis x|y|z reversed                 its controller counts the other way
//   amplifier board|scope <V/A> <offset V>   before its input; negative where it inverts
//   board input <V> <bits>              full scale of its analog input, and its converter's
//   board laser <pin> <V>               and the drive level at 255
//   board lamp <pin> <level>            and what switches it on
//   sensor <width> <height> BayerRG8|BayerGR8|BayerGB8|BayerBG8|Mono8|Mono12   of the camera
//   camera centred                      a user set keeps its region of interest in the middle
//   camera second                       there is another one, found before it
//   sample tilted <degrees> <degrees>   rises so along x and along y
//   second set-up                       another laboratory's: see secondSetUp, lab_state.cpp
//   gpib absent                         no GPIB board; for devices opened before, pulled out
//   gpib error                          every call that uses the bus fails
//   gpib error ibdev|ibclr|ibwrt|ibrd|ibonl [<n>]   only these, from the n-th from now on
//   gpib multimeter|sourcemeter|analyzer|sr830 at <address>   whatever setLabGpibAddress said
//   visa absent                         no resource manager
//   visa empty                          a search finds nothing and succeeds
//   scope count 1|2
//   <who> absent                        switched off
//   <who> refused                       its link cannot be opened (network and USB)
//   <who> stuck                         takes nothing, says nothing
//   <who> silent                        takes everything, says nothing
//   <who> overload                      what it measures is beyond its range
//   <who> garbage                       answers without any digit
//   <who> unterminated                  answers without a line feed
//   <who> long                          numbers of 40 characters (scopes) or 120 (the others)
//   scope headers                       the command's name before each value, until HEADER OFF
//   k2450 other                         one with another serial number, 04412345
//   sr860 other                         it is an SR865A
//   lock-in unlocked                    gets no reference: its phase drifts, at 18 degrees per s
//   lock-in overload [filter|output]    of the input, when nothing is said; half the signal is
//   lost;
//                                       of the filter: the SR830 only
//   lock-in slow [<ms>]                 each answer takes so much longer; 3000 when nothing is said
//   chopper stopped                     neither a signal nor a reference
//   crash exception|abort|overflow [aside|again]   on Windows: the program, when it next sees a
//                                       stage on its way; aside: on a thread of a library; again:
//                                       and also whoever stops that stage
// <who> is multimeter, sourcemeter, analyzer, sr830, sr860, lock-in (both), k2450, scope, or
// instrument: all of them. A search for USB instruments finds the sr860, the k2450, and then the
// scopes: the scope alone switched off, the last one found is the k2450.
//
// An empty text mends everything. False, and nothing changed, when a line is not one of these.
bool applyLabFaults(const std::string& text);

// What opening, reading and writing the board's serial port must answer.
bool labBoardPresent();   // the port can be opened
bool labBoardConnected(); // the line has not been unplugged

// --- Ways in ------------------------------------------------------------------------------------

// The far end of the serial line.
void boardReceive(const void* bytes, size_t count);
std::string takeBoardReply(); // what the board has sent since the last call

// The vendor's function by file name ("libximc.dll", "PylonC_v9.dll", "ni4882.dll", "VISA64.dll",
// "KXCIclient64.dll", any case) and name; null when there is none.
void* virtualLabFunction(const char* library, const char* name);

constexpr int labRawWidth = 2464, labRawHeight = 2056;

// The frame that the camera would take now (8 bits a pixel, rows from the top, red at even columns
// of even rows), without counting it or letting time pass. At 100 us and 1 dB reflectance 1 gives
// 120 grey levels in the illumination and 210 in the middle of the laser spot at 4.0 V, in focus.
// The spot has neither side lobes nor stray light around it. The sample in the illumination is
// smoothed by a Gaussian of 6 (w - 1) picture pixels, w as of the laser spot at the picture's
// centre; where that is below 1 (dz below 1.8 um), not at all. Lit pixels have a noise of -1, 0 or
// +1. In the dark one in 64 shows a 1, and light of less than a grey level shows as a 1 in as large
// a part of the pixels.
void renderLabFrame(uint8_t* raw);

// Until the next resetLab frames show only so many picture rows on either side of the laser spot,
// and those that the automatic functions look at; the others stay as they are in the buffer, and so
// do all of a buffer that shows the scene already, its noise too. For runs in which nobody looks at
// them: it is most of a frame's work.
void setLabRowsAroundSpot(int rows);
