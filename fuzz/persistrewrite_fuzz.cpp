// Fuzz target of the persist-file rewrite: the input is a module's fuse ID, the gains and the
// enable flag of one overwrite, and the file's bytes before it. The file written is checked
// against a model of the rewrite:
//   - refused inputs (no fuse ID, a gain outside both intervals with enable set, a fuse ID that
//     would not read back: a comma, a line feed, or blanks at either end) leave the file as it
//     was, byte for byte;
//   - otherwise the file holds every record of the old file, each as its line is written (so an
//     unchanged record is byte-identical to a written one), in order, with the module's first
//     record replaced or its record appended; lines that were no record are gone;
//   - the rewrite leaves no temporary file behind, and a reread gives the same records.
// Input layout: byte 0 flags (bit 0 enable, bit 1 a role without a fuse-ID property, bit 2 no
// file before), bytes 1-8 gainX and gainY as raw floats, byte 9 the fuse ID's length n (at most
// 83), n bytes of fuse ID, then the file.
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "androidservices.h"
#include "oiscalibrationfile.h"
#include "persistfileio.h"

namespace
{

const size_t kHeaderBytes  = 10;
const size_t kMaxFuseId    = 83; // a property value holds 91 bytes: 8 of prefix and length
std::string  g_fuseIdValue;      // the value of the fuse-ID property of role 0
std::string  g_persistPath;
std::string  g_root;

void Require(bool condition, const char* pWhat)
{
    if (!condition)
    {
        fprintf(stderr, "persistrewrite_fuzz: property violated: %s\n", pWhat);
        abort();
    }
}

bool IsBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool InRange(float gain)
{
    return (gain >= 0.5f && gain <= 2.0f) || (gain >= 2000.0f && gain <= 17000.0f);
}

std::string ReadWhole(const std::string& path, bool* pExists)
{
    std::string text;
    FILE*       pFile = fopen(path.c_str(), "rb");
    *pExists          = (pFile != nullptr);
    if (pFile == nullptr)
    {
        return text;
    }
    char   chunk[4096];
    size_t got = 0;
    while ((got = fread(chunk, 1, sizeof(chunk), pFile)) > 0)
    {
        text.append(chunk, got);
    }
    fclose(pFile);
    return text;
}

// The records of a file as the model sees them: lines of five columns, no longer than a record.
std::vector<OISCalData> ModelRecords(const std::string& content)
{
    std::vector<OISCalData> records;
    size_t                  start = 0;
    while (start < content.size())
    {
        size_t end = content.find('\n', start);
        if (end == std::string::npos)
        {
            end = content.size();
        }
        const std::string text = content.substr(start, end - start);
        start                  = end + 1;
        if (text.size() > kMaxPersistLineBytes)
        {
            continue;
        }
        const OISPersistLine line = OISCalibrationFile::MakePersistLine(text, false);
        if (line.columnCount == OISCalibrationFile::kColumnCount)
        {
            records.push_back(line.record);
        }
    }
    return records;
}

// The device root goes with the process; files of an input that crashed are left for replay.
void RemoveRoot()
{
    unlink(g_persistPath.c_str());
    std::string folder = g_persistPath.substr(0, g_persistPath.rfind('/'));
    while (folder.size() >= g_root.size())
    {
        rmdir(folder.c_str());
        folder = folder.substr(0, folder.rfind('/'));
    }
}

void Setup()
{
    const char* pShm = "/dev/shm";
    const char* pTmp = getenv("TMPDIR");
    std::string base = (access(pShm, W_OK) == 0) ? pShm : ((pTmp != nullptr) ? pTmp : "/tmp");
    std::string root = base + "/persistrewrite.XXXXXX";
    Require(mkdtemp(&root[0]) != nullptr, "a device root");
    setenv("CHIHOST_DEVICE_ROOT", root.c_str(), 1);
    std::string folder = root;
    for (const char* pPart : { "/mnt", "/vendor", "/persist", "/camera" })
    {
        folder += pPart;
        mkdir(folder.c_str(), 0755);
    }
    g_persistPath = folder + "/com.zelk.oiscal.bin";
    g_root        = root;
    atexit(RemoveRoot);
    // Refusals are printed for the operator and every record is logged: neither is of use here.
    int null = open("/dev/null", O_WRONLY);
    dup2(null, STDOUT_FILENO);
    close(null);
    __android_log_set_minimum_priority(ANDROID_LOG_FATAL);
}

} // namespace

// Role 0's fuse-ID property holds the input's value; every other property is empty.
extern "C" int property_get(const char* key, char* value, const char* default_value)
{
    const std::string text = (strcmp(key, "vendor.camera.sensor.w.fuseID") == 0)
                                 ? g_fuseIdValue
                                 : std::string((default_value != nullptr) ? default_value : "");
    const size_t length = std::min(text.size(), static_cast<size_t>(PROPERTY_VALUE_MAX - 1));
    memcpy(value, text.data(), length);
    value[length] = '\0';
    return static_cast<int>(length);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t size)
{
    static bool ready = (Setup(), true);
    (void)ready;
    if (size < kHeaderBytes)
    {
        return 0;
    }
    const bool enable = (pData[0] & 1) != 0;
    const int  role   = (pData[0] & 2) ? 5 : 0;
    float      gainX  = 0;
    float      gainY  = 0;
    memcpy(&gainX, pData + 1, sizeof(gainX));
    memcpy(&gainY, pData + 5, sizeof(gainY));
    const size_t idLength = std::min<size_t>(std::min<size_t>(pData[9], kMaxFuseId), size - kHeaderBytes);
    // Property values are C strings: the fuse ID ends at a zero byte.
    const std::string fuseIdBytes(reinterpret_cast<const char*>(pData + kHeaderBytes), idLength);
    const std::string fuseId  = fuseIdBytes.substr(0, strnlen(fuseIdBytes.c_str(), fuseIdBytes.size()));
    const std::string content(reinterpret_cast<const char*>(pData + kHeaderBytes + idLength),
                              size - kHeaderBytes - idLength);
    char lengthText[8];
    snprintf(lengthText, sizeof(lengthText), "%04zu", fuseId.size());
    g_fuseIdValue = fuseId.empty() ? std::string() : "FUSE" + std::string(lengthText) + fuseId;

    unlink(g_persistPath.c_str());
    if ((pData[0] & 4) == 0)
    {
        FILE* pFile = fopen(g_persistPath.c_str(), "wb");
        Require(pFile != nullptr && fwrite(content.data(), 1, content.size(), pFile) == content.size(), "seed file");
        fclose(pFile);
    }
    bool              existed = false;
    const std::string before  = ReadWhole(g_persistPath, &existed);

    const std::string module = (role == 0) ? fuseId : std::string();
    const bool unreadable = !module.empty() && (module.find(',') != std::string::npos ||
                                                 module.find('\n') != std::string::npos || IsBlank(module.front()) ||
                                                 IsBlank(module.back()));
    const bool refused = (enable && (module.empty() || !InRange(gainX) || !InRange(gainY))) || unreadable;

    OISCalibrationFile file;
    file.ParsePersistFile();
    const bool written = file.OverwriteCalibrationData(std::to_string(role), gainX, gainY, enable ? 1 : 0);
    bool       exists  = false;
    const std::string after = ReadWhole(g_persistPath, &exists);
    Require(access((g_persistPath + ".tmp").c_str(), F_OK) != 0, "no temporary file is left");
    if (refused)
    {
        Require(!written, "a refused input is not written");
        Require(exists == existed && after == before, "a refused input leaves the file unchanged");
        return 0;
    }
    Require(written, "an accepted input is written");

    std::vector<OISCalData> expected = ModelRecords(before);
    OISCalData              fresh    = { enable ? "1" : "0", module, std::to_string(gainX), std::to_string(gainY), 0 };
    fresh.crc                        = OISCalibrationFile::GetCrc(&fresh);
    bool replaced                    = false;
    for (OISCalData& record : expected)
    {
        if (!replaced && record.fuseId == module)
        {
            record   = fresh;
            replaced = true;
        }
    }
    if (!replaced)
    {
        expected.push_back(fresh);
    }
    std::string model;
    for (const OISCalData& record : expected)
    {
        model += OISCalibrationFile::FormatRecordLine(record);
    }
    Require(after == model, "the file holds the old records and the module's record");

    OISCalibrationFile reread;
    reread.ParsePersistFile();
    Require(reread.Records().size() == expected.size(), "a reread gives every record");
    return 0;
}
