// System properties: build.prop loading, the device's length and empty-value rules, set/get, and
// the store controls.
#include <string>

#include <gtest/gtest.h>

#include "androidservices.h"
#include "chihost/hostproperties.h"
#include "stderrcapture.h"
#include "tempdeviceroot.h"

namespace
{

const std::string k91Bytes(91, 'v');
const std::string k92Bytes(92, 'w');

std::string Get(const char* pKey, const char* pDefault = "dflt")
{
    char value[PROPERTY_VALUE_MAX];
    int  length = property_get(pKey, value, pDefault);
    EXPECT_EQ(length, static_cast<int>(strlen(value)));
    return value;
}

class Properties : public ::testing::Test
{
protected:
    testsupport::TempDeviceRoot m_root;
    std::string                 m_path = m_root.Map(CHIHOST_BUILD_PROP_PATH);
};

TEST_F(Properties, BuildPropFollowsTheDeviceRules)
{
    m_root.WriteFile(CHIHOST_BUILD_PROP_PATH, "# build properties\n"
                                              "ro.product.model=Zelk One\n"
                                              "  persist.vendor.gain =  1.25,0.98  \r\n"
                                              "\n"
                                              "no.equals.sign\n"
                                              "with.equals=a=b\n"
                                              "fits=" + k91Bytes + "\n"
                                              "too.long=" + k92Bytes + "\n"
                                              "empty=\n"
                                              "twice=first\ntwice=second\n"
                                              "cleared=x\ncleared=\n");
    StderrCapture capture;
    const std::pair<const char*, std::string> kExpected[] = {
        {"ro.product.model", "Zelk One"}, {"persist.vendor.gain", "1.25,0.98"}, {"no.equals.sign", "dflt"},
        {"with.equals", "a=b"},           {"fits", k91Bytes},                   {"too.long", "dflt"},
        {"empty", "dflt"},                {"twice", "second"},                  {"cleared", "dflt"},
        {"# build properties", "dflt"},
    };
    for (const auto& expected : kExpected)
    {
        EXPECT_EQ(Get(expected.first), expected.second) << expected.first;
    }
    std::string text = capture.Stop();
    EXPECT_NE(text.find("chihost: " + m_path + ":5: malformed line \"no.equals.sign\""), std::string::npos)
        << text;
    EXPECT_NE(text.find("chihost: " + m_path + ":8: value of too.long is 92 bytes"), std::string::npos)
        << text;
    EXPECT_EQ(ChiHostPropertiesReload(), 5);
}

TEST_F(Properties, AbsentFileLeavesTheStoreEmpty)
{
    StderrCapture capture;
    EXPECT_EQ(Get("ro.anything"), "dflt");
    EXPECT_EQ(ChiHostPropertiesReload(), -1);
    std::string text = capture.Stop();
    EXPECT_EQ(text.rfind("chihost: property file \"" + m_path + "\" not found", 0), 0u) << text;
}

TEST_F(Properties, GetAndSetKeepWithinTheValueLimit)
{
    std::string longDefault(200, 'd');
    EXPECT_EQ(Get("unset", nullptr), "");
    EXPECT_EQ(Get("unset", longDefault.c_str()), longDefault.substr(0, 91));
    EXPECT_EQ(Get(nullptr, "x"), "x");
    EXPECT_EQ(property_get("unset", nullptr, "x"), -1);

    const struct
    {
        const char* pKey;
        const char* pValue;
        int         expected;
    } kSets[] = {{"persist.a", "1.0,1.0", 0}, {"persist.b", k91Bytes.c_str(), 0},
                 {"persist.c", k92Bytes.c_str(), -1}, {"", "x", -1}, {nullptr, "x", -1}};
    StderrCapture capture;
    for (const auto& set : kSets)
    {
        EXPECT_EQ(property_set(set.pKey, set.pValue), set.expected) << (set.pKey ? set.pKey : "(null)");
    }
    EXPECT_EQ(Get("persist.a"), "1.0,1.0");
    EXPECT_EQ(Get("persist.b"), k91Bytes);
    EXPECT_EQ(Get("persist.c"), "dflt");
    EXPECT_EQ(property_set("persist.a", ""), 0);
    EXPECT_EQ(Get("persist.a"), "dflt");
    std::string text = capture.Stop();
    EXPECT_NE(text.find("chihost: property_set(\"persist.c\"): value of 92 bytes"), std::string::npos) << text;
}

TEST_F(Properties, ClearEmptiesWithoutRereadingAndReloadRereads)
{
    m_root.WriteFile(CHIHOST_BUILD_PROP_PATH, "a=1\nb=2\n");
    EXPECT_EQ(Get("a"), "1");
    EXPECT_EQ(property_set("c", "3"), 0);
    ChiHostPropertiesClear();
    EXPECT_EQ(Get("a"), "dflt");
    EXPECT_EQ(ChiHostPropertiesReload(), 2);
    EXPECT_EQ(Get("b"), "2");
    EXPECT_EQ(Get("c"), "dflt");
}

} // namespace
