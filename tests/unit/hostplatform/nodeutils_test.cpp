// ChiNodeUtils: interface hand-over, vendor-tag answers, default buffer negotiation, single-tag
// metadata reads and the text helper.
#include <string.h>

#include <array>
#include <vector>

#include <gtest/gtest.h>

#include "chinodeutils.h"

namespace
{

// optimalW, optimalH, minW, minH, maxW, maxH.
using Sizes = std::array<UINT32, 6>;

struct NegotiationCase
{
    const char*                     pName;
    std::vector<std::vector<Sizes>> outputs; // requirements of the inputs connected to each output
    std::vector<Sizes>              expectedOutputs;
    Sizes                           expectedInputs;
};

Sizes SizesOf(const CHINODEBUFFERREQUIREMENT& option)
{
    return {option.optimalW, option.optimalH, option.minW, option.minH, option.maxW, option.maxH};
}

TEST(ChiNodeUtils, DefaultBufferNegotiation)
{
    const Sizes           kFree = {0, 0, 0, 0, 0xFFFF, 0xFFFF};
    const NegotiationCase kCases[] = {
        {"largest optimal and min, smallest max",
         {{{1920, 1080, 320, 240, 4096, 3072}, {1280, 1440, 640, 200, 3000, 4000}}},
         {{1920, 1440, 640, 240, 3000, 3072}},
         {1920, 1440, 640, 240, 3000, 3072}},
        {"optimal clamped up to min and down to max",
         {{{5000, 100, 0, 480, 4000, 3000}}},
         {{4000, 480, 0, 480, 4000, 3000}},
         {4000, 480, 0, 480, 4000, 3000}},
        {"max starts at 0xFFFF", {{{100, 100, 10, 10, 0x20000, 0xFFFFFFFF}}},
         {{100, 100, 10, 10, 0xFFFF, 0xFFFF}}, {100, 100, 10, 10, 0xFFFF, 0xFFFF}},
        {"output without inputs", {{}}, {kFree}, kFree},
        {"no output ports", {}, {}, kFree},
        {"inputs take the values across outputs",
         {{{1920, 1080, 640, 480, 4000, 3000}}, {{3840, 720, 320, 960, 3840, 2160}}},
         {{1920, 1080, 640, 480, 4000, 3000}, {3840, 960, 320, 960, 3840, 2160}},
         {3840, 1080, 640, 960, 3840, 2160}},
    };
    for (const NegotiationCase& testCase : kCases)
    {
        SCOPED_TRACE(testCase.pName);
        std::vector<std::vector<CHINODEBUFFERREQUIREMENT>> requirements(testCase.outputs.size());
        std::vector<CHIOUTPUTPORTQUERYBUFFERINFO>          outputs(testCase.outputs.size());
        for (size_t port = 0; port < outputs.size(); port++)
        {
            for (const Sizes& s : testCase.outputs[port])
            {
                requirements[port].push_back({s[2], s[3], s[4], s[5], s[0], s[1], 0, {}});
            }
            outputs[port].numConnectedInputPorts = static_cast<UINT32>(requirements[port].size());
            outputs[port].pBufferRequirement     = requirements[port].data();
            outputs[port].outputBufferOption.format                     = 0x1234;
            outputs[port].outputBufferOption.planeAlignment[1].strideAlignment = 64;
        }
        CHIINPUTPORTQUERYBUFFERINFO inputs[2]                           = {};
        inputs[1].inputBufferOption.format                              = 0x5678;
        inputs[1].inputBufferOption.planeAlignment[0].scanlineAlignment = 32;
        CHINODEQUERYBUFFERINFO info = {sizeof(info), nullptr, static_cast<UINT32>(outputs.size()),
                                       outputs.data(), 2, inputs, 0};
        ChiNodeUtils::DefaultBufferNegotiation(&info);

        for (size_t port = 0; port < outputs.size(); port++)
        {
            EXPECT_EQ(SizesOf(outputs[port].outputBufferOption), testCase.expectedOutputs[port]);
            EXPECT_EQ(outputs[port].outputBufferOption.format, 0x1234u);
            EXPECT_EQ(outputs[port].outputBufferOption.planeAlignment[1].strideAlignment, 64u);
        }
        EXPECT_EQ(SizesOf(inputs[0].inputBufferOption), testCase.expectedInputs);
        EXPECT_EQ(SizesOf(inputs[1].inputBufferOption), testCase.expectedInputs);
        EXPECT_EQ(inputs[1].inputBufferOption.format, 0x5678u);
        EXPECT_EQ(inputs[1].inputBufferOption.planeAlignment[0].scanlineAlignment, 32u);
    }
    // Counts without arrays are ignored.
    ChiNodeUtils::DefaultBufferNegotiation(nullptr);
    CHINODEQUERYBUFFERINFO empty = {sizeof(empty), nullptr, 3, nullptr, 4, nullptr, 0};
    ChiNodeUtils::DefaultBufferNegotiation(&empty);
}

// A host whose answers the tests set and whose received records they inspect.
struct FakeHost
{
    CDKResult            result = CDKResultSuccess;
    int                  calls  = 0;
    CHIVENDORTAGBASEINFO baseQuery{};
    CHIMETADATAINFO      info{};
    CHITAGDATA           tagData{};
    UINT32               tagId    = 0;
    UINT32               cameraId = 0xFFFF;
    int                  payload  = 99;
} g_host;

CDKResult FakeGetVendorTagBase(CHIVENDORTAGBASEINFO* pInfo)
{
    g_host.calls++;
    g_host.baseQuery     = *pInfo;
    pInfo->vendorTagBase = 0x80030000;
    return g_host.result;
}

CDKResult FakeGetMetadata(CHIMETADATAINFO* pInfo)
{
    g_host.calls++;
    g_host.info            = *pInfo;
    g_host.tagData         = *pInfo->pTagData;
    g_host.tagId           = pInfo->pTagList[0];
    pInfo->pTagData->pData = &g_host.payload;
    return g_host.result;
}

CDKResult FakeGetStaticMetadata(CHIMETADATAINFO* pInfo, UINT32 cameraId)
{
    g_host.cameraId = cameraId;
    return FakeGetMetadata(pInfo);
}

CHINODEINTERFACE HostInterface()
{
    CHINODEINTERFACE iface   = {};
    iface.size               = sizeof(CHINODEINTERFACE);
    iface.pGetMetadata       = FakeGetMetadata;
    iface.pGetVendorTagBase  = FakeGetVendorTagBase;
    iface.pGetStaticMetadata = FakeGetStaticMetadata;
    iface.pReserved23To27[4] = &g_host; // the last slot proves the whole record is copied
    return iface;
}

TEST(ChiNodeUtils, SetNodeInterfaceCopiesAndAsksForTheSectionBase)
{
    g_host                = FakeHost();
    CHINODEINTERFACE from = HostInterface();
    CHINODEINTERFACE to   = {};
    UINT32           base = 0;
    EXPECT_EQ(ChiNodeUtils::SetNodeInterface(nullptr, "com.zelk", &to, &base), 5);
    from.size = 231;
    EXPECT_EQ(ChiNodeUtils::SetNodeInterface(&from, "com.zelk", &to, &base), 1);
    EXPECT_EQ(to.pGetMetadata, nullptr);

    from.size = sizeof(CHINODEINTERFACE);
    EXPECT_EQ(ChiNodeUtils::SetNodeInterface(&from, "com.zelk", &to, nullptr), 0);
    EXPECT_EQ(0, memcmp(&to, &from, sizeof(from)));
    EXPECT_EQ(g_host.calls, 0);
    EXPECT_EQ(ChiNodeUtils::SetNodeInterface(&from, "com.zelk", &to, &base), 0);
    EXPECT_EQ(base, 0x80030000u);
    EXPECT_EQ(g_host.baseQuery.size, 24u);
    EXPECT_STREQ(g_host.baseQuery.pComponentName, "com.zelk");
    EXPECT_EQ(g_host.baseQuery.pTagName, nullptr);

    base          = 0;
    g_host.result = CDKResultENoSuch;
    EXPECT_EQ(ChiNodeUtils::SetNodeInterface(&from, "com.zelk", &to, &base), CDKResultENoSuch);
    EXPECT_EQ(base, 0u);
    from.pGetVendorTagBase = nullptr;
    EXPECT_EQ(ChiNodeUtils::SetNodeInterface(&from, "com.zelk", &to, &base), 0);
}

TEST(ChiNodeUtils, QueryVendorTagResultCodes)
{
    CHIVENDORTAGINFO  info  = {};
    CHIQUERYVENDORTAG query = {15, nullptr};
    EXPECT_EQ(ChiNodeUtils::QueryVendorTag(nullptr, &info), 5);
    EXPECT_EQ(ChiNodeUtils::QueryVendorTag(&query, nullptr), 5);
    EXPECT_EQ(ChiNodeUtils::QueryVendorTag(&query, &info), 1);
    EXPECT_EQ(query.pVendorTagInfo, nullptr);
    query.size = 16;
    EXPECT_EQ(ChiNodeUtils::QueryVendorTag(&query, &info), 0);
    EXPECT_EQ(query.pVendorTagInfo, &info);
}

TEST(ChiNodeUtils, GetMetaDataRoutesByTypeWithOneTagRecord)
{
    for (ChiMetadataType type : {ChiMetadataStatic, ChiMetadataDynamic})
    {
        g_host                 = FakeHost();
        CHINODEINTERFACE iface = HostInterface();
        int              session;
        EXPECT_EQ(ChiNodeUtils::GetMetaData(77, 0x80030002, type, &iface, &session, 3), &g_host.payload);
        EXPECT_EQ(g_host.cameraId, (ChiMetadataStatic == type) ? 3u : 0xFFFFu) << "static route";
        EXPECT_EQ(g_host.info.size, 48u);
        EXPECT_EQ(g_host.info.chiSession, &session);
        EXPECT_EQ(g_host.info.tagNum, 1u);
        EXPECT_EQ(g_host.info.metadataType, type);
        EXPECT_EQ(g_host.tagId, 0x80030002u);
        EXPECT_EQ(g_host.tagData.size, 48u);
        EXPECT_EQ(g_host.tagData.requestId, 77u);
        EXPECT_EQ(g_host.tagData.offset, 0u);
    }
    g_host.result          = CDKResultENoSuch;
    CHINODEINTERFACE iface = HostInterface();
    EXPECT_EQ(ChiNodeUtils::GetMetaData(1, 5, ChiMetadataDynamic, &iface, nullptr), nullptr);
    iface.pGetMetadata       = nullptr;
    iface.pGetStaticMetadata = nullptr;
    EXPECT_EQ(ChiNodeUtils::GetMetaData(1, 5, ChiMetadataDynamic, &iface, nullptr), nullptr);
    EXPECT_EQ(ChiNodeUtils::GetMetaData(1, 5, ChiMetadataStatic, &iface, nullptr), nullptr);
    EXPECT_EQ(ChiNodeUtils::GetMetaData(1, 5, ChiMetadataStatic, nullptr, nullptr), nullptr);
}

TEST(ChiNodeUtils, SNPrintFReportsTruncationAndStaysInsideTheBuffer)
{
    struct Case
    {
        size_t      size;
        int         expected;
        const char* pText;
    } const kCases[] = {{16, 5, "ab-42"}, {6, 5, "ab-42"}, {5, -1, "ab-4"}, {1, -1, ""}};
    for (const Case& testCase : kCases)
    {
        char buffer[24];
        memset(buffer, 'Z', sizeof(buffer));
        EXPECT_EQ(ChiNodeUtils::SNPrintF(buffer, testCase.size, "%s-%d", "ab", 42), testCase.expected);
        EXPECT_STREQ(buffer, testCase.pText);
        EXPECT_EQ(buffer[testCase.size], 'Z') << "wrote past " << testCase.size;
    }
    char untouched = 'Z';
    EXPECT_EQ(ChiNodeUtils::SNPrintF(&untouched, 0, "x"), -1);
    EXPECT_EQ(untouched, 'Z');
    EXPECT_EQ(ChiNodeUtils::FClose(nullptr), 1);
}

} // namespace
