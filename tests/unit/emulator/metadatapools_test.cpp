// Metadata pools: routing by selector bits, request separation, the set-call log, record checks.
#include <gtest/gtest.h>

#include <cstring>

#include "chihost/emulator/metadatapools.h"

using chihost::MetadataPool;
using chihost::MetadataPools;

namespace
{

const UINT32 kTag = 0x80010002;

// One-tag records, the way a node builds them.
struct OneTag
{
    OneTag(UINT32 tagId, UINT64 requestId, void* pData = nullptr, size_t size = 0)
    {
        tag  = tagId;
        data = {sizeof(CHITAGDATA), requestId, pData, size, 0, FALSE};
        info = {sizeof(CHIMETADATAINFO), nullptr, 1, &tag, &data, ChiMetadataDynamic};
    }
    UINT32          tag;
    CHITAGDATA      data;
    CHIMETADATAINFO info;
};

INT32 ReadInt(const MetadataPools& pools, UINT32 tagId, UINT64 requestId, bool forceStatic = false)
{
    OneTag get(tagId, requestId);
    EXPECT_EQ(CDKResultSuccess, pools.Get(&get.info, forceStatic));
    if (get.data.pData == nullptr)
    {
        EXPECT_EQ(0u, get.data.dataSize);
        return -999; // absent
    }
    EXPECT_EQ(sizeof(INT32), get.data.dataSize);
    INT32 value = 0;
    memcpy(&value, get.data.pData, sizeof(value));
    return value;
}

void WriteInt(MetadataPools& pools, UINT32 tagId, UINT64 requestId, INT32 value)
{
    OneTag set(tagId, requestId, &value, sizeof(value));
    ASSERT_EQ(CDKResultSuccess, pools.Set(&set.info));
}

TEST(MetadataPoolsTest, PoolsAndRequestsAreSeparate)
{
    MetadataPools pools;
    WriteInt(pools, kTag | ChiMetadataInputPool, 1, 11);
    WriteInt(pools, kTag, 1, 12);
    WriteInt(pools, kTag | ChiMetadataUsecasePool, 1, 13);
    WriteInt(pools, kTag | ChiMetadataStaticPool, 1, 14);
    WriteInt(pools, kTag, 2, 22);
    WriteInt(pools, kTag | 0x10000000, 3, 33); // a selector the framework does not define

    EXPECT_EQ(33, ReadInt(pools, kTag, 3));
    EXPECT_EQ(11, ReadInt(pools, kTag | ChiMetadataInputPool, 1));
    EXPECT_EQ(12, ReadInt(pools, kTag, 1));
    EXPECT_EQ(13, ReadInt(pools, kTag | ChiMetadataUsecasePool, 1));
    EXPECT_EQ(22, ReadInt(pools, kTag, 2));
    EXPECT_EQ(-999, ReadInt(pools, kTag | ChiMetadataInputPool, 2));
    EXPECT_EQ(-999, ReadInt(pools, kTag, 4));
    // The static pool has no requests, and a static read takes it whatever the bits say.
    EXPECT_EQ(14, ReadInt(pools, kTag | ChiMetadataStaticPool, 77));
    EXPECT_EQ(14, ReadInt(pools, kTag, 5, true));

    std::vector<uint8_t> bytes;
    ASSERT_TRUE(pools.ReadTag(MetadataPool::Output, 2, kTag, &bytes));
    EXPECT_EQ(sizeof(INT32), bytes.size());
    pools.ForgetRequest(1);
    EXPECT_EQ(-999, ReadInt(pools, kTag, 1));
    EXPECT_EQ(22, ReadInt(pools, kTag, 2));
    EXPECT_EQ(14, ReadInt(pools, kTag | ChiMetadataStaticPool, 1));
}

TEST(MetadataPoolsTest, OverwriteReplacesAndOtherWritesKeepPointers)
{
    MetadataPools pools;
    WriteInt(pools, kTag, 4, 1);
    OneTag held(kTag, 4);
    ASSERT_EQ(CDKResultSuccess, pools.Get(&held.info, false));
    for (UINT32 other = 0; other < 200; ++other)
    {
        WriteInt(pools, 0x80020000 + other, 4, static_cast<INT32>(other));
    }
    EXPECT_EQ(1, *static_cast<const INT32*>(held.data.pData));

    double wide = 2.5;
    OneTag set(kTag, 4, &wide, sizeof(wide));
    ASSERT_EQ(CDKResultSuccess, pools.Set(&set.info));
    OneTag get(kTag, 4);
    ASSERT_EQ(CDKResultSuccess, pools.Get(&get.info, false));
    ASSERT_EQ(sizeof(double), get.data.dataSize);
    EXPECT_EQ(2.5, *static_cast<const double*>(get.data.pData));
}

TEST(MetadataPoolsTest, OffsetAddressesAnotherRequest)
{
    MetadataPools pools;
    WriteInt(pools, kTag, 3, 33);
    WriteInt(pools, kTag, 7, 77);
    struct Case
    {
        UINT64 requestId;
        UINT64 offset;
        BOOL   negate;
        INT32  expected;
    };
    const Case cases[] = {
        {5, 2, TRUE, 33}, {5, 2, FALSE, 77}, {3, 0, TRUE, 33}, {1, 2, TRUE, -999}};
    for (const Case& c : cases)
    {
        OneTag get(kTag, c.requestId);
        get.data.offset = c.offset;
        get.data.negate = c.negate;
        ASSERT_EQ(CDKResultSuccess, pools.Get(&get.info, false));
        INT32 value =
            (get.data.pData != nullptr) ? *static_cast<const INT32*>(get.data.pData) : -999;
        EXPECT_EQ(c.expected, value) << c.requestId << (c.negate ? " - " : " + ") << c.offset;
    }
}

TEST(MetadataPoolsTest, SetCallLogKeepsGroupingOrderAndValues)
{
    MetadataPools pools;
    INT32         values[4] = {1, 4, 7, 9};
    UINT32        tags[4]   = {0x80010000, 0x80010001, 0x80010002, 0x80010003};
    CHITAGDATA    data[4];
    for (int i = 0; i < 4; ++i)
    {
        data[i] = {sizeof(CHITAGDATA), 42, &values[i], sizeof(INT32), 0, FALSE};
    }
    CHIMETADATAINFO info = {sizeof(CHIMETADATAINFO), nullptr, 4, tags, data, ChiMetadataDynamic};
    ASSERT_EQ(CDKResultSuccess, pools.Set(&info));

    // A call with one bad entry is refused as a whole.
    data[2].pData = nullptr;
    EXPECT_EQ(CDKResultEInvalidPointer, pools.Set(&info));
    data[2].pData    = &values[2];
    data[3].dataSize = 0;
    EXPECT_EQ(CDKResultEInvalidArg, pools.Set(&info));

    std::vector<chihost::SetCall> calls = pools.SetCalls();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(42u, calls[0].RequestId());
    ASSERT_EQ(4u, calls[0].entries.size());
    for (int i = 0; i < 4; ++i)
    {
        EXPECT_EQ(tags[i], calls[0].entries[i].tagId);
        INT32 logged = 0;
        memcpy(&logged, calls[0].entries[i].value.data(), sizeof(logged));
        EXPECT_EQ(values[i], logged);
        EXPECT_EQ(values[i], ReadInt(pools, tags[i], 42));
    }
    pools.ClearSetCalls();
    EXPECT_TRUE(pools.SetCalls().empty());
}

TEST(MetadataPoolsTest, RecordChecks)
{
    MetadataPools pools;
    INT32         value = 5;
    struct Case
    {
        UINT32    size;
        UINT32    tagNum;
        bool      nullList;
        bool      nullData;
        CDKResult result;
    };
    const Case cases[] = {
        {47, 1, false, false, CDKResultEFailed},
        {48, 1, true, false, CDKResultEInvalidPointer},
        {48, 1, false, true, CDKResultEInvalidPointer},
        {48, 0, true, true, CDKResultSuccess},
    };
    for (const Case& c : cases)
    {
        OneTag record(kTag, 1, &value, sizeof(value));
        record.info.size   = c.size;
        record.info.tagNum = c.tagNum;
        if (c.nullList)
        {
            record.info.pTagList = nullptr;
        }
        if (c.nullData)
        {
            record.info.pTagData = nullptr;
        }
        EXPECT_EQ(c.result, pools.Set(&record.info)) << "set, size " << c.size;
        EXPECT_EQ(c.result, pools.Get(&record.info, false)) << "get, size " << c.size;
    }
    EXPECT_EQ(CDKResultEInvalidPointer, pools.Set(nullptr));
    EXPECT_EQ(CDKResultEInvalidPointer, pools.Get(nullptr, false));
    EXPECT_FALSE(pools.WriteTag(MetadataPool::Input, 1, kTag | ChiMetadataInputPool, &value, 4));
    EXPECT_FALSE(pools.WriteTag(MetadataPool::Input, 1, kTag, nullptr, 4));
}

} // namespace
