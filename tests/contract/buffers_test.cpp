// Buffer negotiation as the framework drives it: whatever the default negotiation produced,
// every port ends at 1440 x 1080; empty usage and requirement fields get their defaults.
#include <string.h>

#include <gtest/gtest.h>

#include "chihost/emulator/logcapture.h"
#include "nodeharness.h"

namespace
{

class BufferNegotiationTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        chihost::Status status = m_harness.Open();
        ASSERT_TRUE(status) << status.Message();
        chihost::NodeCreateOutcome created = m_harness.Create();
        ASSERT_EQ(created.result, CDKResultSuccess);
        m_hNode = created.hNode;
        memset(&m_query, 0, sizeof(m_query));
        m_query.size         = sizeof(m_query);
        m_query.hNodeSession = m_hNode;
        m_log.Clear();
    }

    void AddPorts(UINT32 outputs, UINT32 inputs)
    {
        m_outputs.assign(outputs, CHIOUTPUTPORTQUERYBUFFERINFO());
        m_inputs.assign(inputs, CHIINPUTPORTQUERYBUFFERINFO());
        m_downstream.assign(outputs, CHINODEBUFFERREQUIREMENT());
        for (UINT32 i = 0; i < outputs; i++)
        {
            m_outputs[i].outputPortId           = 10 + i;
            m_outputs[i].numConnectedInputPorts = 1;
            m_downstream[i].optimalW            = 640 + i;
            m_downstream[i].optimalH            = 480;
            m_downstream[i].maxW                = 4000;
            m_downstream[i].maxH                = 3000;
            m_outputs[i].pBufferRequirement     = &m_downstream[i];
        }
        for (UINT32 i = 0; i < inputs; i++)
        {
            m_inputs[i].inputPortId = 20 + i;
        }
        m_query.numOutputPorts       = outputs;
        m_query.pOutputPortQueryInfo = m_outputs.data();
        m_query.numInputPorts        = inputs;
        m_query.pInputOptions        = m_inputs.data();
    }

    chihost::LogCapture                       m_log;
    testsupport::NodeHarness                  m_harness;
    CHIHANDLE                                 m_hNode = nullptr;
    CHINODEQUERYBUFFERINFO                    m_query;
    std::vector<CHIOUTPUTPORTQUERYBUFFERINFO> m_outputs;
    std::vector<CHIINPUTPORTQUERYBUFFERINFO>  m_inputs;
    std::vector<CHINODEBUFFERREQUIREMENT>     m_downstream;
};

void ExpectFixedSize(const CHINODEBUFFERREQUIREMENT& r)
{
    EXPECT_EQ(r.minW, 1440u);
    EXPECT_EQ(r.minH, 1080u);
    EXPECT_EQ(r.maxW, 1440u);
    EXPECT_EQ(r.maxH, 1080u);
    EXPECT_EQ(r.optimalW, 1440u);
    EXPECT_EQ(r.optimalH, 1080u);
}

TEST_F(BufferNegotiationTest, NoPortsIsAQuietSuccess)
{
    EXPECT_EQ(m_harness.Callbacks().pQueryBufferInfo(&m_query), 0);
    EXPECT_TRUE(m_log.Lines().empty());
}

TEST_F(BufferNegotiationTest, EveryPortEndsAtTheFixedFrameSize)
{
    AddPorts(2, 2);
    ASSERT_EQ(m_harness.Callbacks().pQueryBufferInfo(&m_query), 0);
    for (const auto& output : m_outputs)
    {
        ExpectFixedSize(output.outputBufferOption);
        for (UINT32 word : output.bufferUsage)
        {
            EXPECT_EQ(word, 0xFFFFFFFFu);
        }
    }
    for (const auto& input : m_inputs)
    {
        ExpectFixedSize(input.inputBufferOption);
    }
    auto lines = m_log.ChiLinesStartingWith("InputPortIndex ");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1].message, "InputPortIndex 1 PortId 21 Input: opt[1440x1080] Min[1440x1080] Max[1440x1080]");
    EXPECT_EQ(lines[1].function, "QueryBufferInfo");
    EXPECT_TRUE(m_log.HasChiLine('I', "OutputPortIndex 0 PortId 10 Output: opt[1440x1080] Min[1440x1080] Max[1440x1080]"));
}

TEST_F(BufferNegotiationTest, UsageAndRequirementsSetByTheHostAreKept)
{
    AddPorts(1, 2);
    m_outputs[0].bufferUsage[2]                                   = 0x40;
    m_inputs[0].inputBufferOption.planeAlignment[1].scanlineAlignment = 64;
    ASSERT_EQ(m_harness.Callbacks().pQueryBufferInfo(&m_query), 0);
    EXPECT_EQ(m_outputs[0].bufferUsage[0], 0u);
    EXPECT_EQ(m_outputs[0].bufferUsage[2], 0x40u);

    const CHIALIGNMENTINFO* kept = m_inputs[0].inputBufferOption.planeAlignment;
    EXPECT_EQ(kept[0].strideAlignment, 0u);
    EXPECT_EQ(kept[0].scanlineAlignment, 0u);
    EXPECT_EQ(kept[1].strideAlignment, 0u);
    EXPECT_EQ(kept[1].scanlineAlignment, 64u);
    const CHIALIGNMENTINFO* filled = m_inputs[1].inputBufferOption.planeAlignment;
    EXPECT_EQ(filled[0].strideAlignment, 128u);
    EXPECT_EQ(filled[0].scanlineAlignment, 32u);
    EXPECT_EQ(filled[1].strideAlignment, 128u);
    EXPECT_EQ(filled[1].scanlineAlignment, 16u);
}

TEST_F(BufferNegotiationTest, SetBufferInfoChecksItsRecord)
{
    CHINODEIMAGEFORMAT             format = { 1920, 1080 };
    CHINODESETBUFFERPROPERTIESINFO set;
    memset(&set, 0, sizeof(set));
    set.size         = sizeof(set);
    set.hNodeSession = m_hNode;
    set.pFormat      = &format;
    EXPECT_EQ(m_harness.Callbacks().pSetBufferInfo(&set), 0);
    set.pFormat = nullptr;
    EXPECT_EQ(m_harness.Callbacks().pSetBufferInfo(&set), 5);
}

} // namespace
