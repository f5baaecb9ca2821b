// Test parameters in the node's terms and the scenario that matches them; see runconfig.h.
#include "session/runconfig.h"

#include <errno.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <vector>

namespace oisverify
{

const char* const kAlgoParaProperty      = "vendor.debug.camera.oisAlgoPara";
const char* const kGainCalibrateProperty = "vendor.debug.camera.oisGainCalibrate";
const char* const kDefaultAlgoParaText   = "1:0:0:120:4:60";

namespace
{

constexpr uint32_t kFrequencyZeroVerdictFrames = 60;
constexpr uint32_t kFastFrameRateHz            = 60;
constexpr double   kFastRateDivisor            = 45.0;
constexpr double   kSlowRateDivisor            = 25.0;
constexpr uint32_t kMaxParameterValue          = 1000000;
// Frames a measurement may fail before the node gives up, and slack for the request that
// publishes the final state.
constexpr uint64_t kSkippedFrameAllowance = 8;
// A calibration search tries up to ten gain targets, each settling and measuring again.
constexpr uint64_t kCalibrationRounds = 12;
constexpr uint64_t kCalibrationSettleFrames = 16;
// The persist file takes normalised gains up to 2.0; a search with one axis held runs up to there.
constexpr double   kLargestAcceptedGain = 2.0;
constexpr double   kSmallestBaseGain    = 0.01;
// Targets beyond the computed count: the node compares in single precision, which may add one,
// plus the target that ends the search without being measured.
constexpr uint64_t kSpareTargets = 3;

// The node's split: a field ends at each ':', empty fields between colons are kept, a trailing
// part after the last colon counts only when it is not empty.
std::vector<std::string> SplitFields(const std::string& text)
{
    std::vector<std::string> fields;
    std::string              current;
    for (char c : text)
    {
        if (c == ':')
        {
            fields.push_back(current);
            current.clear();
        }
        else
        {
            current.push_back(c);
        }
    }
    if (!current.empty())
    {
        fields.push_back(current);
    }
    return fields;
}

bool ParseField(const std::vector<std::string>& fields, size_t index, const char* pMeaning, uint32_t* pValue,
                std::string* pError)
{
    // Field k counts only when the text has more than k fields; otherwise the default stays.
    if (fields.size() <= index)
    {
        return true;
    }
    const std::string& text  = fields[index];
    char*              pEnd  = nullptr;
    unsigned long      value = strtoul(text.c_str(), &pEnd, 10);
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos || *pEnd != '\0' ||
        value > kMaxParameterValue)
    {
        *pError = std::string(kAlgoParaProperty) + " field " + std::to_string(index) + " (" + pMeaning + ") is '" +
                  text + "'; the node reads a whole number from 0 to " + std::to_string(kMaxParameterValue) + " there";
        return false;
    }
    *pValue = static_cast<uint32_t>(value);
    return true;
}

} // namespace

void DeriveVerdictFrames(AlgoParams* pParams)
{
    pParams->verdictFrames = kFrequencyZeroVerdictFrames;
    if (pParams->shakeFreqHz != 0)
    {
        const double frames =
            (2.0f * static_cast<float>(pParams->frameRateHz)) / static_cast<float>(pParams->shakeFreqHz) + 1.0;
        pParams->verdictFrames = static_cast<uint32_t>(frames);
    }
    const double divisor = (pParams->frameRateHz == kFastFrameRateHz) ? kFastRateDivisor : kSlowRateDivisor;
    pParams->timeLimitMs = static_cast<uint32_t>(static_cast<float>(pParams->verdictFrames * 1000u) / divisor);
}

std::string ComposeAlgoPara(const AlgoParams& params)
{
    char text[96];
    snprintf(text, sizeof(text), "1:%u:%u:%u:%u:%u", params.debugMode, params.dumpImages, params.dropFrames,
             params.shakeFreqHz, params.frameRateHz);
    return text;
}

bool ParseAlgoPara(const std::string& text, AlgoParams* pParams, std::string* pError)
{
    // Unset (or empty, which is unset on a device) means the node's default text.
    const std::vector<std::string> fields = SplitFields(text.empty() ? kDefaultAlgoParaText : text);
    AlgoParams                     parsed;
    parsed.debugMode   = 0;
    parsed.dumpImages  = 0;
    parsed.dropFrames  = 0;
    parsed.shakeFreqHz = 4;
    parsed.frameRateHz = 60;
    // The node never reads field 0; a text that is nothing else is no parameters at all ("garbage"
    // would run with every field defaulted, dropping no frames).
    if (fields.size() < 2)
    {
        *pError = std::string(kAlgoParaProperty) + " is '" + text + "', not the node's colon-separated fields (e.g. " +
                  kDefaultAlgoParaText + "): the node skips field 0 and would run with every other field defaulted";
        return false;
    }
    if (!ParseField(fields, 1, "debug mode", &parsed.debugMode, pError) ||
        !ParseField(fields, 2, "dump images", &parsed.dumpImages, pError) ||
        !ParseField(fields, 3, "dropped frames", &parsed.dropFrames, pError) ||
        !ParseField(fields, 4, "shake frequency", &parsed.shakeFreqHz, pError) ||
        !ParseField(fields, 5, "frame rate", &parsed.frameRateHz, pError))
    {
        return false;
    }
    if (parsed.frameRateHz == 0)
    {
        *pError = std::string(kAlgoParaProperty) + " sets a frame rate of 0";
        return false;
    }
    DeriveVerdictFrames(&parsed);
    *pParams = parsed;
    return true;
}

bool ParseSrLimit(const std::string& text, double* pLimitDb, std::string* pError)
{
    if (text.empty())
    {
        *pLimitDb = kDefaultSrLimitDb;
        return true;
    }
    const std::vector<std::string> fields = SplitFields(text);
    if (fields.size() < 3)
    {
        *pLimitDb = 0.0;
        return true;
    }
    const std::string& field = fields[2];
    char*              pEnd  = nullptr;
    errno                    = 0;
    double value             = strtod(field.c_str(), &pEnd);
    if (field.empty() || *pEnd != '\0' || errno != 0 || !isfinite(value))
    {
        *pError = std::string(kGainCalibrateProperty) + " field 2 (SR limit) is '" + field + "', not a number";
        return false;
    }
    // The node keeps the limit as a float.
    *pLimitDb = static_cast<float>(value);
    return true;
}

std::string EffectiveProperty(const chihost::NameValueList& properties, const std::string& name)
{
    std::string value;
    for (const auto& entry : properties)
    {
        if (entry.first == name)
        {
            value = entry.second;
        }
    }
    return value;
}

bool HasEntry(const chihost::NameValueList& list, const std::string& name)
{
    for (const auto& entry : list)
    {
        if (entry.first == name)
        {
            return true;
        }
    }
    return false;
}

void ApplyLayoutAndParams(RunConfig* pConfig)
{
    sim::SensorConfig& sensor = pConfig->scenario.sensor;
    sensor.widthPx            = static_cast<int>(pConfig->layout.width);
    sensor.heightPx           = static_cast<int>(pConfig->layout.height);
    sensor.strideBytes        = static_cast<int>(pConfig->layout.stride);
    sensor.scanlineRows       = static_cast<int>(pConfig->layout.scanline);
    sensor.frameRateHz        = static_cast<double>(pConfig->params.frameRateHz);
    pConfig->scenario.shake.frequencyHz = static_cast<double>(pConfig->params.shakeFreqHz);
}

uint64_t MaxRequests(const AlgoParams& params)
{
    const uint64_t measurement = params.verdictFrames + 1 + kSkippedFrameAllowance;
    return params.dropFrames + measurement + kCalibrationRounds * (measurement + kCalibrationSettleFrames);
}

uint64_t MaxCalibrationRequests(const AlgoParams& params, const CalibrationConfig& calibration, double baseGain)
{
    const double lowest = 1.0 - calibration.limitFraction;
    double       upper  = 1.0 + calibration.limitFraction; // both relative to the base gain
    if (calibration.singleAxis == 1 || calibration.singleAxis == 2)
    {
        upper = std::max(upper, kLargestAcceptedGain / std::max(baseGain, kSmallestBaseGain));
    }
    const uint64_t targets     = static_cast<uint64_t>((upper - lowest) / calibration.stepFraction) + kSpareTargets;
    const uint64_t measurement = params.verdictFrames + 1 + kSkippedFrameAllowance;
    // Each target takes the request that sets it, its settle frames and a measurement.
    return params.dropFrames + measurement + targets * (1 + calibration.settleFrames + measurement);
}

} // namespace oisverify
