// The built command's machine-readable side: "run --json" documents checked against the numbers
// the console shows for the same run, stdout that holds nothing but the document, documents of
// runs that could not be completed, "--version" and "help".
#include <gtest/gtest.h>

#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <time.h>

#include "cli/summaryoptions.h"
#include "clitestsupport.h"
#include "report/runsummary.h"
#include "report/toolversion.h"

namespace
{

struct ToolRun
{
    int         exitCode = -1;
    std::string out;
    std::string err;
};

// Runs a shell command line (the tool's path first), stdout and stderr apart.
ToolRun Shell(const std::string& commandLine, const clitest::TempFolder& folder)
{
    ToolRun           run;
    const std::string command = commandLine + " 2>'" + (folder / "stderr.txt") + "'";
    FILE*             pPipe   = popen(command.c_str(), "r");
    if (pPipe == nullptr)
    {
        return run;
    }
    char chunk[4096];
    for (size_t n; (n = fread(chunk, 1, sizeof(chunk), pPipe)) > 0;)
    {
        run.out.append(chunk, n);
    }
    const int status = pclose(pPipe);
    run.exitCode     = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.err          = clitest::ReadText(folder / "stderr.txt");
    return run;
}

ToolRun Tool(const std::string& arguments, const clitest::TempFolder& folder)
{
    return Shell(std::string("'") + ZELK_OISVERIFY + "' " + arguments, folder);
}

std::string Fixed(double value, const char* pFormat = "%.2f")
{
    char text[64];
    snprintf(text, sizeof(text), pFormat, value);
    return text;
}

// The console line that starts with the given text (after leading blanks).
std::string LineStarting(const std::string& text, const std::string& start)
{
    size_t at = 0;
    while (at < text.size())
    {
        const size_t end   = text.find('\n', at);
        std::string  line  = text.substr(at, end == std::string::npos ? std::string::npos : end - at);
        const size_t first = line.find_first_not_of(' ');
        if (first != std::string::npos && line.compare(first, start.size(), start) == 0)
        {
            return line;
        }
        at = (end == std::string::npos) ? text.size() : end + 1;
    }
    return "";
}

std::string NodeLibrary()
{
    char resolved[PATH_MAX];
    return realpath(ZELK_NODE_LIBRARY, resolved) ? resolved : "";
}

void ExpectIdentity(const oisverify::RunSummary& summary, time_t before, time_t after)
{
    EXPECT_EQ(summary.toolVersion, ZELK_PROJECT_VERSION);
    EXPECT_GE(summary.timeUtc, oisverify::IsoUtc(before)) << "ISO 8601 in UTC sorts as time does";
    EXPECT_LE(summary.timeUtc, oisverify::IsoUtc(after));
    EXPECT_EQ(summary.timeUtc.size(), 20u) << summary.timeUtc;
    EXPECT_EQ(summary.nodeLibrary, NodeLibrary());
    EXPECT_EQ(summary.nodeBuildId, oisverify::ElfBuildId(ZELK_NODE_LIBRARY));
    EXPECT_EQ(summary.nodeBuildId.size(), 40u) << "the linker's SHA-1 build ID";
}

// "--json -": stdout is the document and nothing else; the console text, progress included,
// goes to stderr and shows the same numbers (the reference session's too).
TEST(RunJson, OnStdoutIsTheWholeOutputAndMatchesTheConsole)
{
    clitest::TempFolder folder;
    const time_t        before = time(nullptr);
    const ToolRun       run    = Tool("run --json - --reference --progress-every 30 --out '" + (folder / "out") + "'", folder);
    const time_t        after  = time(nullptr);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    std::string                                error;
    const std::optional<oisverify::RunSummary> read = oisverify::ParseRunSummary(run.out, &error);
    ASSERT_TRUE(read) << error << "\n" << run.out;
    const oisverify::RunSummary& s = *read;
    ExpectIdentity(s, before, after);
    EXPECT_EQ(s.moduleId, "") << "a verification's module has no fuse ID";
    EXPECT_EQ(s.station, oisverify::HostName());
    EXPECT_EQ(s.verdict, "PASS");
    EXPECT_NE(run.err.find("\nPASS  " + s.reason + "\n"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("frame 149    verifying"), std::string::npos) << "progress goes to stderr";

    const std::string horizontal = LineStarting(run.err, "horizontal");
    const std::string vertical   = LineStarting(run.err, "vertical");
    const std::pair<const std::string*, const oisverify::AxisSummary*> axes[] = { { &horizontal, &s.horizontal },
                                                                                  { &vertical, &s.vertical } };
    for (const auto& axis : axes)
    {
        const oisverify::AxisSummary& a = *axis.second;
        ASSERT_TRUE(a.nodeSrDb && a.trueSrDb && a.nodeBlurPx && a.trueBlurPx && a.trueSuppressionDb);
        for (const std::string& shown : { Fixed(*a.nodeSrDb) + " dB", Fixed(*a.trueSrDb) + " dB",
                                          Fixed(*a.nodeBlurPx) + " px", Fixed(*a.trueBlurPx) + " px",
                                          Fixed(*a.trueSuppressionDb) + " dB" })
        {
            EXPECT_NE(axis.first->find(shown), std::string::npos) << shown << " in " << *axis.first;
        }
    }
    EXPECT_NE(LineStarting(run.err, "limit").find(Fixed(s.limitDb) + " dB"), std::string::npos);
    const std::string applied   = LineStarting(run.err, "suppression of the applied shake");
    const std::string reference = LineStarting(run.err, "reference     OIS off, measured");
    const std::string gain      = LineStarting(run.err, "stabilisation");
    for (const oisverify::AxisSummary* pAxis : { &s.horizontal, &s.vertical })
    {
        ASSERT_TRUE(pAxis->appliedShakePx && pAxis->referenceBlurPx && pAxis->referenceSrDb &&
                    pAxis->stabilisationGainDb);
        EXPECT_NE(applied.find(Fixed(*pAxis->appliedShakePx)), std::string::npos) << applied;
        EXPECT_NE(reference.find(Fixed(*pAxis->referenceBlurPx)), std::string::npos) << reference;
        EXPECT_NE(reference.find(Fixed(*pAxis->referenceSrDb)), std::string::npos) << reference;
        EXPECT_NE(gain.find(Fixed(*pAxis->stabilisationGainDb) + " dB"), std::string::npos) << gain;
        EXPECT_NEAR(*pAxis->stabilisationGainDb, *pAxis->nodeSrDb - *pAxis->referenceSrDb, 1e-4);
    }
    ASSERT_TRUE(s.reference);
    EXPECT_TRUE(s.reference->measured);
    EXPECT_EQ(s.limitDb, 18.0);
    EXPECT_EQ(s.nodeState, 4);
    EXPECT_EQ(s.frames.measured, 32u);
    EXPECT_EQ(s.frames.total, 152u);
    const std::string session = LineStarting(run.err, std::to_string(s.frames.measured) + " frames measured");
    for (const std::string& shown :
         { std::to_string(s.frames.failed) + " failed", "after " + std::to_string(s.frames.dropped) + " dropped",
           std::string("node state 4 ("), "after " + std::to_string(s.frames.total) + " frames" })
    {
        EXPECT_NE(session.find(shown), std::string::npos) << shown << " in " << session;
    }
    EXPECT_EQ(s.parameters.properties[1],
              (std::pair<std::string, std::string>{ "vendor.debug.camera.oisAlgoPara", "1:0:0:120:4:60" }));
    EXPECT_EQ(s.parameters.ringSize, 31u);
    EXPECT_NE(run.err.find("SR over 31 frames, time limit 688 ms"), std::string::npos);
}

// A calibration run into a file named relative to where the tool was started; the identity the
// options give, and the search's numbers as the console shows them.
TEST(RunJson, OfACalibrationRunCarriesTheSelectionAndThePersistRecord)
{
    clitest::TempFolder folder;
    const time_t        before = time(nullptr);
    const ToolRun       run    = Shell("cd '" + folder.Path() + "' && '" + ZELK_OISVERIFY +
                                           "' run --calibrate --ideal-gain 1.08 --drop 10 --service-wait 120 "
                                           "--progress-every 0 --json run.json --module-id M-7 --station 'line 3'",
                                       folder);
    const time_t        after  = time(nullptr);
    ASSERT_EQ(run.exitCode, 0) << run.out << run.err;
    EXPECT_NE(run.out.find("Summary in " + (folder / "run.json") + "\n"), std::string::npos) << run.out;
    std::string                                error;
    const std::optional<oisverify::RunSummary> read =
        oisverify::ParseRunSummary(clitest::ReadText(folder / "run.json"), &error);
    ASSERT_TRUE(read) << error;
    const oisverify::RunSummary& s = *read;
    ExpectIdentity(s, before, after);
    EXPECT_EQ(s.moduleId, "M-7");
    EXPECT_EQ(s.station, "line 3");
    EXPECT_EQ(s.mode, "calibrate");
    EXPECT_EQ(s.verdict, "PASS");
    EXPECT_NE(run.out.find("\nPASS  " + s.reason + "\n"), std::string::npos);
    ASSERT_TRUE(s.calibration && s.calibration->persist && s.parameters.search);
    const oisverify::CalibrationSummary& c = *s.calibration;
    EXPECT_TRUE(c.searched);
    EXPECT_FALSE(c.basePass);
    EXPECT_EQ(c.pairsMeasured, 9u);
    EXPECT_EQ(c.selectedGainX, 1.1);
    EXPECT_EQ(c.selectedGainY, 1.1);
    const std::pair<const char*, std::vector<std::optional<double>>> rows[] = {
        { "gyro X", { c.selectedGainX, c.idealGainX, c.nearestGainX, c.selectedSrXDb, c.trueSrXDb } },
        { "gyro Y", { c.selectedGainY, c.idealGainY, c.nearestGainY, c.selectedSrYDb, c.trueSrYDb } },
    };
    for (const auto& row : rows)
    {
        const std::string line = LineStarting(run.out, row.first);
        for (const std::optional<double>& value : row.second)
        {
            ASSERT_TRUE(value) << row.first;
            EXPECT_NE(line.find(" " + Fixed(*value)), std::string::npos) << Fixed(*value) << " in " << line;
        }
    }
    EXPECT_NE(LineStarting(run.out, "Verification at the base gains").size(), 0u);
    EXPECT_NE(run.out.find("horizontal SR " + Fixed(*s.horizontal.nodeSrDb) + " dB"), std::string::npos)
        << "the axes are the verification at the base gains";
    const oisverify::PersistSummary& p = *c.persist;
    EXPECT_NE(run.out.find("line " + std::to_string(p.line) + "  ok   fuse id \"" + p.fuseId + "\"  flag \"" +
                           p.calibFlag + "\"  gains \"" + p.gainX + "\", \"" + p.gainY + "\"  crc stored " +
                           std::to_string(p.crcStored) + ", computed " + std::to_string(p.crcComputed)),
              std::string::npos)
        << run.out;
    EXPECT_EQ(p.gainX, "1.100000");
    EXPECT_EQ(s.parameters.search->fuseId, "ZKSIM0001");
    EXPECT_EQ(s.frames.dropped, 10u);
    EXPECT_EQ(s.nodeState, 4);
    EXPECT_NE(run.out.find("after " + std::to_string(s.frames.total) + " frames"), std::string::npos);

    // The summary page heads with the same identity.
    const std::string html = clitest::ReadText(folder / "oisverify-out/index.html");
    EXPECT_EQ(clitest::CheckMarkup(html), "");
    for (const std::string& row :
         { std::string("<tr><td>module</td><td>M-7</td></tr>"), std::string("<tr><td>station</td><td>line 3</td></tr>"),
           "<tr><td>time (UTC)</td><td>" + s.timeUtc + "</td></tr>", std::string("<tr><td>mode</td><td>calibrate</td></tr>"),
           "<tr><td>tool</td><td>oisverify " + s.toolVersion + "</td></tr>",
           "<tr><td>node build</td><td>GNU build ID " + s.nodeBuildId + "</td></tr>" })
    {
        EXPECT_NE(html.find(row), std::string::npos) << row;
    }
    EXPECT_LT(html.find("<table class=\"identity\">"), html.find("<h2>")) << "under the verdict, before the sections";
}

TEST(RunJson, ARunThatCannotRunSaysErrorOnStdout)
{
    clitest::TempFolder folder;
    const ToolRun       run = Tool("run --json - --replay /nonexistent/frames --out '" + (folder / "out") + "'", folder);
    EXPECT_EQ(run.exitCode, 1);
    std::string                                error;
    const std::optional<oisverify::RunSummary> read = oisverify::ParseRunSummary(run.out, &error);
    ASSERT_TRUE(read) << error << run.out;
    EXPECT_EQ(read->verdict, "ERROR");
    EXPECT_NE(read->reason.find("is not a directory"), std::string::npos) << read->reason;
    EXPECT_NE(run.err.find("oisverify run: " + read->reason), std::string::npos) << run.err;
    EXPECT_EQ(read->parameters.source, "replay");
}

// A folder that is not there is a usage error before the session; a document that cannot be
// written after it fails the run.
TEST(RunJson, ADocumentThatCannotBeWrittenFailsTheRun)
{
    clitest::TempFolder folder;
    ToolRun run = Tool("run --json /nonexistent/run.json --out '" + (folder / "out") + "'", folder);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_NE(run.err.find("oisverify run: --json /nonexistent/run.json: the folder /nonexistent does not exist"),
              std::string::npos)
        << run.err;
    run = Tool("run --drop 0 --json '" + folder.Path() + "' --out '" + (folder / "out") + "'", folder);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("oisverify run: cannot write the summary to " + folder.Path() + ": Is a directory"),
              std::string::npos)
        << run.err;
}

class Version : public ::testing::TestWithParam<const char*> {};

TEST_P(Version, NamesTheToolAndTheNodeLibrarysBuild)
{
    clitest::TempFolder folder;
    const ToolRun       run = Tool(GetParam(), folder);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, std::string("oisverify ") + ZELK_PROJECT_VERSION + "\nnode library  " + NodeLibrary() +
                           "\nnode build    GNU build ID " + oisverify::ElfBuildId(ZELK_NODE_LIBRARY) + "\n");
    EXPECT_EQ(run.err, "");
}

INSTANTIATE_TEST_SUITE_P(Everywhere, Version,
                         ::testing::Values("--version", "run --version", "info --version", "persist --version",
                                           "run --gain 0.5 --version", "--version --node '" ZELK_NODE_LIBRARY "'"));

TEST(VersionOfAMissingLibrary, SaysSoAndSucceeds)
{
    clitest::TempFolder folder;
    for (const char* pArguments : { "info --node=/nonexistent/node.so --version", "--version --node /nonexistent/node.so" })
    {
        const ToolRun run = Tool(pArguments, folder);
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_EQ(run.out, std::string("oisverify ") + ZELK_PROJECT_VERSION +
                               "\nnode library  /nonexistent/node.so (not found)\n")
            << pArguments;
    }
}

struct HelpCase
{
    const char* help;
    const char* same; // what it must print the same as; nullptr: an error
    const char* error;
};

void PrintTo(const HelpCase& c, std::ostream* pOut) { *pOut << c.help; }

class Help : public ::testing::TestWithParam<HelpCase> {};

TEST_P(Help, IsTheCommandsOwnHelp)
{
    clitest::TempFolder folder;
    const ToolRun       run = Tool(GetParam().help, folder);
    if (GetParam().same == nullptr)
    {
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_NE(run.err.find(GetParam().error), std::string::npos) << run.err;
        return;
    }
    const ToolRun same = Tool(GetParam().same, folder);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(same.exitCode, 0);
    EXPECT_EQ(run.out, same.out);
    EXPECT_NE(run.out.find("usage: oisverify"), std::string::npos);
    if (std::string(GetParam().help) == "help run")
    {
        EXPECT_NE(run.out.find("--json FILE|-"), std::string::npos) << run.out;
        EXPECT_NE(run.out.find("--module-id ID"), std::string::npos);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, Help,
    ::testing::Values(HelpCase{ "help", "--help", nullptr }, HelpCase{ "help run", "run --help", nullptr },
                      HelpCase{ "help info", "info --help", nullptr }, HelpCase{ "help persist", "persist --help", nullptr },
                      HelpCase{ "help bogus", nullptr, "oisverify: unknown command 'bogus'" },
                      HelpCase{ "help run info", nullptr, "oisverify help: expected at most one COMMAND" }));

} // namespace
