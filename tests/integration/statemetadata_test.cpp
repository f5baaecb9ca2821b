// The conversation between the test app and the node through request metadata: the app writes
// "oisState" into each request, the node applies it by its transition table and publishes state,
// supported feature and SR back on every request; final states write the report once.
#include <gtest/gtest.h>

#include "chihost/emulator/logcapture.h"
#include "chihost/emulator/requestdriver.h"
#include "nodeharness.h"

namespace
{

const char kReport[] = "/data/vendor/camera/oisverify/oisVerify.json";
const INT32 kNoSetting = 1000; // the app writes nothing for this request

struct Conversation
{
    const char*        name;
    std::vector<INT32> asked;     // what the app writes per request
    std::vector<INT32> published; // the state the node publishes back per request
    INT32              reportState; // 0: no report
};

void PrintTo(const Conversation& c, std::ostream* pOut) { *pOut << c.name; }

class StateMetadataTest : public ::testing::TestWithParam<Conversation>
{
protected:
    void SetUp() override
    {
        chihost::Status status = m_harness.Open();
        ASSERT_TRUE(status) << status.Message();
        chihost::NodeCreateOutcome created = m_harness.Create();
        ASSERT_EQ(created.result, CDKResultSuccess);
        m_hNode = created.hNode;
    }

    chihost::AppPolicy Script(const std::vector<INT32>& asked)
    {
        return [asked](UINT64 index, const chihost::PublishedInfo&) {
            chihost::AppRequest request;
            request.writeState = (asked[index] != kNoSetting);
            request.state      = asked[index];
            return request;
        };
    }

    std::string ReportStateText()
    {
        std::string text = m_harness.Root().Map(kReport);
        FILE*       pFile = fopen(text.c_str(), "rb");
        if (pFile == nullptr)
        {
            return "";
        }
        char buffer[4096] = {};
        size_t length     = fread(buffer, 1, sizeof(buffer) - 1, pFile);
        fclose(pFile);
        std::string report(buffer, length);
        size_t      at = report.find("\"oisVerifyState\":\t");
        return (at == std::string::npos) ? "?" : report.substr(at + 18, report.find(',', at) - at - 18);
    }

    chihost::LogCapture      m_log;
    testsupport::NodeHarness m_harness;
    CHIHANDLE                m_hNode = nullptr;
};

TEST_P(StateMetadataTest, NodePublishesTheStateItAcceptedAfterEveryRequest)
{
    const Conversation&    conversation = GetParam();
    chihost::RequestDriver driver(m_harness.Session(), m_hNode, Script(conversation.asked));
    for (size_t i = 0; i < conversation.asked.size(); i++)
    {
        chihost::RequestRecord record = driver.Submit();
        EXPECT_EQ(record.result, CDKResultSuccess);
        ASSERT_TRUE(record.published.hasState && record.published.hasSupportedFeature && record.published.hasSR);
        EXPECT_EQ(record.published.supportedFeature, 1);
        EXPECT_EQ(record.published.state, conversation.published[i]) << "request " << i;
        EXPECT_EQ(record.published.horSR, 0.0f);
    }
    if (conversation.reportState == 0)
    {
        EXPECT_EQ(ReportStateText(), "");
    }
    else
    {
        EXPECT_EQ(ReportStateText(), std::to_string(conversation.reportState));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Conversations, StateMetadataTest,
    ::testing::Values(
        Conversation{ "StartVerifyDone", { 1, 3, 3, 4 }, { 1, 3, 3, 4 }, 4 },
        Conversation{ "ThroughPrepare", { 1, 2, 2, 3 }, { 1, 2, 2, 3 }, 0 },
        Conversation{ "IgnoredRequests", { 4, 0, 2, 1, 20, 3 }, { 1, 1, 2, 2, 2, 3 }, 0 },
        Conversation{ "CalibrationStatesAcceptOnlyAbort", { 3, 20, 3, 4, 21, -1 }, { 3, 20, 20, 20, 20, -1 }, -1 },
        Conversation{ "AbortWhileVerifying", { 3, -1, 3 }, { 3, -1, -1 }, -1 },
        Conversation{ "DoneStaysDone", { 3, 4, 4, 2, 21 }, { 3, 4, 4, 4, 4 }, 4 },
        Conversation{ "MissingSettingChangesNothing", { kNoSetting, 3, kNoSetting }, { 1, 3, 3 }, 0 }),
    [](const ::testing::TestParamInfo<Conversation>& info) { return std::string(info.param.name); });

TEST_F(StateMetadataTest, SecondEntryIntoDoneWarnsAndKeepsTheFirstReport)
{
    chihost::RequestDriver driver(m_harness.Session(), m_hNode, Script({ 3, 4, 2 }));
    driver.Submit();
    driver.Submit();
    EXPECT_EQ(m_log.ChiLinesStartingWith("Generate json file").size(), 1u);
    driver.Submit();
    EXPECT_TRUE(m_log.HasChiLine('I', "VerifyDoneState horSR = 0.00 verSR = 0.00"));
    EXPECT_TRUE(m_log.HasChiLine('W', "Json file has generated, m_oisVerifyState = 4"));
    EXPECT_EQ(m_log.ChiLinesStartingWith("Generate json file").size(), 1u);
}

TEST_F(StateMetadataTest, MissingSettingIsLoggedWithTheCurrentState)
{
    chihost::RequestDriver driver(m_harness.Session(), m_hNode, Script({ kNoSetting }));
    driver.Submit();
    EXPECT_TRUE(m_log.HasChiLine('E', "can not get com.zelk.node.oisverify.oisState metadata"));
    EXPECT_TRUE(m_log.HasChiLine('E', "Error state = 1"));
    EXPECT_TRUE(m_log.HasChiLine('I', "set metadata com.zelk.node.oisverifysupportedFeature = 1 state = 1 "
                                      "horSR = 0.00 verSR = 0.00"));
}

TEST_F(StateMetadataTest, EachRequestPublishesInOneSetCallInTagOrder)
{
    m_harness.Session().Pools().ClearSetCalls();
    chihost::RequestDriver driver(m_harness.Session(), m_hNode);
    driver.Run(3);
    auto calls = m_harness.Session().Pools().SetCalls();
    ASSERT_EQ(calls.size(), 3u);
    const UINT32 base = m_harness.Session().NodeSectionBases()[0];
    for (size_t i = 0; i < calls.size(); i++)
    {
        ASSERT_EQ(calls[i].entries.size(), 4u);
        for (UINT32 t = 0; t < 4; t++)
        {
            EXPECT_EQ(calls[i].entries[t].tagId, base + t);
            EXPECT_EQ(calls[i].entries[t].requestId, i);
        }
    }
    EXPECT_TRUE(m_log.HasChiLine('I', "get com.zelk.node.oisverify metadata from apk = 3 oisVerifyState = 3"));
}

} // namespace
