// FlicWatch: the engine's stopwatch on the process clock.
#include "compute.h"

#include <cstring>
#include <unistd.h>

// --- FlicWatch --------------------------------------------------------------------------------

FlicWatch::FlicWatch() {
    reset();
    startTicks = 0;
    memset(&startTimes, 0, sizeof startTimes);
}

void FlicWatch::reset() {
    elapsedTicks = userTicks = systemTicks = childUserTicks = childSystemTicks = 0;
}

void FlicWatch::start() {
    startTicks = times(&startTimes);
}

void FlicWatch::stop() {
    struct tms now;
    clock_t ticks = times(&now);
    elapsedTicks += ticks - startTicks;
    userTicks += now.tms_utime - startTimes.tms_utime;
    systemTicks += now.tms_stime - startTimes.tms_stime;
    childUserTicks += now.tms_cutime - startTimes.tms_cutime;
    childSystemTicks += now.tms_cstime - startTimes.tms_cstime;
}

float FlicWatch::seconds() const {
    return static_cast<float>(elapsedTicks) / static_cast<float>(sysconf(_SC_CLK_TCK));
}
