// Reading results collected from stations: the node's reports, run summaries and journals, and
// persist files, with every bad file listed and skipped; and module records from run summaries.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "clitestsupport.h"
#include "oiscalibrationfile.h"
#include "report/runsummary.h"
#include "stats/resultreader.h"
#include "yield/summaryrecord.h"

namespace oisverify
{
namespace
{

std::string NodeReport(int state, double horSr, double verSr, int calibrated, double gainX, double gainY)
{
    char text[1024];
    snprintf(text, sizeof(text),
             "{\n\t\"Version\":\t{\"version\":\t\"V1.0\"},\n\t\"Result\":\t{\n\t\t\"SR\":\t{\"oisVerifyState\":\t%d,"
             "\"skipAlgoFrameNum\":\t0,\"algoReturnValue\":\t0,\"horSR\":\t%f,\"verSR\":\t%f,\"horBlur\":\t5.0,"
             "\"verBlur\":\t5.0},\n\t\t\"GyroGainCalibrate\":\t{\"isGyroGainCalibrate\":\t%d,\"horGain\":\t%f,"
             "\"verGain\":\t%f}\n\t}\n}",
             state, horSr, verSr, calibrated, gainX, gainY);
    return text;
}

void Write(const std::string& path, const std::string& text)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

std::string PersistLine(const std::string& fuseId, const std::string& gainX, const std::string& gainY, int crcDelta)
{
    OISCalData data;
    data.calibFlag = "1";
    data.fuseId    = fuseId;
    data.gainX     = gainX;
    data.gainY     = gainY;
    data.crc       = static_cast<uint16_t>(OISCalibrationFile::GetCrc(&data) + crcDelta);
    return OISCalibrationFile::FormatRecordLine(data);
}

RunSummary CalibrationSummaryOf(const std::string& id, bool swap)
{
    RunSummary summary;
    summary.moduleId            = id;
    summary.mode                = "calibrate";
    summary.verdict             = kVerdictPass;
    summary.reason              = "SR at or above the limit";
    summary.limitDb             = 18.0;
    summary.finished            = true;
    summary.nodeState           = 4;
    summary.nodeStateName       = "verified";
    summary.horizontal.nodeSrDb = 15.0;
    summary.vertical.nodeSrDb   = 22.0;
    SimulationSummary simulation;
    simulation.idealGainX = 1.08;
    simulation.idealGainY = 0.97;
    simulation.swapAxes   = swap;
    summary.parameters.simulation = simulation;
    SearchSettings search;
    search.stepFraction      = 0.05;
    search.limitFraction     = 0.2;
    search.fuseId            = id;
    summary.parameters.search = search;
    CalibrationSummary calibration;
    calibration.searched      = true;
    calibration.selectedGainX = 1.10;
    calibration.selectedGainY = 0.95;
    calibration.selectedSrXDb = 20.5; // gyro X
    calibration.selectedSrYDb = 23.5;
    calibration.trueSrXDb     = 20.25;
    calibration.trueSrYDb     = 23.0;
    calibration.idealGainX    = 1.08;
    calibration.idealGainY    = 0.97;
    summary.calibration       = calibration;
    return summary;
}

TEST(SummaryRecord, SearchOutcomeOnTheImageAxes)
{
    for (bool swap : { false, true })
    {
        const ModuleRecord record = RecordFromSummary(CalibrationSummaryOf("M1", swap));
        EXPECT_EQ(record.id, "M1");
        EXPECT_EQ(record.setting, "0.05,0.2");
        EXPECT_TRUE(record.calibrated && record.searched && record.passAfter);
        EXPECT_FALSE(record.passBefore);
        EXPECT_DOUBLE_EQ(record.beforeHorDb, 15.0);
        // Gyro X drives the horizontal axis unless the module swaps them.
        EXPECT_DOUBLE_EQ(record.afterHorDb, swap ? 23.5 : 20.5);
        EXPECT_DOUBLE_EQ(record.afterVerDb, swap ? 20.5 : 23.5);
        EXPECT_DOUBLE_EQ(record.trueHorDb, swap ? 23.0 : 20.25);
        EXPECT_NEAR(record.nearestX, 1.10, 1e-6);
        EXPECT_NEAR(record.nearestY, 0.95, 1e-6);
        EXPECT_TRUE(SelectedNearestStep(record));
    }
}

TEST(SummaryRecord, LineCarriesTheTimingBack)
{
    ModuleTiming timing{ 1.25, 0.5, 0.125, 2.0 };
    const std::string line = SummaryLine(CalibrationSummaryOf("M2", false), timing);
    EXPECT_EQ(line.find('\n'), std::string::npos);
    ModuleRecord record;
    std::string  reason;
    ASSERT_TRUE(RecordFromSummaryText(line, &record, &reason)) << reason;
    EXPECT_EQ(record.id, "M2");
    EXPECT_DOUBLE_EQ(record.renderS, 1.25);
    EXPECT_DOUBLE_EQ(record.totalS, 2.0);
    EXPECT_FALSE(RecordFromSummaryText(line.substr(0, line.size() / 2), &record, &reason));
}

TEST(NodeReport, VerdictAgainstTheGivenLimit)
{
    struct Case
    {
        int    state;
        double hor, ver;
        int    calibrated;
        bool   passAfter, passBefore, hasSelection;
    };
    const Case cases[] = {
        { 4, 19.0, 18.0, 0, true, true, false },  { 4, 19.0, 17.99, 0, false, false, false },
        { -12, 19.0, 19.0, 0, false, false, false }, { 4, 20.0, 21.0, 1, true, false, true },
    };
    for (const Case& c : cases)
    {
        ModuleRecord record;
        std::string  reason;
        ASSERT_TRUE(RecordFromNodeReport(NodeReport(c.state, c.hor, c.ver, c.calibrated, 1.1, 0.9), "MOD", 18.0,
                                         &record, &reason));
        EXPECT_EQ(record.passAfter, c.passAfter) << c.state << " " << c.ver;
        EXPECT_EQ(record.passBefore, c.passBefore);
        EXPECT_EQ(record.hasSelection, c.hasSelection);
        EXPECT_TRUE(record.finished);
        EXPECT_EQ(record.id, "MOD");
    }
}

TEST(CollectResults, ReadsEveryKindAndSkipsBadFiles)
{
    clitest::TempFolder folder;
    Write(folder / "A/oisVerify.json", NodeReport(4, 20.0, 21.0, 0, 1.0, 1.0));
    Write(folder / "A/com.zelk.oiscal.bin", PersistLine("FZ1", "1.100000", "1.050000", 0));
    const std::string good = NodeReport(4, 20.0, 21.0, 0, 1.0, 1.0);
    Write(folder / "B/oisVerify.json", good.substr(0, good.size() / 2)); // cut short
    Write(folder / "C/oisVerify.json", NodeReport(4, 17.0, 21.0, 1, 1.1, 1.0));
    Write(folder / "D/summary.json", RunSummaryJson(CalibrationSummaryOf("M-D", false)));
    const std::string line = SummaryLine(CalibrationSummaryOf("M-E", false), ModuleTiming());
    Write(folder / "E/modules.jsonl", line + "\n" + line.substr(0, 40) + "\n");
    Write(folder / "F/empty.json", "");
    Write(folder / "H/node.log", "not a report");
    Write(folder / "P/com.zelk.oiscal.bin",
          PersistLine("LONE", "1.000000", "1.000000", 0) + PersistLine("BAD", "1.000000", "1.000000", 1));
    std::filesystem::create_directories(folder / "G");
    ASSERT_EQ(mkfifo((folder / "G/fifo.json").c_str(), 0600), 0);
    std::filesystem::create_symlink(folder / "A/oisVerify.json", folder / "link.json");

    const CollectedResults results = CollectResults({ folder.Path(), folder / "G/fifo.json", folder / "missing" }, 18.0);
    ASSERT_EQ(results.records.size(), 4u);
    EXPECT_EQ(results.records[0].id, "A");
    EXPECT_TRUE(results.records[0].passAfter);
    EXPECT_EQ(results.records[0].fuseId, "FZ1"); // from the persist file beside it
    EXPECT_DOUBLE_EQ(results.records[0].selectedX, 1.1);
    EXPECT_EQ(results.records[1].id, "C");
    EXPECT_FALSE(results.records[1].passAfter);
    EXPECT_EQ(results.records[2].id, "M-D");
    EXPECT_EQ(results.records[3].id, "M-E");
    EXPECT_EQ(results.persistMerged, 1u);
    EXPECT_EQ(results.persistUnpaired, 1u);

    std::vector<std::string> skipped;
    for (const SkippedFile& file : results.skipped)
    {
        skipped.push_back(file.path.substr(file.path.find_last_of('/') + 1) + " | " + file.reason.substr(0, 24));
    }
    const std::vector<std::string> expected = {
        "oisVerify.json | not JSON, or cut short",
        "modules.jsonl:2 | not a run summary (the t",
        "empty.json | empty",
        "com.zelk.oiscal.bin:2 | line 2  bad  fuse id \"BA",
        "fifo.json | not a regular file",
        "missing | does not exist",
    };
    EXPECT_EQ(skipped, expected);
}

} // namespace
} // namespace oisverify
