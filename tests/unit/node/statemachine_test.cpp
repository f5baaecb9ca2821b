// The verification state machine on a bare node: every row of the transition table (the
// calibration rows included, which only the node itself can drive), the no-op fast path, error
// states, and when the report is written.
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "chihost/emulator/logcapture.h"
#include "nodetestpeer.h"
#include "tempdeviceroot.h"

namespace
{

const char kReport[] = "/data/vendor/camera/oisverify/oisVerify.json";

struct Transition
{
    std::vector<INT32> path;     // requests that lead from 0 to the state under test
    INT32              request;
    INT32              expected;
    bool               reportWritten;
};

void PrintTo(const Transition& t, std::ostream* pOut)
{
    *pOut << "after";
    for (INT32 step : t.path)
    {
        *pOut << " " << step;
    }
    *pOut << " request " << t.request << " -> " << t.expected;
}

class StateTableTest : public ::testing::TestWithParam<Transition>
{
protected:
    void SetUp() override { m_root.MakeDirs("/data/vendor/camera/oisverify"); }

    testsupport::TempDeviceRoot m_root;
    chihost::LogCapture         m_log;
    ChiOisVerifyNode            m_node;
};

TEST_P(StateTableTest, AppliesTheRow)
{
    const Transition& row = GetParam();
    for (INT32 step : row.path)
    {
        m_node.SetOISVerifyState(static_cast<OISVerifyState>(step));
        ASSERT_EQ(m_node.GetOISVerifyState(), step) << "path step " << step;
    }
    ASSERT_FALSE(m_root.Exists(kReport));
    const INT32 before = m_node.GetOISVerifyState();

    m_node.SetOISVerifyState(static_cast<OISVerifyState>(row.request));
    EXPECT_EQ(m_node.GetOISVerifyState(), row.expected);
    EXPECT_EQ(m_root.Exists(kReport), row.reportWritten);
    const std::string change = (row.expected != before)
        ? "m_oisVerifyState from " + std::to_string(before) + " changed to = " + std::to_string(row.expected)
        : "m_oisVerifyState  " + std::to_string(before) + " do not change";
    EXPECT_TRUE(m_log.HasChiLine('I', change)) << change;
}

const std::vector<INT32> k1    = { 1 };
const std::vector<INT32> k2    = { 1, 2 };
const std::vector<INT32> k3    = { 1, 3 };
const std::vector<INT32> k20   = { 1, 3, 20 };
const std::vector<INT32> k21   = { 1, 3, 20, 21 };
const std::vector<INT32> k22   = { 1, 3, 20, 21, 22 };
const std::vector<INT32> k23   = { 1, 3, 20, 21, 22, 23 };
const std::vector<INT32> k24   = { 1, 3, 20, 21, 24 };

INSTANTIATE_TEST_SUITE_P(
    Rows, StateTableTest,
    ::testing::Values(
        Transition{ {}, 1, 1, false }, Transition{ {}, 3, 0, false }, Transition{ {}, 4, 0, false },
        Transition{ k1, 2, 2, false }, Transition{ k1, 3, 3, false }, Transition{ k1, 4, 1, false },
        Transition{ k1, 0, 1, false },
        Transition{ k2, 3, 3, false }, Transition{ k2, 1, 2, false }, Transition{ k2, 4, 2, false },
        Transition{ k3, 4, 4, true }, Transition{ k3, 20, 20, false }, Transition{ k3, 21, 3, false },
        Transition{ k3, 2, 3, false },
        Transition{ k20, 21, 21, false }, Transition{ k20, 22, 20, false }, Transition{ k20, 4, 20, false },
        Transition{ k21, 22, 22, false }, Transition{ k21, 24, 24, false }, Transition{ k21, 23, 21, false },
        Transition{ k22, 23, 23, false }, Transition{ k22, 24, 24, false }, Transition{ k22, 21, 22, false },
        Transition{ k23, 21, 21, false }, Transition{ k23, 24, 23, false }, Transition{ k23, 4, 23, false },
        Transition{ k24, 4, 4, true }, Transition{ k24, 21, 24, false },
        Transition{ k3, -1, -1, true }, Transition{ k22, -1, -1, true }, Transition{ k1, -13, -13, true }));

class StateMachineTest : public ::testing::Test
{
protected:
    void SetUp() override { m_root.MakeDirs("/data/vendor/camera/oisverify"); }

    void Walk(std::initializer_list<INT32> steps)
    {
        for (INT32 step : steps)
        {
            m_node.SetOISVerifyState(static_cast<OISVerifyState>(step));
        }
    }

    testsupport::TempDeviceRoot m_root;
    chihost::LogCapture         m_log;
    ChiOisVerifyNode            m_node;
};

TEST_F(StateMachineTest, RequestingTheCurrentStateLogsNothingAndTakesNoLock)
{
    Walk({ 1, 3 });
    m_log.Clear();
    std::mutex& stateMutex = ChiOisVerifyNodeTestPeer::StateMutex(m_node);
    std::lock_guard<std::mutex> held(stateMutex);
    auto call = std::async(std::launch::async, [this]() { m_node.SetOISVerifyState(VerifyingState); });
    EXPECT_EQ(call.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_TRUE(m_log.Lines().empty());
}

TEST_F(StateMachineTest, VerifyDoneAcceptsOnlyErrorsAndLogsEveryOtherRequest)
{
    Walk({ 1, 3, 4 });
    const std::string first = m_root.ReadFile(kReport);
    ASSERT_FALSE(first.empty());

    m_log.Clear();
    m_node.SetOISVerifyState(SetGainTargetState);
    EXPECT_EQ(m_node.GetOISVerifyState(), VerifyDoneState);
    EXPECT_TRUE(m_log.HasChiLine('I', "VerifyDoneState horSR = 0.00 verSR = 0.00"));
    EXPECT_TRUE(m_log.HasChiLine('W', "Json file has generated, m_oisVerifyState = 4"));
    EXPECT_TRUE(m_log.HasChiLine('I', "m_oisVerifyState  4 do not change"));
    EXPECT_EQ(m_root.ReadFile(kReport), first);

    m_node.SetOISVerifyState(ErrorState);
    EXPECT_EQ(m_node.GetOISVerifyState(), ErrorState);
}

TEST_F(StateMachineTest, ErrorsAreFinalButAnotherErrorReplacesTheValue)
{
    Walk({ 1, 3, -1 });
    EXPECT_TRUE(m_log.HasChiLine('E', "ErrorState, need to exit m_oisVerifyState = -1"));
    EXPECT_TRUE(m_log.HasChiLine('I', "m_oisVerifyState from 3 changed to = -1"));
    Walk({ 1, 3, 4 });
    EXPECT_EQ(m_node.GetOISVerifyState(), ErrorState);
    Walk({ -13 });
    EXPECT_EQ(m_node.GetOISVerifyState(), ErrorStateTimeout);
    EXPECT_TRUE(m_log.HasChiLine('W', "Json file has generated, m_oisVerifyState = -13"));
}

TEST_F(StateMachineTest, MissingReportFolderIsSilentAndNotRetried)
{
    ASSERT_EQ(system(("rm -rf " + m_root.Map("/data/vendor/camera/oisverify")).c_str()), 0);
    Walk({ 1, 3, 4 });
    EXPECT_FALSE(m_root.Exists(kReport));
    EXPECT_TRUE(m_log.HasChiLine('I', "Generate json file, m_isGyroGainCalib = 0,  SR[0.00, 0.00]"));
    for (const auto& line : m_log.Lines())
    {
        EXPECT_NE(line.level, 'E') << line.message;
    }
    m_root.MakeDirs("/data/vendor/camera/oisverify");
    Walk({ 2 });
    EXPECT_FALSE(m_root.Exists(kReport));
    EXPECT_TRUE(m_log.HasChiLine('W', "Json file has generated, m_oisVerifyState = 4"));
}

} // namespace
