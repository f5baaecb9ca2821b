// "oisverify population" end to end: calibrations in parallel worker processes that never meet
// each other's calibration service, an interrupted run resumed from its journal, and "stats"
// over what it wrote.
#include <gtest/gtest.h>

#include <errno.h>
#include <sched.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <sstream>
#include <thread>

#include "chihost/services/calibrationservice.h"
#include "clitestsupport.h"
#include "population/modulerun.h"
#include "population/workerpool.h"
#include "yield/summaryrecord.h"

namespace oisverify
{
namespace
{

// Holds the calibration service's abstract socket name in this process's network namespace, as
// another calibration on the machine would.
class SocketHolder
{
public:
    SocketHolder()
    {
        m_fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address;
        memset(&address, 0, sizeof(address));
        address.sun_family = AF_UNIX;
        const std::string name = chihost::kCalibrationServiceSocketName;
        memcpy(address.sun_path + 1, name.data(), name.size());
        const socklen_t length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
        m_bound = bind(m_fd, reinterpret_cast<sockaddr*>(&address), length) == 0 && listen(m_fd, 1) == 0;
    }
    ~SocketHolder() { close(m_fd); }
    bool Bound() const { return m_bound; }

private:
    int  m_fd    = -1;
    bool m_bound = false;
};

std::vector<PoolJob> TwoCalibrations()
{
    std::vector<PoolJob> jobs(2);
    jobs[0].module.id     = "ISO-A";
    jobs[0].module.idealX = 1.08;
    jobs[0].module.idealY = 1.08;
    jobs[1].module.id     = "ISO-B";
    jobs[1].module.idealX = 0.91;
    jobs[1].module.idealY = 1.12;
    for (PoolJob& job : jobs)
    {
        job.setting.calibrate = true;
    }
    return jobs;
}

std::vector<ModuleRecord> RunJobs(const std::vector<PoolJob>& jobs, bool namespaces, PoolSummary* pSummary)
{
    std::vector<ModuleRecord> records(jobs.size());
    volatile sig_atomic_t     stop = 0;
    // No waiting for the socket: a worker that met another service would fail at once.
    const auto runner = [](const PoolJob& job) {
        ModuleTiming timing;
        return SummaryLine(RunModule(job.module, job.setting, ZELK_NODE_LIBRARY, 0, &timing), timing);
    };
    *pSummary = RunPool(jobs, PoolOptions{ 2, namespaces }, runner,
                        [&records](size_t index, const ModuleRecord& record, const std::string&) {
                            records[index] = record;
                        },
                        nullptr, &stop);
    return records;
}

// The tests take a network namespace of their own first, so that the socket name they hold is
// theirs whatever else runs on the machine; false where namespaces are not allowed.
bool PrivateNamespace()
{
    return unshare(CLONE_NEWNET) == 0;
}

TEST(PopulationWorkers, ParallelCalibrationsEachMeetOnlyTheirOwnService)
{
    if (!PrivateNamespace())
    {
        GTEST_SKIP() << "no network namespaces here: " << strerror(errno);
    }
    SocketHolder holder;
    ASSERT_TRUE(holder.Bound());
    PoolSummary                     summary;
    const std::vector<ModuleRecord> records = RunJobs(TwoCalibrations(), true, &summary);
    EXPECT_FALSE(summary.serialised);
    EXPECT_EQ(summary.finished, 2u);
    const char* const expectedIds[] = { "ISO-A", "ISO-B" };
    // Each search followed its own module: the selected gains are its own nearest steps.
    const double expectedGains[][2] = { { 1.10, 1.10 }, { 0.90, 1.10 } };
    for (size_t i = 0; i < records.size(); i++)
    {
        const ModuleRecord& record = records[i];
        EXPECT_EQ(record.id, expectedIds[i]);
        EXPECT_FALSE(record.runError) << record.reason;
        EXPECT_TRUE(record.passAfter) << record.reason;
        EXPECT_TRUE(record.searched);
        EXPECT_NEAR(record.selectedX, expectedGains[i][0], 1e-6);
        EXPECT_NEAR(record.selectedY, expectedGains[i][1], 1e-6);
        EXPECT_TRUE(SelectedNearestStep(record));
    }
}

TEST(PopulationWorkers, WithoutNamespacesCalibrationsShareTheSocketName)
{
    if (!PrivateNamespace())
    {
        GTEST_SKIP() << "no network namespaces here: " << strerror(errno);
    }
    SocketHolder holder;
    ASSERT_TRUE(holder.Bound());
    PoolSummary                     summary;
    const std::vector<ModuleRecord> records = RunJobs(TwoCalibrations(), false, &summary);
    EXPECT_TRUE(summary.serialised);
    for (const ModuleRecord& record : records)
    {
        EXPECT_TRUE(record.runError);
        EXPECT_NE(record.reason.find("cannot start the calibration service"), std::string::npos) << record.reason;
    }
}

pid_t Spawn(const std::vector<std::string>& words, const std::string& outputPath)
{
    const pid_t pid = fork();
    if (pid == 0)
    {
        FILE* pOut = freopen(outputPath.c_str(), "w", stdout);
        (void)pOut;
        dup2(fileno(stdout), 2);
        std::vector<char*> argv;
        for (const std::string& word : words)
        {
            argv.push_back(const_cast<char*>(word.c_str()));
        }
        argv.push_back(nullptr);
        execv(ZELK_OISVERIFY, argv.data());
        _exit(127);
    }
    return pid;
}

int Wait(pid_t pid)
{
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream       in(text);
    for (std::string line; std::getline(in, line);)
    {
        lines.push_back(line);
    }
    return lines;
}

TEST(PopulationCommand, InterruptKeepsFinishedModulesAndResumeCompletesTheRun)
{
    clitest::TempFolder folder;
    const std::string   out     = folder / "pop";
    const std::string   journal = out + "/modules.jsonl";
    const pid_t         pid     = Spawn({ "oisverify", "population", "--modules", "6", "--gain-spread", "0.1", "-j",
                                          "1", "--out", out },
                                        folder / "first.txt");
    // Interrupt as soon as the first module is in the journal.
    while (Lines(clitest::ReadText(journal)).empty() && waitpid(pid, nullptr, WNOHANG) == 0)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    kill(pid, SIGINT);
    ASSERT_EQ(Wait(pid), 130) << clitest::ReadText(folder / "first.txt");
    const std::vector<std::string> kept = Lines(clitest::ReadText(journal));
    ASSERT_GE(kept.size(), 1u);
    ASSERT_LT(kept.size(), 6u);
    EXPECT_NE(clitest::ReadText(folder / "first.txt").find("interrupted: "), std::string::npos);
    // A line cut short by the interrupt is dropped on resume.
    {
        std::ofstream(journal, std::ios::app) << kept.front().substr(0, 50);
    }

    ASSERT_EQ(Wait(Spawn({ "oisverify", "population", "--resume", "--out", out, "-j", "2" }, folder / "second.txt")), 0)
        << clitest::ReadText(folder / "second.txt");
    EXPECT_NE(clitest::ReadText(folder / "second.txt").find(", 1 line(s) cut short dropped"), std::string::npos);
    const std::vector<std::string> all = Lines(clitest::ReadText(journal));
    ASSERT_EQ(all.size(), 6u);
    // The modules finished before the interrupt were kept, not run again (their time would differ).
    for (size_t i = 0; i < kept.size(); i++)
    {
        EXPECT_EQ(all[i], kept[i]);
    }
    std::set<std::string> ids;
    for (const std::string& line : all)
    {
        ModuleRecord record;
        std::string  reason;
        ASSERT_TRUE(RecordFromSummaryText(line, &record, &reason)) << reason;
        ids.insert(record.id);
    }
    EXPECT_EQ(ids, (std::set<std::string>{ "ZKP000001", "ZKP000002", "ZKP000003", "ZKP000004", "ZKP000005",
                                           "ZKP000006" }));
    EXPECT_EQ(Lines(clitest::ReadText(out + "/modules.csv")).size(), 7u);

    // The stats command reads the same journal into the same table.
    const std::string statsOut = folder / "stats";
    ASSERT_EQ(Wait(Spawn({ "oisverify", "stats", "--out", statsOut, journal }, folder / "stats.txt")), 0)
        << clitest::ReadText(folder / "stats.txt");
    const std::vector<std::string> populationRows = Lines(clitest::ReadText(out + "/modules.csv"));
    const std::vector<std::string> statsRows      = Lines(clitest::ReadText(statsOut + "/modules.csv"));
    // Same rows; the journal holds them in the order the modules finished.
    EXPECT_EQ(std::multiset<std::string>(statsRows.begin(), statsRows.end()),
              std::multiset<std::string>(populationRows.begin(), populationRows.end()));
    EXPECT_EQ(clitest::CheckMarkup(clitest::ReadText(statsOut + "/index.html")), "");
}

} // namespace
} // namespace oisverify
