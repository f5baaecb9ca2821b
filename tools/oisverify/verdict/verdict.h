// The verdict of a run. In verification mode the node reports SR but does not judge it, so the
// tool does: a run passes when the node finished verifying (state 4) and both axes' SR reach the
// limit, and, when the simulator's truth is known, the suppression of the shake actually applied
// reaches it too (the node's SR refers to a fixed 181.248 px shake, so a stalled table would pass
// otherwise). Otherwise it fails with every reason, in words a test engineer can act on; notes
// explain what the node's rules did to a result without changing it.
#ifndef ZELK_TOOLS_OISVERIFY_VERDICT_H
#define ZELK_TOOLS_OISVERIFY_VERDICT_H

#include <stdint.h>

#include <string>
#include <vector>

#include "verdict/suppression.h"

namespace oisverify
{

constexpr int32_t kVerifiedState = 4;

struct VerdictInput
{
    bool        finished = false; // the node reached a final state (4 or an error)
    int32_t     state    = 0;     // the last state the node published
    uint64_t    requests = 0;     // frames streamed
    bool        hasSr    = false;
    float       horSrDb  = 0.0f;
    float       verSrDb  = 0.0f;
    double      limitDb  = 18.0;
    uint32_t    failedFrames   = 0;
    int32_t     lastAlgoReturn = 0;
    int32_t     durationMs     = -1;
    uint32_t    timeLimitMs    = 0;
    uint32_t    frameRateHz    = 0; // the node's configured rate, for the time limit's rule
    uint32_t    verdictFrames  = 0; // the node's ring size
    std::string stopReason; // why streaming ended before a final state, when it did
    TrueSuppression suppression; // known with the simulator's truth
};

struct Verdict
{
    bool                     pass = false;
    std::string              headline; // one line after PASS or FAIL
    std::vector<std::string> reasons;  // every reason for a FAIL
    std::vector<std::string> notes;    // what the node's rules did to the result, PASS or FAIL
};

Verdict DecideVerdict(const VerdictInput& input);

// Short name of a state for the progress line ("verifying", "verified", "error -12", ...).
std::string StateName(int32_t state);
// What an error state means; empty for states that are not errors.
std::string ErrorMeaning(int32_t state);

// "SR 17.996 dB is below the limit of 18.000 dB": a value and a limit with as many decimals (2 to
// 6) as it takes to tell them apart, so that a comparison is visible in the text.
void FormatAgainstLimit(double value, double limit, std::string* pValue, std::string* pLimit);

// The node's time limit in words: at 60 fps the frames must come faster than 45 fps, at any other
// rate faster than 25 fps; with the configured rate, the frames and the way out when it cannot.
std::string TimeLimitRule(uint32_t frameRateHz, uint32_t verdictFrames, uint32_t timeLimitMs);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_VERDICT_H
