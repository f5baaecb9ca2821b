// The run summary's JSON document, built and read with cJSON; see runsummary.h. A value the run
// does not have is null (the parser also takes it absent); unknown fields are ignored, so a
// reader keeps working when fields are added. Texts that are not valid UTF-8 are written with
// their bytes escaped (\xNN), so the document is always valid JSON.
#include <cjson/cJSON.h>
#include <math.h>

#include <memory>

#include "report/persistrecords.h"
#include "report/runsummary.h"

namespace oisverify
{

namespace
{

// Seeds above this are written as decimal text: a JSON reader holds numbers as doubles.
constexpr double kMaxExactInteger = 9007199254740992.0;

using JsonPtr = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

// The length of the UTF-8 sequence at text[at], 0 when it is not a valid one.
size_t Utf8Length(const std::string& text, size_t at)
{
    const unsigned char lead = static_cast<unsigned char>(text[at]);
    const size_t        length = (lead < 0x80) ? 1 : (lead >= 0xC2 && lead < 0xE0) ? 2 : (lead >= 0xE0 && lead < 0xF0) ? 3
                                 : (lead >= 0xF0 && lead < 0xF5)                       ? 4
                                                                                       : 0;
    if (length == 0 || at + length > text.size())
    {
        return 0;
    }
    for (size_t i = 1; i < length; i++)
    {
        if ((static_cast<unsigned char>(text[at + i]) & 0xC0) != 0x80)
        {
            return 0;
        }
    }
    return length;
}

std::string JsonText(const std::string& text)
{
    for (size_t at = 0; at < text.size();)
    {
        const size_t length = Utf8Length(text, at);
        if (length == 0)
        {
            return ShownField(text);
        }
        at += length;
    }
    return text;
}

void AddText(cJSON* pObject, const char* pName, const std::string& text)
{
    cJSON_AddStringToObject(pObject, pName, JsonText(text).c_str());
}

void AddOptional(cJSON* pObject, const char* pName, const std::optional<double>& value)
{
    if (value && isfinite(*value))
    {
        cJSON_AddNumberToObject(pObject, pName, *value);
        return;
    }
    cJSON_AddNullToObject(pObject, pName);
}

void AddTexts(cJSON* pObject, const char* pName, const std::vector<std::string>& texts)
{
    cJSON* pArray = cJSON_AddArrayToObject(pObject, pName);
    for (const std::string& text : texts)
    {
        cJSON_AddItemToArray(pArray, cJSON_CreateString(JsonText(text).c_str()));
    }
}

void AddNamedTexts(cJSON* pObject, const char* pName, const NamedTexts& entries)
{
    cJSON* pEntries = cJSON_AddObjectToObject(pObject, pName);
    for (const auto& entry : entries)
    {
        AddText(pEntries, JsonText(entry.first).c_str(), entry.second);
    }
}

void AddAxis(cJSON* pObject, const char* pName, const AxisSummary& axis)
{
    cJSON* pAxis = cJSON_AddObjectToObject(pObject, pName);
    AddOptional(pAxis, "nodeSrDb", axis.nodeSrDb);
    AddOptional(pAxis, "trueSrDb", axis.trueSrDb);
    AddOptional(pAxis, "nodeBlurPx", axis.nodeBlurPx);
    AddOptional(pAxis, "trueBlurPx", axis.trueBlurPx);
}

void AddSimulation(cJSON* pParameters, const std::optional<SimulationSummary>& simulation)
{
    if (!simulation)
    {
        cJSON_AddNullToObject(pParameters, "simulation");
        return;
    }
    cJSON* pSim = cJSON_AddObjectToObject(pParameters, "simulation");
    cJSON_AddBoolToObject(pSim, "oisOn", simulation->oisOn);
    cJSON_AddNumberToObject(pSim, "gainX", simulation->gainX);
    cJSON_AddNumberToObject(pSim, "gainY", simulation->gainY);
    cJSON_AddNumberToObject(pSim, "idealGainX", simulation->idealGainX);
    cJSON_AddNumberToObject(pSim, "idealGainY", simulation->idealGainY);
    cJSON_AddNumberToObject(pSim, "amplitudeXPx", simulation->amplitudeXPx);
    cJSON_AddNumberToObject(pSim, "amplitudeYPx", simulation->amplitudeYPx);
    cJSON_AddNumberToObject(pSim, "noiseDn", simulation->noiseDn);
    if (static_cast<double>(simulation->seed) < kMaxExactInteger)
    {
        cJSON_AddNumberToObject(pSim, "seed", static_cast<double>(simulation->seed));
    }
    else
    {
        cJSON_AddStringToObject(pSim, "seed", std::to_string(simulation->seed).c_str());
    }
    cJSON_AddBoolToObject(pSim, "swapAxes", simulation->swapAxes);
}

void AddParameters(cJSON* pRoot, const SummaryParameters& p)
{
    cJSON* pParameters = cJSON_AddObjectToObject(pRoot, "parameters");
    AddText(pParameters, "source", p.source);
    AddNamedTexts(pParameters, "properties", p.properties);
    AddNamedTexts(pParameters, "settings", p.settings);
    cJSON* pEeprom = cJSON_AddObjectToObject(pParameters, "eeprom");
    for (const auto& entry : p.eeprom)
    {
        cJSON_AddNumberToObject(pEeprom, JsonText(entry.first).c_str(), entry.second);
    }
    const std::pair<const char*, uint32_t> numbers[] = {
        { "frameRateHz", p.frameRateHz }, { "shakeFreqHz", p.shakeFreqHz }, { "dropFrames", p.dropFrames },
        { "ringSize", p.ringSize },       { "timeLimitMs", p.timeLimitMs }, { "debugMode", p.debugMode },
        { "dumpImages", p.dumpImages },   { "width", p.width },             { "height", p.height },
        { "stride", p.stride },           { "scanline", p.scanline },
    };
    for (const auto& number : numbers)
    {
        cJSON_AddNumberToObject(pParameters, number.first, number.second);
    }
    AddSimulation(pParameters, p.simulation);
    if (!p.search)
    {
        cJSON_AddNullToObject(pParameters, "search");
        return;
    }
    cJSON* pSearch = cJSON_AddObjectToObject(pParameters, "search");
    cJSON_AddNumberToObject(pSearch, "singleAxis", p.search->singleAxis);
    cJSON_AddNumberToObject(pSearch, "stepFraction", p.search->stepFraction);
    cJSON_AddNumberToObject(pSearch, "limitFraction", p.search->limitFraction);
    cJSON_AddNumberToObject(pSearch, "settleFrames", p.search->settleFrames);
    AddText(pSearch, "fuseId", p.search->fuseId);
}

void AddPersist(cJSON* pCalibration, const std::optional<PersistSummary>& persist)
{
    if (!persist)
    {
        cJSON_AddNullToObject(pCalibration, "persist");
        return;
    }
    cJSON* pPersist = cJSON_AddObjectToObject(pCalibration, "persist");
    cJSON_AddNumberToObject(pPersist, "line", persist->line);
    AddText(pPersist, "fuseId", persist->fuseId);
    AddText(pPersist, "calibFlag", persist->calibFlag);
    AddText(pPersist, "gainX", persist->gainX);
    AddText(pPersist, "gainY", persist->gainY);
    cJSON_AddNumberToObject(pPersist, "crcStored", persist->crcStored);
    cJSON_AddNumberToObject(pPersist, "crcComputed", persist->crcComputed);
    cJSON_AddBoolToObject(pPersist, "crcOk", persist->crcStored == persist->crcComputed);
}

void AddCalibration(cJSON* pRoot, const std::optional<CalibrationSummary>& calibration)
{
    if (!calibration)
    {
        cJSON_AddNullToObject(pRoot, "calibration");
        return;
    }
    const CalibrationSummary& c   = *calibration;
    cJSON*                    pCal = cJSON_AddObjectToObject(pRoot, "calibration");
    cJSON_AddBoolToObject(pCal, "basePass", c.basePass);
    cJSON_AddBoolToObject(pCal, "searched", c.searched);
    cJSON_AddNumberToObject(pCal, "pairsMeasured", c.pairsMeasured);
    const std::pair<const char*, const std::optional<double>*> values[] = {
        { "selectedGainX", &c.selectedGainX }, { "selectedGainY", &c.selectedGainY },
        { "selectedSrXDb", &c.selectedSrXDb }, { "selectedSrYDb", &c.selectedSrYDb },
        { "trueSrXDb", &c.trueSrXDb },         { "trueSrYDb", &c.trueSrYDb },
        { "idealGainX", &c.idealGainX },       { "idealGainY", &c.idealGainY },
        { "nearestGainX", &c.nearestGainX },   { "nearestGainY", &c.nearestGainY },
    };
    for (const auto& value : values)
    {
        AddOptional(pCal, value.first, *value.second);
    }
    AddPersist(pCal, c.persist);
}

} // namespace

std::string RunSummaryJson(const RunSummary& s, bool compact)
{
    JsonPtr root(cJSON_CreateObject(), cJSON_Delete);
    cJSON*  pRoot = root.get();
    cJSON_AddNumberToObject(pRoot, "format", s.format);
    cJSON_AddStringToObject(pRoot, "tool", "oisverify");
    AddText(pRoot, "toolVersion", s.toolVersion);
    AddText(pRoot, "timeUtc", s.timeUtc);
    AddText(pRoot, "moduleId", s.moduleId);
    AddText(pRoot, "station", s.station);
    AddText(pRoot, "mode", s.mode);
    AddText(pRoot, "verdict", s.verdict);
    AddText(pRoot, "reason", s.reason);
    AddTexts(pRoot, "reasons", s.reasons);
    cJSON_AddNumberToObject(pRoot, "limitDb", s.limitDb);
    AddText(pRoot, "limitSource", s.limitSource);
    AddAxis(pRoot, "horizontal", s.horizontal);
    AddAxis(pRoot, "vertical", s.vertical);
    cJSON_AddBoolToObject(pRoot, "finished", s.finished);
    cJSON_AddNumberToObject(pRoot, "nodeState", s.nodeState);
    AddText(pRoot, "nodeStateName", s.nodeStateName);
    AddOptional(pRoot, "measurementMs",
                s.measurementMs ? std::optional<double>(*s.measurementMs) : std::optional<double>());
    cJSON* pFrames = cJSON_AddObjectToObject(pRoot, "frames");
    cJSON_AddNumberToObject(pFrames, "measured", static_cast<double>(s.frames.measured));
    cJSON_AddNumberToObject(pFrames, "failed", static_cast<double>(s.frames.failed));
    cJSON_AddNumberToObject(pFrames, "dropped", static_cast<double>(s.frames.dropped));
    cJSON_AddNumberToObject(pFrames, "total", static_cast<double>(s.frames.total));
    AddParameters(pRoot, s.parameters);
    AddCalibration(pRoot, s.calibration);
    cJSON* pNode = cJSON_AddObjectToObject(pRoot, "node");
    AddText(pNode, "library", s.nodeLibrary);
    AddText(pNode, "buildId", s.nodeBuildId);
    AddTexts(pNode, "errors", s.nodeErrors);

    char* pText = compact ? cJSON_PrintUnformatted(pRoot) : cJSON_Print(pRoot);
    if (pText == nullptr)
    {
        return "";
    }
    std::string text = pText;
    cJSON_free(pText);
    return text;
}

} // namespace oisverify
