// A calibration run read back without a node: the search lines of the node's log and calibration
// log, the selection against the ideal gains, the verdict over every way a search can end, and the
// table, figure and page section written from it.
#include <gtest/gtest.h>

#include <math.h>
#include <stdlib.h>

#include "figures/calibrationfigure.h"
#include "report/calibrationreport.h"
#include "verdict/calibrationresult.h"
#include "clitestsupport.h"
#include "report/htmlsummary.h"
#include "cli/runoptions.h"

namespace
{

using oisverify::CalibrationOutcome;
using oisverify::RunResult;

// The node's calibration log of a search around 1.0 for a module whose ideal gains are 1.08.
const char kCalibLog[] =
    "Verify Done frameNum = 195 oisCalibCnt = 0 m_OISGyroGainAndSRMatch = 0 Gain[0.80, 0.80] SR[9.89, 9.85] Blur[46.68, 47.09]\n"
    "Verify Done frameNum = 238 oisCalibCnt = 1 m_OISGyroGainAndSRMatch = 0 Gain[0.90, 0.90] SR[11.77, 11.79] Blur[30.29, 30.17]\n"
    "not a record\n"
    "Verify Done frameNum = 281 oisCalibCnt = 2 m_OISGyroGainAndSRMatch = 0 Gain[1.05, 1.05] SR[18.97, 19.20] Blur[5.77, 5.47]\n"
    "Verify Done frameNum = 324 oisCalibCnt = 3 m_OISGyroGainAndSRMatch = 0 Gain[1.10, 1.10] SR[20.84, 20.79] Blur[3.76, 3.80]\n"
    "Verify Done frameNum = 367 oisCalibCnt = 4 m_OISGyroGainAndSRMatch = 0 Gain[1.20, 1.20] SR[13.50, 13.50] Blur[20.32, 20.33]\n";

oisverify::RunConfig CalibrationConfig(const std::vector<std::string>& extra = {})
{
    std::vector<std::string> words = { "--calibrate", "--ideal-gain", "1.08" };
    words.insert(words.end(), extra.begin(), extra.end());
    oisverify::RunConfig config;
    std::string          error;
    EXPECT_TRUE(oisverify::ParseRunWords(words, &config, &error)) << error;
    return config;
}

// The record a calibration writes, with the CRC the persist file's own function gives it.
OISPersistLine PersistRecord(const std::string& fuseId, const char* pGainX, const char* pGainY)
{
    OISPersistLine line;
    line.columnCount = OISCalibrationFile::kColumnCount;
    line.record      = { "1", fuseId, pGainX, pGainY, 0 };
    line.record.crc  = OISCalibrationFile::GetCrc(&line.record);
    return line;
}

// A search that ended in state 4 with 1.10 selected on both axes and written to the persist file.
RunResult SearchedResult()
{
    RunResult result;
    result.finished   = true;
    result.finalState = 4;
    for (const char* pLine : { "Blur is valid [horSR, verSR] = [15.24, 15.20] [horBlur,verBlur] = [13.80, 13.90] "
                               "m_execAlgoFrameNum = 32 verify duration time = 516 ms",
                               "Set gain target oisCalibCnt = 0 gainXTarget = 0.80 gainYTarget = 0.80",
                               "select Gain write to persist, vertorSize = 5 Gain[1.10, 1.10]  SR[20.84, 20.79]" })
    {
        oisverify::NoteLogLine('I', pLine, &result.events);
    }
    result.calibration.calibLogText = kCalibLog;
    result.calibration.persistRead  = true;
    result.calibration.persistLines = { PersistRecord("ZKSIM0001", "1.100000", "1.100000") };
    return result;
}

TEST(CalibrationLog, SearchLinesBecomeRecordsAndEvents)
{
    const std::vector<oisverify::SearchRecord> records = oisverify::ParseCalibrationLog(kCalibLog);
    ASSERT_EQ(records.size(), 5u);
    EXPECT_EQ(records[2].frameNum, 281);
    EXPECT_EQ(records[2].index, 2);
    EXPECT_FLOAT_EQ(records[2].gainY, 1.05f);
    EXPECT_FLOAT_EQ(records[2].srYDb, 19.20f);
    EXPECT_FLOAT_EQ(records[2].verBlurPx, 5.47f);

    const RunResult result = SearchedResult();
    ASSERT_EQ(result.events.verdicts.size(), 1u);
    EXPECT_FLOAT_EQ(result.events.verdicts[0].verSrDb, 15.20f);
    EXPECT_EQ(result.events.targets, 1u);
    ASSERT_TRUE(result.events.hasSelection) << "the node's line has two spaces before SR";
    EXPECT_EQ(result.events.selection.records, 5);
    EXPECT_FLOAT_EQ(result.events.selection.srYDb, 20.79f);
}

TEST(CalibrationOutcome, SelectionIsPlacedAgainstTheTriedAndIdealGains)
{
    const CalibrationOutcome outcome = oisverify::ReadCalibrationOutcome(CalibrationConfig(), SearchedResult());
    EXPECT_FALSE(outcome.initialPass);
    EXPECT_TRUE(outcome.searched);
    EXPECT_EQ(outcome.selectedX, 3);
    EXPECT_EQ(outcome.selectedY, 3);
    ASSERT_TRUE(outcome.hasNearest);
    EXPECT_FLOAT_EQ(static_cast<float>(outcome.nearestX), 1.10f);
    EXPECT_EQ(outcome.persistLine, 0);

    const std::string table = oisverify::SearchTableText(outcome);
    EXPECT_EQ(clitest::CountOf(table, "*"), 2u) << table;
    EXPECT_NE(table.find("1.10    20.84 dB*   20.79 dB*"), std::string::npos) << table;
}

TEST(CalibrationOutcome, NearestTriedGainPerAxis)
{
    const auto records = oisverify::ParseCalibrationLog(kCalibLog);
    const struct
    {
        double ideal, nearest;
    } cases[] = { { 1.08, 1.10 }, { 0.87, 0.90 }, { 0.5, 0.80 }, { 1.6, 1.20 }, { 1.00, 1.05 } };
    for (const auto& c : cases)
    {
        double nearest = 0.0;
        ASSERT_TRUE(oisverify::NearestTriedGain(records, true, c.ideal, &nearest));
        EXPECT_FLOAT_EQ(static_cast<float>(nearest), static_cast<float>(c.nearest)) << c.ideal;
    }
    double none = 0.0;
    EXPECT_FALSE(oisverify::NearestTriedGain({}, false, 1.0, &none));
}

struct VerdictCase
{
    const char* name;
    void (*alter)(RunResult* pResult);
    std::vector<std::string> extraWords;
    bool        pass;
    const char* expected; // part of the headline
};

void PrintTo(const VerdictCase& c, std::ostream* pOut) { *pOut << c.name; }

class CalibrationVerdict : public ::testing::TestWithParam<VerdictCase> {};

TEST_P(CalibrationVerdict, JudgesTheSelectedGainsAndTheirRecord)
{
    const VerdictCase&         c      = GetParam();
    const oisverify::RunConfig config = CalibrationConfig(c.extraWords);
    RunResult                  result = SearchedResult();
    c.alter(&result);
    const CalibrationOutcome outcome = oisverify::ReadCalibrationOutcome(config, result);
    const oisverify::Verdict verdict = oisverify::DecideCalibrationVerdict(config, result, outcome);
    EXPECT_EQ(verdict.pass, c.pass) << verdict.headline;
    EXPECT_NE(verdict.headline.find(c.expected), std::string::npos) << verdict.headline;
}

INSTANTIATE_TEST_SUITE_P(
    Table, CalibrationVerdict,
    ::testing::Values(
        VerdictCase{ "selected", [](RunResult*) {}, {}, true, "on both gyro axes with the selected gains 1.10, 1.10" },
        VerdictCase{ "no search",
                     [](RunResult* r) {
                         *r = RunResult();
                         r->finished = true;
                         r->finalState = 4;
                         oisverify::NoteLogLine('I', "Blur is valid [horSR, verSR] = [24.79, 23.77] [horBlur,verBlur] "
                                                     "= [1.51, 1.91]", &r->events);
                     },
                     {}, true, "at the base gains: no search needed" },
        VerdictCase{ "no search on a stalled table",
                     [](RunResult* r) {
                         *r = RunResult();
                         r->finished = true;
                         r->finalState = 4;
                         oisverify::NoteLogLine('I', "Blur is valid [horSR, verSR] = [29.12, 28.57] [horBlur,verBlur] "
                                                     "= [0.56, 0.63]", &r->events);
                         r->suppression.known                        = true;
                         r->suppression.trueSuppressionDb.horizontal = -INFINITY;
                         r->suppression.trueSuppressionDb.vertical   = -INFINITY;
                     },
                     {}, false, "horizontal SR 29.12 dB passes only against the node's fixed 181.248 px reference: "
                                "the table applied no shake" },
        VerdictCase{ "below the limit", [](RunResult*) {}, { "--limit", "20.8" }, false,
                     "gyro Y SR with the selected gain 1.10 is 20.79 dB, below the limit of 20.80 dB" },
        VerdictCase{ "bad crc", [](RunResult* r) { r->calibration.persistLines[0].record.crc ^= 1; }, {}, false,
                     "has a bad CRC" },
        VerdictCase{ "other gains", [](RunResult* r) {
                         r->calibration.persistLines[0] = PersistRecord("ZKSIM0001", "1.050000", "1.100000"); },
                     {}, false, "does not hold the selected gains 1.10, 1.10" },
        VerdictCase{ "other module", [](RunResult* r) {
                         r->calibration.persistLines[0] = PersistRecord("OTHER", "1.100000", "1.100000"); },
                     {}, false, "holds no record of fuse ID \"ZKSIM0001\"" },
        VerdictCase{ "held axis", [](RunResult* r) { r->finalState = -21; }, { "--single-axis", "x" }, false,
                     "the persist file refused a gyro gain (a gain outside 0.5 to 2.0, no fuse ID for the module, or the file could "
                     "not be written), so the node never asked the OIS service to apply it (with one axis held the "
                     "search ends only" },
        VerdictCase{ "unfinished", [](RunResult* r) { r->finished = false; r->finalState = 23; }, {}, false,
                     "the node did not finish: still verifying gain" }));

TEST(CalibrationFigure, EveryTriedGainWithLimitIdealAndSelection)
{
    const oisverify::RunConfig config  = CalibrationConfig();
    const CalibrationOutcome   outcome = oisverify::ReadCalibrationOutcome(config, SearchedResult());
    const std::string          svg     = oisverify::CalibrationSvg(config, outcome);
    EXPECT_EQ(clitest::CheckMarkup(svg), "");
    for (const std::string panel : { "gyro-x", "gyro-y" })
    {
        const size_t      tried    = svg.find("<g id=\"" + panel + "-tried\">");
        const size_t      selected = svg.find("<g id=\"" + panel + "-selected\">");
        ASSERT_NE(tried, std::string::npos) << panel;
        ASSERT_NE(selected, std::string::npos) << panel;
        const std::string triedText    = svg.substr(tried, svg.find("</g>", tried) - tried);
        const std::string selectedText = svg.substr(selected, svg.find("</g>", selected) - selected);
        EXPECT_EQ(clitest::CountOf(triedText, "<circle"), 5u) << panel;
        EXPECT_EQ(clitest::CountOf(svg, "id=\"" + panel + "-limit\""), 1u);
        EXPECT_EQ(clitest::CountOf(svg, "id=\"" + panel + "-ideal\""), 1u);
        // The ring sits on the fourth tried point, the 1.10 of the search (points are in gain order).
        const auto centre = [](const std::string& text, size_t from) {
            const size_t cx = text.find("cx=", from);
            return text.substr(cx, text.find(" r=", cx) - cx);
        };
        size_t at = 0;
        for (int i = 0; i < 4; i++)
        {
            at = triedText.find("<circle", at + 1);
        }
        EXPECT_EQ(centre(triedText, at), centre(selectedText, 0)) << panel;
        EXPECT_NE(selectedText.find("selected 1.10"), std::string::npos);
    }
    const std::string empty = oisverify::CalibrationSvg(config, CalibrationOutcome());
    EXPECT_EQ(clitest::CheckMarkup(empty), "");
    EXPECT_NE(empty.find("The node measured no gain pairs."), std::string::npos);
}

// The page stays well formed whatever the persist file holds; its fields are shown escaped.
TEST(CalibrationPage, SectionTakesThePlaceOfTheSrTable)
{
    const oisverify::RunConfig config =
        CalibrationConfig({ "--prop", "vendor.camera.sensor.w.fuseID=FUSE0006<A&B>\x01" });
    RunResult result = SearchedResult();
    result.calibration.persistLines.insert(result.calibration.persistLines.begin(),
                                           PersistRecord("ZKSIM0001", "1.0", "1.0"));
    result.calibration.persistLines.push_back(PersistRecord("<A&B>\x01", "1.100000", "1.100000"));
    const CalibrationOutcome outcome = oisverify::ReadCalibrationOutcome(config, result);
    const std::string        section =
        oisverify::CalibrationSectionHtml(config, result, outcome, oisverify::CalibrationSvg(config, outcome));
    oisverify::Verdict verdict;
    verdict.pass = true;
    const std::string html = oisverify::SummaryHtml(config, result, verdict, "<svg></svg>", "<svg></svg>",
                                                    { "calibration.svg" }, section);
    EXPECT_EQ(clitest::CheckMarkup(html), "");
    EXPECT_EQ(html.find("<h2>Suppression ratio</h2>"), std::string::npos);
    EXPECT_EQ(clitest::CountOf(html, "<td class=\"good\">"), 4u + 2u) << "gains and SR of the selection, both SRs";
    EXPECT_NE(html.find("line 3  ok   fuse id &quot;&lt;A&amp;B&gt;\\x01&quot;"), std::string::npos) << html;
    EXPECT_NE(html.find("gyro X 0.80 to 1.20 in steps of 0.05 (9 targets)"), std::string::npos);
}

} // namespace

namespace
{

template <typename Print>
std::string Captured(Print print)
{
    char*  pText = nullptr;
    size_t size  = 0;
    FILE*  pOut  = open_memstream(&pText, &size);
    print(pOut);
    fclose(pOut);
    std::string text(pText, size);
    free(pText);
    return text;
}

// Before the search: the node's rules that will surprise, with the way out.
TEST(CalibrationHeader, WarnsAboutTheNodesSearchRules)
{
    const std::string plain = Captured([](FILE* p) { oisverify::PrintCalibrationHeader(p, CalibrationConfig()); });
    EXPECT_EQ(clitest::CountOf(plain, "warning"), 0u) << plain;
    EXPECT_NE(plain.find("note          the node persists the best gain pair it measured even when it stays below "
                         "the limit"), std::string::npos);

    const std::string gap =
        Captured([](FILE* p) { oisverify::PrintCalibrationHeader(p, CalibrationConfig({ "--search", "0.3,0.1" })); });
    EXPECT_NE(gap.find("gyro X target 0.90 leaves out the base gain 1.00: the node chooses among the targets only"),
              std::string::npos) << gap;
    EXPECT_NE(gap.find("(1 target)"), std::string::npos) << gap;
    EXPECT_EQ(clitest::CountOf(gap, "leaves out the base gain"), 2u);

    const std::string low =
        Captured([](FILE* p) { oisverify::PrintCalibrationHeader(p, CalibrationConfig({ "--search", "0.1,0.6" })); });
    EXPECT_NE(low.find("gyro X starts at 0.40, below the smallest gain the persist file takes (0.5): expect error -21"),
              std::string::npos) << low;

    const std::string held = Captured(
        [](FILE* p) { oisverify::PrintCalibrationHeader(p, CalibrationConfig({ "--single-axis", "x" })); });
    EXPECT_NE(held.find("the module is left on the last target written, up to 2.0"), std::string::npos) << held;
    EXPECT_EQ(held.find("leaves out the base gain"), std::string::npos) << "a held search runs through the base";
}

// After the search: only the axes below the limit are called below it, and what the persist file
// was left holding is said when the run fails.
TEST(CalibrationReport, NamesOnlyTheAxesBelowAndWhatThePersistFileKeeps)
{
    const oisverify::RunConfig config  = CalibrationConfig({ "--limit", "30" });
    RunResult                  result  = SearchedResult();
    const CalibrationOutcome   outcome = oisverify::ReadCalibrationOutcome(config, result);
    const oisverify::Verdict   verdict = oisverify::DecideCalibrationVerdict(config, result, outcome);
    ASSERT_FALSE(verdict.pass);
    const std::string text = Captured(
        [&](FILE* p) { oisverify::PrintCalibrationReport(p, config, result, outcome, verdict, false); });
    EXPECT_NE(text.find("FAIL  horizontal SR 15.24 dB, vertical SR 15.20 dB are below the limit of 30.00 dB: the node "
                        "searches"), std::string::npos) << text;
    EXPECT_NE(text.find("the node's rule: the persist file keeps gains 1.100000, 1.100000 for the module although the "
                        "run failed; restore its gains 1.00, 1.00"), std::string::npos) << text;
    EXPECT_EQ(text.find("worse than the base gains"), std::string::npos);

    RunResult single = SearchedResult();
    oisverify::NoteLogLine('I', "Blur is valid [horSR, verSR] = [21.50, 25.00] [horBlur,verBlur] = [3.80, 1.70] "
                                "m_execAlgoFrameNum = 32 verify duration time = 516 ms", &single.events);
    single.events.verdicts.erase(single.events.verdicts.begin()); // this one is the base gains' verdict now
    const oisverify::RunConfig held = CalibrationConfig({ "--limit", "22" });
    const CalibrationOutcome   seen = oisverify::ReadCalibrationOutcome(held, single);
    const std::string          line = Captured([&](FILE* p) {
        oisverify::PrintCalibrationReport(p, held, single, seen,
                                          oisverify::DecideCalibrationVerdict(held, single, seen), false);
    });
    EXPECT_NE(line.find("FAIL  horizontal SR 21.50 dB is below the limit of 22.00 dB (vertical SR 25.00 dB reaches "
                        "it)"), std::string::npos) << line;
    EXPECT_NE(line.find("the node's rule: it persisted gains 1.10, 1.10 (SR 20.84 / 20.79 dB per gyro axis), worse "
                        "than the base gains 1.00, 1.00 measured (21.50 / 25.00 dB)"), std::string::npos) << line;
}

// After a search the frames of the SR that counts are the selected gains' measurements, not the
// last target's.
TEST(CalibrationFrames, TheSelectedMeasurementsAreTheSrWindow)
{
    std::vector<oisverify::RunFrame> frames;
    for (uint32_t frameNum = 180; frameNum <= 370; frameNum++)
    {
        oisverify::RunFrame frame;
        frame.measured.frameNum = frameNum;
        frame.inRing            = frameNum > 340;
        frames.push_back(frame);
    }
    const std::vector<oisverify::SearchRecord> records = oisverify::ParseCalibrationLog(kCalibLog);
    oisverify::GainSelection                   both;
    both.gainX = both.gainY = 1.10f;
    both.srXDb              = 20.84f;
    both.srYDb              = 20.79f;
    oisverify::MarkSelectedFrames(records, both, 31, &frames);
    std::vector<uint32_t> marked;
    for (const oisverify::RunFrame& frame : frames)
    {
        if (frame.inRing)
        {
            marked.push_back(frame.measured.frameNum);
        }
    }
    ASSERT_EQ(marked.size(), 31u);
    EXPECT_EQ(marked.front(), 294u);
    EXPECT_EQ(marked.back(), 324u) << "the record's measurement ended at frame 324";

    oisverify::GainSelection split = both;
    split.gainY                    = 1.05f;
    split.srYDb                    = 19.20f;
    oisverify::MarkSelectedFrames(records, split, 31, &frames);
    size_t count = 0;
    for (const oisverify::RunFrame& frame : frames)
    {
        count += frame.inRing ? 1 : 0;
    }
    EXPECT_EQ(count, 62u) << "frames 251 to 281 for gyro Y, 294 to 324 for gyro X";
    EXPECT_TRUE(frames[251 - 180].inRing);
    EXPECT_FALSE(frames[250 - 180].inRing);
    EXPECT_FALSE(frames[282 - 180].inRing);
    EXPECT_FALSE(frames[370 - 180].inRing) << "the last target's ring is not the selection's";
}

} // namespace
