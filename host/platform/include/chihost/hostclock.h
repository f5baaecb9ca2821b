// Host-kit controls of the CamX clock: the real boot-time clock, or a simulated one that the
// emulator advances by one frame period per request so sessions do not depend on machine speed.
#ifndef ZELK_CHIHOST_HOSTCLOCK_H
#define ZELK_CHIHOST_HOSTCLOCK_H

#include <stdint.h>

#include "chiplatformapi.h"

extern "C" {
// Switches OsUtils::GetTime to the simulated clock starting at startNs (enable 1) or back to the
// boot-time clock (enable 0).
CHI_PLATFORM_API void     ChiHostClockUseSimulated(int enable, uint64_t startNs);
CHI_PLATFORM_API void     ChiHostClockAdvance(uint64_t deltaNs);
// The time GetTime would report now, in nanoseconds.
CHI_PLATFORM_API uint64_t ChiHostClockNowNs(void);
}

#endif // ZELK_CHIHOST_HOSTCLOCK_H
