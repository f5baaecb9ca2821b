// Emulated device file system; see deviceroot.h.
#include "chihost/emulator/deviceroot.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "chihost/hostproperties.h"
#include "chihost/hostsettings.h"
#include "devicepath.h"
#include "logicalcameratable.h"
#include "oishighfps.h"

namespace chihost
{

namespace fs = std::filesystem;

namespace
{

const char* const kOisLibraryPath         = OIS_HIGH_FPS_LIBRARY_PATH;
const char* const kLogicalCameraTablePath = LOGICAL_CAMERA_TABLE_LIBRARY_PATH;
const char* const kOisLibraryName         = "libOISHighFPS.so";
const char* const kLogicalCameraTableName = "libchxlogicalcameratable.so";
const char* const kBuildPropPath          = CHIHOST_BUILD_PROP_PATH;
const char* const kOverrideSettingsPath   = CHIHOST_OVERRIDE_SETTINGS_PATH;

// Device rule: a property value holds at most PROPERTY_VALUE_MAX - 1 = 91 bytes.
const size_t kMaxPropertyValueBytes = 91;
const size_t kUnlimited             = static_cast<size_t>(-1);

// Any function of this library: dladdr on it names the emulator library's file.
void LibraryAnchor() {}

Status CheckEntry(const std::string& name, const std::string& value, size_t maxValueBytes)
{
    if (name.empty() || (name.find_first_of("=\r\n") != std::string::npos) || (name[0] == '#'))
    {
        return Status::Error("unusable name '" + name + "' for a name=value file");
    }
    if (value.find_first_of("\r\n") != std::string::npos)
    {
        return Status::Error("the value of " + name + " spans more than one line");
    }
    if (value.size() > maxValueBytes)
    {
        return Status::Error("the value of " + name + " has " + std::to_string(value.size()) +
                             " bytes; a property holds at most " + std::to_string(maxValueBytes));
    }
    return Status::Ok();
}

Status CheckEntries(const NameValueList& entries, size_t maxValueBytes)
{
    for (const auto& entry : entries)
    {
        Status status = CheckEntry(entry.first, entry.second, maxValueBytes);
        if (!status)
        {
            return status;
        }
    }
    return Status::Ok();
}

} // namespace

DeviceRoot::~DeviceRoot()
{
    Close();
}

const std::vector<std::string>& DeviceRoot::Layout()
{
    static const std::vector<std::string> s_layout = {
        "vendor/lib64",
        "odm/lib64/camera",
        "vendor/etc/camera",
        "data/vendor/camera/ois",
        "data/vendor/camera/oisverify",
        "mnt/vendor/persist/camera",
    };
    return s_layout;
}

std::string DeviceRoot::LibraryDirectory()
{
    Dl_info info = {};
    if ((dladdr(reinterpret_cast<void*>(&LibraryAnchor), &info) == 0) ||
        (info.dli_fname == nullptr))
    {
        return std::string();
    }
    std::error_code error;
    fs::path        library = fs::absolute(info.dli_fname, error);
    return error ? std::string() : library.parent_path().lexically_normal().string();
}

std::string DeviceRoot::Map(const std::string& devicePath) const
{
    if (!devicePath.empty() && (devicePath[0] == '/'))
    {
        return m_path + devicePath;
    }
    return m_path + "/" + devicePath;
}

Status DeviceRoot::ResolveSource(const std::string& configured,
                                 const char*        pFileName,
                                 std::string*       pResolved)
{
    std::string source = configured;
    if (source.empty())
    {
        std::string directory = LibraryDirectory();
        if (directory.empty())
        {
            return Status::Error(std::string("cannot locate the emulator library to find ") +
                                 pFileName);
        }
        source = directory + "/" + pFileName;
    }
    std::error_code error;
    if (!fs::is_regular_file(source, error))
    {
        return Status::Error(std::string("run-time library ") + pFileName + " not found at " +
                             source);
    }
    // Resolved before the working directory moves into the root.
    *pResolved = fs::absolute(source, error).lexically_normal().string();
    return Status::Ok();
}

Status DeviceRoot::CreateOrAdopt(const DeviceRootOptions& options)
{
    std::error_code error;
    if (!options.existingPath.empty())
    {
        if (!fs::is_directory(options.existingPath, error))
        {
            return Status::Error("device root " + options.existingPath + " is not a directory");
        }
        m_path  = fs::canonical(options.existingPath, error).string();
        m_fresh = false;
        return error ? Status::Error("cannot resolve device root " + options.existingPath)
                     : Status::Ok();
    }
    const char* pTmp = getenv("TMPDIR");
    std::string pattern =
        std::string((pTmp != nullptr && pTmp[0] != '\0') ? pTmp : "/tmp") + "/chihost-root-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr)
    {
        return Status::Error("cannot create a device root like " + pattern);
    }
    m_path  = fs::canonical(pattern, error).string();
    m_fresh = true;
    return error ? Status::Error("cannot resolve device root " + pattern) : Status::Ok();
}

Status DeviceRoot::Enter()
{
    char cwd[PATH_MAX];
    m_prevCwd             = (getcwd(cwd, sizeof(cwd)) != nullptr) ? cwd : "/";
    const char* pPrevious = getenv(ChiHostDeviceRootVariable);
    m_hadPrevRoot         = (pPrevious != nullptr);
    m_prevRoot            = m_hadPrevRoot ? pPrevious : "";
    if (chdir(m_path.c_str()) != 0)
    {
        return Status::Error("cannot enter device root " + m_path);
    }
    setenv(ChiHostDeviceRootVariable, m_path.c_str(), 1);
    m_entered = true;
    return Status::Ok();
}

Status DeviceRoot::InstallFiles(const std::string& oisSource, const std::string& tableSource)
{
    std::error_code error;
    for (const std::string& folder : Layout())
    {
        fs::create_directories(Map(folder), error);
        if (error)
        {
            return Status::Error("cannot create " + Map(folder) + ": " + error.message());
        }
    }
    const std::pair<std::string, const char*> installs[] = {{oisSource, kOisLibraryPath},
                                                            {tableSource, kLogicalCameraTablePath}};
    for (const auto& install : installs)
    {
        fs::copy_file(install.first, Map(install.second), fs::copy_options::overwrite_existing,
                      error);
        if (error)
        {
            return Status::Error("cannot install " + install.first + " as " + Map(install.second) +
                                 ": " + error.message());
        }
    }
    return Status::Ok();
}

Status DeviceRoot::WriteConfiguration(const DeviceRootOptions& options)
{
    bool   writeProperties = m_fresh || !options.buildProperties.empty();
    bool   writeSettings   = m_fresh || !options.overrideSettings.empty();
    Status status          = Status::Ok();
    if (writeProperties)
    {
        status =
            WriteNameValueFile(kBuildPropPath, options.buildProperties, kMaxPropertyValueBytes);
    }
    if (status && writeSettings)
    {
        status = WriteNameValueFile(kOverrideSettingsPath, options.overrideSettings, kUnlimited);
    }
    if (!status)
    {
        return status;
    }
    // Both stores are reloaded even when this root brought its own files, so that nothing read
    // from an earlier root survives.
    if ((ChiHostPropertiesReload() < 0) && writeProperties)
    {
        return Status::Error("the property store did not read " + Map(kBuildPropPath));
    }
    if ((ChiHostSettingsReload() < 0) && writeSettings)
    {
        return Status::Error("the static settings did not read " + Map(kOverrideSettingsPath));
    }
    return Status::Ok();
}

// Everything that can be checked up front is, before the file system is touched.
Status DeviceRoot::CheckOptions(const DeviceRootOptions& options,
                                std::string*             pOisSource,
                                std::string*             pTableSource)
{
    Status status = CheckEntries(options.buildProperties, kMaxPropertyValueBytes);
    if (status)
    {
        status = CheckEntries(options.overrideSettings, kUnlimited);
    }
    if (status)
    {
        status = ResolveSource(options.oisLibrarySource, kOisLibraryName, pOisSource);
    }
    if (status)
    {
        status =
            ResolveSource(options.logicalCameraTableSource, kLogicalCameraTableName, pTableSource);
    }
    return status;
}

Status DeviceRoot::Open(const DeviceRootOptions& options)
{
    if (m_open)
    {
        return Status::Error("device root " + m_path + " is already open");
    }
    std::string oisSource;
    std::string tableSource;
    Status      status = CheckOptions(options, &oisSource, &tableSource);
    if (status)
    {
        status = CreateOrAdopt(options);
    }
    if (status)
    {
        status = Enter();
    }
    m_open = true; // from here Close() undoes whatever was done
    if (status)
    {
        status = InstallFiles(oisSource, tableSource);
    }
    if (status)
    {
        status = WriteConfiguration(options);
    }
    if (!status)
    {
        m_keep = false;
        Close();
        return status;
    }
    m_keep = options.keep;
    return status;
}

void DeviceRoot::Close()
{
    if (!m_open)
    {
        return;
    }
    if (m_entered)
    {
        if (chdir(m_prevCwd.c_str()) != 0)
        {
            (void)chdir("/");
        }
        if (m_hadPrevRoot)
        {
            setenv(ChiHostDeviceRootVariable, m_prevRoot.c_str(), 1);
        }
        else
        {
            unsetenv(ChiHostDeviceRootVariable);
        }
    }
    if (m_fresh && !m_keep && !m_path.empty())
    {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    m_open    = false;
    m_fresh   = false;
    m_keep    = false;
    m_entered = false;
    m_path.clear();
}

Status DeviceRoot::WriteNameValueFile(const std::string&   devicePath,
                                      const NameValueList& entries,
                                      size_t               maxValueBytes) const
{
    Status status = CheckEntries(entries, maxValueBytes);
    if (!status)
    {
        return status;
    }
    std::string   path = Map(devicePath);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    for (const auto& entry : entries)
    {
        out << entry.first << '=' << entry.second << '\n';
    }
    out.close();
    return out ? Status::Ok() : Status::Error("cannot write " + path);
}

Status DeviceRoot::WriteBuildProperties(const NameValueList& properties)
{
    if (!m_open)
    {
        return Status::Error("no device root is open to hold build.prop");
    }
    Status status = WriteNameValueFile(kBuildPropPath, properties, kMaxPropertyValueBytes);
    if (status && (ChiHostPropertiesReload() < 0))
    {
        status = Status::Error("the property store did not read " + Map(kBuildPropPath));
    }
    return status;
}

Status DeviceRoot::WriteOverrideSettings(const NameValueList& settings)
{
    if (!m_open)
    {
        return Status::Error("no device root is open to hold the override settings");
    }
    Status status = WriteNameValueFile(kOverrideSettingsPath, settings, kUnlimited);
    if (status && (ChiHostSettingsReload() < 0))
    {
        status = Status::Error("the static settings did not read " + Map(kOverrideSettingsPath));
    }
    return status;
}

} // namespace chihost
