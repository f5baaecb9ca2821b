// "oisverify persist FILE" run as a user runs it: its verdict per line, its summary and its exit
// status for good, damaged, missing and unreadable files.
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
    const char* content; // nullptr: no file
    int         exitCode;
    const char* expected; // a line the output (stdout and stderr) must hold
};

void PrintTo(const PersistCommandCase& c, std::ostream* pOut) { *pOut << c.name; }

class PersistCommand : public ::testing::TestWithParam<PersistCommandCase>
{
protected:
    // Runs the tool on FILE in the temporary directory; returns its exit status and output.
    int Run(const std::string& file, std::string* pOutput)
    {
        const std::string output  = m_dir.Path() + "/output.txt";
        const std::string command = std::string(OISVERIFY_PATH) + " persist '" + file + "' >'" + output + "' 2>&1";
        int               status  = system(command.c_str());
        std::ifstream     in(output);
        std::ostringstream text;
        text << in.rdbuf();
        *pOutput = text.str();
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    testsupport::TempDeviceRoot m_dir;
};

TEST_P(PersistCommand, GivesVerdictAndStatus)
{
    const std::string file = m_dir.Path() + "/oiscal.bin";
    if (GetParam().content != nullptr)
    {
        std::ofstream(file, std::ios::binary) << GetParam().content;
    }
    std::string output;
    EXPECT_EQ(Run(file, &output), GetParam().exitCode) << output;
    EXPECT_NE(output.find(GetParam().expected), std::string::npos) << output;
}

INSTANTIATE_TEST_SUITE_P(
    Files, PersistCommand,
    ::testing::Values(
        PersistCommandCase{ "Good", "1,ABCD,1.000000,1.000000,6915\n", 0,
                            "1 line: 1 record, 1 ok, 0 bad crc, 0 not a record" },
        PersistCommandCase{ "GoodRecordLine", "1 , ABCD ,1.000000,1.000000,6915", 0,
                            "line 1  ok   fuse id \"ABCD\"  flag \"1\"  gains \"1.000000\", \"1.000000\"  crc stored 6915, computed 6915" },
        PersistCommandCase{ "WrongCrc", "1,ABCD,1.000000,1.000000,6915\n1,EFGH,1.000000,1.000000,6915\n", 1,
                            "line 2  bad  fuse id \"EFGH\"" },
        PersistCommandCase{ "NotARecord", "1,ABCD,1.000000,1.000000,6915\n\n", 1,
                            "line 2  not a record: 1 column, a record has 5" },
        PersistCommandCase{ "Empty", "", 0, "0 lines: 0 records, 0 ok, 0 bad crc, 0 not a record" },
        PersistCommandCase{ "Missing", nullptr, 1, "oiscal.bin: No such file or directory" }),
    [](const ::testing::TestParamInfo<PersistCommandCase>& info) { return std::string(info.param.name); });

TEST_F(PersistCommand, DirectoryIsUnreadable)
{
    std::string output;
    EXPECT_EQ(Run(m_dir.Path(), &output), 1);
    EXPECT_NE(output.find("cannot read"), std::string::npos) << output;
}

} // namespace
