// CRC-16 of persist-file records. The node writes the CRC on the device and the host's service
// and tools check it, so every architecture must agree on it, whatever the field bytes: bytes
// from 0x80 up are where a signed char would change the result.
#include <gtest/gtest.h>

#include <string>

#include "oiscalibrationfile.h"

namespace
{

// Every byte value once, NUL included: a damaged or foreign fuse ID.
std::string EveryByteValue()
{
    std::string bytes;
    for (int value = 0; value < 256; value++)
    {
        bytes.push_back(static_cast<char>(value));
    }
    return bytes;
}

struct CrcCase
{
    const char* name;
    OISCalData  record; // the stored crc field is left 0: it never enters the sum
    uint16_t    crc;
};

void PrintTo(const CrcCase& param, std::ostream* pOut) { *pOut << param.name; }

class RecordCrc : public ::testing::TestWithParam<CrcCase> {};

TEST_P(RecordCrc, MatchesTheValueComputedOnX86)
{
    EXPECT_EQ(OISCalibrationFile::GetCrc(&GetParam().record), GetParam().crc);
}

INSTANTIATE_TEST_SUITE_P(
    Records, RecordCrc,
    ::testing::Values(
        // The four fields join to "123456789", whose CRC-16/KERMIT is the published check value.
        CrcCase{ "CheckString", { "1", "23456789", "", "", 0 }, 0x2189 },
        CrcCase{ "CalibratedModule", { "1", "ZK5H0A3C0123", "1.050000", "0.950000", 0 }, 0x608A },
        CrcCase{ "RawDriverGains", { "0", "0x3f9a77", "12500.000000", "9800.500000", 0 }, 0x1ED8 },
        CrcCase{ "HighBytesInFuseId", { "1", "\xC3\xA9\x80\xFF\x7F", "1.000000", "1.000000", 0 }, 0xBA55 },
        CrcCase{ "EveryByteValue", { "1", EveryByteValue(), "0.500000", "2.000000", 0 }, 0xBCBF }),
    [](const ::testing::TestParamInfo<CrcCase>& info) { return std::string(info.param.name); });

} // namespace
