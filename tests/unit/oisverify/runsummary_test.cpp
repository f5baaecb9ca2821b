// The run's JSON summary: what a run's results become (values in the node's precision, absent
// values as null, the measurement a calibration run's axes describe), the document read back
// exactly, documents a reader must refuse, and the options that identify the run.
#include <gtest/gtest.h>

#include <math.h>
#include <unistd.h>

#include "cli/runoptions.h"
#include "cli/summaryoptions.h"
#include "report/runsummary.h"
#include "report/toolversion.h"

namespace
{

using oisverify::ParseRunSummary;
using oisverify::RunSummary;
using oisverify::RunSummaryJson;

oisverify::RunConfig Config(const std::vector<std::string>& words)
{
    oisverify::RunConfig config;
    std::string          error;
    EXPECT_TRUE(oisverify::ParseRunWords(words, &config, &error)) << error;
    config.summary.started = 1795441202; // 2026-11-23T13:40:02Z
    return config;
}

// A verified session as the node and the simulator left it.
oisverify::RunResult Verified()
{
    oisverify::RunResult result;
    result.nodeLibraryPath   = "/nonexistent/node.so";
    result.requests          = 152;
    result.finished          = true;
    result.finalState        = 4;
    result.horSrDb           = 24.79f;
    result.verSrDb           = 23.77f;
    result.events.hasSr      = true;
    result.events.horBlurPx  = 1.51f;
    result.events.verBlurPx  = 1.91f;
    result.events.measured   = 32;
    result.events.failed     = 2;
    result.events.durationMs = 516;
    result.hasTruth          = true;
    result.truth.horSrDb     = 24.786348f;
    result.truth.verSrDb     = 23.765177f;
    result.truth.horBlurPx   = 1.5123018f;
    result.truth.verBlurPx   = 1.913179f;
    return result;
}

oisverify::Verdict Passed()
{
    oisverify::Verdict verdict;
    verdict.pass     = true;
    verdict.headline = "SR at or above the limit of 18.00 dB on both axes";
    return verdict;
}

TEST(RunSummaryOfAVerification, CarriesTheRunsNumbersInTheNodesPrecision)
{
    const oisverify::RunConfig config  = Config({ "--module-id", "M-7", "--station", "line 3" });
    const RunSummary           summary = oisverify::SummariseRun(config, Verified(), Passed(), nullptr);
    EXPECT_EQ(summary.verdict, "PASS");
    EXPECT_EQ(summary.timeUtc, "2026-11-23T13:40:02Z");
    EXPECT_EQ(summary.moduleId, "M-7");
    EXPECT_EQ(summary.station, "line 3");
    EXPECT_EQ(summary.toolVersion, oisverify::kToolVersion);
    EXPECT_EQ(summary.mode, "verify");
    // Floats become the shortest decimal that reads back as the same float.
    EXPECT_EQ(summary.horizontal.nodeSrDb, 24.79);
    EXPECT_EQ(summary.vertical.nodeBlurPx, 1.91);
    EXPECT_EQ(summary.horizontal.trueSrDb, 24.786348);
    EXPECT_EQ(summary.limitDb, 18.0);
    EXPECT_EQ(summary.measurementMs, 516);
    EXPECT_EQ(summary.frames.measured, 32u);
    EXPECT_EQ(summary.frames.failed, 2u);
    EXPECT_EQ(summary.frames.dropped, 120u);
    EXPECT_EQ(summary.frames.total, 152u);
    EXPECT_EQ(summary.nodeStateName, oisverify::StateName(4));
    EXPECT_EQ(summary.nodeStateMeaning, "");
    EXPECT_EQ(summary.parameters.ringSize, 31u);
    EXPECT_EQ(summary.parameters.timeLimitMs, 688u);
    ASSERT_TRUE(summary.parameters.simulation);
    EXPECT_FALSE(summary.parameters.search);
    EXPECT_FALSE(summary.calibration);
    EXPECT_EQ(summary.nodeBuildId, "") << "a library that cannot be read has no build ID";
    const std::string json = RunSummaryJson(summary, true);
    EXPECT_NE(json.find("\"horizontal\":{\"nodeSrDb\":24.79,\"trueSrDb\":24.786348,\"nodeBlurPx\":1.51,"),
              std::string::npos)
        << json;
    EXPECT_EQ(json.find('\n'), std::string::npos) << "the compact form is one line";
}

TEST(RunSummaryOfAVerification, PropertiesHoldTheValuesTheNodeReadsInFirstOrder)
{
    const oisverify::RunConfig config = Config({ "--prop", "vendor.x=1", "--prop", "vendor.debug.camera.oisAlgoPara=1:0:0:5:4:60",
                                                 "--prop", "vendor.x=2", "--setting", "logInfoMask=1" });
    const RunSummary summary = oisverify::SummariseRun(config, Verified(), Passed(), nullptr);
    const oisverify::NamedTexts expected = { { "persist.vendor.camera.oisgyrogain.w", "1.000000,1.000000" },
                                             { "vendor.debug.camera.oisAlgoPara", "1:0:0:5:4:60" },
                                             { "vendor.x", "2" } };
    EXPECT_EQ(summary.parameters.properties, expected);
    EXPECT_EQ(summary.parameters.settings, (oisverify::NamedTexts{ { "logInfoMask", "1" } }));
    EXPECT_EQ(summary.parameters.dropFrames, 5u);
    EXPECT_EQ(summary.frames.dropped, 5u);
    EXPECT_TRUE(summary.warnings.empty());
    const RunSummary low = oisverify::SummariseRun(Config({ "--limit", "3" }), Verified(), Passed(), nullptr);
    ASSERT_EQ(low.warnings.size(), 1u);
    EXPECT_EQ(low.warnings, Config({ "--limit", "3" }).warnings) << "the warnings printed before the run";
}

// What the run did not get is null, not a number that looks measured.
TEST(RunSummaryOfAVerification, MissingValuesAreNull)
{
    oisverify::RunResult result = Verified();
    result.finished             = true;
    result.finalState           = -12;
    result.hasTruth             = false;
    result.horSrDb              = NAN;
    result.events.durationMs    = -1;
    const RunSummary summary =
        oisverify::SummariseRun(Config({ "--replay", "/tmp" }), result, oisverify::Verdict(), nullptr);
    EXPECT_EQ(summary.verdict, "FAIL");
    EXPECT_EQ(summary.nodeStateName, "error -12");
    EXPECT_EQ(summary.nodeStateMeaning, "too many frames without the chart");
    EXPECT_FALSE(summary.horizontal.nodeSrDb);
    EXPECT_FALSE(summary.horizontal.trueSrDb);
    EXPECT_EQ(summary.vertical.nodeSrDb, 23.77);
    EXPECT_FALSE(summary.measurementMs);
    EXPECT_FALSE(summary.parameters.simulation) << "recorded frames have no simulated module";
    EXPECT_EQ(summary.parameters.source, "replay");
    const std::string json = RunSummaryJson(summary, true);
    EXPECT_NE(json.find("\"horizontal\":{\"nodeSrDb\":null,\"trueSrDb\":null,\"nodeBlurPx\":1.51,\"trueBlurPx\":null,"),
              std::string::npos)
        << json;
    EXPECT_NE(json.find("\"measurementMs\":null"), std::string::npos);
    EXPECT_NE(json.find("\"simulation\":null"), std::string::npos);
}

// The suppression of the applied shake per image axis, and the OIS-off reference session's.
TEST(RunSummaryOfAVerification, CarriesSuppressionAndReferencePerAxis)
{
    oisverify::RunResult result                 = Verified();
    result.suppression.known                    = true;
    result.suppression.appliedShakePx           = { 99.28485f, 99.26f };
    result.suppression.trueSuppressionDb        = { 23.971373f, 22.73f };
    result.reference.ran                        = true;
    result.reference.measured                   = true;
    result.reference.finalState                 = 4;
    result.reference.referenceBlurPx            = { 99.55f, 99.6f };
    result.reference.referenceSrDb              = { 6.6022563f, 6.6f };
    result.reference.hasGain                    = true;
    result.reference.stabilisationGainDb        = { 19.982029f, 18.74f };
    oisverify::Verdict verdict                  = Passed();
    verdict.notes                               = { "a note" };
    const RunSummary summary = oisverify::SummariseRun(Config({ "--reference" }), result, verdict, nullptr);
    EXPECT_EQ(summary.horizontal.appliedShakePx, 99.28485);
    EXPECT_EQ(summary.vertical.appliedShakePx, 99.26);
    EXPECT_EQ(summary.horizontal.trueSuppressionDb, 23.971373);
    EXPECT_EQ(summary.vertical.trueSuppressionDb, 22.73);
    EXPECT_EQ(summary.horizontal.referenceBlurPx, 99.55);
    EXPECT_EQ(summary.vertical.referenceSrDb, 6.6);
    EXPECT_EQ(summary.horizontal.stabilisationGainDb, 19.982029);
    EXPECT_EQ(summary.vertical.stabilisationGainDb, 18.74);
    EXPECT_EQ(summary.notes, verdict.notes);
    ASSERT_TRUE(summary.reference);
    EXPECT_TRUE(summary.reference->measured);

    // A reference that gave no SR has no values, and no gain.
    result.reference.measured = false;
    result.reference.hasGain  = false;
    result.reference.finalState = -12;
    const RunSummary unmeasured = oisverify::SummariseRun(Config({ "--reference" }), result, verdict, nullptr);
    EXPECT_FALSE(unmeasured.horizontal.referenceBlurPx);
    EXPECT_FALSE(unmeasured.vertical.stabilisationGainDb);
    ASSERT_TRUE(unmeasured.reference);
    EXPECT_EQ(unmeasured.reference->nodeState, -12);
    EXPECT_FALSE(oisverify::SummariseRun(Config({}), Verified(), verdict, nullptr).reference);
}

// A calibration run's axes hold the verification at the module's own gains (the node's last SR
// belongs to the last gain it tried); the search's result is in "calibration".
TEST(RunSummaryOfACalibration, AxesAreTheBaseVerificationAndTheSearchIsSeparate)
{
    const oisverify::RunConfig config = Config({ "--calibrate", "--ideal-gain", "1.08", "--fuse-id", "ZK42" });
    oisverify::RunResult       result = Verified();
    OISPersistLine             line;
    line.columnCount = 5;
    line.record      = { "1", "ZK42", "1.100000", "1.100000", 1234 };
    result.calibration.persistLines = { OISPersistLine(), line };
    oisverify::CalibrationOutcome outcome;
    outcome.hasInitial  = true;
    outcome.initial     = { 15.24f, 15.2f, 13.63f, 13.7f };
    outcome.searched    = true;
    outcome.records.resize(9);
    outcome.hasSelection = true;
    outcome.selection    = { 9, 1.1f, 1.1f, 20.84f, 20.78f };
    outcome.idealX = outcome.idealY = 1.08;
    outcome.hasNearest               = true;
    outcome.nearestX = outcome.nearestY = 1.1f;
    outcome.persistLine              = 1;
    outcome.hasTrueSr                = true;
    outcome.trueSrXDb                = 20.754913f;
    outcome.trueSrYDb                = 20.732327f;
    result.suppression.known         = true;
    result.suppression.trueSuppressionDb = { 9.0f, 9.0f };
    const RunSummary summary         = oisverify::SummariseRun(config, result, Passed(), &outcome);
    EXPECT_EQ(summary.mode, "calibrate");
    EXPECT_FALSE(summary.vertical.trueSuppressionDb) << "taken over the last gain tried, as the truth";
    EXPECT_EQ(summary.moduleId, "ZK42") << "the module is its fuse ID by default";
    EXPECT_EQ(summary.horizontal.nodeSrDb, 15.24);
    EXPECT_EQ(summary.vertical.nodeBlurPx, 13.7);
    EXPECT_FALSE(summary.horizontal.trueSrDb) << "the truth was taken over the last gain tried";
    ASSERT_TRUE(summary.calibration);
    const oisverify::CalibrationSummary& c = *summary.calibration;
    EXPECT_FALSE(c.basePass);
    EXPECT_EQ(c.pairsMeasured, 9u);
    EXPECT_EQ(c.selectedGainX, 1.1);
    EXPECT_EQ(c.selectedSrYDb, 20.78);
    EXPECT_EQ(c.trueSrXDb, 20.754913);
    EXPECT_EQ(c.nearestGainY, 1.1);
    ASSERT_TRUE(c.persist);
    EXPECT_EQ(c.persist->line, 2u);
    EXPECT_EQ(c.persist->crcStored, 1234u);
    EXPECT_EQ(c.persist->crcComputed, OISCalibrationFile::GetCrc(&line.record));
    ASSERT_TRUE(summary.parameters.search);
    EXPECT_EQ(summary.parameters.search->stepFraction, 0.05);
    EXPECT_EQ(summary.parameters.search->fuseId, "ZK42");
    EXPECT_EQ(summary.parameters.settings, (oisverify::NamedTexts{ { "enableOISGyroGainCalibration", "TRUE" } }));
    EXPECT_NE(RunSummaryJson(summary, true).find("\"crcOk\":false"), std::string::npos);
}

TEST(RunSummaryOfAnError, SaysErrorWithTheReason)
{
    const RunSummary summary =
        oisverify::SummariseError(Config({}), oisverify::RunResult(), "node library not found: /x.so");
    EXPECT_EQ(summary.verdict, "ERROR");
    EXPECT_EQ(summary.reason, "node library not found: /x.so");
    EXPECT_EQ(summary.reasons, std::vector<std::string>{ "node library not found: /x.so" });
    EXPECT_FALSE(summary.finished);
    EXPECT_EQ(summary.timeUtc, "2026-11-23T13:40:02Z");
    EXPECT_EQ(oisverify::SummariseError(Config({}), oisverify::RunResult(), "x", 0).timeUtc, "1970-01-01T00:00:00Z")
        << "a time given wins over the configuration's";
}

// Every field set, texts that need escaping, a seed beyond what a double holds exactly.
RunSummary Full()
{
    const oisverify::RunConfig config = Config({ "--calibrate", "--ideal-gain", "1.08" });
    oisverify::CalibrationOutcome outcome;
    outcome.hasInitial   = true;
    outcome.initial      = { 15.24f, 15.2f, 13.63f, 13.7f };
    outcome.searched     = true;
    outcome.hasSelection = true;
    outcome.selection    = { 9, 1.1f, 1.05f, 20.84f, 19.2f };
    outcome.idealX       = 1.08;
    outcome.idealY       = 1.08;
    outcome.hasTrueSr    = true;
    outcome.trueSrXDb    = 20.5;
    outcome.trueSrYDb    = 19.25;
    oisverify::RunResult result = Verified();
    result.events.errors        = { "first \"error\"", "second\ttab" };
    RunSummary summary          = oisverify::SummariseRun(config, result, Passed(), &outcome);
    summary.moduleId            = "module \\ \"7\"";
    summary.station             = "Prüfplatz 2";
    summary.reasons             = { "a", "b" };
    summary.parameters.simulation->seed = 18446744073709551615ull;
    summary.calibration->persist        = oisverify::PersistSummary{ 3, "ZK", "1", "1.1", "1.05", 7, 9 };
    summary.nodeBuildId                 = "0123abcd";
    summary.notes                       = { "note" };
    summary.warnings                    = { "warning" };
    summary.horizontal.trueSuppressionDb   = 21.5;
    summary.vertical.stabilisationGainDb   = 18.25;
    summary.reference                   = oisverify::ReferenceSummary{ true, 4, { "reference error" } };
    return summary;
}

TEST(RunSummaryDocument, ReadsBackToTheSameDocument)
{
    for (const RunSummary& summary : { Full(), oisverify::SummariseRun(Config({ "--replay", "/tmp" }), Verified(),
                                                                       oisverify::Verdict(), nullptr) })
    {
        for (bool compact : { false, true })
        {
            const std::string json = RunSummaryJson(summary, compact);
            std::string       error;
            const std::optional<RunSummary> read = ParseRunSummary(json, &error);
            ASSERT_TRUE(read) << error << "\n" << json;
            EXPECT_EQ(RunSummaryJson(*read, compact), json);
        }
    }
    const std::optional<RunSummary> read = ParseRunSummary(RunSummaryJson(Full()));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->moduleId, "module \\ \"7\"");
    EXPECT_EQ(read->station, "Prüfplatz 2");
    EXPECT_EQ(read->parameters.simulation->seed, 18446744073709551615ull);
    EXPECT_EQ(read->calibration->selectedGainY, 1.05);
    EXPECT_EQ(read->nodeErrors[1], "second\ttab");
    EXPECT_EQ(read->measurementMs, 516);
    EXPECT_EQ(read->notes, std::vector<std::string>{ "note" });
    EXPECT_EQ(read->warnings, std::vector<std::string>{ "warning" });
    EXPECT_EQ(read->horizontal.trueSuppressionDb, 21.5);
    EXPECT_EQ(read->vertical.stabilisationGainDb, 18.25);
    ASSERT_TRUE(read->reference);
    EXPECT_EQ(read->reference->nodeErrors, std::vector<std::string>{ "reference error" });
}

// Valid UTF-8 stays as it is; a text with any byte that is not gets all its bytes outside
// printable ASCII escaped, so that the document is valid JSON for any reader.
TEST(RunSummaryDocument, BytesThatAreNotUtf8AreEscaped)
{
    const std::pair<std::string, std::string> cases[] = {
        { "M\xff\x01", "M\\xFF\\x01" },
        { "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80", "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80" }, // é € U+1F600
        { "\xc0\xaf", "\\xC0\\xAF" },                 // overlong '/'
        { "\xe0\x80\xaf", "\\xE0\\x80\\xAF" },         // overlong, three bytes
        { "\xed\xa0\x80", "\\xED\\xA0\\x80" },         // a surrogate
        { "\xf4\x90\x80\x80", "\\xF4\\x90\\x80\\x80" }, // above U+10FFFF
        { "a\xc3", "a\\xC3" },                         // cut short
    };
    for (const auto& c : cases)
    {
        RunSummary summary = Full();
        summary.moduleId   = c.first;
        const std::optional<RunSummary> read = ParseRunSummary(RunSummaryJson(summary));
        ASSERT_TRUE(read);
        EXPECT_EQ(read->moduleId, c.second);
    }
}

// Edits of a good document, by replacing its first occurrence of a text.
struct BadDocument
{
    const char* name;
    const char* from;
    const char* to;
    const char* error;
};

void PrintTo(const BadDocument& c, std::ostream* pOut) { *pOut << c.name; }

class BadDocuments : public ::testing::TestWithParam<BadDocument> {};

TEST_P(BadDocuments, AreRefusedNamingTheField)
{
    std::string json = RunSummaryJson(Full(), true);
    const size_t at  = json.find(GetParam().from);
    ASSERT_NE(at, std::string::npos) << json;
    json.replace(at, strlen(GetParam().from), GetParam().to);
    std::string error;
    EXPECT_FALSE(ParseRunSummary(json, &error)) << json;
    EXPECT_EQ(error, GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadDocuments,
    ::testing::Values(
        BadDocument{ "NotJson", "{\"format\"", "{format", "the text is not one JSON document" },
        BadDocument{ "TrailingText", "\"errors\":[", "\"errors\":[]}}x", "the text is not one JSON document" },
        BadDocument{ "NotAnObject", "{\"format\":1,", "[{\"format\":1,", "the text is not one JSON document" },
        BadDocument{ "OtherFormat", "\"format\":1", "\"format\":2", "field 'format' is 2, this reader reads format 1" },
        BadDocument{ "UnknownVerdict", "\"PASS\"", "\"MAYBE\"", "field 'verdict' is not PASS, FAIL or ERROR" },
        BadDocument{ "MissingStation", "\"station\"", "\"stationName\"", "field 'station' is missing" },
        BadDocument{ "StateAsText", "\"nodeState\":4", "\"nodeState\":\"4\"", "field 'nodeState' is not a number" },
        BadDocument{ "NegativeCount", "\"total\":152", "\"total\":-1", "field 'frames.total' is not a whole number in range" },
        BadDocument{ "SrAsText", "\"nodeSrDb\":15.24", "\"nodeSrDb\":\"15.24\"",
                     "field 'horizontal.nodeSrDb' is not a number or null" },
        BadDocument{ "FractionalMs", "\"measurementMs\":516", "\"measurementMs\":516.5",
                     "field 'measurementMs' is not a whole number of milliseconds" },
        BadDocument{ "EepromText", "\"OISGyroGainAndSRMatch\":0", "\"OISGyroGainAndSRMatch\":\"0\"",
                     "field 'parameters.eeprom.OISGyroGainAndSRMatch' is not a number" },
        BadDocument{ "ReferenceStateText", "\"nodeState\":4,\"errors\":[\"reference", "\"nodeState\":\"4\",\"errors\":[\"reference",
                     "field 'reference.nodeState' is not a number" },
        BadDocument{ "NotesNotTexts", "\"notes\":[\"note\"]", "\"notes\":[1]", "field 'notes' holds something other than texts" },
        BadDocument{ "PersistCrcMissing", "\"crcStored\"", "\"crc\"", "field 'calibration.persist.crcStored' is missing" },
        BadDocument{ "SeedNotANumber", "\"seed\":\"18446744073709551615\"", "\"seed\":\"12a\"",
                     "field 'parameters.simulation.seed' is not a whole number" }));

// Readers keep working when fields are added, and take a null value absent.
TEST(RunSummaryDocument, UnknownFieldsAreIgnoredAndAbsentOptionalsAreNull)
{
    std::string json =
        RunSummaryJson(oisverify::SummariseRun(Config({}), Verified(), Passed(), nullptr), true);
    const std::string trueSr = "\"trueSrDb\":24.786348,";
    ASSERT_NE(json.find(trueSr), std::string::npos) << json;
    json.replace(json.find(trueSr), trueSr.size(), "\"trueSuppressionDb\":3,");
    std::string                     error;
    std::optional<RunSummary> read = ParseRunSummary(json, &error);
    ASSERT_TRUE(read) << error;
    EXPECT_FALSE(read->horizontal.trueSrDb);
    EXPECT_EQ(read->vertical.trueSrDb, 23.765177);

    json = RunSummaryJson(Full(), true);
    json.replace(json.find("\"calibration\":{"), strlen("\"calibration\":"), "\"calibrationOld\":");
    read = ParseRunSummary(json, &error);
    ASSERT_TRUE(read) << error;
    EXPECT_FALSE(read->calibration);
}

TEST(IsoUtc, IsSecondsInUtc)
{
    EXPECT_EQ(oisverify::IsoUtc(0), "1970-01-01T00:00:00Z");
    EXPECT_EQ(oisverify::IsoUtc(1795441202), "2026-11-23T13:40:02Z");
    EXPECT_EQ(oisverify::IsoUtc(951782400), "2000-02-29T00:00:00Z");
}

struct IdentityCase
{
    std::vector<std::string> words;
    const char*              moduleId;
    const char*              station; // nullptr: the host name
};

void PrintTo(const IdentityCase& c, std::ostream* pOut)
{
    for (const std::string& word : c.words)
    {
        *pOut << word << " ";
    }
}

class Identity : public ::testing::TestWithParam<IdentityCase> {};

TEST_P(Identity, ModuleIsTheFuseIdAndStationTheHostUnlessGiven)
{
    const oisverify::RunConfig config = Config(GetParam().words);
    EXPECT_EQ(config.summary.moduleId, GetParam().moduleId);
    EXPECT_EQ(config.summary.station, GetParam().station ? GetParam().station : oisverify::HostName());
    EXPECT_FALSE(config.summary.station.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Table, Identity,
    ::testing::Values(IdentityCase{ {}, "", nullptr }, IdentityCase{ { "--calibrate" }, "ZKSIM0001", nullptr },
                      IdentityCase{ { "--calibrate", "--fuse-id", "ZK42" }, "ZK42", nullptr },
                      IdentityCase{ { "--prop", "vendor.camera.sensor.w.fuseID=FUSE0004AB12" }, "AB12", nullptr },
                      IdentityCase{ { "--calibrate", "--module-id", "M-7", "--station", "line 3" }, "M-7", "line 3" }));

TEST(SummaryOptions, JsonPathIsAbsoluteOrStdout)
{
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof(cwd)), nullptr);
    EXPECT_EQ(Config({ "--json", "run.json" }).summary.jsonPath, std::string(cwd) + "/run.json");
    EXPECT_EQ(Config({ "--out", "new", "--json", "new/../new/run.json" }).summary.jsonPath,
              std::string(cwd) + "/new/run.json")
        << "the output folder is made by the run";
    EXPECT_EQ(Config({ "--json", "-" }).summary.jsonPath, "-");
    EXPECT_EQ(Config({}).summary.jsonPath, "");
}

TEST(SummaryOptions, RefuseEmptyPathsAndUnprintableIds)
{
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        { { "--json=" }, "--json needs a file name, or - for stdout" },
        { { "--json", "/nonexistent/run.json" }, "--json /nonexistent/run.json: the folder /nonexistent does not exist" },
        { { "--module-id", "" }, "--module-id needs 1 to 128 printable ASCII characters, got ''" },
        { { "--station", "a\tb" }, "--station needs 1 to 128 printable ASCII characters, got 'a\\x09b'" },
        { { "--module-id", std::string(129, 'M') },
          "--module-id needs 1 to 128 printable ASCII characters, got '" + std::string(129, 'M') + "'" },
    };
    for (const auto& c : cases)
    {
        oisverify::RunConfig config;
        std::string          error;
        EXPECT_FALSE(oisverify::ParseRunWords(c.first, &config, &error)) << c.second;
        EXPECT_EQ(error, c.second);
    }
    oisverify::RunConfig config;
    std::string          error;
    EXPECT_TRUE(oisverify::ParseRunWords({ "--module-id", std::string(128, 'M') }, &config, &error)) << error;
}

} // namespace
