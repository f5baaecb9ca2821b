// SettingsManager: defaults, each override, rejected lines with their diagnostics, reloads, and
// the log settings reaching the log globals.
#include <string>

#include <gtest/gtest.h>

#include "camxsettingsmanager.h"
#include "chihost/hostsettings.h"
#include "chilog.h"
#include "stderrcapture.h"
#include "tempdeviceroot.h"

namespace
{

using CamX::StaticSettings;

const StaticSettings kDefaults = {FALSE, ~0u, ~0u, ~0u, ~0u, TRUE};

void ExpectSettings(const StaticSettings& expected)
{
    const StaticSettings& actual = *CamX::SettingsManager::GetInstance()->GetStaticSettings();
    EXPECT_EQ(actual.enableOISGyroGainCalibration, expected.enableOISGyroGainCalibration);
    EXPECT_EQ(actual.logErrorMask, expected.logErrorMask);
    EXPECT_EQ(actual.logWarningMask, expected.logWarningMask);
    EXPECT_EQ(actual.logInfoMask, expected.logInfoMask);
    EXPECT_EQ(actual.logVerboseMask, expected.logVerboseMask);
    EXPECT_EQ(actual.enableSystemLog, expected.enableSystemLog);
}

class Settings : public ::testing::Test
{
protected:
    void Write(const std::string& text) { m_root.WriteFile(CHIHOST_OVERRIDE_SETTINGS_PATH, text); }
    std::string Path() const { return m_root.Map(CHIHOST_OVERRIDE_SETTINGS_PATH); }

    testsupport::TempDeviceRoot m_root;
};

TEST_F(Settings, AbsentFileKeepsDefaultsAndSaysSo)
{
    StderrCapture capture;
    ExpectSettings(kDefaults);
    EXPECT_EQ(ChiHostSettingsReload(), -1);
    std::string text = capture.Stop();
    EXPECT_EQ(text.rfind("chihost: override settings file \"" + Path() + "\" not found", 0), 0u) << text;
    EXPECT_NE(text.find("using default settings\n"), std::string::npos) << text;
}

TEST_F(Settings, EachAcceptedLineOverridesOnlyItsOwnSetting)
{
    const struct
    {
        const char*    pLine;
        StaticSettings expected;
    } kCases[] = {
        {"enableOISGyroGainCalibration=TRUE", {TRUE, ~0u, ~0u, ~0u, ~0u, TRUE}},
        {"  enableOISGyroGainCalibration =  1 \r", {TRUE, ~0u, ~0u, ~0u, ~0u, TRUE}},
        {"enableOISGyroGainCalibration=true", {TRUE, ~0u, ~0u, ~0u, ~0u, TRUE}},
        {"logErrorMask=0x800", {FALSE, 0x800, ~0u, ~0u, ~0u, TRUE}},
        {"logWarningMask=2048", {FALSE, ~0u, 2048, ~0u, ~0u, TRUE}},
        {"logInfoMask=0", {FALSE, ~0u, ~0u, 0, ~0u, TRUE}},
        {"logVerboseMask=010", {FALSE, ~0u, ~0u, ~0u, 10, TRUE}},
        {"enableSystemLog=FALSE", {FALSE, ~0u, ~0u, ~0u, ~0u, FALSE}},
        {"enableSystemLog=0", {FALSE, ~0u, ~0u, ~0u, ~0u, FALSE}},
    };
    for (const auto& testCase : kCases)
    {
        SCOPED_TRACE(testCase.pLine);
        Write(std::string("# override file\n\n") + testCase.pLine + "\n");
        StderrCapture capture;
        EXPECT_EQ(ChiHostSettingsReload(), 1);
        ExpectSettings(testCase.expected);
        EXPECT_EQ(capture.Stop(), "");
    }
}

TEST_F(Settings, RejectedLinesAreReportedWithPathAndLineAndIgnored)
{
    const struct
    {
        const char* pLine;
        const char* pReason;
    } kCases[] = {
        {"enableOISGyroGainCalibration=yes", "bad value \"yes\""},
        {"enableSystemLog=", "bad value \"\""},
        {"logErrorMask=0x1FFFFFFFF", "bad value"},
        {"logErrorMask=-1", "bad value"},
        {"logErrorMask=12abc", "bad value"},
        {"logErrorMask=0x", "bad value"},
        {"enableOisGyroGainCalibration=TRUE", "unknown setting \"enableOisGyroGainCalibration\""},
        {"enableOISGyroGainCalibration TRUE", "malformed line"},
        {"=TRUE", "malformed line \"=TRUE\""},
    };
    StaticSettings expected  = kDefaults;
    expected.logInfoMask     = 0x10;
    expected.enableSystemLog = FALSE;
    for (const auto& testCase : kCases)
    {
        SCOPED_TRACE(testCase.pLine);
        Write(std::string("logInfoMask=0x10\n# comment\n") + testCase.pLine + "\nenableSystemLog=FALSE\n");
        StderrCapture capture;
        EXPECT_EQ(ChiHostSettingsReload(), 2);
        ExpectSettings(expected);
        std::string text = capture.Stop();
        EXPECT_EQ(text.rfind("chihost: " + Path() + ":3: ", 0), 0u) << text;
        EXPECT_NE(text.find(testCase.pReason), std::string::npos) << text;
        EXPECT_EQ(text.find('\n'), text.size() - 1) << "one line per problem";
    }
}

TEST_F(Settings, FirstUseLoadsAndPushesLogSettings)
{
    Write("logErrorMask=0x800\nlogWarningMask=1\nlogInfoMask=2\nlogVerboseMask=0\nenableSystemLog=FALSE\n");
    ExpectSettings({FALSE, 0x800, 1, 2, 0, FALSE});
    EXPECT_EQ(g_chiLogGroupEnable[ChiLogLevelError], 0x800u);
    EXPECT_EQ(g_chiLogGroupEnable[ChiLogLevelWarning], 1u);
    EXPECT_EQ(g_chiLogGroupEnable[ChiLogLevelInfo], 2u);
    EXPECT_EQ(g_chiLogGroupEnable[ChiLogLevelVerbose], 0u);
    EXPECT_EQ(g_enableSystemLog, FALSE);

    // A reload starts again from the defaults.
    Write("logWarningMask=4\n");
    EXPECT_EQ(ChiHostSettingsReload(), 1);
    ExpectSettings({FALSE, ~0u, 4, ~0u, ~0u, TRUE});
    EXPECT_EQ(g_chiLogGroupEnable[ChiLogLevelError], ~0u);
    EXPECT_EQ(g_enableSystemLog, TRUE);
}

} // namespace
