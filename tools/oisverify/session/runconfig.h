// Everything one "oisverify run" session needs: where frames come from (the simulator, the
// node's debug images, or recorded files), the simulated module and table, the frame layout, the
// device it runs in and the two system properties that carry the test parameters to the node.
// The test parameters are kept in the node's own terms (the fields of
// vendor.debug.camera.oisAlgoPara and the SR limit of vendor.debug.camera.oisGainCalibrate), so
// the tool and the node always agree on drop count, frequency, frame rate and frames per verdict.
#ifndef ZELK_TOOLS_OISVERIFY_RUNCONFIG_H
#define ZELK_TOOLS_OISVERIFY_RUNCONFIG_H

#include <stdint.h>

#include <string>

#include "session/emulateddevice.h"
#include "sim/scenario.h"

namespace oisverify
{

extern const char* const kAlgoParaProperty;     // vendor.debug.camera.oisAlgoPara
extern const char* const kGainCalibrateProperty; // vendor.debug.camera.oisGainCalibrate
extern const char* const kDefaultAlgoParaText;   // what the node assumes when the property is unset
constexpr double         kDefaultSrLimitDb = 18.0;

// The node's test parameters and the two values it derives from them.
struct AlgoParams
{
    uint32_t debugMode     = 0;
    uint32_t dumpImages    = 0;
    uint32_t dropFrames    = 120;
    uint32_t shakeFreqHz   = 4;
    uint32_t frameRateHz   = 60;
    uint32_t verdictFrames = 31;  // ring size: frames whose spread gives the SR
    uint32_t timeLimitMs   = 688; // the verdict must come sooner than this after the first frame
};

// Frame rate and shake frequency give the frames for a verdict (two shake periods:
// 2 x fps / freq + 1 in float, as the node computes it; 60 at frequency 0) and the time limit
// (frames x 1000 / 45 ms at 60 fps, / 25 at any other rate).
void DeriveVerdictFrames(AlgoParams* pParams);

// The property text for the parameters: field 0 is not read by the node, fields 1..5 are debug
// mode, dump, drop count, frequency and frame rate.
std::string ComposeAlgoPara(const AlgoParams& params);

// Reads a property text with the node's rules (fields split at ':', field k used only when the
// text has more than k fields, defaults otherwise). Fails for a field the node could not convert.
bool ParseAlgoPara(const std::string& text, AlgoParams* pParams, std::string* pError);

// The SR pass limit in dB: the third field of vendor.debug.camera.oisGainCalibrate (0 when the
// text has fewer fields, as the node reads it). Fails for a field that is not a number.
bool ParseSrLimit(const std::string& text, double* pLimitDb, std::string* pError);

// The value a name ends up with in build.prop: the last entry wins; empty when absent.
std::string EffectiveProperty(const chihost::NameValueList& properties, const std::string& name);
// Whether the list has an entry of that name.
bool HasEntry(const chihost::NameValueList& list, const std::string& name);

enum class FrameSource
{
    Simulator,   // rendered shake-table frames
    DebugImages, // the node's debug mode: rendered 720 x 720 crops placed in the device root
    Replay,      // recorded NV12 files, one frame each, in name order
};

struct FrameLayout
{
    uint32_t width    = 1440;
    uint32_t height   = 1080;
    uint32_t stride   = 0; // 0: the width
    uint32_t scanline = 0; // 0: the height

    uint32_t Stride() const { return stride != 0 ? stride : width; }
    uint32_t Scanline() const { return scanline != 0 ? scanline : height; }
};

// The gyro-gain search of "run --calibrate", in the node's terms: the fields of
// vendor.debug.camera.oisGainCalibrate (targets base x (1 - limit) + n x base x step, a settle
// count after each) and what the emulated phone needs for a closed loop: the module's fuse ID,
// the calibration service's socket and how long to wait for that name to come free.
struct CalibrationConfig
{
    bool        enabled       = false;
    uint32_t    singleAxis    = 0;    // 0 both gyro axes, 1 X only, 2 Y only (the other is held)
    double      stepFraction  = 0.05; // of the base gain
    double      limitFraction = 0.2;  // of the base gain, on either side
    uint32_t    settleFrames  = 10;   // requests after a new gain before measuring again
    std::string fuseId;               // the module's ID, as the service keys its gains
    std::string socketName;           // empty: the device's
    uint32_t    socketWaitMs = 10000; // while another process holds the socket name
};

// What identifies a run in its summary document (run --json), and where the document goes.
struct SummaryTarget
{
    std::string jsonPath; // absolute, "-" for stdout, empty for no document
    std::string moduleId; // --module-id, else the module's fuse ID, else empty
    std::string station;  // --station, else the host name
};

struct RunConfig
{
    DeviceRequest device;       // build.prop already holds the composed properties
    bool          echoLog = false;
    FrameSource   source  = FrameSource::Simulator;
    sim::Scenario scenario;     // frame size, rate and shake mirror layout and params
    std::string   replayDir;    // absolute
    std::string   replayDescription; // what the replay folder holds and its order, when known
    FrameLayout   layout;
    AlgoParams    params;
    std::string   algoParaText;
    double        srLimitDb     = kDefaultSrLimitDb;
    std::string   srLimitSource; // the property text the limit came from, empty for the default
    std::string   outDir;        // absolute; empty writes nothing
    uint32_t      progressEvery = 30;
    CalibrationConfig calibration; // enabled only with --calibrate
    SummaryTarget     summary;
};

// Fills the scenario's sensor and shake from layout and params, leaving module and noise as set.
void ApplyLayoutAndParams(RunConfig* pConfig);

// Largest number of requests a session may take before the tool gives up on a final state:
// the drop count, enough frames for a verdict with failed frames, and a calibration search.
uint64_t MaxRequests(const AlgoParams& params);

// The same for a configured search: every target the node can try before it stops, each with its
// settle frames and a measurement. With one axis held the search ends only when the persist file
// refuses a target (above the largest gain it accepts), so the searched axis runs up to there.
// baseGain is the smaller base gain of the searched axes.
uint64_t MaxCalibrationRequests(const AlgoParams& params, const CalibrationConfig& calibration, double baseGain);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_RUNCONFIG_H
