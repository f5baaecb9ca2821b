// The emulated device's file system: a directory that plays the device's "/". Opening a root
// exports it as CHIHOST_DEVICE_ROOT (absolute), makes it the working directory (the camera
// provider runs in "/", so the node's relative paths land inside it), lays out the folders the
// node uses, installs the two run-time libraries the node maps, writes build.prop and the
// override settings file and makes the property store and the static settings read them again.
// Closing (or destroying) undoes the working directory and the variable and removes a root it
// created, unless told to keep it.
#ifndef ZELK_CHIHOST_EMULATOR_DEVICEROOT_H
#define ZELK_CHIHOST_EMULATOR_DEVICEROOT_H

#include <string>
#include <utility>
#include <vector>

#include "chihost/emulator/status.h"

namespace chihost
{

using NameValueList = std::vector<std::pair<std::string, std::string>>;

struct DeviceRootOptions
{
    // An existing directory to use as the root; empty creates a fresh one under $TMPDIR (or /tmp).
    std::string existingPath;
    // Leave a fresh root on disk after closing (for inspection).
    bool keep = false;
    // Files installed as vendor/lib64/libOISHighFPS.so and
    // odm/lib64/camera/libchxlogicalcameratable.so; empty takes the file of that name beside the
    // emulator library itself.
    std::string oisLibrarySource;
    std::string logicalCameraTableSource;
    // Contents of vendor/build.prop and vendor/etc/camera/camxoverridesettings.txt. A fresh root
    // always gets both files (empty lists give empty files); an existing root keeps its own file
    // when the list is empty.
    NameValueList buildProperties;
    NameValueList overrideSettings;
};

class CHIHOST_EMULATOR_API DeviceRoot
{
public:
    DeviceRoot() = default;
    ~DeviceRoot();
    DeviceRoot(const DeviceRoot&)            = delete;
    DeviceRoot& operator=(const DeviceRoot&) = delete;

    // On failure nothing is left changed (no variable, same working directory, no fresh folder).
    Status Open(const DeviceRootOptions& options);
    void   Close();

    bool               IsOpen() const { return m_open; }
    const std::string& Path() const { return m_path; }
    // "<root>/vendor/build.prop" for "/vendor/build.prop" (or "vendor/build.prop").
    std::string Map(const std::string& devicePath) const;

    // Rewrite a configuration file of the open root and reload what reads it.
    Status WriteBuildProperties(const NameValueList& properties);
    Status WriteOverrideSettings(const NameValueList& settings);

    // The directory holding the emulator library, where the default run-time libraries are taken.
    static std::string LibraryDirectory();
    // Device-relative folders every root has.
    static const std::vector<std::string>& Layout();

private:
    static Status CheckOptions(const DeviceRootOptions& options,
                               std::string*             pOisSource,
                               std::string*             pTableSource);
    Status        CreateOrAdopt(const DeviceRootOptions& options);
    Status        Enter();
    Status        InstallFiles(const std::string& oisSource, const std::string& tableSource);
    Status        WriteConfiguration(const DeviceRootOptions& options);
    static Status ResolveSource(const std::string& configured,
                                const char*        pFileName,
                                std::string*       pResolved);
    Status        WriteNameValueFile(const std::string&   devicePath,
                                     const NameValueList& entries,
                                     size_t               maxValueBytes) const;

    bool        m_open        = false;
    bool        m_fresh       = false;
    bool        m_keep        = false;
    bool        m_entered     = false;
    bool        m_hadPrevRoot = false;
    std::string m_path;
    std::string m_prevCwd;
    std::string m_prevRoot;
};

} // namespace chihost

#endif // ZELK_CHIHOST_EMULATOR_DEVICEROOT_H
