// The output folder holds one run: preparing a folder for a run (new, empty, an earlier run's,
// someone else's), the list of files a run writes, the note of a run cut short by a signal, the
// persist file of a calibration run, the stop request the signals set, and where the tool looks
// for the node library.
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <filesystem>

#include "clitestsupport.h"
#include "report/runoutput.h"
#include "session/emulateddevice.h"
#include "session/stoprequest.h"

namespace
{

namespace fs = std::filesystem;

const char kListHead[] = "# The files of the oisverify run in this folder; the next run into it removes them.\n";

void WriteText(const std::string& path, const std::string& text)
{
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

TEST(OutputFolder, NewOrEmptyFolderGetsAnEmptyList)
{
    clitest::TempFolder temp;
    ASSERT_TRUE(oisverify::PrepareOutputFolder(temp / "a/b"));
    EXPECT_EQ(clitest::ReadText(temp / "a/b/oisverify-files.txt"), kListHead);
    fs::create_directory(temp / "empty");
    ASSERT_TRUE(oisverify::PrepareOutputFolder(temp / "empty"));
    EXPECT_EQ(clitest::ReadText(temp / "empty/oisverify-files.txt"), kListHead);
    EXPECT_TRUE(oisverify::PrepareOutputFolder(""));
}

// A folder with files but no list of the tool's, or whose list is not a regular file, is someone
// else's: refused, and nothing in it is touched.
TEST(OutputFolder, RefusesAFolderItDidNotWrite)
{
    clitest::TempFolder temp;
    WriteText(temp / "theirs/index.html", "mine");
    fs::create_symlink(temp / "theirs/index.html", temp / "theirs/oisverify-files.txt");
    WriteText(temp / "plain", "a file");
    const chihost::Status status = oisverify::PrepareOutputFolder(temp / "theirs");
    ASSERT_FALSE(status);
    EXPECT_EQ(status.Message(), "the output folder " + temp / "theirs" +
                                    " holds files, but no oisverify-files.txt of an earlier oisverify run: name a new "
                                    "or empty folder with --out");
    EXPECT_EQ(clitest::ReadText(temp / "theirs/index.html"), "mine");
    const chihost::Status file = oisverify::PrepareOutputFolder(temp / "plain");
    ASSERT_FALSE(file);
    EXPECT_EQ(file.Message(), "the output folder " + temp / "plain" + " is not a folder");
}

// Exactly the listed files go (a listed link goes, not what it points to), and folders they
// leave empty; names reaching outside the folder, folders and files not listed stay.
TEST(OutputFolder, ClearsOnlyTheFilesItsListNames)
{
    clitest::TempFolder temp;
    const std::string   out = temp / "out";
    WriteText(out + "/oisverify-files.txt", std::string(kListHead) +
                                                "index.html\nINTERRUPTED\ndumpImage/a.yuv\ndumpImage/b.yuv\n"
                                                "deep/er/c.txt\nlink\n../outside\nlinked/far.txt\n" + temp.Path() +
                                                "/absolute\nkept\n./index.html\nmissing.svg\n");
    for (const char* pName : { "index.html", "INTERRUPTED", "dumpImage/a.yuv", "dumpImage/b.yuv", "deep/er/c.txt",
                               "deep/notes.txt", "notes.txt", "kept/inside.txt" })
    {
        WriteText(out + "/" + pName, pName);
    }
    WriteText(temp / "outside", "outside");
    WriteText(temp / "absolute", "absolute");
    WriteText(temp / "target", "target");
    fs::create_symlink(temp / "target", out + "/link");
    WriteText(temp / "far/far.txt", "far");
    fs::create_symlink(temp / "far", out + "/linked");
    ASSERT_TRUE(oisverify::PrepareOutputFolder(out));
    EXPECT_EQ(clitest::ReadText(temp / "far/far.txt"), "far") << "never through a linked folder";
    for (const char* pGone : { "index.html", "INTERRUPTED", "dumpImage", "deep/er", "link" })
    {
        EXPECT_FALSE(fs::exists(fs::symlink_status(out + "/" + pGone))) << pGone;
    }
    for (const char* pKept : { "deep/notes.txt", "notes.txt", "kept/inside.txt" })
    {
        EXPECT_EQ(clitest::ReadText(out + "/" + pKept), pKept);
    }
    EXPECT_EQ(clitest::ReadText(temp / "outside"), "outside");
    EXPECT_EQ(clitest::ReadText(temp / "absolute"), "absolute");
    EXPECT_EQ(clitest::ReadText(temp / "target"), "target");
    EXPECT_EQ(clitest::ReadText(out + "/oisverify-files.txt"), kListHead);
}

// A folder of a run from before runs listed their files holds nothing but names a run writes: it
// is cleared; one more file of any other name makes it someone else's.
TEST(OutputFolder, ClearsAnUnlistedEarlierRunOnlyWhenNothingElseIsThere)
{
    const char kDump[] = "dumpImage/oisverify_node_frameNum[3]_w[540]_h[540]_stride[540]_scanline[540]_crop.yuv";
    const struct
    {
        const char* extra; // besides index.html, node.log and one dump; nullptr: none
        bool        cleared;
    } cases[] = { { nullptr, true }, { "notes.txt", false }, { "dumpImage/notes.txt", false },
                  { "sub/index.html", false }, { "oisverify_crop.yuv", true } };
    for (const auto& c : cases)
    {
        clitest::TempFolder temp;
        const std::string   out = temp / "out";
        for (const char* pName : { "index.html", "node.log", kDump, c.extra })
        {
            if (pName != nullptr)
            {
                WriteText(out + "/" + pName, "x");
            }
        }
        const bool prepared = bool(oisverify::PrepareOutputFolder(out));
        EXPECT_EQ(prepared, c.cleared) << (c.extra ? c.extra : "nothing else");
        EXPECT_EQ(fs::exists(out + "/index.html"), !c.cleared) << (c.extra ? c.extra : "nothing else");
        EXPECT_EQ(fs::exists(out + "/dumpImage"), !c.cleared) << (c.extra ? c.extra : "nothing else");
        if (c.extra != nullptr && !c.cleared)
        {
            EXPECT_EQ(clitest::ReadText(out + "/" + c.extra), "x");
        }
    }
}

oisverify::RunResult InterruptedResult()
{
    oisverify::RunResult result;
    result.stopSignal = SIGTERM;
    result.stopReason = "interrupted by SIGTERM after 40 frames, before the node reached a verdict";
    result.requests   = 40;
    result.logText    = "log";
    return result;
}

// A run cut short writes what it has, says so in INTERRUPTED and on the page, and lists every file;
// the next run into the folder leaves no trace of it.
TEST(OutputFolder, InterruptedRunLeavesANoteTheNextRunRemoves)
{
    clitest::TempFolder  temp;
    oisverify::RunConfig config;
    config.outDir = temp / "out";
    ASSERT_TRUE(oisverify::PrepareOutputFolder(config.outDir));
    oisverify::RunResult     result = InterruptedResult();
    std::vector<std::string> written;
    ASSERT_TRUE(oisverify::WriteRunOutputs(config, result, oisverify::Verdict(), &written));
    EXPECT_EQ(clitest::ReadText(temp / "out/INTERRUPTED"),
              "oisverify run was interrupted by SIGTERM after 40 frames, before the node reached a verdict.\n"
              "The files in this folder hold what the run produced until then.\n");
    const std::string html = clitest::ReadText(temp / "out/index.html");
    EXPECT_NE(html.find("<p class=\"interrupted\" id=\"interrupted\"><strong>Interrupted.</strong> The run was "
                        "interrupted by SIGTERM after 40 frames"),
              std::string::npos);
    EXPECT_NE(html.find("The node wrote no crop: it measured no frame."), std::string::npos);
    EXPECT_EQ(clitest::ReadText(temp / "out/oisverify-files.txt"),
              std::string(kListHead) +
                  "index.html\nsummary.svg\npositions.svg\npositions.csv\nnode.log\nINTERRUPTED\n");
    EXPECT_EQ(written, (std::vector<std::string>{ "index.html", "summary.svg", "positions.svg", "positions.csv",
                                                  "node.log", "INTERRUPTED" }));
    // A link someone put in the folder is not written through.
    WriteText(temp / "elsewhere", "theirs");
    fs::remove(temp / "out/node.log");
    fs::create_symlink(temp / "elsewhere", temp / "out/node.log");
    EXPECT_FALSE(oisverify::WriteRunOutputs(config, result, oisverify::Verdict(), &written));
    EXPECT_EQ(clitest::ReadText(temp / "elsewhere"), "theirs");
    fs::remove(temp / "out/node.log");

    ASSERT_TRUE(oisverify::PrepareOutputFolder(config.outDir));
    result.stopSignal = 0;
    ASSERT_TRUE(oisverify::WriteRunOutputs(config, result, oisverify::Verdict(), &written));
    EXPECT_FALSE(fs::exists(temp / "out/INTERRUPTED"));
    EXPECT_EQ(clitest::ReadText(temp / "out/index.html").find("id=\"interrupted\""), std::string::npos);
}

// The crop the node wrote becomes the chart picture; a crop of a size no square has is named.
TEST(OutputFolder, ChartFromTheNodesCrop)
{
    clitest::TempFolder  temp;
    oisverify::RunConfig config;
    config.outDir = temp.Path();
    oisverify::RunResult result;
    result.nodeFiles = { "oisverify_crop.yuv" };
    clitest::WriteBytes(temp / "oisverify_crop.yuv", 3 * 300 * 300 / 2, '\x60');
    std::vector<std::string> written;
    ASSERT_TRUE(oisverify::WriteRunOutputs(config, result, oisverify::Verdict(), &written));
    const std::string chart = clitest::ReadText(temp / "chart.svg");
    EXPECT_NE(chart.find("href=\"data:image/png;base64,iVBORw0KGgo"), std::string::npos) << "a PNG signature";
    EXPECT_NE(clitest::ReadText(temp / "index.html").find(chart), std::string::npos) << "inlined in the page";

    clitest::WriteBytes(temp / "oisverify_crop.yuv", 1000, '\x60');
    ASSERT_TRUE(oisverify::WriteRunOutputs(config, result, oisverify::Verdict(), &written));
    EXPECT_EQ(std::count(written.begin(), written.end(), "chart.svg"), 0);
    EXPECT_NE(clitest::ReadText(temp / "index.html")
                  .find("No picture of oisverify_crop.yuv: a crop file of 1000 bytes is no square grey-chroma NV12 "
                        "image of up to 4096 pixels a side"),
              std::string::npos);
}

// A calibration run keeps the persist file as the session left it, byte for byte.
TEST(OutputFolder, CalibrationRunKeepsThePersistFile)
{
    clitest::TempFolder  temp;
    oisverify::RunConfig config;
    config.outDir = temp.Path();
    oisverify::RunResult result;
    const std::string    persist("1,ZKSIM0001,1.100000,1.100000,12345\n\0tail", 41);
    result.calibration.hasPersistFile = true;
    result.calibration.persistBytes   = persist;
    oisverify::CalibrationOutcome outcome;
    std::vector<std::string>      written;
    ASSERT_TRUE(oisverify::WriteRunOutputs(config, result, oisverify::Verdict(), &written, &outcome));
    EXPECT_EQ(clitest::ReadText(temp / "com.zelk.oiscal.bin"), persist);
    EXPECT_NE(clitest::ReadText(temp / "oisverify-files.txt").find("\ncom.zelk.oiscal.bin\n"), std::string::npos);

    result.calibration.hasPersistFile = false;
    fs::remove(temp / "com.zelk.oiscal.bin");
    ASSERT_TRUE(oisverify::WriteRunOutputs(config, result, oisverify::Verdict(), &written, &outcome));
    EXPECT_FALSE(fs::exists(temp / "com.zelk.oiscal.bin")) << "no file when the node wrote none";
}

TEST(StopRequest, FirstSignalWinsAndSetsTheShellsExitStatus)
{
    oisverify::ClearStopRequest();
    EXPECT_EQ(oisverify::StopSignal(), 0);
    oisverify::RequestStop(SIGPIPE);
    oisverify::RequestStop(SIGINT);
    EXPECT_EQ(oisverify::StopSignal(), SIGPIPE);
    oisverify::ClearStopRequest();
    const std::tuple<int, int, const char*> cases[] = {
        { SIGINT, 130, "SIGINT (Ctrl-C)" },
        { SIGTERM, 143, "SIGTERM" },
        { SIGPIPE, 141, "SIGPIPE (the output was closed)" },
        { SIGHUP, 129, "signal 1" },
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(oisverify::StopExitStatus(std::get<0>(c)), std::get<1>(c));
        EXPECT_EQ(oisverify::DescribeStopSignal(std::get<0>(c)), std::get<2>(c));
    }
}

// The handlers record the signal instead of ending the process; a second SIGINT would end it.
TEST(StopRequest, HandlersRecordTheSignal)
{
    oisverify::ClearStopRequest();
    oisverify::InstallStopHandlers();
    raise(SIGPIPE);
    raise(SIGPIPE);
    EXPECT_EQ(oisverify::StopSignal(), SIGPIPE) << "SIGPIPE again must not end the process either";
    oisverify::ClearStopRequest();
    raise(SIGTERM);
    EXPECT_EQ(oisverify::StopSignal(), SIGTERM);
    struct sigaction now;
    sigaction(SIGTERM, nullptr, &now);
    EXPECT_EQ(now.sa_handler, SIG_DFL) << "the first SIGTERM leaves the default action for a second one";
    oisverify::ClearStopRequest();
}

// The node library relative to the tool: the installed place first, then the build tree's.
TEST(NodeLibraryPlace, InstalledFolderThenBuildTree)
{
    clitest::TempFolder temp;
    const std::string   bin = temp / "bin";
    fs::create_directories(bin);
    EXPECT_EQ(oisverify::DefaultNodeLibraryPath(bin), bin + "/../lib/oisverify/com.zelk.node.zelkoisverify.so")
        << "neither: the installed place, which the error message then names";
    WriteText(temp / "lib/com.zelk.node.zelkoisverify.so", "");
    EXPECT_EQ(oisverify::DefaultNodeLibraryPath(bin), bin + "/../lib/com.zelk.node.zelkoisverify.so");
    WriteText(temp / "lib/oisverify/com.zelk.node.zelkoisverify.so", "");
    EXPECT_EQ(oisverify::DefaultNodeLibraryPath(bin), bin + "/../lib/oisverify/com.zelk.node.zelkoisverify.so");
}

} // namespace
