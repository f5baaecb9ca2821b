// The emulated phone for oisverify commands; see emulateddevice.h.
#include "session/emulateddevice.h"

#include <limits.h>
#include <stdlib.h>
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
