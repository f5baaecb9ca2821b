// A fresh, empty device root for one test: a temporary directory exported as CHIHOST_DEVICE_ROOT
// and made the working directory, as the camera provider runs in "/". Everything is undone and
// the directory removed when the object goes away.
#ifndef ZELK_TESTS_SUPPORT_TEMPDEVICEROOT_H
#define ZELK_TESTS_SUPPORT_TEMPDEVICEROOT_H

#include <string>

namespace testsupport
{

class TempDeviceRoot
{
public:
    TempDeviceRoot();
    ~TempDeviceRoot();
    TempDeviceRoot(const TempDeviceRoot&)            = delete;
    TempDeviceRoot& operator=(const TempDeviceRoot&) = delete;

    const std::string& Path() const { return m_path; }

    // "<root>" + devicePath for an absolute device path such as "/vendor/build.prop".
    std::string Map(const std::string& devicePath) const { return m_path + devicePath; }

    // Writes a file below the root (device path), creating its directories.
    void WriteFile(const std::string& devicePath, const std::string& content) const;
    // Reads a file below the root; empty when it does not exist.
    std::string ReadFile(const std::string& devicePath) const;
    bool        Exists(const std::string& devicePath) const;
    void        MakeDirs(const std::string& devicePath) const;

private:
    std::string m_path;
    std::string m_previousCwd;
    std::string m_previousRoot;
    bool        m_hadPreviousRoot = false;
};

} // namespace testsupport

#endif // ZELK_TESTS_SUPPORT_TEMPDEVICEROOT_H
