// "oisverify persist FILE" as a user runs it: its verdict line, summary and exit status for good,
// damaged, empty, missing and unreadable files.
#include <stdlib.h>
#include <sys/wait.h>

#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "tempdeviceroot.h"

namespace
{

struct PersistCommandCase
{
    const char* name;
    const char* content; // nullptr: no file; "/": the path is a directory
    int         exitCode;
    const char* expected; // text the output (stdout and stderr) must hold
};

void PrintTo(const PersistCommandCase& c, std::ostream* pOut) { *pOut << c.name; }

class PersistCommand : public ::testing::TestWithParam<PersistCommandCase> {};

TEST_P(PersistCommand, GivesVerdictAndStatus)
{
    testsupport::TempDeviceRoot dir;
    const PersistCommandCase&   c    = GetParam();
    const std::string           file = dir.Path() + "/oiscal.bin";
    if (c.content != nullptr)
    {
        dir.WriteFile(std::string(c.content) == "/" ? "/oiscal.bin/x" : "/oiscal.bin", c.content);
    }
    const std::string output = dir.Path() + "/output.txt";
    int status = system((std::string(OISVERIFY_PATH) + " persist '" + file + "' >'" + output + "' 2>&1").c_str());
    std::ostringstream text;
    text << std::ifstream(output).rdbuf();
    EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, c.exitCode) << text.str();
    EXPECT_NE(text.str().find(c.expected), std::string::npos) << text.str();
}

INSTANTIATE_TEST_SUITE_P(
    Files, PersistCommand,
    ::testing::Values(
        PersistCommandCase{ "Good", "1 , ABCD ,1.000000,1.000000,6915", 0,
                            "line 1  ok   fuse id \"ABCD\"  flag \"1\"  gains \"1.000000\", \"1.000000\"  "
                            "crc stored 6915, computed 6915\n1 line: 1 record, 1 ok, 0 bad crc, 0 not a record" },
        PersistCommandCase{ "WrongCrc", "1,ABCD,1.000000,1.000000,6915\n1,EFGH,1.000000,1.000000,6915\n", 1,
                            "line 2  bad  fuse id \"EFGH\"" },
        PersistCommandCase{ "NotARecord", "1,ABCD,1.000000,1.000000,6915\n\n", 1,
                            "line 2  not a record: 1 column, a record has 5" },
        PersistCommandCase{ "Empty", "", 0, "0 lines: 0 records, 0 ok, 0 bad crc, 0 not a record" },
        PersistCommandCase{ "Missing", nullptr, 1, "oiscal.bin: No such file or directory" },
        PersistCommandCase{ "Directory", "/", 1, "cannot read" }),
    [](const ::testing::TestParamInfo<PersistCommandCase>& info) { return std::string(info.param.name); });

} // namespace
