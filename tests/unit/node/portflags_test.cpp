// What buffer negotiation leaves in the node: the output port flags (bit 1 and bit 5 arrays,
// which overlap by one element) and the size chosen by the set call, stored as given.
#include <string.h>

#include <gtest/gtest.h>

#include "chihost/emulator/logcapture.h"
#include "nodetestpeer.h"

namespace
{

class PortFlagsTest : public ::testing::Test
{
protected:
    void Query(const std::vector<UINT32>& flags)
    {
        std::vector<CHIOUTPUTPORTQUERYBUFFERINFO> outputs(flags.size());
        for (size_t i = 0; i < flags.size(); i++)
        {
            memset(&outputs[i], 0, sizeof(outputs[i]));
            outputs[i].outputPortFlags = flags[i];
        }
        CHINODEQUERYBUFFERINFO query;
        memset(&query, 0, sizeof(query));
        query.size                 = sizeof(query);
        query.hNodeSession         = &m_node;
        query.numOutputPorts       = static_cast<UINT32>(outputs.size());
        query.pOutputPortQueryInfo = outputs.data();
        ASSERT_EQ(m_node.QueryBufferInfo(&query), 0);
    }

    chihost::LogCapture m_log;
    ChiOisVerifyNode    m_node;
};

TEST_F(PortFlagsTest, OnePortKeepsBothBits)
{
    Query({ 0x22 });
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::RealTimeFlag(m_node, 0), 1u);
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::InputDependencyFlag(m_node, 0), 1u);
}

TEST_F(PortFlagsTest, BitOneAloneSetsOnlyTheFirstFlag)
{
    Query({ 0x02 });
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::RealTimeFlag(m_node, 0), 1u);
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::InputDependencyFlag(m_node, 0), 0u);
}

TEST_F(PortFlagsTest, NextPortsBitOneOverwritesThisPortsBitFive)
{
    Query({ 0x20, 0x00 });
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::InputDependencyFlag(m_node, 0), 0u);
    Query({ 0x00, 0x02 });
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::InputDependencyFlag(m_node, 0), 1u);
}

TEST_F(PortFlagsTest, ManyPortsNeverWritePastTheFlagStorage)
{
    Query(std::vector<UINT32>(64, 0x22));
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::RealTimeFlag(m_node, 7), 1u);
}

TEST_F(PortFlagsTest, SetBufferInfoStoresTheChosenSizeAsGiven)
{
    CHINODEIMAGEFORMAT             format = { 1920, 1080 };
    CHINODESETBUFFERPROPERTIESINFO set;
    memset(&set, 0, sizeof(set));
    set.size         = sizeof(set);
    set.hNodeSession = &m_node;
    set.portId       = 99;
    set.pFormat      = &format;
    ASSERT_EQ(m_node.SetBufferInfo(&set), 0);
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::OutputWidth(m_node), 1920u);
    EXPECT_EQ(ChiOisVerifyNodeTestPeer::OutputHeight(m_node), 1080u);
}

} // namespace
