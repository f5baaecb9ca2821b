// A run summary read back from its JSON document; see runsummary.h. Every field the writer always
// writes is required; values that may be null are taken absent as null too, and fields this
// reader does not know are ignored. A field of the wrong type rejects the document, naming it.
#include <cjson/cJSON.h>
#include <math.h>

#include <memory>

#include "report/runsummary.h"

namespace oisverify
{

namespace
{

using JsonPtr = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

// Reads the fields of one JSON object; the first failure is kept with the field's path.
class FieldReader
{
public:
    FieldReader(const cJSON* pObject, std::string path, std::string* pError)
        : m_pObject(pObject), m_path(std::move(path)), m_pError(pError)
    {
    }

    bool Fail(const char* pName, const char* pWhat)
    {
        if (m_pError->empty())
        {
            *m_pError = "field '" + m_path + pName + "' " + pWhat;
        }
        return false;
    }

    const cJSON* Item(const char* pName) const { return cJSON_GetObjectItemCaseSensitive(m_pObject, pName); }

    bool Text(const char* pName, std::string* pValue)
    {
        const cJSON* pItem = Item(pName);
        if (!cJSON_IsString(pItem))
        {
            return Fail(pName, pItem == nullptr ? "is missing" : "is not a text");
        }
        *pValue = pItem->valuestring;
        return true;
    }

    bool Number(const char* pName, double* pValue)
    {
        const cJSON* pItem = Item(pName);
        if (!cJSON_IsNumber(pItem))
        {
            return Fail(pName, pItem == nullptr ? "is missing" : "is not a number");
        }
        *pValue = pItem->valuedouble;
        return true;
    }

    // A whole number in [min, max].
    template <typename T>
    bool Whole(const char* pName, double min, double max, T* pValue)
    {
        double value = 0.0;
        if (!Number(pName, &value))
        {
            return false;
        }
        if (value != floor(value) || value < min || value > max)
        {
            return Fail(pName, "is not a whole number in range");
        }
        *pValue = static_cast<T>(value);
        return true;
    }

    bool Count(const char* pName, uint32_t* pValue) { return Whole(pName, 0.0, 4294967295.0, pValue); }

    bool Bool(const char* pName, bool* pValue)
    {
        const cJSON* pItem = Item(pName);
        if (!cJSON_IsBool(pItem))
        {
            return Fail(pName, pItem == nullptr ? "is missing" : "is not true or false");
        }
        *pValue = cJSON_IsTrue(pItem);
        return true;
    }

    bool Optional(const char* pName, std::optional<double>* pValue)
    {
        const cJSON* pItem = Item(pName);
        pValue->reset();
        if (pItem == nullptr || cJSON_IsNull(pItem))
        {
            return true;
        }
        if (!cJSON_IsNumber(pItem))
        {
            return Fail(pName, "is not a number or null");
        }
        *pValue = pItem->valuedouble;
        return true;
    }

    bool Texts(const char* pName, std::vector<std::string>* pTexts)
    {
        const cJSON* pItem = Item(pName);
        if (!cJSON_IsArray(pItem))
        {
            return Fail(pName, pItem == nullptr ? "is missing" : "is not a list");
        }
        pTexts->clear();
        for (const cJSON* pEntry = pItem->child; pEntry != nullptr; pEntry = pEntry->next)
        {
            if (!cJSON_IsString(pEntry))
            {
                return Fail(pName, "holds something other than texts");
            }
            pTexts->push_back(pEntry->valuestring);
        }
        return true;
    }

    bool Named(const char* pName, NamedTexts* pEntries)
    {
        const cJSON* pItem = Item(pName);
        if (!cJSON_IsObject(pItem))
        {
            return Fail(pName, pItem == nullptr ? "is missing" : "is not an object");
        }
        pEntries->clear();
        for (const cJSON* pEntry = pItem->child; pEntry != nullptr; pEntry = pEntry->next)
        {
            if (!cJSON_IsString(pEntry))
            {
                return Fail(pName, "holds something other than texts");
            }
            pEntries->push_back({ pEntry->string, pEntry->valuestring });
        }
        return true;
    }

    // An object of whole numbers, e.g. {"OISGyroGainAndSRMatch": 1}.
    bool NamedCounts(const char* pName, std::vector<std::pair<std::string, uint32_t>>* pEntries)
    {
        FieldReader entries(nullptr, "", nullptr);
        bool        present = false;
        if (!Object(pName, false, &entries, &present))
        {
            return false;
        }
        pEntries->clear();
        for (const cJSON* pEntry = Item(pName)->child; pEntry != nullptr; pEntry = pEntry->next)
        {
            uint32_t value = 0;
            if (!entries.Count(pEntry->string, &value))
            {
                return false;
            }
            pEntries->push_back({ pEntry->string, value });
        }
        return true;
    }

    // A nested object's reader; pPresent false for null or an absent optional object.
    bool Object(const char* pName, bool optional, FieldReader* pReader, bool* pPresent)
    {
        const cJSON* pItem = Item(pName);
        *pPresent          = cJSON_IsObject(pItem);
        if (!*pPresent && !(optional && (pItem == nullptr || cJSON_IsNull(pItem))))
        {
            return Fail(pName, pItem == nullptr ? "is missing" : "is not an object");
        }
        *pReader = FieldReader(pItem, m_path + pName + ".", m_pError);
        return true;
    }

private:
    const cJSON* m_pObject;
    std::string  m_path;
    std::string* m_pError;
};

bool ReadAxis(FieldReader& root, const char* pName, AxisSummary* pAxis)
{
    FieldReader axis(nullptr, "", nullptr);
    bool        present = false;
    return root.Object(pName, false, &axis, &present) && axis.Optional("nodeSrDb", &pAxis->nodeSrDb) &&
           axis.Optional("trueSrDb", &pAxis->trueSrDb) && axis.Optional("nodeBlurPx", &pAxis->nodeBlurPx) &&
           axis.Optional("trueBlurPx", &pAxis->trueBlurPx);
}

bool ReadSeed(FieldReader& sim, uint64_t* pSeed)
{
    std::string text;
    if (cJSON_IsString(sim.Item("seed")) && sim.Text("seed", &text))
    {
        char* pEnd = nullptr;
        *pSeed     = strtoull(text.c_str(), &pEnd, 10);
        return (!text.empty() && *pEnd == '\0' && text[0] != '-') || sim.Fail("seed", "is not a whole number");
    }
    return sim.Whole("seed", 0.0, 9007199254740992.0, pSeed);
}

bool ReadSimulation(FieldReader& parameters, std::optional<SimulationSummary>* pSimulation)
{
    FieldReader       sim(nullptr, "", nullptr);
    bool              present = false;
    SimulationSummary s;
    if (!parameters.Object("simulation", true, &sim, &present) || !present)
    {
        pSimulation->reset();
        return !present;
    }
    const bool read = sim.Bool("oisOn", &s.oisOn) && sim.Number("gainX", &s.gainX) && sim.Number("gainY", &s.gainY) &&
                      sim.Number("idealGainX", &s.idealGainX) && sim.Number("idealGainY", &s.idealGainY) &&
                      sim.Number("amplitudeXPx", &s.amplitudeXPx) && sim.Number("amplitudeYPx", &s.amplitudeYPx) &&
                      sim.Number("noiseDn", &s.noiseDn) && ReadSeed(sim, &s.seed) && sim.Bool("swapAxes", &s.swapAxes);
    *pSimulation = s;
    return read;
}

bool ReadSearch(FieldReader& parameters, std::optional<SearchSettings>* pSearch)
{
    FieldReader    search(nullptr, "", nullptr);
    bool           present = false;
    SearchSettings s;
    if (!parameters.Object("search", true, &search, &present) || !present)
    {
        pSearch->reset();
        return !present;
    }
    const bool read = search.Whole("singleAxis", 0.0, 2.0, &s.singleAxis) &&
                      search.Number("stepFraction", &s.stepFraction) &&
                      search.Number("limitFraction", &s.limitFraction) &&
                      search.Count("settleFrames", &s.settleFrames) && search.Text("fuseId", &s.fuseId);
    *pSearch = s;
    return read;
}

bool ReadParameters(FieldReader& root, SummaryParameters* pParameters)
{
    FieldReader        p(nullptr, "", nullptr);
    bool               present = false;
    SummaryParameters& s       = *pParameters;
    return root.Object("parameters", false, &p, &present) && p.Text("source", &s.source) &&
           p.Named("properties", &s.properties) && p.Named("settings", &s.settings) &&
           p.NamedCounts("eeprom", &s.eeprom) &&
           p.Count("frameRateHz", &s.frameRateHz) && p.Count("shakeFreqHz", &s.shakeFreqHz) &&
           p.Count("dropFrames", &s.dropFrames) && p.Count("ringSize", &s.ringSize) &&
           p.Count("timeLimitMs", &s.timeLimitMs) && p.Count("debugMode", &s.debugMode) &&
           p.Count("dumpImages", &s.dumpImages) && p.Count("width", &s.width) && p.Count("height", &s.height) &&
           p.Count("stride", &s.stride) && p.Count("scanline", &s.scanline) &&
           ReadSimulation(p, &s.simulation) && ReadSearch(p, &s.search);
}

bool ReadPersist(FieldReader& calibration, std::optional<PersistSummary>* pPersist)
{
    FieldReader    persist(nullptr, "", nullptr);
    bool           present = false;
    PersistSummary s;
    if (!calibration.Object("persist", true, &persist, &present) || !present)
    {
        pPersist->reset();
        return !present;
    }
    const bool read = persist.Count("line", &s.line) && persist.Text("fuseId", &s.fuseId) &&
                      persist.Text("calibFlag", &s.calibFlag) && persist.Text("gainX", &s.gainX) &&
                      persist.Text("gainY", &s.gainY) && persist.Count("crcStored", &s.crcStored) &&
                      persist.Count("crcComputed", &s.crcComputed);
    *pPersist = s;
    return read;
}

bool ReadCalibration(FieldReader& root, std::optional<CalibrationSummary>* pCalibration)
{
    FieldReader        c(nullptr, "", nullptr);
    bool               present = false;
    CalibrationSummary s;
    if (!root.Object("calibration", true, &c, &present) || !present)
    {
        pCalibration->reset();
        return !present;
    }
    const bool read =
        c.Bool("basePass", &s.basePass) && c.Bool("searched", &s.searched) &&
        c.Count("pairsMeasured", &s.pairsMeasured) && c.Optional("selectedGainX", &s.selectedGainX) &&
        c.Optional("selectedGainY", &s.selectedGainY) && c.Optional("selectedSrXDb", &s.selectedSrXDb) &&
        c.Optional("selectedSrYDb", &s.selectedSrYDb) && c.Optional("trueSrXDb", &s.trueSrXDb) &&
        c.Optional("trueSrYDb", &s.trueSrYDb) && c.Optional("idealGainX", &s.idealGainX) &&
        c.Optional("idealGainY", &s.idealGainY) && c.Optional("nearestGainX", &s.nearestGainX) &&
        c.Optional("nearestGainY", &s.nearestGainY) && ReadPersist(c, &s.persist);
    *pCalibration = s;
    return read;
}

bool ReadFrames(FieldReader& root, FrameCounts* pFrames)
{
    FieldReader frames(nullptr, "", nullptr);
    bool        present = false;
    constexpr double kMax = 9007199254740992.0;
    return root.Object("frames", false, &frames, &present) &&
           frames.Whole("measured", 0.0, kMax, &pFrames->measured) &&
           frames.Whole("failed", 0.0, kMax, &pFrames->failed) &&
           frames.Whole("dropped", 0.0, kMax, &pFrames->dropped) && frames.Whole("total", 0.0, kMax, &pFrames->total);
}

bool ReadNode(FieldReader& root, RunSummary* pSummary)
{
    FieldReader node(nullptr, "", nullptr);
    bool        present = false;
    return root.Object("node", false, &node, &present) && node.Text("library", &pSummary->nodeLibrary) &&
           node.Text("buildId", &pSummary->nodeBuildId) && node.Texts("errors", &pSummary->nodeErrors);
}

bool ReadMeasurementMs(FieldReader& root, std::optional<int32_t>* pMs)
{
    std::optional<double> value;
    if (!root.Optional("measurementMs", &value))
    {
        return false;
    }
    pMs->reset();
    if (value && (*value != floor(*value) || fabs(*value) > 2147483647.0))
    {
        return root.Fail("measurementMs", "is not a whole number of milliseconds");
    }
    if (value)
    {
        *pMs = static_cast<int32_t>(*value);
    }
    return true;
}

bool ReadHead(FieldReader& root, RunSummary* pSummary)
{
    RunSummary& s = *pSummary;
    if (!root.Whole("format", 0.0, 1.0e6, &s.format))
    {
        return false;
    }
    if (s.format != kRunSummaryFormat)
    {
        return root.Fail("format", ("is " + std::to_string(s.format) + ", this reader reads format " +
                                    std::to_string(kRunSummaryFormat)).c_str());
    }
    if (!root.Text("toolVersion", &s.toolVersion) || !root.Text("timeUtc", &s.timeUtc) ||
        !root.Text("moduleId", &s.moduleId) || !root.Text("station", &s.station) || !root.Text("mode", &s.mode) ||
        !root.Text("verdict", &s.verdict))
    {
        return false;
    }
    if (s.verdict != kVerdictPass && s.verdict != kVerdictFail && s.verdict != kVerdictError)
    {
        return root.Fail("verdict", "is not PASS, FAIL or ERROR");
    }
    return root.Text("reason", &s.reason) && root.Texts("reasons", &s.reasons) && root.Number("limitDb", &s.limitDb) &&
           root.Text("limitSource", &s.limitSource);
}

} // namespace

std::optional<RunSummary> ParseRunSummary(const std::string& text, std::string* pError)
{
    std::string error;
    JsonPtr     root(cJSON_ParseWithLength(text.data(), text.size()), cJSON_Delete);
    RunSummary  summary;
    FieldReader reader(root.get(), "", &error);
    if (!cJSON_IsObject(root.get()))
    {
        error = root ? "the document is not a JSON object" : "the text is not JSON";
    }
    else if (ReadHead(reader, &summary) && ReadAxis(reader, "horizontal", &summary.horizontal) &&
             ReadAxis(reader, "vertical", &summary.vertical) && reader.Bool("finished", &summary.finished) &&
             reader.Whole("nodeState", -2147483648.0, 2147483647.0, &summary.nodeState) &&
             reader.Text("nodeStateName", &summary.nodeStateName) &&
             ReadMeasurementMs(reader, &summary.measurementMs) && ReadFrames(reader, &summary.frames) &&
             ReadParameters(reader, &summary.parameters) && ReadCalibration(reader, &summary.calibration) &&
             ReadNode(reader, &summary))
    {
        return summary;
    }
    if (pError != nullptr)
    {
        *pError = error;
    }
    return std::nullopt;
}

} // namespace oisverify
