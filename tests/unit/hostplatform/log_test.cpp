// ChiLog: the logcat-style echo, the sink and its records, echo control, and the log globals.
#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "chihost/hostlog.h"
#include "chilog.h"
#include "stderrcapture.h"

namespace
{

// Each record flattened to "letter|level|group|file|func|line|message".
void CollectSink(const ChiHostLogRecord* pRecord, void* pContext)
{
    static_cast<std::vector<std::string>*>(pContext)->push_back(
        std::string(1, pRecord->levelLetter) + "|" + pRecord->pLevelText + "|" + pRecord->pGroupText +
        "|" + pRecord->pFileName + "|" + pRecord->pFuncName + "|" + std::to_string(pRecord->line) +
        "|" + pRecord->pMessage);
}

TEST(ChiLog, GlobalsDefaultToEverythingOnAndTakeAppliedSettings)
{
    EXPECT_EQ(std::vector<UINT32>(g_chiLogGroupEnable, g_chiLogGroupEnable + 4), std::vector<UINT32>(4, ~0u));
    EXPECT_EQ(g_enableSystemLog, TRUE);
    ChiHostLogApplySettings(0x800, 0x1, 0x0, 0x7, 0);
    EXPECT_EQ(std::vector<UINT32>(g_chiLogGroupEnable, g_chiLogGroupEnable + 4),
              (std::vector<UINT32>{0x800, 0x1, 0x0, 0x7}));
    EXPECT_EQ(g_enableSystemLog, FALSE);
}

TEST(ChiLog, EchoIsOneLogcatStyleLine)
{
    StderrCapture capture;
    ChiLog::LogSystem("[ERROR]", 'E', "[ChiNode]", "node/src/file.cpp", "Func", 12, "value %d", 7);
    std::string text = capture.Stop();
    const std::string kTimeShape = "dd-dd dd:dd:dd.ddd "; // then " PID  TID E CHI     : ..."
    ASSERT_GT(text.size(), kTimeShape.size());
    for (size_t at = 0; at < kTimeShape.size(); at++)
    {
        bool fits = ('d' == kTimeShape[at]) ? (0 != isdigit(static_cast<unsigned char>(text[at])))
                                            : (kTimeShape[at] == text[at]);
        ASSERT_TRUE(fits) << "time stamp differs at " << at << ": " << text;
    }
    int pid = 0, tid = 0, tagAt = 0;
    ASSERT_EQ(sscanf(text.c_str() + kTimeShape.size(), "%d %d E %n", &pid, &tid, &tagAt), 2) << text;
    EXPECT_EQ(pid, static_cast<int>(getpid()));
    EXPECT_EQ(tid, static_cast<int>(gettid()));
    EXPECT_EQ(text.substr(kTimeShape.size() + static_cast<size_t>(tagAt)),
              "CHI     : [ERROR][ChiNode] file.cpp:12 Func() value 7\n");
}

TEST(ChiLog, SinkGetsTheWholeRecordAndEchoCanBeTurnedOff)
{
    std::vector<std::string> records;
    ChiHostLogSetSink(CollectSink, &records);
    ChiHostLogSetEcho(0);
    std::string   longText(10000, 'x');
    StderrCapture capture;
    ChiLog::LogSystem("[ WARN]", 'W', "[ChiNode]", "a.cpp", "Run", 3, "%s|%s", longText.c_str(), "end");
    EXPECT_EQ(capture.Stop(), "");
    ChiHostLogSetSink(nullptr, nullptr);
    ChiLog::LogSystem("[ INFO]", 'I', "[ChiNode]", "a.cpp", "Run", 4, "after the sink is removed");
    EXPECT_EQ(records, std::vector<std::string>{"W|[ WARN]|[ChiNode]|a.cpp|Run|3|" + longText + "|end"});
}

// A sink that logs itself must neither deadlock nor recurse; its own line is not handed back.
TEST(ChiLog, SinkThatLogsDoesNotRecurse)
{
    static int calls = 0;
    ChiHostLogSetEcho(0);
    ChiHostLogSetSink(
        [](const ChiHostLogRecord* pRecord, void*) {
            calls++;
            ChiLog::LogSystem("[ INFO]", 'I', "[Sink]", "s.cpp", "Sink", 1, "saw %s", pRecord->pMessage);
        },
        nullptr);
    ChiLog::LogSystem("[ERROR]", 'E', "[ChiNode]", "a.cpp", "Run", 1, "first");
    ChiHostLogSetSink(nullptr, nullptr);
    EXPECT_EQ(calls, 1);
}

TEST(ChiLog, ConcurrentLinesReachTheSinkWholeAndOneAtATime)
{
    std::vector<std::string> records; // CollectSink is not thread-safe: only serial calls keep it intact
    ChiHostLogSetEcho(0);
    ChiHostLogSetSink(CollectSink, &records);
    std::vector<std::thread> threads;
    std::vector<std::string> expected;
    for (int thread = 0; thread < 4; thread++)
    {
        for (int line = 0; line < 250; line++)
        {
            expected.push_back("I|[ INFO]|[ChiNode]|t.cpp|Worker|" + std::to_string(line) + "|thread " +
                               std::to_string(thread) + " line " + std::to_string(line));
        }
        threads.emplace_back([thread]() {
            for (int line = 0; line < 250; line++)
            {
                ChiLog::LogSystem("[ INFO]", 'I', "[ChiNode]", "t.cpp", "Worker", line, "thread %d line %d",
                                  thread, line);
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    ChiHostLogSetSink(nullptr, nullptr);
    std::sort(records.begin(), records.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(records, expected);
}

// What a fresh copy of this program writes to stderr when one line is logged with
// CHIHOST_LOG_QUIET set to pQuietValue at load.
std::string ChildStderr(const char* pQuietValue)
{
    char    self[4096];
    ssize_t length = readlink("/proc/self/exe", self, sizeof(self) - 1);
    self[(length > 0) ? length : 0] = '\0';
    std::string command = std::string("CHIHOST_LOG_QUIET=") + pQuietValue + " LOG_TEST_CHILD=1 " +
                          TEST_PROGRAM_LAUNCHER + " '" + self +
                          "' --gtest_filter=ChiLog.QuietEnvironmentAtLoadTurnsEchoOff 2>&1 >/dev/null";
    FILE*       pPipe = popen(command.c_str(), "r");
    std::string text;
    char        chunk[512];
    size_t      got = 0;
    while ((nullptr != pPipe) && ((got = fread(chunk, 1, sizeof(chunk), pPipe)) > 0))
    {
        text.append(chunk, got);
    }
    EXPECT_EQ((nullptr != pPipe) ? pclose(pPipe) : -1, 0);
    return text;
}

TEST(ChiLog, QuietEnvironmentAtLoadTurnsEchoOff)
{
    if (nullptr != getenv("LOG_TEST_CHILD"))
    {
        ChiLog::LogSystem("[ERROR]", 'E', "[ChiNode]", "c.cpp", "Child", 1, "from the child");
        return;
    }
    EXPECT_NE(ChildStderr("0").find("Child() from the child"), std::string::npos);
    EXPECT_EQ(ChildStderr("1"), "");
}

} // namespace
