// Device root: layout, installed libraries, configuration files, environment and clean-up.
#include <gtest/gtest.h>

#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "androidservices.h"
#include "camxsettingsmanager.h"
#include "chihost/emulator/deviceroot.h"
#include "devicepath.h"

namespace fs = std::filesystem;
using chihost::DeviceRoot;
using chihost::DeviceRootOptions;

namespace
{

std::string ReadAll(const std::string& path)
{
    std::ifstream      in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string Cwd()
{
    char buffer[PATH_MAX];
    return (getcwd(buffer, sizeof(buffer)) != nullptr) ? buffer : "";
}

// Gives each test its own TMPDIR (so fresh roots can be counted) and two stand-in libraries.
class DeviceRootTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::string pattern = (fs::temp_directory_path() / "deviceroot-test-XXXXXX").string();
        ASSERT_NE(nullptr, mkdtemp(pattern.data()));
        m_scratch = pattern;
        fs::create_directories(m_scratch + "/tmp");
        fs::create_directories(m_scratch + "/libs");
        setenv("TMPDIR", (m_scratch + "/tmp").c_str(), 1);
        setenv(ChiHostDeviceRootVariable, "/previous/root", 1);
        m_options.oisLibrarySource         = m_scratch + "/libs/ois.so";
        m_options.logicalCameraTableSource = m_scratch + "/libs/table.so";
        std::ofstream(m_options.oisLibrarySource) << "ois library";
        std::ofstream(m_options.logicalCameraTableSource) << "table library";
        m_cwd = Cwd();
    }

    void TearDown() override
    {
        std::error_code ignored;
        fs::remove_all(m_scratch, ignored);
    }

    size_t FreshRoots() const
    {
        return static_cast<size_t>(
            std::distance(fs::directory_iterator(m_scratch + "/tmp"), fs::directory_iterator()));
    }

    std::string       m_scratch;
    std::string       m_cwd;
    DeviceRootOptions m_options;
};

TEST_F(DeviceRootTest, FreshRootIsLaidOutEnteredAndRemoved)
{
    m_options.buildProperties  = {{"persist.vendor.camera.oisgyrogain.w", "1.5,2.5"}};
    m_options.overrideSettings = {{"enableOISGyroGainCalibration", "TRUE"}};
    // Both stores are used before the root exists, so only a reload can show the new files.
    char value[PROPERTY_VALUE_MAX] = {};
    property_get("persist.vendor.camera.oisgyrogain.w", value, "unset");
    EXPECT_STREQ("unset", value);
    EXPECT_EQ(
        FALSE,
        CamX::SettingsManager::GetInstance()->GetStaticSettings()->enableOISGyroGainCalibration);
    std::string path;
    {
        DeviceRoot root;
        ASSERT_TRUE(root.Open(m_options).IsOk());
        path = root.Path();
        EXPECT_EQ(0u, path.rfind(m_scratch + "/tmp/", 0));
        EXPECT_EQ(path, getenv(ChiHostDeviceRootVariable));
        EXPECT_EQ(path, Cwd());
        for (const std::string& folder : DeviceRoot::Layout())
        {
            EXPECT_TRUE(fs::is_directory(folder)) << folder; // relative: the cwd is the root
        }
        EXPECT_EQ("ois library", ReadAll("vendor/lib64/libOISHighFPS.so"));
        EXPECT_EQ("table library",
                  ReadAll(root.Map("/odm/lib64/camera/libchxlogicalcameratable.so")));
        EXPECT_EQ("persist.vendor.camera.oisgyrogain.w=1.5,2.5\n", ReadAll("vendor/build.prop"));

        property_get("persist.vendor.camera.oisgyrogain.w", value, "unset");
        EXPECT_STREQ("1.5,2.5", value);
        EXPECT_EQ(TRUE, CamX::SettingsManager::GetInstance()
                            ->GetStaticSettings()
                            ->enableOISGyroGainCalibration);
    }
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(m_cwd, Cwd());
    EXPECT_STREQ("/previous/root", getenv(ChiHostDeviceRootVariable));
}

TEST_F(DeviceRootTest, KeptAndExistingRootsStay)
{
    unsetenv(ChiHostDeviceRootVariable);
    DeviceRoot kept;
    m_options.keep = true;
    ASSERT_TRUE(kept.Open(m_options).IsOk());
    std::string keptPath                  = kept.Path();
    char        value[PROPERTY_VALUE_MAX] = {};
    property_get("ro.kept", value, "");
    EXPECT_STREQ("", value);
    std::ofstream(kept.Map("/vendor/build.prop")) << "ro.kept=yes\n";
    kept.Close();
    EXPECT_TRUE(fs::exists(keptPath + "/vendor/lib64/libOISHighFPS.so"));
    EXPECT_EQ(nullptr, getenv(ChiHostDeviceRootVariable));

    // Reopened as an existing root without properties: its own build.prop is kept and read.
    DeviceRootOptions existing = m_options;
    existing.keep              = false;
    existing.existingPath      = keptPath;
    DeviceRoot again;
    ASSERT_TRUE(again.Open(existing).IsOk());
    property_get("ro.kept", value, "");
    EXPECT_STREQ("yes", value);
    again.Close();
    EXPECT_TRUE(fs::exists(keptPath + "/vendor/build.prop"));
}

TEST_F(DeviceRootTest, FailuresLeaveNothingBehind)
{
    struct Case
    {
        const char* pWhat;
        void (*mutate)(DeviceRootOptions*);
        const char* pMessagePart;
    };
    const Case cases[] = {
        {"missing ois library",
         [](DeviceRootOptions* p) { p->oisLibrarySource = "/nonexistent/libOISHighFPS.so"; },
         "/nonexistent/libOISHighFPS.so"},
        {"missing table library",
         [](DeviceRootOptions* p) { p->logicalCameraTableSource += ".missing"; },
         "table.so.missing"},
        {"root is not a directory",
         [](DeviceRootOptions* p) { p->existingPath = "/nonexistent/root"; }, "/nonexistent/root"},
        {"property value over 91 bytes",
         [](DeviceRootOptions* p) {
             p->buildProperties = {{"ro.long", std::string(92, 'x')}};
         },
         "ro.long"},
        {"name with =",
         [](DeviceRootOptions* p) {
             p->overrideSettings = {{"a=b", "1"}};
         },
         "a=b"},
        {"value on two lines",
         [](DeviceRootOptions* p) {
             p->buildProperties = {{"ro.x", "1\nro.y=2"}};
         },
         "ro.x"},
    };
    for (const Case& c : cases)
    {
        DeviceRootOptions options = m_options;
        c.mutate(&options);
        DeviceRoot      root;
        chihost::Status status = root.Open(options);
        ASSERT_FALSE(status) << c.pWhat;
        EXPECT_NE(std::string::npos, status.Message().find(c.pMessagePart)) << status.Message();
        EXPECT_FALSE(root.IsOpen());
        EXPECT_EQ(0u, FreshRoots()) << c.pWhat;
        EXPECT_EQ(m_cwd, Cwd()) << c.pWhat;
        EXPECT_STREQ("/previous/root", getenv(ChiHostDeviceRootVariable)) << c.pWhat;
    }
    // A value of exactly 91 bytes is a valid property.
    m_options.buildProperties = {{"ro.long", std::string(91, 'x')}};
    DeviceRoot root;
    EXPECT_TRUE(root.Open(m_options).IsOk());
}

TEST_F(DeviceRootTest, DefaultLibrariesComeFromTheEmulatorLibraryDirectory)
{
    // The logical camera table library is built into the emulator library's directory.
    std::string directory = DeviceRoot::LibraryDirectory();
    ASSERT_TRUE(fs::exists(directory + "/libchihostemulator.so")) << directory;
    m_options.logicalCameraTableSource.clear();
    DeviceRoot root;
    ASSERT_TRUE(root.Open(m_options).IsOk());
    EXPECT_EQ(ReadAll(directory + "/libchxlogicalcameratable.so"),
              ReadAll("odm/lib64/camera/libchxlogicalcameratable.so"));
}

} // namespace
