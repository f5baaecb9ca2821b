// The state setter and the metadata publisher of one node running on two threads at once, as a
// host may call them: every publication is one complete set call, the states published only move
// forward, and (under ThreadSanitizer) nothing races.
#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "chihost/emulator/logcapture.h"
#include "nodetestpeer.h"
#include "tempdeviceroot.h"

namespace
{

const UINT32 kBase = 0x80010000;

struct Publication
{
    std::vector<UINT32> tags;
    INT32               supported;
    INT32               state;
    UINT64              requestId;
};

std::mutex               g_publishedMutex;
std::vector<Publication> g_published;

CDKResult RecordSet(CHIMETADATAINFO* pInfo)
{
    Publication publication;
    publication.tags.assign(pInfo->pTagList, pInfo->pTagList + pInfo->tagNum);
    publication.supported = *static_cast<INT32*>(pInfo->pTagData[0].pData);
    publication.state     = *static_cast<INT32*>(pInfo->pTagData[1].pData);
    publication.requestId = pInfo->pTagData[0].requestId;
    std::lock_guard<std::mutex> lock(g_publishedMutex);
    g_published.push_back(publication);
    return CDKResultSuccess;
}

CDKResult AnswerBase(CHIVENDORTAGBASEINFO* pInfo)
{
    pInfo->vendorTagBase = kBase;
    return CDKResultSuccess;
}

// Position of a state along the only forward path the setter below can take.
int Rank(INT32 state)
{
    switch (state)
    {
        case 0: return 0;
        case 1: return 1;
        case 2: return 2;
        case 3: return 3;
        case 20: return 4;
        default: return -1;
    }
}

TEST(NodeConcurrency, SetterAndPublisherStayConsistent)
{
    testsupport::TempDeviceRoot root;
    chihost::LogCapture         log;
    g_chiNodeInterface                   = CHINODEINTERFACE();
    g_chiNodeInterface.size              = sizeof(CHINODEINTERFACE);
    g_chiNodeInterface.pSetMetadata      = RecordSet;
    g_chiNodeInterface.pGetVendorTagBase = AnswerBase;
    ChiOisVerifyNode node;

    const int         kRounds = 400;
    std::atomic<bool> go(false);
    std::thread setter([&]() {
        const INT32 requests[] = { 1, 2, 1, 3, 2, 20, 3, 1 };
        while (!go.load()) {}
        for (int round = 0; round < kRounds; round++)
        {
            node.SetOISVerifyState(static_cast<OISVerifyState>(requests[round % 8]));
        }
    });
    std::thread publisher([&]() {
        while (!go.load()) {}
        for (int round = 0; round < kRounds; round++)
        {
            CHINODEPROCESSREQUESTINFO request = {};
            request.size     = sizeof(request);
            request.frameNum = static_cast<UINT64>(round);
            ChiOisVerifyNodeTestPeer::Publish(node, &request);
        }
    });
    go.store(true);
    setter.join();
    publisher.join();

    ASSERT_EQ(g_published.size(), static_cast<size_t>(kRounds));
    int lastRank = 0;
    for (size_t i = 0; i < g_published.size(); i++)
    {
        const Publication& p = g_published[i];
        EXPECT_EQ(p.tags, (std::vector<UINT32>{ kBase, kBase + 1, kBase + 2, kBase + 3 }));
        EXPECT_EQ(p.supported, 1);
        EXPECT_EQ(p.requestId, i);
        ASSERT_GE(Rank(p.state), lastRank) << "published state went back to " << p.state;
        lastRank = Rank(p.state);
    }
    EXPECT_EQ(node.GetOISVerifyState(), CalibStartState);
}

} // namespace
