// Manager of the OIS calibration persist-file records; see oiscalibrationfile.h. Diagnostics go
// to the Android log under the tag "CalibrationData"; the refusals a factory operator must see
// and the permission failures are printed on the process's standard output or error.
#include "oiscalibrationfile.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <map>

#include "androidservices.h"
#include "devicepath.h"

#define CAL_LOG_TAG "CalibrationData"
#define CAL_LOG_ERROR(fmt, ...) __android_log_print(ANDROID_LOG_ERROR, CAL_LOG_TAG, fmt, ##__VA_ARGS__)
#define CAL_LOG_INFO(fmt, ...)  __android_log_print(ANDROID_LOG_INFO, CAL_LOG_TAG, fmt, ##__VA_ARGS__)
#define CAL_LOG_DEBUG(fmt, ...) __android_log_print(ANDROID_LOG_DEBUG, CAL_LOG_TAG, fmt, ##__VA_ARGS__)

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

const INT32 kWriteAttempts   = 3;
const uid_t kPersistOwnerUid = 1000; // the system user, so the calibration service can read it
const gid_t kPersistOwnerGid = 1000;

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

bool OISCalibrationFile::ReadPersistLines(FILE* pFile, std::vector<OISPersistLine>* pLines)
{
    CHAR*                    pBuffer  = NULL;
    size_t                   capacity = 0;
    ssize_t                  got      = 0;
    std::vector<std::string> columns;
    while ((got = getline(&pBuffer, &capacity, pFile)) > 0)
    {
        size_t length = static_cast<size_t>(got);
        if ('\n' == pBuffer[length - 1])
        {
            length--;
        }
        OISPersistLine line = { std::string(pBuffer, length), 0, OISCalData() };
        SplitPersistLine(line.text, &columns);
        line.columnCount = static_cast<INT32>(columns.size());
        if (kColumnCount == line.columnCount)
        {
            line.record = { columns[0], columns[1], columns[2], columns[3], ParseCrcColumn(columns[4]) };
        }
        else
        {
            line.record.crc = 0;
        }
        pLines->push_back(line);
    }
    free(pBuffer);
    return 0 == ferror(pFile);
}

void OISCalibrationFile::ParsePersistFile()
{
    m_calData.clear();
    FILE* pFile = fopen(DevicePath(kPersistFilePath).Get(), "rb");
    if (NULL == pFile)
    {
        return;
    }
    std::vector<OISPersistLine> lines;
    ReadPersistLines(pFile, &lines);
    fclose(pFile);

    for (const OISPersistLine& line : lines)
    {
        if (kColumnCount != line.columnCount)
        {
            CAL_LOG_ERROR("Not expected file format, colum number: %d", line.columnCount);
            continue;
        }
        const OISCalData& record = line.record;
        CAL_LOG_INFO("exist calibration info: %s, %s, %s, %s, %s\n", record.calibFlag.c_str(),
                     record.fuseId.c_str(), record.gainX.c_str(), record.gainY.c_str(),
                     std::to_string(record.crc).c_str());
        m_calData.push_back(record);
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

// Whether the partition can take `bytes` once the current file's blocks are freed by the
// truncation. Rewriting a file that cannot be written back in full would lose every record in it,
// so such an attempt fails before the file is touched. Unknown space is not a reason to refuse.
static bool PersistFileFits(const CHAR* pPath, size_t bytes)
{
    struct statvfs partition = {};
    std::string    folder(pPath);
    folder = folder.substr(0, folder.find_last_of('/') + 1);
    if (0 != statvfs(folder.c_str(), &partition) || 0 == partition.f_bsize)
    {
        return true;
    }
    struct stat current = {};
    const unsigned long long freedBytes = (0 == stat(pPath, &current)) ? 512ull * current.st_blocks : 0;
    const unsigned long long freeBytes  = static_cast<unsigned long long>(partition.f_bavail) * partition.f_bsize;
    const unsigned long long neededBytes = (bytes + partition.f_bsize - 1) / partition.f_bsize * partition.f_bsize;
    if (neededBytes > freeBytes + freedBytes)
    {
        CAL_LOG_ERROR("not enough space to rewrite %s: %zu bytes needed, %llu free\n", OISCalibrationFile::kPersistFilePath, bytes,
                      freeBytes + freedBytes);
        return false;
    }
    return true;
}

bool OISCalibrationFile::WritePersistFile() const
{
    DevicePath  path(kPersistFilePath);
    std::string content;
    for (const OISCalData& record : m_calData)
    {
        content += FormatRecordLine(record);
    }
    if (!PersistFileFits(path.Get(), content.size()))
    {
        return false;
    }
    FILE* pFile = fopen(path.Get(), "wb");
    if (NULL == pFile)
    {
        CAL_LOG_ERROR("failed to open file %s\n", kPersistFilePath);
        return false;
    }
    for (const OISCalData& record : m_calData)
    {
        const std::string line = FormatRecordLine(record);
        CAL_LOG_INFO("write data: %s", line.c_str());
        fwrite(line.data(), 1, line.size(), pFile);
    }
    // Mode and owner are set while the file is still open; a failure is reported, not retried.
    if (0 != chmod(path.Get(), 0644))
    {
        printf("Error: fail to change permissions of %s to 0644: %s", kPersistFilePath, strerror(errno));
    }
    if (0 != chown(path.Get(), kPersistOwnerUid, kPersistOwnerGid))
    {
        fprintf(stderr, "Error changing group ownership of %s to %d: %s", kPersistFilePath,
                static_cast<int>(kPersistOwnerGid), strerror(errno));
    }
    fclose(pFile);

    struct stat status = {};
    if (0 != stat(path.Get(), &status))
    {
        status.st_size = 0;
    }
    CAL_LOG_DEBUG("%s file size = %ld\n", kPersistFilePath, static_cast<long>(status.st_size));
    // Only the low 32 bits of the size are looked at.
    return 0 != static_cast<UINT32>(status.st_size);
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
    if (0 != enable)
    {
        if (fuseId.empty())
        {
            printf("can't find camera[%d] fuseid\n", roleId);
            return false;
        }
        if (!IsGainInRange(gainX) || !IsGainInRange(gainY))
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
    StoreGains(fuseId, gainX, gainY, enable);
    for (INT32 attempt = 0; attempt < kWriteAttempts; attempt++)
    {
        if (WritePersistFile())
        {
            return true;
        }
    }
    return false;
}
