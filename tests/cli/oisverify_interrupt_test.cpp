// The built command under signals and with a reused output folder: Ctrl-C, SIGTERM and a closed
// standard output end a run in order (no device root left in TMPDIR, the output folder holding what
// the run produced with its INTERRUPTED note, exit status 128 + the signal), and a second run into
// a folder keeps none of the first run's files.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "clitestsupport.h"

namespace
{

namespace fs = std::filesystem;

// The tool with its standard output on a pipe, run in `folder` with TMPDIR at folder/tmp (where
// the device root goes) and its standard error in folder/stderr.txt.
class ToolProcess
{
public:
    ToolProcess(const clitest::TempFolder& folder, const std::vector<std::string>& arguments)
    {
        fs::create_directory(folder / "tmp");
        int fds[2];
        if (pipe(fds) != 0)
        {
            return;
        }
        m_pid = fork();
        if (m_pid == 0)
        {
            dup2(fds[1], STDOUT_FILENO);
            const int err = open((folder / "stderr.txt").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            dup2(err, STDERR_FILENO);
            close(fds[0]);
            close(fds[1]);
            setenv("TMPDIR", (folder / "tmp").c_str(), 1);
            if (chdir(folder.Path().c_str()) != 0)
            {
                _exit(99);
            }
            std::vector<char*> argv = { const_cast<char*>(ZELK_OISVERIFY), const_cast<char*>("run") };
            for (const std::string& argument : arguments)
            {
                argv.push_back(const_cast<char*>(argument.c_str()));
            }
            argv.push_back(nullptr);
            execv(ZELK_OISVERIFY, argv.data());
            _exit(98);
        }
        close(fds[1]);
        m_pOut = fdopen(fds[0], "r");
    }
    ~ToolProcess()
    {
        CloseOutput();
        if (m_pid > 0)
        {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
        }
    }

    // Reads the standard output up to and including the first progress line.
    bool WaitForProgress()
    {
        char*  pLine = nullptr;
        size_t size  = 0;
        bool   found = false;
        while (!found && m_pOut != nullptr && getline(&pLine, &size, m_pOut) > 0)
        {
            found = strncmp(pLine, "  frame ", 8) == 0;
        }
        free(pLine);
        return found;
    }
    void Signal(int signal) { kill(m_pid, signal); }
    void CloseOutput()
    {
        if (m_pOut != nullptr)
        {
            fclose(m_pOut);
            m_pOut = nullptr;
        }
    }
    // Drains the output and returns the exit status (128 + the signal for a process a signal ended).
    int Wait()
    {
        char chunk[4096];
        while (m_pOut != nullptr && fread(chunk, 1, sizeof(chunk), m_pOut) > 0)
        {
        }
        int status = 0;
        waitpid(m_pid, &status, 0);
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    pid_t m_pid  = -1;
    FILE* m_pOut = nullptr;
};

struct SignalCase
{
    int         signal;
    int         exitStatus;
    const char* name;
};

void PrintTo(const SignalCase& c, std::ostream* pOut) { *pOut << c.name; }

class StopSignal : public ::testing::TestWithParam<SignalCase> {};

TEST_P(StopSignal, EndsTheRunInOrder)
{
    clitest::TempFolder folder;
    // Dropping 20000 frames keeps the node busy far beyond the first progress line.
    ToolProcess tool(folder, { "--drop", "20000", "--progress-every", "1", "--out", "out" });
    ASSERT_TRUE(tool.WaitForProgress());
    if (GetParam().signal == SIGPIPE)
    {
        tool.CloseOutput(); // the reader goes away, as "oisverify run | head -1" does
    }
    else
    {
        tool.Signal(GetParam().signal);
    }
    EXPECT_EQ(tool.Wait(), GetParam().exitStatus);
    EXPECT_TRUE(fs::is_empty(folder / "tmp")) << "the device root is gone";
    const std::string prefix = std::string("oisverify run was interrupted by ") + GetParam().name + " after ";
    const std::string note   = clitest::ReadText(folder / "out/INTERRUPTED");
    EXPECT_EQ(note.compare(0, prefix.size(), prefix), 0) << note;
    EXPECT_NE(note.find(" frames, before the node reached a verdict.\nThe files in this folder hold what the run "
                        "produced until then.\n"),
              std::string::npos)
        << note;
    EXPECT_NE(clitest::ReadText(folder / "out/index.html").find("id=\"interrupted\""), std::string::npos);
    EXPECT_NE(clitest::ReadText(folder / "out/oisverify-files.txt").find("\nINTERRUPTED\n"), std::string::npos);
    EXPECT_NE(clitest::ReadText(folder / "stderr.txt").find("oisverify run: interrupted by " +
                                                            std::string(GetParam().name)),
              std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Signals, StopSignal,
                         ::testing::Values(SignalCase{ SIGINT, 130, "SIGINT (Ctrl-C)" },
                                           SignalCase{ SIGTERM, 143, "SIGTERM" },
                                           SignalCase{ SIGPIPE, 141, "SIGPIPE (the output was closed)" }));

int RunTool(const clitest::TempFolder& folder, const std::vector<std::string>& arguments)
{
    ToolProcess tool(folder, arguments);
    return tool.Wait();
}

// A second run into a folder removes the first run's files (its dumped crops among them) and
// nothing it did not write; a folder with someone else's files is refused untouched.
TEST(OutputFolderReuse, SecondRunKeepsNoneOfTheFirstRunsFiles)
{
    clitest::TempFolder folder;
    ASSERT_EQ(RunTool(folder, { "--drop", "10", "--dump-images", "--out", "out" }), 0);
    ASSERT_TRUE(fs::is_directory(folder / "out/dumpImage"));
    ASSERT_FALSE(fs::is_empty(folder / "out/dumpImage"));
    clitest::WriteBytes(folder / "out/notes.txt", 5, 'n');
    ASSERT_EQ(RunTool(folder, { "--drop", "10", "--out", "out" }), 0);
    EXPECT_FALSE(fs::exists(folder / "out/dumpImage"));
    EXPECT_EQ(clitest::ReadText(folder / "out/notes.txt"), "nnnnn");
    const std::string list = clitest::ReadText(folder / "out/oisverify-files.txt");
    EXPECT_EQ(list.find("dumpImage"), std::string::npos);
    for (const char* pName : { "index.html", "chart.svg", "oisverify_crop.yuv", "oisVerify.json" })
    {
        EXPECT_NE(list.find(std::string("\n") + pName + "\n"), std::string::npos) << pName;
        EXPECT_TRUE(fs::exists(folder / ("out/" + std::string(pName)))) << pName;
    }

    fs::create_directory(folder / "theirs");
    clitest::WriteBytes(folder / "theirs/report.doc", 3, 'r');
    EXPECT_EQ(RunTool(folder, { "--drop", "10", "--out", "theirs" }), 1);
    EXPECT_EQ(clitest::ReadText(folder / "theirs/report.doc"), "rrr");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "theirs"), fs::directory_iterator()), 1);
    EXPECT_NE(clitest::ReadText(folder / "stderr.txt").find("holds files, but no oisverify-files.txt"),
              std::string::npos);
}

} // namespace
