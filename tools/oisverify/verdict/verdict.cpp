// The verdict of a run; see verdict.h.
#include "verdict/verdict.h"

#include <math.h>
#include <stdio.h>

namespace oisverify
{

namespace
{

// The node's time limit assumes 45 fps at exactly 60 fps and 25 fps at every other rate.
constexpr uint32_t kFastFrameRateHz   = 60;
constexpr uint32_t kFastAssumedFps    = 45;
constexpr uint32_t kSlowAssumedFps    = 25;
constexpr int      kMinDecimals       = 2;
constexpr int      kMaxDecimals       = 6;

std::string Fixed(double value, int decimals)
{
    if (isinf(value) || isnan(value))
    {
        return DbText(value);
    }
    char text[48];
    snprintf(text, sizeof(text), "%.*f dB", decimals, value);
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
        std::string value, limit;
        FormatAgainstLimit(srDb, limitDb, &value, &limit);
        return std::string(pAxis) + " SR " + value + " is below the limit of " + limit;
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
        if (input.frameRateHz != 0)
        {
            reason += ": " + TimeLimitRule(input.frameRateHz, input.verdictFrames, input.timeLimitMs);
        }
    }
    return reason;
}

// An axis whose node SR passes only because the node refers it to 181.248 px rather than to the
// shake applied: FAIL with the truth; an axis the node fails although the applied shake was
// suppressed enough: a note (the station would fail it too).
void JudgeSuppression(const char* pAxis, float nodeSrDb, float appliedPx, float trueDb, const VerdictInput& input,
                      Verdict* pVerdict)
{
    const bool  nodePass = !isnan(nodeSrDb) && nodeSrDb >= input.limitDb;
    const bool  truePass = !isnan(trueDb) && trueDb >= input.limitDb;
    char        shake[64];
    snprintf(shake, sizeof(shake), "%.2f px", appliedPx);
    std::string value, limit;
    FormatAgainstLimit(trueDb, input.limitDb, &value, &limit);
    const std::string applied = (appliedPx <= 0.0f) ? "the table applied no shake (the node measured noise)"
                                                    : std::string("the table applied ") + shake;
    if (nodePass && !truePass)
    {
        pVerdict->reasons.push_back(std::string(pAxis) + " SR " + DbText(nodeSrDb) + " passes only against the "
                                    "node's fixed 181.248 px reference: " + applied + ", whose suppression is " +
                                    value + ", below the limit of " + limit);
    }
    else if (!nodePass && truePass)
    {
        const double bias = ReferenceBiasDb(appliedPx);
        pVerdict->notes.push_back(std::string(pAxis) + ": the suppression of the applied shake is " + value +
                                  ", at or above the limit, but " + applied + " and the node's SR reads " +
                                  DbText(fabs(bias)) + (bias < 0.0 ? " low" : " high") + " and fails");
    }
}

void JudgeVerified(const VerdictInput& input, Verdict* pVerdict)
{
    for (const std::string& shortfall : { AxisShortfall("horizontal", input.horSrDb, input.limitDb),
                                          AxisShortfall("vertical", input.verSrDb, input.limitDb) })
    {
        if (!shortfall.empty())
        {
            pVerdict->reasons.push_back(shortfall);
        }
    }
    const TrueSuppression& truth = input.suppression;
    if (truth.known)
    {
        JudgeSuppression("horizontal", input.horSrDb, truth.appliedShakePx.horizontal,
                         truth.trueSuppressionDb.horizontal, input, pVerdict);
        JudgeSuppression("vertical", input.verSrDb, truth.appliedShakePx.vertical, truth.trueSuppressionDb.vertical,
                         input, pVerdict);
    }
}

} // namespace

void FormatAgainstLimit(double value, double limit, std::string* pValue, std::string* pLimit)
{
    int decimals = kMinDecimals;
    while (decimals < kMaxDecimals && value != limit && Fixed(value, decimals) == Fixed(limit, decimals))
    {
        decimals++;
    }
    *pValue = Fixed(value, decimals);
    *pLimit = Fixed(limit, decimals);
}

std::string TimeLimitRule(uint32_t frameRateHz, uint32_t verdictFrames, uint32_t timeLimitMs)
{
    const uint32_t assumed = (frameRateHz == kFastFrameRateHz) ? kFastAssumedFps : kSlowAssumedFps;
    // Truncated as the node truncates its measured duration.
    const uint64_t takesMs = (frameRateHz != 0) ? uint64_t(verdictFrames) * 1000u / frameRateHz : 0;
    char           text[400];
    snprintf(text, sizeof(text),
             "the node allows the %u frame periods of a verdict %u ms, so frames must come faster than %u fps (45 fps "
             "at exactly 60 fps, 25 fps at any other rate); at %u fps they take %llu ms",
             verdictFrames, timeLimitMs, assumed, frameRateHz, static_cast<unsigned long long>(takesMs));
    std::string rule = text;
    if (frameRateHz <= assumed)
    {
        rule += ". Way out: a rate above 25 fps (e.g. --fps 30) or 60 fps";
    }
    return rule;
}

std::string StateName(int32_t state)
{
    switch (state)
    {
    case 0: return "idle";
    case 1: return "started";
    case 2: return "preparing";
    case 3: return "verifying";
    case 4: return "done";
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
    case -21:
        return "the persist file refused a gyro gain (a gain outside 0.5 to 2.0, no fuse ID for the module, or the "
               "file could not be written), so the node never asked the OIS service to apply it";
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
        verdict.reasons.push_back("the node ended in state " + std::to_string(input.state) + ", not done");
    }
    else if (!input.hasSr)
    {
        verdict.reasons.push_back("the node finished without publishing SR");
    }
    else
    {
        JudgeVerified(input, &verdict);
    }
    verdict.pass = verdict.reasons.empty();
    if (verdict.pass)
    {
        verdict.headline = "SR at or above the limit of " + Fixed(input.limitDb, kMinDecimals) + " on both axes";
        return verdict;
    }
    for (size_t i = 0; i < verdict.reasons.size(); i++)
    {
        verdict.headline += (i == 0 ? "" : "; ") + verdict.reasons[i];
    }
    return verdict;
}

} // namespace oisverify
