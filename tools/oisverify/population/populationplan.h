// A simulated production population: the distributions modules are drawn from (or a CSV file of
// modules, one row each), and the translation of one module under one search setting into the
// words of an "oisverify run", so that every module is configured and checked exactly as a run.
// Draws are seeded per module: module i's parameters depend only on the seed and i, so a larger
// population or a resumed run draws the same modules again. The random numbers are the tool's own
// (splitmix64, Box-Muller), so the draws are the same with every standard library.
#ifndef ZELK_TOOLS_OISVERIFY_POPULATIONPLAN_H
#define ZELK_TOOLS_OISVERIFY_POPULATIONPLAN_H

#include <stdint.h>

#include <string>
#include <vector>

namespace oisverify
{

// A value or a uniform range LOW:HIGH.
struct ValueRange
{
    double low  = 0.0;
    double high = 0.0;
};

// Reads "V" or "LOW:HIGH" within [min, max]; false for anything else.
bool ParseValueRange(const std::string& text, double min, double max, ValueRange* pRange);

struct PopulationPlan
{
    uint32_t   modules      = 100;
    uint64_t   seed         = 1;
    double     idealX       = 1.0; // nominal ideal gain per gyro axis
    double     idealY       = 1.0;
    double     gainSpread   = 0.0; // ideal gains uniform within nominal x (1 +- spread) ...
    double     gainSigma    = 0.0; // ... or normal with this relative standard deviation
    double     baseX        = 1.0; // the gains every module starts with (its gain property)
    double     baseY        = 1.0;
    double     swapShare    = 0.0; // share of modules whose gyro X drives the vertical axis
    ValueRange amplitudePx  = { 181.248, 181.248 };
    ValueRange noiseDn      = { 2.0, 2.0 };
    ValueRange frameRateHz  = { 60.0, 60.0 }; // whole numbers drawn
    ValueRange shakeFreqHz  = { 4.0, 4.0 };
};

// One module as the line would test it.
struct ModulePlan
{
    std::string id; // also its fuse ID
    double      idealX      = 1.0;
    double      idealY      = 1.0;
    double      baseX       = 1.0;
    double      baseY       = 1.0;
    bool        swapAxes    = false;
    double      amplitudePx = 181.248;
    double      noiseDn     = 2.0;
    uint32_t    frameRateHz = 60;
    uint32_t    shakeFreqHz = 4;
    uint64_t    seed        = 1; // sensor noise and OIS residual
};

ModulePlan DrawModule(const PopulationPlan& plan, uint32_t index);
std::vector<ModulePlan> DrawModules(const PopulationPlan& plan);

// The CSV columns a modules file may have; "id" is required, a missing column takes the
// population's nominal value (no spread). Fails with the line and column of the first mistake.
extern const char* const kModuleCsvColumns;
bool ReadModulesCsv(const std::string& text, const PopulationPlan& nominal, std::vector<ModulePlan>* pModules,
                    std::string* pError);

// How each module is tested: the SR limit and, with calibration, one search setting.
struct TestSetting
{
    double      limitDb     = 18.0;
    bool        calibrate   = false;
    double      stepFraction  = 0.05;
    double      limitFraction = 0.2;
    uint32_t    settleFrames  = 10;
    std::string Label() const; // "STEP,LIMIT" of a calibration, empty without
};

// The words of the equivalent "oisverify run".
std::vector<std::string> ModuleRunWords(const ModulePlan& module, const TestSetting& setting);

// The search target nearest the ideal gain (the lower of two equally near): targets are
// base x (1 - limit) + n x base x step up to base x (1 + limit), computed as the node does.
double NearestSearchTarget(double base, double stepFraction, double limitFraction, double ideal);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_POPULATIONPLAN_H
