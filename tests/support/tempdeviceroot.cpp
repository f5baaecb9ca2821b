// Temporary device root for tests; see tempdeviceroot.h.
#include "tempdeviceroot.h"

#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace testsupport
{

TempDeviceRoot::TempDeviceRoot()
{
    const char* pTmp = getenv("TMPDIR");
    std::string pattern = std::string((pTmp != nullptr && pTmp[0] != '\0') ? pTmp : "/tmp") +
                          "/chihost-test-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr)
    {
        throw std::runtime_error("cannot create a temporary device root under " + pattern);
    }
    m_path = pattern;

    char cwd[PATH_MAX];
    m_previousCwd = (getcwd(cwd, sizeof(cwd)) != nullptr) ? cwd : "/";
    const char* pPrevious = getenv("CHIHOST_DEVICE_ROOT");
    m_hadPreviousRoot = (pPrevious != nullptr);
    if (m_hadPreviousRoot)
    {
        m_previousRoot = pPrevious;
    }
    setenv("CHIHOST_DEVICE_ROOT", m_path.c_str(), 1);
    if (chdir(m_path.c_str()) != 0)
    {
        throw std::runtime_error("cannot enter the temporary device root " + m_path);
    }
}

TempDeviceRoot::~TempDeviceRoot()
{
    if (chdir(m_previousCwd.c_str()) != 0)
    {
        (void)chdir("/");
    }
    if (m_hadPreviousRoot)
    {
        setenv("CHIHOST_DEVICE_ROOT", m_previousRoot.c_str(), 1);
    }
    else
    {
        unsetenv("CHIHOST_DEVICE_ROOT");
    }
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

void TempDeviceRoot::MakeDirs(const std::string& devicePath) const
{
    fs::create_directories(Map(devicePath));
}

void TempDeviceRoot::WriteFile(const std::string& devicePath, const std::string& content) const
{
    fs::path path = Map(devicePath);
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

std::string TempDeviceRoot::ReadFile(const std::string& devicePath) const
{
    std::ifstream in(Map(devicePath), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

bool TempDeviceRoot::Exists(const std::string& devicePath) const
{
    return fs::exists(Map(devicePath));
}

} // namespace testsupport
