// A simulated production population; see populationplan.h.
#include "population/populationplan.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <sstream>

#include "cli/optionreader.h"
#include "yield/summaryrecord.h"

namespace oisverify
{

const char* const kModuleCsvColumns =
    "id,ideal_x,ideal_y,gain_x,gain_y,swap,amplitude,noise,fps,freq,seed";

namespace
{

// Step 0.001 over a range of 1.8 at most: the node never tries more targets.
constexpr int32_t kMaxSearchTargets = 2000;

// splitmix64: a full-period 64-bit generator whose state is the module's own stream.
class Random
{
public:
    explicit Random(uint64_t state) : m_state(state) {}
    uint64_t Next()
    {
        uint64_t z = (m_state += 0x9E3779B97F4A7C15ULL);
        z          = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z          = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }
    // Uniform in [0, 1) with 53 random bits.
    double Uniform() { return static_cast<double>(Next() >> 11) * (1.0 / 9007199254740992.0); }
    double Between(const ValueRange& range) { return range.low + (range.high - range.low) * Uniform(); }
    // Standard normal by Box-Muller; both uniforms are always drawn.
    double Normal()
    {
        const double u1 = 1.0 - Uniform(); // (0, 1]
        const double u2 = Uniform();
        return sqrt(-2.0 * log(u1)) * cos(2.0 * M_PI * u2);
    }

private:
    uint64_t m_state;
};

// A whole number uniformly among those in the range.
uint32_t WholeBetween(Random& random, const ValueRange& range)
{
    const double low   = ceil(range.low);
    const double count = floor(range.high) - low + 1.0;
    const double pick  = low + floor(random.Uniform() * std::max(count, 1.0));
    return static_cast<uint32_t>(std::min(pick, floor(range.high)));
}

double DrawIdeal(Random& random, const PopulationPlan& plan, double nominal)
{
    // Both variates are drawn whatever the shape, so the other draws do not depend on it.
    const double uniform = random.Uniform() * 2.0 - 1.0;
    const double normal  = random.Normal();
    const double factor  = (plan.gainSigma > 0.0) ? 1.0 + plan.gainSigma * normal : 1.0 + plan.gainSpread * uniform;
    return nominal * std::max(factor, 0.05);
}

std::string Format(double value)
{
    char text[40];
    snprintf(text, sizeof(text), "%.6g", value);
    return text;
}

std::vector<std::string> SplitCsvLine(const std::string& line)
{
    std::vector<std::string> fields(1);
    for (char c : line)
    {
        if (c == ',')
        {
            fields.push_back("");
        }
        else if (c != '\r' && c != ' ' && c != '\t')
        {
            fields.back().push_back(c);
        }
    }
    return fields;
}

bool ValidId(const std::string& id)
{
    if (id.empty() || id.size() > 64)
    {
        return false;
    }
    return std::all_of(id.begin(), id.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
               c == '.';
    });
}

// One field of a CSV row into the module; false for a value out of its range.
bool ApplyCsvField(const std::string& column, const std::string& value, ModulePlan* pModule)
{
    if (column == "id")
    {
        pModule->id = value;
        return ValidId(value);
    }
    if (column == "swap")
    {
        pModule->swapAxes = (value == "1" || value == "yes" || value == "true");
        return pModule->swapAxes || value == "0" || value == "no" || value == "false";
    }
    struct Real
    {
        const char* name;
        double      min, max;
        double ModulePlan::*pField;
    };
    static const Real kReals[] = { { "ideal_x", 0.01, 10.0, &ModulePlan::idealX },
                                   { "ideal_y", 0.01, 10.0, &ModulePlan::idealY },
                                   { "gain_x", 0.01, 10.0, &ModulePlan::baseX },
                                   { "gain_y", 0.01, 10.0, &ModulePlan::baseY },
                                   { "amplitude", 0.0, 1000.0, &ModulePlan::amplitudePx },
                                   { "noise", 0.0, 50.0, &ModulePlan::noiseDn } };
    for (const Real& real : kReals)
    {
        if (column == real.name)
        {
            return OptionReader::ToNumber(value, real.min, real.max, &(pModule->*real.pField));
        }
    }
    double     number = 0.0;
    const bool whole  = OptionReader::ToNumber(value, 0.0, 1e15, &number) && floor(number) == number;
    if (column == "seed")
    {
        pModule->seed = static_cast<uint64_t>(number);
        return whole;
    }
    uint32_t& field = (column == "fps") ? pModule->frameRateHz : pModule->shakeFreqHz;
    field           = static_cast<uint32_t>(std::min(number, 1000.0));
    return whole && number >= 1.0 && number <= (column == "fps" ? 1000.0 : 500.0);
}

} // namespace

bool ParseValueRange(const std::string& text, double min, double max, ValueRange* pRange)
{
    const size_t colon = text.find(':');
    ValueRange   range;
    if (!OptionReader::ToNumber(text.substr(0, colon), min, max, &range.low))
    {
        return false;
    }
    range.high = range.low;
    if (colon != std::string::npos &&
        (!OptionReader::ToNumber(text.substr(colon + 1), min, max, &range.high) || range.high < range.low))
    {
        return false;
    }
    *pRange = range;
    return true;
}

ModulePlan DrawModule(const PopulationPlan& plan, uint32_t index)
{
    // Each module's stream starts from the seed and its index, spread by a first splitmix step.
    Random     random(Random(plan.seed * 0x100000001B3ULL + index).Next());
    ModulePlan module;
    char       id[32];
    snprintf(id, sizeof(id), "ZKP%06u", index + 1);
    module.id          = id;
    module.idealX      = DrawIdeal(random, plan, plan.idealX);
    module.idealY      = DrawIdeal(random, plan, plan.idealY);
    module.baseX       = plan.baseX;
    module.baseY       = plan.baseY;
    module.swapAxes    = random.Uniform() < plan.swapShare;
    module.amplitudePx = random.Between(plan.amplitudePx);
    module.noiseDn     = random.Between(plan.noiseDn);
    module.frameRateHz = WholeBetween(random, plan.frameRateHz);
    module.shakeFreqHz = WholeBetween(random, plan.shakeFreqHz);
    module.seed        = random.Next() >> 16;
    return module;
}

std::vector<ModulePlan> DrawModules(const PopulationPlan& plan)
{
    std::vector<ModulePlan> modules;
    for (uint32_t i = 0; i < plan.modules; i++)
    {
        modules.push_back(DrawModule(plan, i));
    }
    return modules;
}

bool ReadModulesCsv(const std::string& text, const PopulationPlan& nominal, std::vector<ModulePlan>* pModules,
                    std::string* pError)
{
    std::istringstream       in(text);
    std::string              line;
    std::vector<std::string> columns;
    const std::string        known = std::string(",") + kModuleCsvColumns + ",";
    for (size_t lineNo = 1; std::getline(in, line); lineNo++)
    {
        if (line.find_first_not_of(" \t\r") == std::string::npos || line[0] == '#')
        {
            continue;
        }
        const std::vector<std::string> fields = SplitCsvLine(line);
        if (columns.empty())
        {
            for (const std::string& column : fields)
            {
                if (known.find("," + column + ",") == std::string::npos)
                {
                    *pError = "line " + std::to_string(lineNo) + ": unknown column '" + column + "' (columns: " +
                              kModuleCsvColumns + ")";
                    return false;
                }
            }
            if (std::find(fields.begin(), fields.end(), "id") == fields.end())
            {
                *pError = "line " + std::to_string(lineNo) + ": the header needs an 'id' column";
                return false;
            }
            columns = fields;
            continue;
        }
        if (fields.size() != columns.size())
        {
            *pError = "line " + std::to_string(lineNo) + ": " + std::to_string(fields.size()) + " fields, the header has " +
                      std::to_string(columns.size());
            return false;
        }
        ModulePlan module;
        module.idealX = nominal.idealX;
        module.idealY = nominal.idealY;
        module.baseX  = nominal.baseX;
        module.baseY  = nominal.baseY;
        module.amplitudePx = nominal.amplitudePx.low;
        module.noiseDn     = nominal.noiseDn.low;
        module.frameRateHz = static_cast<uint32_t>(nominal.frameRateHz.low);
        module.shakeFreqHz = static_cast<uint32_t>(nominal.shakeFreqHz.low);
        module.seed        = nominal.seed + pModules->size();
        for (size_t i = 0; i < columns.size(); i++)
        {
            if (!ApplyCsvField(columns[i], fields[i], &module))
            {
                *pError = "line " + std::to_string(lineNo) + ": column '" + columns[i] + "' cannot be '" + fields[i] +
                          "'";
                return false;
            }
        }
        pModules->push_back(module);
    }
    if (pModules->empty())
    {
        *pError = "no modules in the file";
        return false;
    }
    return true;
}

std::string TestSetting::Label() const
{
    return calibrate ? SearchLabel(stepFraction, limitFraction) : "";
}

std::vector<std::string> ModuleRunWords(const ModulePlan& module, const TestSetting& setting)
{
    std::vector<std::string> words = {
        "--ideal-gain", Format(module.idealX) + "," + Format(module.idealY),
        "--gain",       Format(module.baseX) + "," + Format(module.baseY),
        "--amplitude",  Format(module.amplitudePx),
        "--noise",      Format(module.noiseDn),
        "--fps",        std::to_string(module.frameRateHz),
        "--freq",       std::to_string(module.shakeFreqHz),
        "--seed",       std::to_string(module.seed),
        "--limit",      Format(setting.limitDb),
    };
    if (module.swapAxes)
    {
        words.push_back("--swap-axes");
    }
    if (setting.calibrate)
    {
        for (const std::string& word : { std::string("--calibrate"), std::string("--fuse-id"), module.id,
                                         std::string("--search"), setting.Label(), std::string("--wait"),
                                         std::to_string(setting.settleFrames) })
        {
            words.push_back(word);
        }
    }
    return words;
}

double NearestSearchTarget(double base, double stepFraction, double limitFraction, double ideal)
{
    // The node's arithmetic: target n = (base x step) x n + base x (1 - limit) in single
    // precision, tried while it does not exceed base x (1 + limit).
    const float baseF  = static_cast<float>(base);
    const float stepF  = static_cast<float>(stepFraction);
    const float limitF = static_cast<float>(limitFraction);
    const float upper  = baseF * (1.0f + limitF);
    double      nearest = static_cast<double>(baseF * (1.0f - limitF));
    for (int32_t n = 0; n < kMaxSearchTargets; n++)
    {
        const float target = (baseF * stepF) * static_cast<float>(n) + baseF * (1.0f - limitF);
        if (target > upper)
        {
            break;
        }
        if (fabs(static_cast<double>(target) - ideal) < fabs(nearest - ideal))
        {
            nearest = static_cast<double>(target);
        }
    }
    return nearest;
}

} // namespace oisverify
