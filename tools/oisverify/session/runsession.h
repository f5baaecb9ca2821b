// One verification session of "oisverify run": a device root with the configured properties, the
// node created from them, frames streamed from the simulator, the node's debug images or a
// recorded folder until the node reaches a final state, then the node's files collected into the
// output folder and every measured frame paired with the simulator's truth. The SR the node
// should have found is computed from the truth of exactly the frames in its ring at the verdict.
// A calibration session closes the loop: the calibration service runs beside the node and the
// simulated module takes every gain pair the service accepts, from the next frame on.
// With the truth known the session also gives the suppression of the shake actually applied, and
// a run with a reference first measures an OIS-off session through the node (see suppression.h).
#ifndef ZELK_TOOLS_OISVERIFY_RUNSESSION_H
#define ZELK_TOOLS_OISVERIFY_RUNSESSION_H

#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

#include "chihost/emulator/status.h"
#include "closedloopmodule.h"
#include "session/nodeevents.h"
#include "oiscalibrationfile.h"
#include "session/runconfig.h"
#include "sim/simulator.h"
#include "verdict/suppression.h"

namespace oisverify
{

// A measured frame with the truth of the frame the node measured.
struct RunFrame
{
    MeasuredFrame    measured;
    bool             hasTruth = false;
    sim::FourCentres truth;
    // One of the frames the final SR was taken over: the node's ring at its verdict, or after a
    // gain search the measurements of the gains it selected.
    bool             inRing   = false;
};

// What the progress line shows after each request.
struct ProgressInfo
{
    uint64_t frameNum   = 0;
    int32_t  state      = 0;
    uint32_t dropFrames = 0;
    uint32_t measured   = 0;
    uint32_t needed     = 0; // measured frames the verdict needs
    uint32_t failed     = 0;
    bool     hasSr      = false;
    float    horSrDb    = 0.0f;
    float    verSrDb    = 0.0f;
    uint32_t targets    = 0; // gain targets set so far by a calibration search
    float    targetGainX = 0.0f;
    float    targetGainY = 0.0f;
    uint32_t measuredPairs = 0; // once a calibration search is over: the gain pairs it measured
    // During a search: the last target measured (from 0, -1 before the first) and its SR per image
    // axis, shown apart from the target being settled or measured.
    int32_t  measuredTarget   = -1;
    float    measuredHorSrDb  = 0.0f;
    float    measuredVerSrDb  = 0.0f;
};

// Called after every request; `last` is true once, for the request that ended the session.
using ProgressSink = std::function<void(const ProgressInfo& info, bool last)>;

// What a calibration run leaves besides the node's log: the node's calibration log, the persist
// file as the session ended, and what the calibration service did with it.
struct CalibrationArtifacts
{
    std::string                         calibLogText;
    bool                                persistRead = false; // false: the node never wrote the file
    std::vector<OISPersistLine>         persistLines;
    bool                                hasPersistFile = false; // the file existed as the session ended
    std::string                         persistBytes;           // its bytes, copied into the output folder
    std::vector<simsource::AppliedGain> applied; // gains the module took, in order
    uint64_t                            reloads = 0;
    // The simulator's SR per image axis over one measurement on the gains the module took last
    // (after a search: the selected ones), for a check of what the node reported for them.
    bool         hasFinalTruth = false;
    sim::BlurSr  finalTruth;
};

// Where the streaming time of a session went, in CPU seconds of the streaming thread (on a shared
// machine wall time mostly measures the others): frames from their source (rendering), the node's
// process-request callback, and the rest of the request loop.
struct SessionTiming
{
    double sourceS = 0.0;
    double nodeS   = 0.0;
    double streamS = 0.0; // the whole loop, both of the above included
};

struct RunResult
{
    std::string            nodeLibraryPath;
    std::string            rootPath;
    bool                   rootKept   = false;
    uint64_t               requests   = 0;
    bool                   finished   = false; // a final state was reached
    int32_t                finalState = 0;     // the last state published
    float                  horSrDb    = 0.0f;  // as published with the last request
    float                  verSrDb    = 0.0f;
    NodeEvents             events;
    std::vector<RunFrame>  frames;
    bool                   hasTruth = false; // the truth SR below is known
    sim::BlurSr            truth;
    TrueSuppression        suppression; // of the shake applied, over the same frames as the truth
    ReferenceResult        reference;   // the OIS-off session run first with a reference
    std::string            stopReason; // why streaming stopped before a final state
    int                    stopSignal = 0; // the signal that ended streaming early (stoprequest.h), or 0
    std::string            logText;    // the node's log
    std::vector<std::string> nodeFiles; // what the node wrote, copied into the output folder
    CalibrationArtifacts     calibration;
    SessionTiming            timing;
};

// Runs the session, after an OIS-off reference session when the configuration asks for one. A
// failure to set up either (root, node library, node creation, frame folder,
// output folder) is an error status; anything the node does once streaming is in the result.
chihost::Status RunVerification(const RunConfig& config, const ProgressSink& progress, RunResult* pResult);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_RUNSESSION_H
