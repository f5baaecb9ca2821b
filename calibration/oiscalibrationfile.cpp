// Manager of the OIS calibration persist-file records; see oiscalibrationfile.h. Diagnostics go
// to the Android log under the tag "CalibrationData"; the refusals a factory operator must see
// and the permission failures are printed on the process's standard output or error.
#include "oiscalibrationfile.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>

#include "androidservices.h"
#include "calibrationlog.h"
#include "devicepath.h"
#include "persistfileio.h"


const CHAR* const OISCalibrationFile::kPersistFilePath = "/mnt/vendor/persist/camera/com.zelk.oiscal.bin";

namespace
{

// Camera role id -> property holding that module's fuse ID. The comments give the long role
// names the short letters stand for.
const std::map<INT32, const CHAR*> kRoleFuseIdProps = {
    { 0, "vendor.camera.sensor.w.fuseID" },   // rearMain
    { 1, "vendor.camera.sensor.f.fuseID" },   // frontMain
    { 20, "vendor.camera.sensor.t.fuseID" },  // rearTele
    { 21, "vendor.camera.sensor.u.fuseID" },  // rearUltra
    { 22, "vendor.camera.sensor.m.fuseID" },  // rearMacro
    { 23, "vendor.camera.sensor.t4.fuseID" }, // rearTele4x
    { 24, "vendor.camera.sensor.m2.fuseID" }, // rearMacro2x
    { 25, "vendor.camera.sensor.d.fuseID" },  // rearDepth
    { 26, "vendor.camera.sensor.t2.fuseID" },
    { 27, "vendor.camera.sensor.t3.fuseID" },
    { 28, "vendor.camera.sensor.t5.fuseID" },
    { 29, "vendor.camera.sensor.ta.fuseID" },
    { 40, "vendor.camera.sensor.fd.fuseID" }, // frontAux
};

// Roles whose module may publish its fuse ID under another role's property, tried in order
// when the role's own property is empty.
const std::map<UINT32, std::vector<INT32>> kRoleFallbackRoles = {
    { 20, { 26, 27 } },
    { 23, { 28, 29 } },
};

// Gains are either normalised (around 1.0) or raw driver units; the gap between the two
// intervals is deliberate.
const FLOAT kMinNormalisedGain = 0.5f;
const FLOAT kMaxNormalisedGain = 2.0f;
const FLOAT kMinRawGain        = 2000.0f;
const FLOAT kMaxRawGain        = 17000.0f;

const INT32 kWriteAttempts = 3;

const size_t kFuseIdLengthOffset = 4; // characters 0-3 of a fuse-ID property value are a prefix
const size_t kFuseIdLengthDigits = 4;
const size_t kFuseIdOffset       = kFuseIdLengthOffset + kFuseIdLengthDigits;

// The white space of the separator: what "\s" matches in the classic locale.
bool IsSeparatorSpace(char c)
{
    return (' ' == c) || ('\t' == c) || ('\n' == c) || ('\v' == c) || ('\f' == c) || ('\r' == c);
}

// Parses like std::stoi without throwing: leading blanks, an optional sign, at least one digit,
// anything after the digits ignored, and the value must fit 32 bits.
bool ParseDecimalInt(const std::string& text, INT32* pValue)
{
    const CHAR* pBegin = text.c_str();
    CHAR*       pEnd   = NULL;
    errno              = 0;
    long value         = strtol(pBegin, &pEnd, 10);
    if ((pEnd == pBegin) || (ERANGE == errno) || (value < INT32_MIN) || (value > INT32_MAX))
    {
        return false;
    }
    *pValue = static_cast<INT32>(value);
    return true;
}

std::string PropertyValue(const CHAR* pName)
{
    CHAR value[PROPERTY_VALUE_MAX] = {};
    int  length                    = property_get(pName, value, NULL);
    return (length > 0) ? std::string(value, strnlen(value, sizeof(value))) : std::string();
}

} // namespace

OISCalibrationFile::OISCalibrationFile()
    : m_calData()
{
}

OISCalibrationFile::~OISCalibrationFile() = default;

uint16_t OISCalibrationFile::GetCrc(const OISCalData* pData)
{
    if (NULL == pData)
    {
        return 0;
    }
    const std::string joined = pData->calibFlag + pData->fuseId + pData->gainX + pData->gainY;

    // CRC-16/KERMIT (poly 0x1021, init 0, reflected in and out) in the non-reflected register
    // form: each byte enters bit-reversed at the top, the register is reversed at the end.
    uint16_t crc = 0;
    for (unsigned char byte : joined)
    {
        unsigned char reversed = 0;
        for (int bit = 0; bit < 8; bit++)
        {
            reversed = static_cast<unsigned char>((reversed << 1) | ((byte >> bit) & 1));
        }
        crc ^= static_cast<uint16_t>(reversed << 8);
        for (int bit = 0; bit < 8; bit++)
        {
            crc = (0 != (crc & 0x8000)) ? static_cast<uint16_t>((crc << 1) ^ 0x1021)
                                        : static_cast<uint16_t>(crc << 1);
        }
    }
    uint16_t result = 0;
    for (int bit = 0; bit < 16; bit++)
    {
        result = static_cast<uint16_t>((result << 1) | ((crc >> bit) & 1));
    }
    return result;
}

void OISCalibrationFile::SplitPersistLine(const std::string& line, std::vector<std::string>* pColumns)
{
    // Same columns as a token split at the regular expression "\s*,\s*", done in one linear pass:
    // the library regex engine recurses once per blank of a run, so a long run of blanks in a
    // damaged file would exhaust the stack, and its search is quadratic in such a run.
    pColumns->clear();
    const size_t length     = line.size();
    size_t       tokenStart = 0;
    size_t       comma      = line.find(',');
    while (std::string::npos != comma)
    {
        // The separator takes the blanks right before the comma (none of the previous separator's)
        // and all blanks after it.
        size_t separatorStart = comma;
        while ((separatorStart > tokenStart) && IsSeparatorSpace(line[separatorStart - 1]))
        {
            separatorStart--;
        }
        size_t separatorEnd = comma + 1;
        while ((separatorEnd < length) && IsSeparatorSpace(line[separatorEnd]))
        {
            separatorEnd++;
        }
        pColumns->push_back(line.substr(tokenStart, separatorStart - tokenStart));
        tokenStart = separatorEnd;
        comma      = line.find(',', tokenStart);
    }
    if ((tokenStart < length) || pColumns->empty())
    {
        pColumns->push_back(line.substr(tokenStart));
    }
}

uint16_t OISCalibrationFile::ParseCrcColumn(const std::string& text)
{
    // atoi is strtol narrowed to int; only the low 16 bits are kept either way.
    long value = strtol(text.c_str(), NULL, 10);
    return static_cast<uint16_t>(static_cast<unsigned long>(value) & 0xFFFFu);
}

OISPersistLine OISCalibrationFile::MakePersistLine(const std::string& text, bool tooLong)
{
    OISPersistLine line = { text, 0, OISCalData{ "", "", "", "", 0 }, tooLong };
    if (tooLong)
    {
        return line;
    }
    std::vector<std::string> columns;
    SplitPersistLine(text, &columns);
    line.columnCount = static_cast<INT32>(columns.size());
    if (kColumnCount == line.columnCount)
    {
        line.record = { columns[0], columns[1], columns[2], columns[3], ParseCrcColumn(columns[4]) };
    }
    return line;
}

bool OISCalibrationFile::ReadPersistLines(FILE* pFile, std::vector<OISPersistLine>* pLines)
{
    PersistLineReader reader([pFile](char* pBuffer, size_t bytes) -> ssize_t {
        const size_t got = fread(pBuffer, 1, bytes, pFile);
        return (0 == got && 0 != ferror(pFile)) ? -1 : static_cast<ssize_t>(got);
    });
    std::string text;
    bool        tooLong = false;
    while (reader.Next(&text, &tooLong))
    {
        pLines->push_back(MakePersistLine(text, tooLong));
    }
    return !reader.Failed();
}

// Every line of an open persist file; false after logging why the file could not be read in full.
static bool ReadAllLines(int fd, std::vector<OISPersistLine>* pLines)
{
    PersistLineReader reader(DescriptorSource(fd));
    std::string       text;
    bool              tooLong = false;
    // The size was checked at the open; a file that grows meanwhile is cut off at the limit.
    while (reader.BytesRead() <= kMaxPersistFileBytes && reader.Next(&text, &tooLong))
    {
        pLines->push_back(OISCalibrationFile::MakePersistLine(text, tooLong));
    }
    if (reader.Failed() || reader.BytesRead() > kMaxPersistFileBytes)
    {
        CAL_LOG_ERROR("cannot read persist file %s: %s; read stopped after %zu lines\n",
                      OISCalibrationFile::kPersistFilePath, reader.Failed() ? strerror(reader.Error()) : "it grew too large",
                      pLines->size());
        return false;
    }
    return true;
}

// The records among the lines, in order; the others are reported (when logging) and skipped.
static void KeepRecords(const std::vector<OISPersistLine>& lines, bool logRecords, std::vector<OISCalData>* pRecords)
{
    for (size_t index = 0; index < lines.size(); index++)
    {
        const OISPersistLine& line = lines[index];
        if (line.tooLong)
        {
            CAL_LOG_ERROR("persist file line %zu is longer than %zu bytes; not a record", index + 1, kMaxPersistLineBytes);
            continue;
        }
        if (OISCalibrationFile::kColumnCount != line.columnCount)
        {
            if (logRecords)
            {
                CAL_LOG_ERROR("Not expected file format, colum number: %d", line.columnCount);
            }
            continue;
        }
        const OISCalData& record = line.record;
        if (logRecords)
        {
            CAL_LOG_INFO("exist calibration info: %s, %s, %s, %s, %s\n", record.calibFlag.c_str(),
                         record.fuseId.c_str(), record.gainX.c_str(), record.gainY.c_str(),
                         std::to_string(record.crc).c_str());
        }
        pRecords->push_back(record);
    }
}

OISCalibrationFile::ReadResult OISCalibrationFile::ReadRecords(std::vector<OISCalData>* pRecords, bool logRecords)
{
    pRecords->clear();
    int                     fd     = -1;
    int                     error  = 0;
    const PersistOpenResult opened = OpenPersistForReading(DevicePath(kPersistFilePath).Get(), &fd, &error);
    switch (opened)
    {
        case PersistOpenResult::Missing: return ReadResult::Read;
        case PersistOpenResult::NotRegular:
            CAL_LOG_ERROR("persist file %s is not a regular file; not read\n", kPersistFilePath);
            return ReadResult::NotRegular;
        case PersistOpenResult::TooLarge:
            CAL_LOG_ERROR("persist file %s is larger than %zu bytes; not read\n", kPersistFilePath, kMaxPersistFileBytes);
            return ReadResult::Failed;
        case PersistOpenResult::Failed:
            CAL_LOG_ERROR("cannot open persist file %s: %s\n", kPersistFilePath, strerror(error));
            return ReadResult::Failed;
        case PersistOpenResult::Opened: break;
    }
    std::vector<OISPersistLine> lines;
    const bool                  readAll = ReadAllLines(fd, &lines);
    close(fd);
    if (!readAll)
    {
        return ReadResult::Failed;
    }
    KeepRecords(lines, logRecords, pRecords);
    return ReadResult::Read;
}

void OISCalibrationFile::ParsePersistFile()
{
    if (ReadResult::Read != ReadRecords(&m_calData, true))
    {
        m_calData.clear();
    }
}

bool OISCalibrationFile::ParseFuseIdValue(const std::string& value, std::string* pFuseId)
{
    INT32 length = 0;
    if ((value.size() < kFuseIdOffset) ||
        !ParseDecimalInt(value.substr(kFuseIdLengthOffset, kFuseIdLengthDigits), &length) || (length < 0))
    {
        return false;
    }
    *pFuseId = value.substr(kFuseIdOffset, static_cast<size_t>(length));
    return true;
}

bool OISCalibrationFile::IsGainInRange(FLOAT gain)
{
    return ((gain >= kMinNormalisedGain) && (gain <= kMaxNormalisedGain)) ||
           ((gain >= kMinRawGain) && (gain <= kMaxRawGain));
}

std::string OISCalibrationFile::FormatRecordLine(const OISCalData& record)
{
    return record.calibFlag + "," + record.fuseId + "," + record.gainX + "," + record.gainY + "," +
           std::to_string(record.crc) + "\n";
}

std::string OISCalibrationFile::LookUpFuseId(INT32 roleId) const
{
    auto own = kRoleFuseIdProps.find(roleId);
    if (kRoleFuseIdProps.end() == own)
    {
        return std::string();
    }
    const CHAR* pProperty = own->second;
    std::string value     = PropertyValue(pProperty);
    auto        fallback  = kRoleFallbackRoles.find(static_cast<UINT32>(roleId));
    if (value.empty() && (kRoleFallbackRoles.end() != fallback))
    {
        for (INT32 otherRole : fallback->second)
        {
            auto other = kRoleFuseIdProps.find(otherRole);
            if (kRoleFuseIdProps.end() == other)
            {
                continue;
            }
            value = PropertyValue(other->second);
            if (!value.empty())
            {
                pProperty = other->second;
                break;
            }
        }
    }
    std::string fuseId;
    if (!value.empty() && !ParseFuseIdValue(value, &fuseId))
    {
        // Not a fuse-ID value at all; the module is treated as having none.
        CAL_LOG_ERROR("fuse id property %s has an unexpected value: %s", pProperty, value.c_str());
    }
    return fuseId;
}

void OISCalibrationFile::StoreGains(const std::string& fuseId, FLOAT gainX, FLOAT gainY, INT32 enable)
{
    OISCalData* pRecord = NULL;
    for (OISCalData& record : m_calData)
    {
        if (record.fuseId == fuseId)
        {
            pRecord = &record;
            break;
        }
    }
    if (NULL == pRecord)
    {
        m_calData.push_back(OISCalData{ "", fuseId, "", "", 0 });
        pRecord = &m_calData.back();
    }
    pRecord->calibFlag = std::to_string((0 != enable) ? 1 : 0);
    pRecord->gainX     = std::to_string(gainX);
    pRecord->gainY     = std::to_string(gainY);
    pRecord->crc       = GetCrc(pRecord);
}

bool OISCalibrationFile::ReadsBackAs(const OISCalData& record)
{
    std::string text = FormatRecordLine(record);
    text.pop_back(); // the line feed
    if ((text.size() > kMaxPersistLineBytes) || (std::string::npos != text.find('\n')))
    {
        return false;
    }
    const OISPersistLine line = MakePersistLine(text, false);
    const OISCalData&    back = line.record;
    return (kColumnCount == line.columnCount) && (back.calibFlag == record.calibFlag) &&
           (back.fuseId == record.fuseId) && (back.gainX == record.gainX) && (back.gainY == record.gainY) &&
           (back.crc == record.crc);
}

// The text of a fuse ID for a log line: control bytes as \xNN, so a line break in it cannot
// forge a second log line.
static std::string PrintableFuseId(const std::string& fuseId)
{
    std::string shown;
    for (unsigned char c : fuseId)
    {
        if (c < 0x20 || c == 0x7F)
        {
            CHAR escaped[8];
            snprintf(escaped, sizeof(escaped), "\\x%02X", c);
            shown += escaped;
            continue;
        }
        shown.push_back(static_cast<CHAR>(c));
    }
    return shown;
}

// The checks before anything is stored: with enable, a fuse ID and gains in the accepted
// intervals; always, a record that reads back as written (a comma or line break in the fuse ID,
// or blanks at its ends, would make every later reader drop or change it). Refusals are logged
// and printed for the operator.
static bool MayStore(INT32 roleId, const std::string& fuseId, FLOAT gainX, FLOAT gainY, INT32 enable)
{
    if (0 != enable)
    {
        if (fuseId.empty())
        {
            printf("can't find camera[%d] fuseid\n", roleId);
            return false;
        }
        if (!OISCalibrationFile::IsGainInRange(gainX) || !OISCalibrationFile::IsGainInRange(gainY))
        {
            const DOUBLE x = gainX;
            const DOUBLE y = gainY;
            CAL_LOG_ERROR("ois gain is not in the valid range : %f, %f (range: %f -- %f, %f -- %f)", x, y,
                          DOUBLE(kMinNormalisedGain), DOUBLE(kMaxNormalisedGain), DOUBLE(kMinRawGain),
                          DOUBLE(kMaxRawGain));
            printf("ois gain is not in the valid range : %f, %f (range: %f -- %f, %f -- %f)\n", x, y,
                   DOUBLE(kMinNormalisedGain), DOUBLE(kMaxNormalisedGain), DOUBLE(kMinRawGain),
                   DOUBLE(kMaxRawGain));
            return false;
        }
    }
    OISCalData candidate = { std::to_string((0 != enable) ? 1 : 0), fuseId, std::to_string(gainX),
                             std::to_string(gainY), 0 };
    candidate.crc        = OISCalibrationFile::GetCrc(&candidate);
    if (!OISCalibrationFile::ReadsBackAs(candidate))
    {
        const std::string shown = PrintableFuseId(fuseId);
        CAL_LOG_ERROR("fuse id \"%s\" of camera[%d] cannot be stored: the record would not read back as written",
                      shown.c_str(), roleId);
        printf("fuse id \"%s\" of camera[%d] cannot be stored in %s\n", shown.c_str(), roleId,
               OISCalibrationFile::kPersistFilePath);
        return false;
    }
    return true;
}

bool OISCalibrationFile::OverwriteCalibrationData(const std::string& cameraId,
                                                  FLOAT              gainX,
                                                  FLOAT              gainY,
                                                  INT32              enable)
{
    INT32 roleId = 0;
    if (!ParseDecimalInt(cameraId, &roleId))
    {
        CAL_LOG_ERROR("camera id is not a number: %s", cameraId.c_str());
        return false;
    }
    const std::string fuseId = LookUpFuseId(roleId);
    if (!MayStore(roleId, fuseId, gainX, gainY, enable))
    {
        return false;
    }
    StoreGains(fuseId, gainX, gainY, enable);
    for (INT32 attempt = 0; attempt < kWriteAttempts; attempt++)
    {
        bool abort = false;
        if (RewriteAttempt(fuseId, gainX, gainY, enable, &abort))
        {
            return true;
        }
        if (abort)
        {
            return false;
        }
    }
    return false;
}
