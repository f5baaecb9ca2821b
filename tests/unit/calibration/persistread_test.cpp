// Reading the persist file: the record CRC against published vectors and an independent
// (reflected, right-shifting) implementation, the column split against the standard library's
// regular-expression split, the CRC column's atoi reading, and whole files.
#include <random>
#include <regex>

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

TEST(RecordCrc, AnySingleCharacterChangeChangesIt)
{
    const OISCalData original = { "1", "ABCD", "1.000000", "1.000000", 0 };
    const uint16_t   crc      = OISCalibrationFile::GetCrc(&original);
    for (int field = 0; field < 4; field++)
    {
        OISCalData   changed = original;
        std::string* fields[] = { &changed.calibFlag, &changed.fuseId, &changed.gainX, &changed.gainY };
        for (char& c : *fields[field])
        {
            const char kept = c;
            c               = static_cast<char>(c ^ 0x21);
            EXPECT_NE(OISCalibrationFile::GetCrc(&changed), crc) << "field " << field;
            c = kept;
        }
    }
}

TEST(PersistSplit, SameColumnsAsTheRegularExpressionSplit)
{
    const std::regex separator("\\s*,\\s*", std::regex::ECMAScript);
    const struct { std::string line; size_t columns; } kCases[] = {
        { "", 1 }, { ",", 1 }, { ",,", 2 }, { "a,", 1 }, { ",a", 2 }, { "a,,b", 3 },
        { "1 , ABCD , 1.000000,1.000000,6915", 5 }, { "a , , b", 3 }, { " lead,trail ", 2 },
        { "\t,\v,\f,\r", 3 }, { "a\r\n,b", 2 }, { "x\xA0,\xA0y", 2 }, { "1,2,3,4,5,6", 6 },
        { "1,ABCD,1.0,1.0,6915\r", 5 }, { std::string("a\0b, c", 6), 2 },
    };
    std::vector<std::string> columns;
    for (const auto& c : kCases)
    {
        std::vector<std::string> expected(std::sregex_token_iterator(c.line.begin(), c.line.end(), separator, -1),
                                          std::sregex_token_iterator());
        OISCalibrationFile::SplitPersistLine(c.line, &columns);
        EXPECT_EQ(columns, expected) << "line \"" << c.line << "\"";
        EXPECT_EQ(columns.size(), c.columns) << "line \"" << c.line << "\"";
    }
    // A damaged file with a huge run of blanks: linear, no deep recursion.
    OISCalibrationFile::SplitPersistLine(std::string(1 << 20, ' ') + "," + std::string(1 << 20, '\t') + "x", &columns);
    EXPECT_EQ(columns, std::vector<std::string>({ "", "x" }));
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

TEST_F(CalibrationTest, ReaderReportsAFileThatCannotBeRead)
{
    m_root.MakeDirs(calibtest::kPersistFile); // a directory opens but does not read
    FILE* pFile = fopen(PersistPath().c_str(), "rb");
    ASSERT_NE(pFile, nullptr);
    std::vector<OISPersistLine> lines;
    EXPECT_FALSE(OISCalibrationFile::ReadPersistLines(pFile, &lines));
    fclose(pFile);

    OISCalibrationFile file;
    file.ParsePersistFile();
    EXPECT_TRUE(file.Records().empty());
}

} // namespace
