// The logical camera table library as the node maps it: by path, through getLogicalCameraTable,
// calling the twelfth virtual entry.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <string>

#include "logicalcameratable.h"

namespace
{

class LogicalCameraTableTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_library = dlopen(LOGICAL_CAMERA_TABLE_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(nullptr, m_library) << dlerror();
    }
    void TearDown() override { dlclose(m_library); }

    void* m_library = nullptr;
};

TEST_F(LogicalCameraTableTest, RolesMapToGainProperties)
{
    auto getTable =
        reinterpret_cast<PFNGETLOGICALCAMERATABLE>(dlsym(m_library, LOGICAL_CAMERA_TABLE_SYMBOL));
    ASSERT_NE(nullptr, getTable);
    LogicalCameraTable* pTable = getTable();
    ASSERT_NE(nullptr, pTable);
    EXPECT_EQ(pTable, getTable());
    const GyroGainPropertyTable* pGains = pTable->GetGyroGainPropertyTable();
    ASSERT_NE(nullptr, pGains);

    const std::pair<UINT32, const char*> roles[] = {
        {0, "w"},  {1, "f"},   {20, "t"},  {21, "u"},  {22, "m"},  {23, "t4"}, {24, "m2"},
        {25, "d"}, {26, "t2"}, {27, "t3"}, {28, "t5"}, {29, "ta"}, {40, "fd"},
    };
    EXPECT_EQ(sizeof(roles) / sizeof(roles[0]), pGains->roleToProperty.size());
    for (const auto& role : roles)
    {
        auto found = pGains->roleToProperty.find(role.first);
        ASSERT_NE(pGains->roleToProperty.end(), found) << role.first;
        EXPECT_EQ(std::string("persist.vendor.camera.oisgyrogain.") + role.second, found->second);
    }
    for (UINT32 unknown : {2u, 19u, 30u, 41u})
    {
        EXPECT_EQ(0u, pGains->roleToProperty.count(unknown)) << unknown;
    }
}

} // namespace
