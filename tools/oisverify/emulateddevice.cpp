// The emulated phone for oisverify commands; see emulateddevice.h.
#include "emulateddevice.h"

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

chihost::Status EmulatedDevice::ReadOptions(const Arguments& arguments, chihost::DeviceRootOptions* pRoot,
                                            chihost::HostSessionOptions* pSession)
{
    std::string error;
    pRoot->existingPath = arguments.Value("root");
    pRoot->keep         = arguments.Has("keep-root");
    pRoot->buildProperties.push_back({ kDefaultGainProperty, kDefaultGainText });
    chihost::NameValueList eeprom;
    if (!arguments.NameValues("prop", &pRoot->buildProperties, &error) ||
        !arguments.NameValues("setting", &pRoot->overrideSettings, &error) ||
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
        pSession->eepromCustomInfo.push_back({ entry.first, static_cast<UINT32>(value) });
    }
    m_nodeLibraryPath = arguments.Value("node", ExecutableDirectory() + "/../lib/com.zelk.node.zelkoisverify.so");
    char resolved[PATH_MAX];
    if (realpath(m_nodeLibraryPath.c_str(), resolved) == nullptr)
    {
        return chihost::Status::Error("node library not found: " + m_nodeLibraryPath);
    }
    // Absolute, because the device root becomes the working directory.
    m_nodeLibraryPath = resolved;
    return chihost::Status::Ok();
}

chihost::Status EmulatedDevice::Open(const Arguments& arguments)
{
    chihost::DeviceRootOptions  rootOptions;
    chihost::HostSessionOptions sessionOptions;
    chihost::Status             status = ReadOptions(arguments, &rootOptions, &sessionOptions);
    if (status)
    {
        status = m_root.Open(rootOptions);
    }
    if (status)
    {
        status = m_session.Open(m_nodeLibraryPath, sessionOptions);
    }
    return status;
}

} // namespace oisverify
