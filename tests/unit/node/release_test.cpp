// What a node releases when it is destroyed, and in which order: the logical camera table
// library, the measurement library, the point-position log, the calibration log. This program
// stands in for the platform's library unmapping and file closing to see the order, so it runs
// apart from the other node tests.
#include <stdio.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "camxosutils.h"
#include "chihost/emulator/logcapture.h"
#include "chinodeutils.h"
#include "nodetestpeer.h"

namespace
{

std::vector<std::string> g_released;
void*                    g_tableLib   = reinterpret_cast<void*>(0x7ab1e);
void*                    g_algoLib    = reinterpret_cast<void*>(0xa160);
FILE*                    g_pointFile  = nullptr;
FILE*                    g_calibFile  = nullptr;

std::string NameOf(const void* pHandle)
{
    return (pHandle == g_tableLib)    ? "table library"
           : (pHandle == g_algoLib)   ? "algorithm library"
           : (pHandle == g_pointFile) ? "point-position log"
           : (pHandle == g_calibFile) ? "calibration log"
                                      : "unknown";
}

} // namespace

CDKResult CamX::OsUtils::LibUnmap(void* hLibrary)
{
    g_released.push_back("unmap " + NameOf(hLibrary));
    return CDKResultSuccess;
}

CDKResult ChiNodeUtils::FClose(FILE* pFile)
{
    g_released.push_back("close " + NameOf(pFile));
    return (0 == fclose(pFile)) ? CDKResultSuccess : CDKResultEFailed;
}

namespace
{

TEST(NodeRelease, LibrariesThenTextLogsInTheirOrder)
{
    chihost::LogCapture log;
    g_pointFile = tmpfile();
    g_calibFile = tmpfile();
    ASSERT_NE(g_pointFile, nullptr);
    ASSERT_NE(g_calibFile, nullptr);
    auto* pNode = new ChiOisVerifyNode();
    ChiOisVerifyNodeTestPeer::SetReleasables(*pNode, g_tableLib, g_algoLib, g_pointFile, g_calibFile);
    g_released.clear();
    delete pNode;
    const std::vector<std::string> expected = { "unmap table library", "unmap algorithm library",
                                                "close point-position log", "close calibration log" };
    EXPECT_EQ(g_released, expected);
}

TEST(NodeRelease, NothingOpenNothingReleased)
{
    chihost::LogCapture log;
    g_released.clear();
    delete new ChiOisVerifyNode();
    EXPECT_TRUE(g_released.empty());
}

} // namespace
