// The verdict of a run; see verdict.h.
#include "verdict/verdict.h"

#include <math.h>
#include <stdio.h>

namespace oisverify
{

namespace
{

std::string Db(double value)
{
    char text[32];
    snprintf(text, sizeof(text), "%.2f dB", value);
    return text;
}

// One axis against the limit; empty when it passes. NaN never passes.
std::string AxisShortfall(const char* pAxis, float srDb, double limitDb)
{
    if (isnan(srDb))
    {
        return std::string(pAxis) + " SR is not a number";
    }
    if (srDb < limitDb)
    {
        return std::string(pAxis) + " SR " + Db(srDb) + " is below the limit of " + Db(limitDb);
    }
    return "";
}

std::string ErrorReason(const VerdictInput& input)
{
    std::string reason = "the node ended in error " + std::to_string(input.state) + ": " + ErrorMeaning(input.state);
    if (input.state == -12)
    {
        reason += " (" + std::to_string(input.failedFrames) + " frames without the four circles, last algorithm " +
                  "return " + std::to_string(input.lastAlgoReturn) + ")";
    }
    else if (input.state == -13 && input.durationMs >= 0)
    {
        reason += " (" + std::to_string(input.durationMs) + " ms against a limit of " +
                  std::to_string(input.timeLimitMs) + " ms)";
    }
    return reason;
}

} // namespace

std::string StateName(int32_t state)
{
    switch (state)
    {
    case 0: return "idle";
    case 1: return "started";
    case 2: return "preparing";
    case 3: return "verifying";
    case 4: return "verified";
    case 20: return "calibration start";
    case 21: return "setting gain";
    case 22: return "applying gain";
    case 23: return "verifying gain";
    case 24: return "search complete";
    default: break;
    }
    return (state < 0) ? "error " + std::to_string(state) : "state " + std::to_string(state);
}

std::string ErrorMeaning(int32_t state)
{
    switch (state)
    {
    case -1: return "aborted";
    case -11: return "wrong image format (the node measures NV12 only)";
    case -12: return "too many frames without the chart";
    case -13: return "measurement over the time limit";
    case -20: return "calibration could not start: the SR limit is not above 0.1 dB";
    case -21: return "the OIS service did not apply a gyro gain";
    default: break;
    }
    return (state < 0) ? "unknown error" : "";
}

Verdict DecideVerdict(const VerdictInput& input)
{
    Verdict verdict;
    if (!input.finished)
    {
        verdict.reasons.push_back(!input.stopReason.empty()
                                      ? input.stopReason
                                      : "the node did not finish: still " + StateName(input.state) + " after " +
                                            std::to_string(input.requests) + " frames");
    }
    else if (input.state < 0)
    {
        verdict.reasons.push_back(ErrorReason(input));
    }
    else if (input.state != kVerifiedState)
    {
        verdict.reasons.push_back("the node ended in state " + std::to_string(input.state) + ", not verified");
    }
    else if (!input.hasSr)
    {
        verdict.reasons.push_back("the node finished without publishing SR");
    }
    else
    {
        for (const std::string& shortfall : { AxisShortfall("horizontal", input.horSrDb, input.limitDb),
                                              AxisShortfall("vertical", input.verSrDb, input.limitDb) })
        {
            if (!shortfall.empty())
            {
                verdict.reasons.push_back(shortfall);
            }
        }
    }
    verdict.pass = verdict.reasons.empty();
    if (verdict.pass)
    {
        verdict.headline = "SR at or above the limit of " + Db(input.limitDb) + " on both axes";
        return verdict;
    }
    for (size_t i = 0; i < verdict.reasons.size(); i++)
    {
        verdict.headline += (i == 0 ? "" : "; ") + verdict.reasons[i];
    }
    return verdict;
}

} // namespace oisverify
