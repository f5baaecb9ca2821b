// "oisverify persist FILE" as a user runs it: its verdict line, summary and exit status for good,
// damaged, implausible, duplicate, empty, missing, special and unreadable files.
#include <stdlib.h>
#include <sys/stat.h>
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
    const char* content; // nullptr: no file; "/": a directory; "|": a FIFO; "@X": the path X
    int         exitCode;
    const char* expected; // text the output (stdout and stderr) must hold
};

void PrintTo(const PersistCommandCase& c, std::ostream* pOut) { *pOut << c.name; }

class PersistCommand : public ::testing::TestWithParam<PersistCommandCase> {};

TEST_P(PersistCommand, GivesVerdictAndStatus)
{
    testsupport::TempDeviceRoot dir;
    const PersistCommandCase&   c    = GetParam();
    std::string                 file = dir.Path() + "/oiscal.bin";
    const std::string           content = (c.content != nullptr) ? c.content : "";
    if (content == "|")
    {
        ASSERT_EQ(mkfifo(file.c_str(), 0644), 0);
    }
    else if (content.rfind("@", 0) == 0)
    {
        file = content.substr(1);
    }
    else if (c.content != nullptr)
    {
        dir.WriteFile(content == "/" ? "/oiscal.bin/x" : "/oiscal.bin", content);
    }
    const std::string output = dir.Path() + "/output.txt";
    // timeout: a command that blocks on a special file fails the test instead of hanging it.
    int status = system(("timeout 60 " + std::string(OISVERIFY_PATH) + " persist '" + file + "' >'" + output + "' 2>&1").c_str());
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
                            "crc stored 6915, computed 6915\n1 line: 1 record, 1 ok, 0 bad crc, 0 with other problems, "
                            "0 not a record" },
        PersistCommandCase{ "WrongCrc", "1,ABCD,1.000000,1.000000,6915\n1,EFGH,1.000000,1.000000,6915\n", 1,
                            "line 2  bad  fuse id \"EFGH\"  flag \"1\"  gains \"1.000000\", \"1.000000\"  crc stored "
                            "6915, computed 6277: crc 6915 does not match the record (6277)\n2 lines: 2 records, 1 ok, "
                            "1 bad crc, 0 with other problems, 0 not a record" },
        PersistCommandCase{ "NotARecord", "1,ABCD,1.000000,1.000000,6915\n\n", 1,
                            "line 2  not a record: 1 column, a record has 5" },
        PersistCommandCase{ "GainOutsideTheIntervals", "1,ABCD,5.000000,1.000000,13153\n", 1,
                            "line 1  bad  fuse id \"ABCD\"  flag \"1\"  gains \"5.000000\", \"1.000000\"  crc stored "
                            "13153, computed 13153: gain x 5.000000 is outside 0.5 to 2.0 or 2000 to 17000\n1 line: "
                            "1 record, 0 ok, 0 bad crc, 1 with other problems, 0 not a record" },
        PersistCommandCase{ "GainNotFinite", "1,ABCD,nan,1.000000,40151\n", 1, "computed 40151: gain x nan is not finite" },
        PersistCommandCase{ "GainNotANumber", "1,ABCD,1.0x,1.000000,0\n", 1,
                            "gain x \"1.0x\" is not a number" },
        PersistCommandCase{ "EmptyFuseId", "1,,1.000000,1.000000,23023\n", 1, "computed 23023: fuse id is empty\n" },
        PersistCommandCase{ "FlagSeven", "7,ABCD,1.000000,1.000000,43115\n", 1,
                            "computed 43115: flag \"7\" is neither 0 nor 1\n" },
        PersistCommandCase{ "DuplicateFuseId", "1,ABCD,1.000000,1.000000,6915\n1,ABCD,1.000000,1.000000,6915\n", 1,
                            "line 2  bad  fuse id \"ABCD\"  flag \"1\"  gains \"1.000000\", \"1.000000\"  crc stored "
                            "6915, computed 6915: fuse id also on line 1: a module has one record\n2 lines: 2 records, "
                            "1 ok, 0 bad crc, 1 with other problems, 0 not a record" },
        PersistCommandCase{ "EveryProblemInWords", "7,,5.0,inf,1\n", 1,
                            "crc 1 does not match the record (" },
        PersistCommandCase{ "LineLongerThanAnyRecord", "1,ABCD,1.000000,1.000000,6915\n1,LONG,22222222222222222222222"
                            "22222222222222222222222222222222222222222222222222222222222222222222222222222222222222222"
                            "22222222222222222222222222222222222222222222222222222222222222222222222222222222222222222"
                            "22222222222222222222222222222222222222222222222222222222222222222222222222222222222222222"
                            "22222222222222222222222222222222222222222222222222222222222222222222222222222222222222222"
                            "22222222222222222222222222222222222222222222222222222222222222222222222222222222222222222"
                            "22222222222222222222222222222222222222222222222222222222222222222222222222222222222222222"
                            "22222222222222222222222222222222222222222222222222222222222222222222222222222222222222222"
                            "22222222222222222222222222222222222222222222222222222222222222222222222222222222222222222"
                            "22222222222222222222222222222222222222222222222222222222222222222222222222222222222222222"
                            "22222222222222222222222222222222222222222222222222222222222222222222222222222222222222222"
                            "22222222222222222222222222222222222222222222222222222222222222222222222222222222222222222"
                            "2222222222222222222222,1.0,5\n", 1,
                            "line 2  not a record: longer than 1024 bytes, more than any record can be\n2 lines: 1 "
                            "record, 1 ok, 0 bad crc, 0 with other problems, 1 not a record" },
        PersistCommandCase{ "Empty", "", 1, "oiscal.bin is empty: it holds no records\n" },
        PersistCommandCase{ "Missing", nullptr, 1, "oiscal.bin: No such file or directory" },
        PersistCommandCase{ "Directory", "/", 1, "oiscal.bin is not a regular file; a persist file is one" },
        PersistCommandCase{ "Fifo", "|", 1, "oiscal.bin is not a regular file; a persist file is one" },
        PersistCommandCase{ "EndlessDevice", "@/dev/zero", 1, "/dev/zero is not a regular file; a persist file is one" },
        // A regular file whose first read fails: the command's own memory at address 0.
        PersistCommandCase{ "ReadError", "@/proc/self/mem", 1,
                            "cannot read /proc/self/mem after 0 lines: Input/output error" }),
    [](const ::testing::TestParamInfo<PersistCommandCase>& info) { return std::string(info.param.name); });

} // namespace
