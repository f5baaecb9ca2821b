// The population's modules and their runs without a node: seeded draws, the modules file, the
// words of the equivalent run, the search target nearest an ideal gain, and the options.
#include <gtest/gtest.h>

#include <math.h>

#include "population/populationoptions.h"
#include "population/populationplan.h"
#include "session/runconfig.h"

namespace oisverify
{
namespace
{

TEST(PopulationDraw, ModuleDependsOnlyOnSeedAndIndex)
{
    PopulationPlan plan;
    plan.gainSpread = 0.12;
    plan.swapShare  = 0.5;
    plan.modules    = 5;
    const std::vector<ModulePlan> five = DrawModules(plan);
    plan.modules                       = 50;
    const std::vector<ModulePlan> fifty = DrawModules(plan);
    for (size_t i = 0; i < five.size(); i++)
    {
        EXPECT_EQ(five[i].id, fifty[i].id);
        EXPECT_EQ(five[i].idealX, fifty[i].idealX);
        EXPECT_EQ(five[i].seed, fifty[i].seed);
    }
    // Pinned: the generator is the tool's own, the same on every platform.
    EXPECT_EQ(five[0].id, "ZKP000001");
    EXPECT_NEAR(five[0].idealX, 0.920171, 5e-7);
    EXPECT_NEAR(five[0].idealY, 1.005481, 5e-7);
    EXPECT_TRUE(five[0].swapAxes);
    plan.seed = 2;
    EXPECT_NE(DrawModule(plan, 0).idealX, five[0].idealX);
}

TEST(PopulationDraw, SpreadsStayInsideTheirRanges)
{
    PopulationPlan plan;
    plan.modules     = 2000;
    plan.idealX      = 1.1;
    plan.gainSpread  = 0.12;
    plan.amplitudePx = { 150.0, 200.0 };
    plan.frameRateHz = { 30.0, 31.0 };
    size_t swapped = 0, at30 = 0;
    double sum     = 0.0;
    plan.swapShare = 0.25;
    for (const ModulePlan& module : DrawModules(plan))
    {
        EXPECT_GE(module.idealX, 1.1 * 0.88);
        EXPECT_LE(module.idealX, 1.1 * 1.12);
        EXPECT_GE(module.amplitudePx, 150.0);
        EXPECT_LT(module.amplitudePx, 200.0);
        EXPECT_TRUE(module.frameRateHz == 30 || module.frameRateHz == 31);
        swapped += module.swapAxes ? 1 : 0;
        at30 += module.frameRateHz == 30 ? 1 : 0;
        sum += module.idealX;
    }
    // Shares within a few standard deviations of what was asked (fixed seed: exact counts).
    EXPECT_NEAR(static_cast<double>(swapped) / 2000.0, 0.25, 0.03);
    EXPECT_NEAR(static_cast<double>(at30) / 2000.0, 0.5, 0.04);
    EXPECT_NEAR(sum / 2000.0, 1.1, 0.005);
}

TEST(PopulationDraw, NormalSpreadHasTheAskedSigma)
{
    PopulationPlan plan;
    plan.modules   = 4000;
    plan.gainSigma = 0.04;
    double sum = 0.0, squares = 0.0;
    for (const ModulePlan& module : DrawModules(plan))
    {
        sum += module.idealY;
        squares += module.idealY * module.idealY;
    }
    const double mean = sum / 4000.0;
    EXPECT_NEAR(mean, 1.0, 0.003);
    EXPECT_NEAR(sqrt(squares / 4000.0 - mean * mean), 0.04, 0.003);
}

TEST(NearestSearchTarget, RoundsOntoTheNodesSteps)
{
    struct Case
    {
        double base, step, limit, ideal, nearest;
    };
    const Case cases[] = {
        { 1.0, 0.05, 0.2, 1.08, 1.10 }, { 1.0, 0.05, 0.2, 1.07, 1.05 }, { 1.0, 0.05, 0.2, 0.92, 0.90 },
        { 1.0, 0.05, 0.2, 1.50, 1.20 }, // beyond the range: the last target
        { 1.0, 0.05, 0.2, 0.50, 0.80 }, { 1.2, 0.05, 0.2, 1.20, 1.20 }, { 1.0, 0.03, 0.15, 1.073, 1.06 },
        { 1.0, 0.03, 0.15, 1.2, 1.15 }, { 1.0, 0.05, 0.2, 1.02, 1.0 },
    };
    for (const Case& c : cases)
    {
        EXPECT_NEAR(NearestSearchTarget(c.base, c.step, c.limit, c.ideal), c.nearest, 1e-6)
            << c.base << " " << c.step << " " << c.limit << " " << c.ideal;
    }
}

TEST(ModulesCsv, ReadsRowsAndNamesTheFirstMistake)
{
    PopulationPlan              nominal;
    std::vector<ModulePlan>     modules;
    std::string                 error;
    ASSERT_TRUE(ReadModulesCsv("id,ideal_x,ideal_y,swap,fps\n# comment\nA-1,1.08,0.95,1,30\n\nB_2,1,1,0,60\n", nominal,
                               &modules, &error))
        << error;
    ASSERT_EQ(modules.size(), 2u);
    EXPECT_EQ(modules[0].id, "A-1");
    EXPECT_DOUBLE_EQ(modules[0].idealX, 1.08);
    EXPECT_DOUBLE_EQ(modules[0].idealY, 0.95);
    EXPECT_TRUE(modules[0].swapAxes);
    EXPECT_EQ(modules[0].frameRateHz, 30u);
    EXPECT_EQ(modules[1].shakeFreqHz, 4u); // nominal
    EXPECT_DOUBLE_EQ(modules[1].amplitudePx, 181.248);

    const std::pair<const char*, const char*> bad[] = {
        { "id,colour\nA,red\n",
          "line 1: unknown column 'colour' (columns: id,ideal_x,ideal_y,gain_x,gain_y,swap,amplitude,noise,fps,freq,seed)" },
        { "ideal_x\n1.0\n", "line 1: the header needs an 'id' column" },
        { "id,ideal_x\nA,1.0,2\n", "line 2: 3 fields, the header has 2" },
        { "id,ideal_x\nA,11\n", "line 2: column 'ideal_x' cannot be '11'" },
        { "id,fps\nA,29.5\n", "line 2: column 'fps' cannot be '29.5'" },
        { "id,swap\nA,maybe\n", "line 2: column 'swap' cannot be 'maybe'" },
        { "id\nA/B\n", "line 2: column 'id' cannot be 'A/B'" },
        { "id\n", "no modules in the file" },
    };
    for (const auto& c : bad)
    {
        std::vector<ModulePlan> none;
        std::string             message;
        EXPECT_FALSE(ReadModulesCsv(c.first, nominal, &none, &message)) << c.first;
        EXPECT_EQ(message, c.second);
    }
}

TEST(ModuleRunWords, DescribeTheModuleAsARun)
{
    ModulePlan module;
    module.id          = "ZKP000007";
    module.idealX      = 1.08;
    module.swapAxes    = true;
    module.frameRateHz = 30;
    TestSetting setting;
    setting.calibrate     = true;
    setting.stepFraction  = 0.03;
    setting.limitFraction = 0.15;
    EXPECT_EQ(setting.Label(), "0.03,0.15");
    const std::vector<std::string> words = ModuleRunWords(module, setting);
    const std::vector<std::string> expected = {
        "--ideal-gain", "1.08,1", "--gain", "1,1", "--amplitude", "181.248", "--noise", "2", "--fps", "30", "--freq",
        "4", "--seed", "1", "--limit", "18", "--swap-axes", "--calibrate", "--fuse-id", "ZKP000007", "--search",
        "0.03,0.15", "--wait", "10",
    };
    EXPECT_EQ(words, expected);
    setting.calibrate = false;
    EXPECT_EQ(setting.Label(), "");
    EXPECT_EQ(ModuleRunWords(module, setting).size(), 17u);
}

TEST(PopulationOptions, SettingsAndUsageErrors)
{
    Arguments        arguments;
    PopulationConfig config;
    std::string      error;
    std::vector<std::string> words = { "x", "--modules", "3", "--calibrate", "--search", "0.05,0.2", "-j3" };
    std::vector<char*>       argv;
    for (std::string& word : words)
    {
        argv.push_back(&word[0]);
    }
    ASSERT_TRUE(
        ParsePopulationWords(ExpandShortOptions(static_cast<int>(argv.size()), argv.data(), 1), &arguments, &config, &error))
        << error;
    EXPECT_EQ(config.modules.size(), 3u);
    EXPECT_EQ(config.workers, 3u);
    ASSERT_EQ(config.settings.size(), 1u);
    EXPECT_TRUE(config.settings[0].calibrate);

    const std::pair<std::vector<std::string>, std::string> bad[] = {
        { { "--search", "0.05,0.2" }, "--search and --wait shape the gain search; give --calibrate too" },
        { { "--calibrate", "--search", "0.05" },
          "--search needs STEP,LIMIT as fractions of the base gain (STEP from 0.001 to 1 and LIMIT from 0 to 0.9), "
          "e.g. 0.05,0.2, got '0.05'" },
        { { "--calibrate", "--search", "0.05,0.2", "--search", "0.05,0.20" }, "--search 0.05,0.20 is given twice" },
        { { "--gain-spread", "0.1", "--gain-sigma", "0.1" },
          "--gain-spread (uniform) and --gain-sigma (normal) are two shapes of one spread; give one" },
        { { "--amplitude", "200:100" }, "--amplitude needs a number or LOW:HIGH from 0 to 1000, got '200:100'" },
        { { "--modules-csv", "/nonexistent/m.csv", "--modules", "4" },
          "--modules draws modules; --modules-csv lists them" },
    };
    for (const auto& c : bad)
    {
        Arguments        parsed;
        PopulationConfig unused;
        std::string      message;
        EXPECT_FALSE(ParsePopulationWords(c.first, &parsed, &unused, &message));
        EXPECT_EQ(message, c.second);
    }
}

} // namespace
} // namespace oisverify
