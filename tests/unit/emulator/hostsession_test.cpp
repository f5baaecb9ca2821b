// Host session with the fake node: interface hand-over, vendor tags, EEPROM record, node
// creation, a request's metadata round trip and handle checks.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include "chihost/emulator/hostsession.h"
#include "chihost/emulator/vendortagregistry.h"
#include "fakenode.h"

using chihost::HostSession;
using chihost::HostSessionOptions;

namespace
{

class HostSessionTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_options.eepromCustomInfo = {{"ModuleId", 3}, {"OISGyroGainAndSRMatch", 17}};
        ASSERT_TRUE(m_session.Open(FAKE_NODE_PATH, m_options).IsOk());
        // A reference of our own keeps the observations mapped when the session closes.
        m_fakeNode = dlopen(FAKE_NODE_PATH, RTLD_NOW | RTLD_NOLOAD);
        ASSERT_NE(nullptr, m_fakeNode);
        m_seen =
            reinterpret_cast<PFNFAKENODEOBSERVE>(dlsym(m_fakeNode, FAKE_NODE_OBSERVE_SYMBOL))();
    }

    void TearDown() override
    {
        m_session.Close();
        if (m_fakeNode != nullptr)
        {
            dlclose(m_fakeNode);
        }
    }

    CDKResult Process(CHIHANDLE hNode, UINT64 requestId)
    {
        CHINODEPROCESSREQUESTINFO request = {};
        request.size                      = sizeof(request);
        request.hNodeSession              = hNode;
        request.frameNum                  = requestId;
        return m_session.Callbacks().pProcessRequest(&request);
    }

    HostSessionOptions          m_options;
    HostSession                 m_session;
    void*                       m_fakeNode = nullptr;
    const FakeNodeObservations* m_seen     = nullptr;
};

TEST_F(HostSessionTest, NodeGetsTheInterfaceAndItsSectionBase)
{
    EXPECT_EQ(232u, m_seen->interfaceSize);
    EXPECT_EQ(0u, m_session.NodeInterface()->majorVersion);

    UINT32 base = 0;
    ASSERT_TRUE(chihost::VendorTagRegistry::Instance().FindSectionBase(FAKE_NODE_SECTION, &base));
    EXPECT_EQ(0x80010000u, base); // right after the host's own section
    EXPECT_EQ(std::vector<UINT32>{base}, m_session.NodeSectionBases());
    EXPECT_EQ(CDKResultSuccess, m_seen->sectionBaseResult);
    EXPECT_EQ(base, m_seen->sectionBase);
}

TEST_F(HostSessionTest, CreateFillsTheRecordAndTheNodeReadsTheEEPROM)
{
    chihost::NodeCreateOutcome plain = m_session.CreateNode({{1, "first"}, {2, "x"}}, 255, 0, 0x2);
    ASSERT_EQ(CDKResultSuccess, plain.result);
    EXPECT_NE(nullptr, plain.hNode);
    EXPECT_EQ(plain.hNode, plain.createInfo.phNodeSession);
    EXPECT_EQ(120u, plain.createInfo.size);
    EXPECT_EQ(m_session.Handle(), plain.createInfo.hChiSession);
    EXPECT_EQ(255u, plain.createInfo.nodeId);
    EXPECT_EQ(0x2u, plain.createInfo.nodeFlags);
    EXPECT_EQ(m_session.Handle(), m_seen->createSession);
    EXPECT_EQ(2u, m_seen->createPropertyCount);
    EXPECT_STREQ("first", m_seen->firstPropertyText);
    EXPECT_EQ(17, m_seen->eepromGainMatch);

    // The node may add the delayed-processing bit; the host reports the record as left.
    chihost::NodeCreateOutcome delayed =
        m_session.CreateNode({{kFakeNodeDelayProperty, "delayed"}}, 255, 1, 0x2);
    ASSERT_EQ(CDKResultSuccess, delayed.result);
    EXPECT_EQ(0x82u, delayed.createInfo.nodeFlags);
    EXPECT_EQ(2, m_seen->liveNodes);

    EXPECT_EQ(CDKResultSuccess, m_session.DestroyNode(plain.hNode));
    EXPECT_EQ(CDKResultEInvalidArg, m_session.DestroyNode(nullptr)); // the node's answer
    EXPECT_EQ(1, m_seen->liveNodes);
    m_session.Close(); // destroys the node still alive
    EXPECT_EQ(0, m_seen->liveNodes);
}

TEST_F(HostSessionTest, EEPROMRecordLimits)
{
    chihost::EEPROMCustomInfoList fifty;
    for (int i = 0; i < 49; ++i)
    {
        fifty.push_back({"Entry" + std::to_string(i), static_cast<UINT32>(i)});
    }
    fifty.push_back({"OISGyroGainAndSRMatch", 50});
    ASSERT_TRUE(m_session.PublishEEPROMInformation(fifty).IsOk());
    m_session.CreateNode({}, 255, 0, 0);
    EXPECT_EQ(50, m_seen->eepromGainMatch); // the fiftieth entry is reachable

    chihost::EEPROMCustomInfoList tooMany = fifty;
    tooMany.push_back({"Extra", 1});
    chihost::Status status = m_session.PublishEEPROMInformation(tooMany);
    EXPECT_FALSE(status);
    EXPECT_NE(std::string::npos, status.Message().find("50"));
    EXPECT_FALSE(m_session.PublishEEPROMInformation({{std::string(256, 'n'), 1}}));

    HostSession        other;
    HostSessionOptions options;
    options.eepromCustomInfo = tooMany;
    EXPECT_FALSE(other.Open(FAKE_NODE_PATH, options));
    EXPECT_FALSE(other.IsOpen());
}

TEST_F(HostSessionTest, RequestRoundTripThroughThePools)
{
    chihost::NodeCreateOutcome node = m_session.CreateNode({}, 255, 0, 0);
    ASSERT_EQ(CDKResultSuccess, node.result);
    ASSERT_TRUE(m_session.WriteInputValue<INT32>(7, FAKE_NODE_SECTION, "state", 3).IsOk());
    ASSERT_EQ(CDKResultSuccess, Process(node.hNode, 7));
    ASSERT_EQ(CDKResultSuccess, Process(node.hNode, 8)); // no settings for request 8

    INT32 state = 0;
    float verSR = 0.0f;
    ASSERT_TRUE(m_session.ReadOutputValue(7, FAKE_NODE_SECTION, "state", &state).IsOk());
    ASSERT_TRUE(m_session.ReadOutputValue(7, FAKE_NODE_SECTION, "verSR", &verSR).IsOk());
    EXPECT_EQ(4, state);
    EXPECT_EQ(2.5f, verSR);
    ASSERT_TRUE(m_session.ReadOutputValue(8, FAKE_NODE_SECTION, "state", &state).IsOk());
    EXPECT_EQ(-1, state);
    EXPECT_FALSE(m_session.ReadOutputValue(9, FAKE_NODE_SECTION, "state", &state));
    EXPECT_FALSE(m_session.ReadOutputValue(7, FAKE_NODE_SECTION, "nosuchtag", &state));
    double wrongSize = 0;
    EXPECT_FALSE(m_session.ReadOutputValue(7, FAKE_NODE_SECTION, "state", &wrongSize));

    std::vector<chihost::SetCall> calls = m_session.Pools().SetCalls();
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(7u, calls[0].RequestId());
    ASSERT_EQ(4u, calls[0].entries.size());
    UINT32 base = m_session.NodeSectionBases()[0];
    for (UINT32 i = 0; i < 4; ++i)
    {
        EXPECT_EQ(base + i, calls[0].entries[i].tagId);
    }
}

TEST_F(HostSessionTest, UnknownOrRetiredHandlesAreRefused)
{
    CHINODEINTERFACE host  = *m_session.NodeInterface();
    UINT32           tagId = 0xF0000000; // EEPROMInformation, static pool
    CHITAGDATA       data  = {sizeof(CHITAGDATA), 0, nullptr, 0, 0, FALSE};
    CHIMETADATAINFO  info  = {sizeof(CHIMETADATAINFO), m_session.Handle(), 1, &tagId, &data,
                              ChiMetadataStatic};
    ASSERT_EQ(CDKResultSuccess, host.pGetStaticMetadata(&info, 0));
    EXPECT_EQ(sizeof(EEPROMInformation), data.dataSize);
    ASSERT_EQ(CDKResultSuccess, host.pGetMetadata(&info));
    EXPECT_NE(nullptr, data.pData);

    // Another camera of the same session has no metadata.
    EXPECT_EQ(CDKResultENoSuch, host.pGetStaticMetadata(&info, 1));
    EXPECT_EQ(nullptr, data.pData);
    EXPECT_EQ(CDKResultENoSuch, host.pGetMultiCamDynamicMetaByCamId(&info, 2));

    info.chiSession = reinterpret_cast<CHIHANDLE>(&info);
    EXPECT_EQ(CDKResultEInvalidArg, host.pGetMetadata(&info));
    EXPECT_EQ(CDKResultEInvalidArg, host.pSetMetadata(&info));
    EXPECT_EQ(CDKResultEInvalidArg, host.pGetStaticMetadata(&info, 0));
    EXPECT_EQ(CDKResultEInvalidPointer, host.pGetMetadata(nullptr));
    info.size = 40;
    EXPECT_EQ(CDKResultEFailed, host.pSetMetadata(&info));

    // A new session never takes over the handle of a closed one.
    CHIHANDLE retired = m_session.Handle();
    m_session.Close();
    ASSERT_TRUE(m_session.Open(FAKE_NODE_PATH, m_options).IsOk());
    EXPECT_NE(retired, m_session.Handle());
    info = {sizeof(CHIMETADATAINFO), retired, 1, &tagId, &data, ChiMetadataStatic};
    EXPECT_EQ(CDKResultEInvalidArg, host.pGetStaticMetadata(&info, 0));
}

} // namespace
