// OsUtils: the boot-time and simulated clocks, and mapping a run-time library by a path relative
// to the device root.
#include <dlfcn.h>
#include <time.h>

#include <filesystem>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "camxosutils.h"
#include "chihost/hostclock.h"
#include "stderrcapture.h"
#include "tempdeviceroot.h"

namespace
{

uint64_t BootNs()
{
    struct timespec now = {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000ULL + static_cast<uint64_t>(now.tv_nsec);
}

TEST(HostClock, SimulatedClockStartsAdvancesAndSplitsIntoSecondsAndNanoseconds)
{
    uint64_t before = BootNs();
    EXPECT_GE(ChiHostClockNowNs(), before) << "boot-time clock by default";

    const uint64_t kFramePeriodNs = 33333333;
    ChiHostClockUseSimulated(1, 5500000007ULL);
    CamxTime time = {};
    CamX::OsUtils::GetTime(&time);
    EXPECT_EQ(time.seconds, 5u);
    EXPECT_EQ(time.nanoSeconds, 500000007u);
    for (int frame = 0; frame < 15; frame++)
    {
        ChiHostClockAdvance(kFramePeriodNs);
    }
    CamX::OsUtils::GetTime(&time);
    EXPECT_EQ(time.seconds, 6u);
    EXPECT_EQ(time.nanoSeconds, 7u + 15 * kFramePeriodNs - 500000000u);

    ChiHostClockUseSimulated(1, 0); // a new start replaces what was accumulated
    EXPECT_EQ(ChiHostClockNowNs(), 0u);
    ChiHostClockUseSimulated(0, 0);
    uint64_t now = ChiHostClockNowNs();
    EXPECT_TRUE(now >= before && now <= BootNs()) << "back on the boot-time clock";
}

TEST(HostClock, ConcurrentAdvancesAreNotLost)
{
    ChiHostClockUseSimulated(1, 1000);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; thread++)
    {
        threads.emplace_back([]() {
            for (int step = 0; step < 10000; step++)
            {
                ChiHostClockAdvance(3);
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(ChiHostClockNowNs(), 1000u + 4u * 10000u * 3u);
}

TEST(LibMap, RelativePathResolvesAgainstTheWorkingDirectory)
{
    testsupport::TempDeviceRoot root;
    root.MakeDirs("/vendor/lib64");
    std::filesystem::copy_file(TINY_LIBRARY_PATH, root.Map("/vendor/lib64/libtiny.so"));

    void* hLibrary = CamX::OsUtils::LibMap("vendor/lib64/libtiny.so");
    ASSERT_NE(hLibrary, nullptr);
    auto pAnswer = reinterpret_cast<int (*)()>(CamX::OsUtils::LibGetAddr(hLibrary, "ChiHostTinyAnswer"));
    ASSERT_NE(pAnswer, nullptr);
    EXPECT_EQ(pAnswer(), 42);
    EXPECT_EQ(CamX::OsUtils::LibGetAddr(hLibrary, "NoSuchSymbol"), nullptr);
    EXPECT_EQ(CamX::OsUtils::LibGetAddr(hLibrary, nullptr), nullptr);
    EXPECT_EQ(CamX::OsUtils::LibUnmap(hLibrary), 0);
}

TEST(LibMap, FailuresReturnNullOrOneAndLoadFailuresSayWhy)
{
    testsupport::TempDeviceRoot root;
    StderrCapture               capture;
    EXPECT_EQ(CamX::OsUtils::LibMap("vendor/lib64/libmissing.so"), nullptr);
    std::string text = capture.Stop();
    EXPECT_EQ(text.rfind("chihost: LibMap cannot load \"vendor/lib64/libmissing.so\": ", 0), 0u) << text;
    EXPECT_EQ(text.find('\n'), text.size() - 1);

    EXPECT_EQ(CamX::OsUtils::LibMap(nullptr), nullptr);
    EXPECT_EQ(CamX::OsUtils::LibGetAddr(nullptr, "x"), nullptr);
    EXPECT_EQ(CamX::OsUtils::LibUnmap(nullptr), 1);
}

} // namespace
