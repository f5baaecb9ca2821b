// Options of "oisverify population"; see populationoptions.h.
#include "population/populationoptions.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "cli/optionreader.h"

namespace oisverify
{

namespace
{

constexpr uint32_t kMaxModules = 10000000;
constexpr uint32_t kMaxWorkers = 256;

std::string AbsolutePath(const std::string& path)
{
    std::error_code error;
    std::string     absolute = std::filesystem::absolute(path, error).lexically_normal().string();
    return error ? path : absolute;
}

bool ReadRange(OptionReader& reader, const char* pName, double min, double max, ValueRange* pRange)
{
    if (reader.Has(pName) && !ParseValueRange(reader.Value(pName), min, max, pRange))
    {
        char range[80];
        snprintf(range, sizeof(range), "a number or LOW:HIGH from %g to %g", min, max);
        return reader.Fail("--" + std::string(pName) + " needs " + range + ", got '" + reader.Value(pName) + "'");
    }
    return true;
}

bool ReadPlan(OptionReader& reader, PopulationPlan* pPlan)
{
    if (reader.Has("gain-spread") && reader.Has("gain-sigma"))
    {
        return reader.Fail("--gain-spread (uniform) and --gain-sigma (normal) are two shapes of one spread; give one");
    }
    return reader.Whole32("modules", 1, kMaxModules, &pPlan->modules) &&
           reader.Whole("seed", 0, UINT64_MAX, &pPlan->seed) &&
           reader.Pair("ideal-gain", 0.01, 10.0, &pPlan->idealX, &pPlan->idealY) &&
           reader.Number("gain-spread", 0.0, 0.9, &pPlan->gainSpread) &&
           reader.Number("gain-sigma", 0.0, 0.3, &pPlan->gainSigma) &&
           reader.Pair("gain", 0.01, 10.0, &pPlan->baseX, &pPlan->baseY) &&
           reader.Number("swap-share", 0.0, 1.0, &pPlan->swapShare) &&
           ReadRange(reader, "amplitude", 0.0, 1000.0, &pPlan->amplitudePx) &&
           ReadRange(reader, "noise", 0.0, 50.0, &pPlan->noiseDn) &&
           ReadRange(reader, "fps", 1.0, 1000.0, &pPlan->frameRateHz) &&
           ReadRange(reader, "freq", 1.0, 500.0, &pPlan->shakeFreqHz);
}

bool ReadSettings(const Arguments& arguments, OptionReader& reader, PopulationConfig* pConfig)
{
    TestSetting base;
    base.calibrate = reader.Has("calibrate");
    if (!reader.Number("limit", -100.0, 100.0, &base.limitDb) ||
        !reader.Whole32("wait", 0, 1000, &base.settleFrames))
    {
        return false;
    }
    if (!base.calibrate && (reader.Has("search") || reader.Has("wait")))
    {
        return reader.Fail("--search and --wait shape the gain search; give --calibrate too");
    }
    const std::vector<std::string>& searches = arguments.Values("search");
    if (searches.empty())
    {
        pConfig->settings.push_back(base);
        return true;
    }
    for (const std::string& text : searches)
    {
        TestSetting setting = base;
        const size_t comma  = text.find(',');
        if (comma == std::string::npos ||
            !OptionReader::ToNumber(text.substr(0, comma), 0.001, 1.0, &setting.stepFraction) ||
            !OptionReader::ToNumber(text.substr(comma + 1), 0.0, 0.9, &setting.limitFraction))
        {
            return reader.Fail("--search needs STEP,LIMIT as fractions of the base gain (STEP from 0.001 to 1 and "
                               "LIMIT from 0 to 0.9), e.g. 0.05,0.2, got '" + text + "'");
        }
        for (const TestSetting& other : pConfig->settings)
        {
            if (other.Label() == setting.Label())
            {
                return reader.Fail("--search " + text + " is given twice");
            }
        }
        pConfig->settings.push_back(setting);
    }
    return true;
}

bool ReadModules(OptionReader& reader, PopulationConfig* pConfig)
{
    if (!reader.Has("modules-csv"))
    {
        pConfig->modules = DrawModules(pConfig->plan);
        return true;
    }
    for (const char* pName : { "modules", "gain-spread", "gain-sigma", "swap-share" })
    {
        if (reader.Has(pName))
        {
            return reader.Fail("--" + std::string(pName) + " draws modules; --modules-csv lists them");
        }
    }
    pConfig->modulesCsv = AbsolutePath(reader.Value("modules-csv"));
    std::ifstream      in(pConfig->modulesCsv, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    if (!in.good() && !in.eof())
    {
        return reader.Fail("cannot read --modules-csv " + pConfig->modulesCsv);
    }
    std::string error;
    if (!ReadModulesCsv(text.str(), pConfig->plan, &pConfig->modules, &error))
    {
        return reader.Fail(pConfig->modulesCsv + ": " + error);
    }
    return true;
}

} // namespace

std::vector<OptionSpec> PopulationOptionSpecs()
{
    return {
        { "modules", true, false, "N", "modules to draw (default 100)" },
        { "seed", true, false, "N", "seed of the draws; module i depends only on it and i (default 1)" },
        { "ideal-gain", true, false, "X[,Y]", "nominal ideal gain per gyro axis (default 1.0)" },
        { "gain-spread", true, false, "F", "ideal gains uniform within nominal x (1 +- F), e.g. 0.12" },
        { "gain-sigma", true, false, "F", "ideal gains normal with relative standard deviation F" },
        { "gain", true, false, "X[,Y]", "the gains every module starts with, its gain property (default 1.0)" },
        { "swap-share", true, false, "F", "share of modules whose gyro X drives the vertical axis (default 0)" },
        { "amplitude", true, false, "PX|LOW:HIGH", "shake amplitude peak to peak on the crop (default 181.248)" },
        { "noise", true, false, "DN|LOW:HIGH", "sensor read noise in luma steps (default 2.0)" },
        { "fps", true, false, "N|LOW:HIGH", "frame rate, whole numbers drawn (default 60)" },
        { "freq", true, false, "HZ|LOW:HIGH", "shake frequency, whole numbers drawn (default 4)" },
        { "modules-csv", true, false, "FILE", std::string("modules one per row instead of drawn; columns ") +
                                                   kModuleCsvColumns },
        { "limit", true, false, "DB", "SR pass limit (default 18.0)" },
        { "calibrate", false, false, "", "below the limit, search the gyro gains through the calibration service" },
        { "search", true, true, "STEP,LIMIT", "a search setting; repeat to compare settings (default 0.05,0.2)" },
        { "wait", true, false, "N", "frames a new gain settles before the node measures (default 10)" },
        { "jobs", true, false, "N", "worker processes, also -j N (default: the number of cores)" },
        { "no-namespace", false, false, "", "no network namespace per worker: calibrations run one at a time" },
        { "service-wait", true, false, "S", "seconds a calibration waits for the service's socket (default 10)" },
        { "out", true, false, "DIR", "output folder (default ./oisverify-population)" },
        { "resume", false, false, "", "continue the interrupted run in --out with its options" },
        { "node", true, false, "PATH", "node library (default: the one built beside the tool)" },
    };
}

std::vector<std::string> ExpandShortOptions(int argc, char** argv, int first)
{
    std::vector<std::string> words;
    for (int i = first; i < argc; i++)
    {
        const std::string word = argv[i];
        if (word == "-j")
        {
            words.push_back("--jobs");
        }
        else if (word.compare(0, 2, "-j") == 0 && word.size() > 2)
        {
            words.push_back("--jobs");
            words.push_back(word.substr(2));
        }
        else
        {
            words.push_back(word);
        }
    }
    return words;
}

bool IsResumeOption(const std::string& name)
{
    return name == "resume" || name == "out" || name == "jobs" || name == "no-namespace" || name == "service-wait";
}

bool ParsePopulationConfig(const Arguments& arguments, PopulationConfig* pConfig, std::string* pError)
{
    OptionReader     reader(arguments, pError);
    PopulationConfig config;
    const long       cores = sysconf(_SC_NPROCESSORS_ONLN);
    config.workers         = cores > 0 ? static_cast<uint32_t>(cores) : 1;
    uint32_t waitS         = config.serviceWaitMs / 1000;
    if (!ReadPlan(reader, &config.plan) || !ReadSettings(arguments, reader, &config) ||
        !reader.Whole32("jobs", 1, kMaxWorkers, &config.workers) || !reader.Whole32("service-wait", 0, 3600, &waitS) ||
        !ReadModules(reader, &config))
    {
        return false;
    }
    config.serviceWaitMs = waitS * 1000;
    config.namespaces    = !reader.Has("no-namespace");
    config.resume        = reader.Has("resume");
    config.outDir        = AbsolutePath(reader.Has("out") ? reader.Value("out") : "oisverify-population");
    config.nodeLibrary   = reader.Has("node") ? AbsolutePath(reader.Value("node")) : "";
    *pConfig             = config;
    return true;
}

bool ParsePopulationWords(const std::vector<std::string>& words, Arguments* pArguments, PopulationConfig* pConfig,
                          std::string* pError)
{
    std::vector<std::string> storage = words;
    std::vector<char*>       argv    = { const_cast<char*>("population") };
    for (std::string& word : storage)
    {
        argv.push_back(&word[0]);
    }
    return pArguments->Parse(static_cast<int>(argv.size()), argv.data(), 1, PopulationOptionSpecs(), pError) &&
           ParsePopulationConfig(*pArguments, pConfig, pError);
}

} // namespace oisverify
