// The emulated phone for oisverify commands; see emulateddevice.h.
#include "session/emulateddevice.h"

#include <ctype.h>
#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <strings.h>
#include <unistd.h>

namespace oisverify
{

const char* const kDefaultGainProperty = "persist.vendor.camera.oisgyrogain.w";
const char* const kDefaultGainText     = "1.000000,1.000000";

std::vector<OptionSpec> DeviceOptionSpecs()
{
    return {
        { "node", true, false, "PATH", "node library (default: the one built beside this tool)" },
        { "prop", true, true, "NAME=VALUE", "system property written to build.prop" },
        { "setting", true, true, "NAME=VALUE", "CamX static setting, e.g. enableOISGyroGainCalibration=TRUE" },
        { "eeprom", true, true, "NAME=VALUE", "custom EEPROM entry, e.g. OISGyroGainAndSRMatch=1" },
        { "root", true, false, "DIR", "use this directory as the device root instead of a fresh one" },
        { "keep-root", false, false, "", "keep the fresh device root after the run" },
        { "log", false, false, "", "print the node's log lines as they come" },
    };
}

std::string ExecutableDirectory()
{
    char    path[PATH_MAX];
    ssize_t length = readlink("/proc/self/exe", path, sizeof(path) - 1);
    if (length <= 0)
    {
        return ".";
    }
    std::string exe(path, static_cast<size_t>(length));
    return exe.substr(0, exe.find_last_of('/'));
}

EmulatedDevice::~EmulatedDevice()
{
    m_session.Close();
    m_root.Close();
}

namespace
{

// The CamX static settings the emulated device reads, and what each takes: anything else would
// be ignored by the device with a line on stderr, after the run had started.
struct SettingRule
{
    const char* pName;
    bool        boolean; // TRUE, FALSE, 1 or 0; otherwise a decimal or 0x-hexadecimal 32-bit mask
};

const SettingRule kSettingRules[] = {
    { "enableOISGyroGainCalibration", true }, { "logErrorMask", false },   { "logWarningMask", false },
    { "logInfoMask", false },                 { "logVerboseMask", false }, { "enableSystemLog", true },
};

bool ValidMask(const std::string& text)
{
    const bool  hex    = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char* pStart = text.c_str() + (hex ? 2 : 0);
    char*       pEnd   = nullptr;
    errno              = 0;
    const unsigned long long value = strtoull(pStart, &pEnd, hex ? 16 : 10);
    return isxdigit(static_cast<unsigned char>(*pStart)) && *pEnd == '\0' && errno == 0 && value <= 0xFFFFFFFFull;
}

chihost::Status CheckSettings(const chihost::NameValueList& settings)
{
    for (const auto& entry : settings)
    {
        const SettingRule* pRule = nullptr;
        for (const SettingRule& rule : kSettingRules)
        {
            pRule = (entry.first == rule.pName) ? &rule : pRule;
        }
        if (pRule == nullptr)
        {
            std::string known;
            for (const SettingRule& rule : kSettingRules)
            {
                known += (known.empty() ? "" : ", ") + std::string(rule.pName);
            }
            return chihost::Status::Error("unknown setting '" + entry.first + "'; the device reads " + known);
        }
        const std::string& v     = entry.second;
        const bool         valid = pRule->boolean ? (strcasecmp(v.c_str(), "TRUE") == 0 ||
                                                     strcasecmp(v.c_str(), "FALSE") == 0 || v == "1" || v == "0")
                                                  : ValidMask(v);
        if (!valid)
        {
            return chihost::Status::Error("setting " + entry.first + " needs " +
                                          (pRule->boolean ? "TRUE, FALSE, 1 or 0" : "a decimal or 0x-hexadecimal "
                                                                                    "32-bit mask") +
                                          ", got '" + v + "'");
        }
    }
    return chihost::Status::Ok();
}

} // namespace

chihost::Status ReadDeviceOptions(const Arguments& arguments, DeviceRequest* pRequest)
{
    std::string error;
    pRequest->root.existingPath = arguments.Value("root");
    pRequest->root.keep         = arguments.Has("keep-root");
    pRequest->root.buildProperties.push_back({ kDefaultGainProperty, kDefaultGainText });
    chihost::NameValueList eeprom;
    if (!arguments.NameValues("prop", &pRequest->root.buildProperties, &error) ||
        !arguments.NameValues("setting", &pRequest->root.overrideSettings, &error) ||
        !arguments.NameValues("eeprom", &eeprom, &error))
    {
        return chihost::Status::Error(error);
    }
    const chihost::Status settings = CheckSettings(pRequest->root.overrideSettings);
    if (!settings)
    {
        return settings;
    }
    for (const auto& entry : eeprom)
    {
        char*         pEnd  = nullptr;
        unsigned long value = strtoul(entry.second.c_str(), &pEnd, 0);
        if (entry.second.empty() || *pEnd != '\0' || value > 0xFFFFFFFFul)
        {
            return chihost::Status::Error("EEPROM entry " + entry.first + " needs a 32-bit unsigned value, got '" +
                                          entry.second + "'");
        }
        pRequest->host.eepromCustomInfo.push_back({ entry.first, static_cast<UINT32>(value) });
    }
    pRequest->nodeLibraryPath =
        arguments.Value("node", ExecutableDirectory() + "/../lib/com.zelk.node.zelkoisverify.so");
    return chihost::Status::Ok();
}

chihost::Status ResolveNodeLibrary(std::string* pPath)
{
    char resolved[PATH_MAX];
    if (realpath(pPath->c_str(), resolved) == nullptr)
    {
        return chihost::Status::Error("node library not found: " + *pPath);
    }
    *pPath = resolved;
    return chihost::Status::Ok();
}

chihost::Status EmulatedDevice::Open(const Arguments& arguments)
{
    DeviceRequest   request;
    chihost::Status status = ReadDeviceOptions(arguments, &request);
    if (status)
    {
        status = ResolveNodeLibrary(&request.nodeLibraryPath);
        m_nodeLibraryPath = request.nodeLibraryPath;
    }
    if (status)
    {
        status = m_root.Open(request.root);
    }
    if (status)
    {
        status = m_session.Open(m_nodeLibraryPath, request.host);
    }
    return status;
}

} // namespace oisverify
