// The verdict of a run. In verification mode the node reports SR but does not judge it, so the
// tool does: a run passes when the node finished verifying (state 4) and both axes' SR reach the
// limit; otherwise it fails with every reason, in words a test engineer can act on.
#ifndef ZELK_TOOLS_OISVERIFY_VERDICT_H
#define ZELK_TOOLS_OISVERIFY_VERDICT_H

#include <stdint.h>

#include <string>
#include <vector>

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
    std::string stopReason; // why streaming ended before a final state, when it did
};

struct Verdict
{
    bool                     pass = false;
    std::string              headline; // one line after PASS or FAIL
    std::vector<std::string> reasons;  // every reason for a FAIL
};

Verdict DecideVerdict(const VerdictInput& input);

// Short name of a state for the progress line ("verifying", "verified", "error -12", ...).
std::string StateName(int32_t state);
// What an error state means; empty for states that are not errors.
std::string ErrorMeaning(int32_t state);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_VERDICT_H
