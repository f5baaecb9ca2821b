// Reading the persist file: the record CRC against published vectors and an independent
// (reflected, right-shifting) implementation, the column split, the CRC column's atoi reading,
// and whole files.
#include <random>

#include "calibrationtestsupport.h"
#include "oiscalibrationfile.h"

namespace
{

using calibtest::CalibrationTest;

// CRC-16/KERMIT in its reflected form, as published.
uint16_t ReferenceKermit(const std::string& bytes)
{
    uint16_t crc = 0;
    for (unsigned char byte : bytes)
    {
        crc ^= byte;
        for (int bit = 0; bit < 8; bit++)
        {
            crc = (crc & 1) ? static_cast<uint16_t>((crc >> 1) ^ 0x8408) : static_cast<uint16_t>(crc >> 1);
        }
    }
    return crc;
}

TEST(RecordCrc, PublishedVectors)
{
    const struct { OISCalData record; uint16_t crc; } kCases[] = {
        { { "1", "2345", "678", "9", 0 }, 0x2189 },          // the check string, split anywhere
        { { "", "123456789", "", "", 0 }, 0x2189 },
        { { "1", "ABCD", "1.000000", "1.000000", 0 }, 6915 },
        { { "1", "ABCD", "1.000000", "1.000000", 4242 }, 6915 }, // the stored crc never enters
        { { "", "", "", "", 0 }, 0 },
    };
    for (const auto& c : kCases)
    {
        EXPECT_EQ(OISCalibrationFile::GetCrc(&c.record), c.crc) << c.record.fuseId;
    }
    EXPECT_EQ(OISCalibrationFile::GetCrc(nullptr), 0);
}

TEST(RecordCrc, MatchesReflectedFormOnAnyBytes)
{
    std::mt19937 random(7);
    for (int round = 0; round < 500; round++)
    {
        OISCalData record = { "", "", "", "", 0 };
        for (std::string* pField : { &record.calibFlag, &record.fuseId, &record.gainX, &record.gainY })
        {
            pField->resize(random() % 12);
            for (char& c : *pField)
            {
                c = static_cast<char>(random() % 256); // bytes above 0x7F must not sign-extend
            }
        }
        ASSERT_EQ(OISCalibrationFile::GetCrc(&record),
                  ReferenceKermit(record.calibFlag + record.fuseId + record.gainX + record.gainY));
    }
}

// The columns a token split at the regular expression "\s*,\s*" gives (the fuzz target compares
// the two on arbitrary lines).
TEST(PersistSplit, ColumnsOfATokenSplitAtCommaWithBlanks)
{
    using Columns = std::vector<std::string>;
    const struct { std::string line; Columns columns; } kCases[] = {
        { "", { "" } },                    // an empty line is one empty column
        { ",", { "" } },                   // a comma at the end adds no column
        { ",,", { "", "" } },
        { ",a", { "", "a" } },
        { "a,,b", { "a", "", "b" } },
        { "1 , ABCD , 1.000000,1.000000,6915", { "1", "ABCD", "1.000000", "1.000000", "6915" } },
        { "a , , b", { "a", "", "b" } },   // one separator's blanks are not the next one's
        { " lead , trail ", { " lead", "trail " } },
        { "\t,\v,\f,\r", { "", "", "" } },
        { "x\xA0,\xA0y", { "x\xA0", "\xA0y" } }, // only ASCII blanks separate
        { "1,ABCD,1.0,1.0,6915\r", { "1", "ABCD", "1.0", "1.0", "6915\r" } },
        { std::string("a\0b, c", 6), { std::string("a\0b", 3), "c" } },
    };
    Columns columns;
    for (const auto& c : kCases)
    {
        OISCalibrationFile::SplitPersistLine(c.line, &columns);
        EXPECT_EQ(columns, c.columns) << "line \"" << c.line << "\"";
    }
    // A damaged file with a huge run of blanks: linear, no deep recursion.
    OISCalibrationFile::SplitPersistLine(std::string(1 << 20, ' ') + "," + std::string(1 << 20, '\t') + "x", &columns);
    EXPECT_EQ(columns, Columns({ "", "x" }));
}

TEST(PersistSplit, CrcColumnReadsLikeAtoi)
{
    const struct { const char* text; uint16_t crc; } kCases[] = {
        { "6915", 6915 }, { "  6915", 6915 }, { "+7", 7 }, { "6915\r", 6915 }, { "12abc", 12 },
        { "abc", 0 }, { "", 0 }, { "-1", 65535 }, { "65536", 0 }, { "70000", 4464 },
        { "99999999999", 59391 },          // low 16 bits of the number
        { "999999999999999999999", 65535 }, // saturated by strtol, as atoi does
    };
    for (const auto& c : kCases)
    {
        EXPECT_EQ(OISCalibrationFile::ParseCrcColumn(c.text), c.crc) << c.text;
    }
}

TEST_F(CalibrationTest, ParseKeepsRecordsAsWrittenAndSkipsOtherLines)
{
    WritePersist("1 , ABCD , 1.000000,1.000000,6915\n"
                 "\n"
                 "0,EFGH,1.5,0.75,1234,extra\n"
                 "1,EFGH,2500.000000,0.9,1\r\n"
                 "0,IJKL,1.0,1.0,77");
    OISCalibrationFile file;
    file.ParsePersistFile();

    const std::vector<OISCalData>& records = file.Records();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].fuseId, "ABCD");
    EXPECT_EQ(records[0].gainX, "1.000000");
    EXPECT_EQ(records[0].crc, 6915);
    EXPECT_EQ(records[1].gainX, "2500.000000"); // kept as text, with a wrong CRC
    EXPECT_EQ(records[1].crc, 1);
    EXPECT_EQ(records[2].fuseId, "IJKL");       // last line without a line feed
    EXPECT_EQ(records[2].crc, 77);

    EXPECT_EQ(CalibrationLog(), std::vector<std::string>({
                                    "exist calibration info: 1, ABCD, 1.000000, 1.000000, 6915\n",
                                    "Not expected file format, colum number: 1",
                                    "Not expected file format, colum number: 6",
                                    "exist calibration info: 1, EFGH, 2500.000000, 0.9, 1\n",
                                    "exist calibration info: 0, IJKL, 1.0, 1.0, 77\n",
                                }));

    // A missing file leaves no records, silently.
    ASSERT_EQ(remove(PersistPath().c_str()), 0);
    m_log.Clear();
    file.ParsePersistFile();
    EXPECT_TRUE(file.Records().empty());
    EXPECT_TRUE(CalibrationLog().empty());
}

} // namespace
