// Host build of the CamX common utilities: mapping the libraries the node loads at run time and the
// clock it stamps its measurements with. The clock is either the boot-time clock, as on a device,
// or a simulated clock that the emulator moves forward by one frame period per request; time then
// depends only on how many frames were processed, never on how fast this machine runs.
#include "camxosutils.h"

#include <dlfcn.h>
#include <stdio.h>
#include <time.h>

#include <atomic>

#include "chihost/hostclock.h"

namespace
{

const uint64_t kNanosecondsPerSecond = 1000000000ULL;

// The simulated time is published before the switch, so a reader that sees the switch on also
// sees a start value at least as new as the one it was turned on with.
std::atomic<bool>     g_useSimulatedClock{false};
std::atomic<uint64_t> g_simulatedNs{0};

uint64_t BootTimeNs()
{
    struct timespec now = {};
    if (0 != clock_gettime(CLOCK_BOOTTIME, &now))
    {
        clock_gettime(CLOCK_MONOTONIC, &now);
    }
    return (static_cast<uint64_t>(now.tv_sec) * kNanosecondsPerSecond) +
           static_cast<uint64_t>(now.tv_nsec);
}

const char* LastLoaderError()
{
    const char* pError = dlerror();
    return (nullptr != pError) ? pError : "unknown loader error";
}

} // namespace

extern "C" {

void ChiHostClockUseSimulated(int enable, uint64_t startNs)
{
    if (0 != enable)
    {
        g_simulatedNs.store(startNs, std::memory_order_release);
        g_useSimulatedClock.store(true, std::memory_order_release);
    }
    else
    {
        g_useSimulatedClock.store(false, std::memory_order_release);
    }
}

// Only the simulated clock moves; while the boot-time clock is in force the step is kept but has
// no visible effect until the next ChiHostClockUseSimulated sets a new start.
void ChiHostClockAdvance(uint64_t deltaNs)
{
    g_simulatedNs.fetch_add(deltaNs, std::memory_order_acq_rel);
}

uint64_t ChiHostClockNowNs(void)
{
    if (g_useSimulatedClock.load(std::memory_order_acquire))
    {
        return g_simulatedNs.load(std::memory_order_acquire);
    }
    return BootTimeNs();
}

} // extern "C"

namespace CamX
{

void* OsUtils::LibMap(const CHAR* pLibraryName)
{
    if (nullptr == pLibraryName)
    {
        return nullptr;
    }
    // dlopen treats a name with a '/' as a path, so "vendor/lib64/x.so" resolves against the
    // working directory: the device root under the host kit, "/" on a device.
    void* hLibrary = dlopen(pLibraryName, RTLD_NOW | RTLD_LOCAL);
    if (nullptr == hLibrary)
    {
        fprintf(stderr, "chihost: LibMap cannot load \"%s\": %s\n", pLibraryName,
                LastLoaderError());
    }
    return hLibrary;
}

void* OsUtils::LibGetAddr(void* hLibrary, const CHAR* pProcName)
{
    if ((nullptr == hLibrary) || (nullptr == pProcName))
    {
        return nullptr;
    }
    return dlsym(hLibrary, pProcName);
}

CDKResult OsUtils::LibUnmap(void* hLibrary)
{
    if (nullptr == hLibrary)
    {
        return CDKResultEFailed;
    }
    if (0 != dlclose(hLibrary))
    {
        fprintf(stderr, "chihost: LibUnmap failed: %s\n", LastLoaderError());
        return CDKResultEFailed;
    }
    return CDKResultSuccess;
}

void OsUtils::GetTime(CamxTime* pTime)
{
    if (nullptr == pTime)
    {
        return;
    }
    uint64_t nowNs     = ChiHostClockNowNs();
    pTime->seconds     = static_cast<UINT32>(nowNs / kNanosecondsPerSecond);
    pTime->nanoSeconds = static_cast<UINT32>(nowNs % kNanosecondsPerSecond);
}

} // namespace CamX
