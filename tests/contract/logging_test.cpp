// The node's logging convention as a host observes it: the group mask per level is checked, the
// Android log line comes first and only when the system-log switch is 1, and both lines carry
// the level, group, file, line and operation name.
#include <dlfcn.h>
#include <string.h>

#include <regex>

#include <gtest/gtest.h>

#include "chilog.h"
#include "chinode.h"
#include "chihost/emulator/logcapture.h"

namespace
{

class NodeLoggingTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_library = dlopen(ZELK_NODE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(m_library, nullptr) << dlerror();
        auto entry = reinterpret_cast<PFNCHINODEENTRY>(dlsym(m_library, "ChiNodeEntry"));
        memset(&m_callbacks, 0, sizeof(m_callbacks));
        m_callbacks.size = sizeof(m_callbacks);
        entry(&m_callbacks);
        for (UINT32& mask : g_chiLogGroupEnable)
        {
            mask = 0xFFFFFFFF;
        }
        g_enableSystemLog = 1;
    }
    void TearDown() override { dlclose(m_library); }

    // Logs "Invalid argument: pCapsInfo is NULL" at error level.
    void LogOneError() { (void)m_callbacks.pGetCapabilities(nullptr); }

    chihost::LogCapture m_log;
    void*                   m_library = nullptr;
    CHINODECALLBACKS        m_callbacks;
};

TEST_F(NodeLoggingTest, AndroidLineComesFirstWithTheFullPrefix)
{
    LogOneError();
    auto lines = m_log.Lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].sink, chihost::CapturedLine::AndroidLog);
    EXPECT_EQ(lines[0].tag, "OisVerify");
    EXPECT_EQ(lines[0].level, 'E');
    EXPECT_TRUE(std::regex_match(lines[0].message,
                                 std::regex(R"(\[ERROR\]\[ChiNode\] camxchinodezelkoisverify\.cpp:\d+ )"
                                            R"(OisVerifyNodeGetCaps\(\) Invalid argument: pCapsInfo is NULL\n?)")))
        << lines[0].message;

    EXPECT_EQ(lines[1].sink, chihost::CapturedLine::ChiLog);
    EXPECT_EQ(lines[1].level, 'E');
    EXPECT_EQ(lines[1].file, "camxchinodezelkoisverify.cpp");
    EXPECT_EQ(lines[1].function, "OisVerifyNodeGetCaps");
    EXPECT_EQ(lines[1].message, "Invalid argument: pCapsInfo is NULL");
    EXPECT_GT(lines[1].line, 0);
}

struct MaskCase
{
    const char* name;
    UINT32      errorMask;
    BOOL        systemLog;
    size_t      chiLines;
    size_t      androidLines;
};

void PrintTo(const MaskCase& param, std::ostream* pOut) { *pOut << param.name; }

class NodeLoggingMasks : public NodeLoggingTest, public ::testing::WithParamInterface<MaskCase> {};

TEST_P(NodeLoggingMasks, DecideWhichSinksSeeTheLine)
{
    g_chiLogGroupEnable[ChiLogLevelError] = GetParam().errorMask;
    g_enableSystemLog                     = GetParam().systemLog;
    LogOneError();
    size_t chi = 0;
    size_t android = 0;
    for (const auto& line : m_log.Lines())
    {
        (line.sink == chihost::CapturedLine::ChiLog ? chi : android)++;
    }
    EXPECT_EQ(chi, GetParam().chiLines);
    EXPECT_EQ(android, GetParam().androidLines);
}

INSTANTIATE_TEST_SUITE_P(
    Masks, NodeLoggingMasks,
    ::testing::Values(MaskCase{ "AllOn", 0xFFFFFFFF, 1, 1, 1 },
                      MaskCase{ "OnlyNodeGroup", 0x800, 1, 1, 1 },
                      MaskCase{ "OtherGroupsOnly", 0xFFFFF7FF, 1, 0, 0 },
                      MaskCase{ "ErrorsOff", 0, 1, 0, 0 },
                      MaskCase{ "SystemLogOff", 0x800, 0, 1, 0 },
                      MaskCase{ "SystemLogNotExactlyOne", 0x800, 2, 1, 0 }),
    [](const ::testing::TestParamInfo<MaskCase>& info) { return std::string(info.param.name); });

} // namespace
