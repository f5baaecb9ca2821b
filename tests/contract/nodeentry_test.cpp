// The node library as a host sees it before any node exists: the entry function's checks, the
// callback table it fills, and every callback's checks on null, short and exact records.
#include <dlfcn.h>
#include <string.h>

#include <set>

#include <gtest/gtest.h>

#include "chilog.h"
#include "chinode.h"
#include "chihost/emulator/logcapture.h"

namespace
{

class NodeEntryTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_library = dlopen(ZELK_NODE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(m_library, nullptr) << dlerror();
        m_entry = reinterpret_cast<PFNCHINODEENTRY>(dlsym(m_library, "ChiNodeEntry"));
        ASSERT_NE(m_entry, nullptr);
        memset(&m_callbacks, 0, sizeof(m_callbacks));
        m_callbacks.size = sizeof(m_callbacks);
        m_entry(&m_callbacks);
        ASSERT_NE(m_callbacks.pCreate, nullptr);
    }

    void TearDown() override { dlclose(m_library); }

    void ExpectError(const std::string& message)
    {
        EXPECT_TRUE(m_log.HasChiLine('E', message)) << "missing error line: " << message;
    }

    chihost::LogCapture m_log;
    void*                   m_library = nullptr;
    PFNCHINODEENTRY         m_entry   = nullptr;
    CHINODECALLBACKS        m_callbacks;
    // Never dereferenced: every check below fails before the node is touched.
    CHIHANDLE               m_someHandle = reinterpret_cast<CHIHANDLE>(0x1000);
};

TEST_F(NodeEntryTest, FillsTheElevenSlotsAndLeavesTheOthersAsPassed)
{
    CHINODECALLBACKS table;
    memset(&table, 0xA5, sizeof(table));
    table.size         = sizeof(table);
    table.majorVersion = 0;
    table.minorVersion = 7;
    m_entry(&table);

    void* const* slots = reinterpret_cast<void* const*>(reinterpret_cast<const char*>(&table) + 16);
    const std::set<int> filled = { 1, 2, 3, 4, 5, 8, 11, 12, 21, 22, 28 };
    void* untouched;
    memset(&untouched, 0xA5, sizeof(untouched));
    for (int slot = 1; slot <= 37; slot++)
    {
        if (filled.count(slot) != 0)
        {
            EXPECT_NE(slots[slot - 1], untouched) << "slot " << slot;
            EXPECT_NE(slots[slot - 1], nullptr) << "slot " << slot;
        }
        else
        {
            EXPECT_EQ(slots[slot - 1], untouched) << "slot " << slot;
        }
    }
    EXPECT_EQ(table.majorVersion, 0u);
    EXPECT_EQ(table.minorVersion, 0u);
}

struct RejectedTable
{
    const char* name;
    UINT32      size;
    UINT32      major;
    UINT32      minor;
    const char* message;
};

void PrintTo(const RejectedTable& param, std::ostream* pOut) { *pOut << param.name; }

class NodeEntryRejects : public NodeEntryTest, public ::testing::WithParamInterface<RejectedTable> {};

TEST_P(NodeEntryRejects, LeavesTheTableExactlyAsPassed)
{
    CHINODECALLBACKS table;
    memset(&table, 0x5A, sizeof(table));
    table.size         = GetParam().size;
    table.majorVersion = GetParam().major;
    table.minorVersion = GetParam().minor;
    CHINODECALLBACKS before = table;
    m_entry(&table);
    EXPECT_EQ(memcmp(&before, &table, sizeof(table)), 0);
    ExpectError(GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    Tables, NodeEntryRejects,
    ::testing::Values(
        RejectedTable{ "MajorVersionOne", 312, 1, 3, "Chi API major version doesn't match (1:3) vs (0:0)" },
        RejectedTable{ "Size311", 311, 0, 2, "Chi API major version doesn't match (0:2) vs (0:0)" },
        RejectedTable{ "SizeZero", 0, 0, 0, "Chi API major version doesn't match (0:0) vs (0:0)" },
        // Too short to hold the version words: they are not read, whatever lies behind the size.
        RejectedTable{ "SizeEightHidesTheVersion", 8, 1, 5, "Chi API major version doesn't match (0:0) vs (0:0)" },
        RejectedTable{ "SizeTwelveHoldsTheVersion", 12, 1, 5, "Chi API major version doesn't match (1:5) vs (0:0)" }),
    [](const ::testing::TestParamInfo<RejectedTable>& info) { return std::string(info.param.name); });

TEST_F(NodeEntryTest, NullTableIsLogged)
{
    m_entry(nullptr);
    ExpectError("Invalid Argument: (nil)");
}

TEST_F(NodeEntryTest, CapabilitiesNeedAnEightByteRecord)
{
    EXPECT_EQ(m_callbacks.pGetCapabilities(nullptr), 5);
    ExpectError("Invalid argument: pCapsInfo is NULL");

    CHINODECAPSINFO caps = { 7, 0 };
    EXPECT_EQ(m_callbacks.pGetCapabilities(&caps), 1);
    EXPECT_EQ(caps.nodeCapsMask, 0u);
    ExpectError("CHINODECAPSINFO is smaller than expected");

    caps.size = sizeof(caps);
    EXPECT_EQ(m_callbacks.pGetCapabilities(&caps), 0);
    EXPECT_EQ(caps.nodeCapsMask, 16384u);
}

TEST_F(NodeEntryTest, VendorTagSectionHasFourTagsInOrder)
{
    EXPECT_EQ(m_callbacks.pQueryVendorTag(nullptr), 5);
    CHIQUERYVENDORTAG query = { 15, nullptr };
    EXPECT_EQ(m_callbacks.pQueryVendorTag(&query), 1);
    EXPECT_EQ(query.pVendorTagInfo, nullptr);

    query.size = sizeof(query);
    ASSERT_EQ(m_callbacks.pQueryVendorTag(&query), 0);
    ASSERT_NE(query.pVendorTagInfo, nullptr);
    ASSERT_EQ(query.pVendorTagInfo->numSections, 1u);
    const CHIVENDORTAGSECTIONDATA& section = query.pVendorTagInfo->pVendorTagDataArray[0];
    EXPECT_STREQ(section.pVendorTagSectionName, "com.zelk.node.oisverify");
    EXPECT_EQ(section.firstVendorTag, 0u);
    EXPECT_EQ(section.visibility, 0xFFFFFFFFu);
    ASSERT_EQ(section.numTags, 4u);
    const char* names[] = { "SupportedFeature", "oisState", "oisXAxisSR", "oisYAxisSR" };
    const UINT8 types[] = { 1, 1, 2, 2 };
    for (UINT32 i = 0; i < 4; i++)
    {
        EXPECT_STREQ(section.pVendorTagData[i].pVendorTagName, names[i]);
        EXPECT_EQ(section.pVendorTagData[i].vendorTagType, types[i]);
        EXPECT_EQ(section.pVendorTagData[i].numUnits, 1u);
        EXPECT_EQ(section.pVendorTagData[i].tagFlags, 0u);
    }
}

TEST_F(NodeEntryTest, CreateChecksItsRecordBeforeAllocating)
{
    EXPECT_EQ(m_callbacks.pCreate(nullptr), 5);
    ExpectError("Invalid argument: pTagTypeInfo is NULL");

    CHINODECREATEINFO info;
    memset(&info, 0, sizeof(info));
    info.size = 119;
    EXPECT_EQ(m_callbacks.pCreate(&info), 1);
    ExpectError("CHINODECREATEINFO is smaller than expected");
    EXPECT_EQ(info.phNodeSession, nullptr);
    EXPECT_FALSE(m_log.HasChiLine("Create ChiOisVerifyNode"));
}

TEST_F(NodeEntryTest, DestroyRejectsNullRecordsAndHandles)
{
    EXPECT_EQ(m_callbacks.pDestroy(nullptr), 5);
    CHINODEDESTROYINFO info = { sizeof(CHINODEDESTROYINFO), nullptr };
    EXPECT_EQ(m_callbacks.pDestroy(&info), 5);
    EXPECT_EQ(m_log.ChiLines("Invalid argument: pDestroyInfo is NULL").size(), 2u);
}

// Records that fail their checks before the node handle is ever used.
TEST_F(NodeEntryTest, RequestAndBufferCallbacksCheckPointerHandleAndSize)
{
    CHINODEPROCESSREQUESTINFO request;
    memset(&request, 0, sizeof(request));
    EXPECT_EQ(m_callbacks.pProcessRequest(nullptr), 5);
    request.size = sizeof(request);
    EXPECT_EQ(m_callbacks.pProcessRequest(&request), 5);
    request.hNodeSession = m_someHandle;
    request.size         = 103;
    EXPECT_EQ(m_callbacks.pProcessRequest(&request), 1);
    ExpectError("CHINODEPROCESSREQUESTINFO is smaller than expected");

    CHINODEQUERYBUFFERINFO query;
    memset(&query, 0, sizeof(query));
    EXPECT_EQ(m_callbacks.pQueryBufferInfo(nullptr), 5);
    query.size = sizeof(query);
    EXPECT_EQ(m_callbacks.pQueryBufferInfo(&query), 5);
    query.hNodeSession = m_someHandle;
    query.size         = 55;
    EXPECT_EQ(m_callbacks.pQueryBufferInfo(&query), 1);
    ExpectError("CHINODEQUERYBUFFERINFO is smaller than expected");

    CHINODESETBUFFERPROPERTIESINFO set;
    memset(&set, 0, sizeof(set));
    EXPECT_EQ(m_callbacks.pSetBufferInfo(nullptr), 5);
    set.size = sizeof(set);
    EXPECT_EQ(m_callbacks.pSetBufferInfo(&set), 5);
    set.hNodeSession = m_someHandle;
    set.size         = 55;
    EXPECT_EQ(m_callbacks.pSetBufferInfo(&set), 1);
    ExpectError("CHINODESETBUFFERPROPERTIESINFO is smaller than expected");

    CHINODEFLUSHREQUESTINFO flush = { sizeof(CHINODEFLUSHREQUESTINFO), nullptr, 42 };
    EXPECT_EQ(m_callbacks.pFlushRequest(nullptr), 5);
    EXPECT_EQ(m_callbacks.pFlushRequest(&flush), 5);
    flush.hNodeSession = m_someHandle;
    flush.size         = 23;
    EXPECT_EQ(m_callbacks.pFlushRequest(&flush), 1);
    ExpectError("CHINODEFLUSHREQUESTINFO is smaller than expected");
    EXPECT_EQ(m_log.ChiLines("Invalid argument").size(), 8u);
}

TEST_F(NodeEntryTest, FlushResponseTimeNeedsAnExactRecord)
{
    EXPECT_EQ(m_callbacks.pGetFlushResponse(nullptr), 5);
    ExpectError("pInfo is NULL");

    CHINODERESPONSEINFO info = { sizeof(CHINODERESPONSEINFO), nullptr, 77 };
    EXPECT_EQ(m_callbacks.pGetFlushResponse(&info), 5);
    char expected[128];
    snprintf(expected, sizeof(expected), "pInfo %p pInfo->hChiSession is NULL", static_cast<void*>(&info));
    ExpectError(expected);

    info.hChiSession = m_someHandle;
    info.size        = 32;
    EXPECT_EQ(m_callbacks.pGetFlushResponse(&info), 1);
    ExpectError("CHINODERESPONSEINFO 32 is smaller than expected 24");
    EXPECT_EQ(info.responseTimeInMillisec, 77u);
}

TEST_F(NodeEntryTest, DumpCoreConfigDoesNothing)
{
    EXPECT_EQ(m_callbacks.pDumpCoreNodeConfig(3, 1, nullptr), 0);
    EXPECT_TRUE(m_log.Lines().empty());
}

} // namespace
