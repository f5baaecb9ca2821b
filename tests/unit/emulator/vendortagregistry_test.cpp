// Vendor tag registry: id assignment, the node interface's base query, reverse lookup.
#include <gtest/gtest.h>

#include "chihost/emulator/vendortagregistry.h"

using chihost::VendorTagDescription;
using chihost::VendorTagRegistry;

namespace
{

CHIVENDORTAGDATA        g_alphaTags[] = {{"a0", ChiVendorTagTypeInt32, 1, 0},
                                         {"a1", ChiVendorTagTypeFloat, 2, 0}};
CHIVENDORTAGDATA        g_betaTags[]  = {{"b0", ChiVendorTagTypeByte, 8, 0},
                                         {"b1", ChiVendorTagTypeInt64, 1, 0},
                                         {"b2", ChiVendorTagTypeDouble, 3, 0},
                                         {"b3", ChiVendorTagTypeRational, 1, 0}};
CHIVENDORTAGSECTIONDATA g_sections[]  = {{"com.test.alpha", 0, 2, g_alphaTags, 0xFFFFFFFF},
                                         {"com.test.beta", 0, 4, g_betaTags, 0xFFFFFFFF}};

class VendorTagRegistryTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        CHIVENDORTAGINFO info = {g_sections, 2};
        ASSERT_TRUE(m_registry.RegisterSections(info, &m_bases).IsOk());
    }

    VendorTagRegistry   m_registry;
    std::vector<UINT32> m_bases;
};

TEST_F(VendorTagRegistryTest, HostSectionFirstThenNodeSectionsInOrder)
{
    UINT32 eeprom = 0;
    ASSERT_TRUE(m_registry.FindTagId(chihost::kSensorMetaDataSection,
                                     chihost::kEEPROMInformationTag, &eeprom));
    EXPECT_EQ(0x80000000u, eeprom);
    EXPECT_EQ((std::vector<UINT32>{0x80010000u, 0x80020000u}), m_bases);
    UINT32 b3 = 0;
    ASSERT_TRUE(m_registry.FindTagId("com.test.beta", "b3", &b3));
    EXPECT_EQ(0x80020003u, b3);
}

TEST_F(VendorTagRegistryTest, BaseQueryAnswers)
{
    struct Case
    {
        const char* pSection;
        const char* pTag;
        UINT32      size;
        CDKResult   result;
        UINT32      answer; // 0x1234 = left untouched
    };
    const Case cases[] = {
        {"com.test.alpha", nullptr, 24, CDKResultSuccess, 0x80010000},
        {"com.test.alpha", "a1", 24, CDKResultSuccess, 0x80010001},
        {"org.codeaurora.qcamera3.sensor_meta_data", "EEPROMInformation", 24, CDKResultSuccess,
         0x80000000},
        {"com.test.gamma", nullptr, 24, CDKResultENoSuch, 0x1234},
        {"com.test.alpha", "b0", 24, CDKResultENoSuch, 0x1234},
        {nullptr, "a0", 24, CDKResultEInvalidPointer, 0x1234},
        {"com.test.alpha", nullptr, 23, CDKResultEFailed, 0x1234},
    };
    for (const Case& c : cases)
    {
        CHIVENDORTAGBASEINFO info = {c.size, 0x1234, c.pSection, c.pTag};
        EXPECT_EQ(c.result, m_registry.GetVendorTagBase(&info)) << c.pSection << " " << c.pTag;
        EXPECT_EQ(c.answer, info.vendorTagBase) << c.pSection << " " << c.pTag;
    }
    EXPECT_EQ(CDKResultEInvalidPointer, m_registry.GetVendorTagBase(nullptr));
}

TEST_F(VendorTagRegistryTest, ReverseLookupIgnoresPoolBits)
{
    struct Case
    {
        UINT32      id;
        bool        found;
        const char* pName;
        UINT8       type;
        size_t      count;
    };
    const Case cases[] = {
        {0x80000000, true, "EEPROMInformation", ChiVendorTagTypeByte, sizeof(EEPROMInformation)},
        {0xF0000000, true, "EEPROMInformation", ChiVendorTagTypeByte, sizeof(EEPROMInformation)},
        {0x88010001, true, "a1", ChiVendorTagTypeFloat, 2},
        {0xA0020002, true, "b2", ChiVendorTagTypeDouble, 3},
        {0x80010002, false, "", 0, 0}, // past the section's last tag
        {0x80030000, false, "", 0, 0}, // no such section
        {0x00010001, false, "", 0, 0}, // not a vendor tag
    };
    for (const Case& c : cases)
    {
        VendorTagDescription description;
        ASSERT_EQ(c.found, m_registry.Describe(c.id, &description)) << std::hex << c.id;
        if (c.found)
        {
            EXPECT_EQ(c.pName, description.name);
            EXPECT_EQ(c.type, description.type);
            EXPECT_EQ(c.count, description.count);
            EXPECT_EQ(c.id & ~ChiMetadataPoolMask, description.id);
        }
    }
}

TEST_F(VendorTagRegistryTest, SameSectionAgainKeepsItsBaseDifferentTagsFail)
{
    UINT32 base = 0;
    ASSERT_TRUE(m_registry.RegisterSection(
        "com.test.alpha", {{"a0", ChiVendorTagTypeInt32, 1}, {"a1", ChiVendorTagTypeFloat, 2}},
        &base));
    EXPECT_EQ(0x80010000u, base);
    chihost::Status changed =
        m_registry.RegisterSection("com.test.alpha", {{"a0", ChiVendorTagTypeInt64, 1}}, &base);
    EXPECT_FALSE(changed);
    EXPECT_NE(std::string::npos, changed.Message().find("com.test.alpha"));
    EXPECT_EQ(3u, m_registry.SectionCount());
}

TEST_F(VendorTagRegistryTest, MalformedTablesRegisterNothing)
{
    CHIVENDORTAGDATA        badTags[]   = {{"x0", 0, 1, 0}, {nullptr, 0, 1, 0}};
    CHIVENDORTAGDATA        dupTags[]   = {{"y0", 0, 1, 0}, {"y0", 1, 1, 0}};
    CHIVENDORTAGDATA        typeTags[]  = {{"z0", 9, 1, 0}};
    CHIVENDORTAGSECTIONDATA tables[][2] = {
        {{"com.test.ok", 0, 1, badTags, 0}, {"com.test.nullname", 0, 2, badTags, 0}},
        {{"com.test.ok", 0, 1, badTags, 0}, {"com.test.dup", 0, 2, dupTags, 0}},
        {{"com.test.ok", 0, 1, badTags, 0}, {"com.test.type", 0, 1, typeTags, 0}},
        {{"com.test.ok", 0, 1, badTags, 0}, {"com.test.notable", 0, 3, nullptr, 0}},
        {{"com.test.ok", 0, 1, badTags, 0}, {nullptr, 0, 1, badTags, 0}},
        {{"com.test.ok", 0, 1, badTags, 0}, {"com.test.ok", 0, 1, typeTags, 0}},
    };
    for (auto& table : tables)
    {
        CHIVENDORTAGINFO info = {table, 2};
        EXPECT_FALSE(m_registry.RegisterSections(info, nullptr));
        EXPECT_EQ(3u, m_registry.SectionCount());
    }
    CHIVENDORTAGINFO noArray = {nullptr, 1};
    EXPECT_FALSE(m_registry.RegisterSections(noArray, nullptr));
}

} // namespace
