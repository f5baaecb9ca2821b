// What the node tells about a session besides its metadata: its log lines (measured and failed
// frames, the SR it calculated, the duration of the measurement, its errors) and the
// point-position file with the circle centres of every measured frame. A calibration search adds
// a verdict per gain target, the targets themselves and the gains it selected. The log is drained
// after each request, so counting stays linear in the session's length.
#ifndef ZELK_TOOLS_OISVERIFY_NODEEVENTS_H
#define ZELK_TOOLS_OISVERIFY_NODEEVENTS_H

#include <stdint.h>

#include <string>
#include <vector>

#include "chihost/emulator/logcapture.h"
#include "sim/chart.h"

namespace oisverify
{

// SR and blur of one completed measurement, as the node logs it at the verdict.
struct MeasuredSr
{
    float horSrDb   = 0.0f;
    float verSrDb   = 0.0f;
    float horBlurPx = 0.0f;
    float verBlurPx = 0.0f;
};

// The gains a calibration search chose per gyro axis and the SR each gave, as the node logs them.
struct GainSelection
{
    int32_t records = 0; // measured targets the choice was made from
    float   gainX   = 0.0f;
    float   gainY   = 0.0f;
    float   srXDb   = 0.0f;
    float   srYDb   = 0.0f;
};

struct NodeEvents
{
    uint32_t                 measured       = 0; // algorithm runs that found the four circles
    uint32_t                 failed         = 0; // runs that did not (the node's skipped frames)
    int32_t                  lastAlgoReturn = 0; // code of the last failed run
    bool                     hasSr          = false;
    float                    horSrDb        = 0.0f;
    float                    verSrDb        = 0.0f;
    float                    horBlurPx      = 0.0f; // as logged: two decimals
    float                    verBlurPx      = 0.0f;
    int32_t                  durationMs     = -1; // first to last measured frame, at the verdict
    std::vector<std::string> errors;              // the node's error lines, in order
    std::vector<MeasuredSr>  verdicts; // every completed measurement, the first one included
    uint32_t                 targets              = 0;    // gain targets the calibration search set
    float                    targetGainX          = 0.0f; // the latest of them
    float                    targetGainY          = 0.0f;
    uint32_t                 measuredBeforeTarget = 0;    // `measured` when the latest target was set
    bool                     hasSelection         = false;
    GainSelection            selection;
};

// Reads one CHI log message into the events; lines that carry no event change nothing.
void NoteLogLine(char level, const std::string& message, NodeEvents* pEvents);

// Captures the node's log for a whole session (construct before the node library is loaded).
class NodeLogTap
{
public:
    explicit NodeLogTap(bool echo) : m_capture(echo) {}

    // Takes the lines logged since the last call.
    void                   Drain();
    const NodeEvents&      Events() const { return m_events; }
    // The node's CHI log, one "L function: message" line each.
    const std::string&     Text() const { return m_text; }

private:
    chihost::LogCapture m_capture;
    NodeEvents          m_events;
    std::string         m_text;
};

// One line of the point-position file.
struct MeasuredFrame
{
    uint32_t         frameNum   = 0;
    uint32_t         ringSlot   = 0;
    int32_t          algoReturn = 0;
    sim::FourCentres centres;
};

// Parses the point-position file's text; lines that do not match are skipped.
std::vector<MeasuredFrame> ParsePointPositions(const std::string& text);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_NODEEVENTS_H
