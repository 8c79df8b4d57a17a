// A library to preload, or a part of a program: moves the program's time of day, as somebody who sets the clock would,
// by as many seconds as stand in the file that NIMBRALE_TEST_WALL_CLOCK names. Every other clock is left alone, and so
// is what the kernel itself waits for.

#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

/// Looked up with each call: the clock is seldom asked.
long shift()
{
    char text[32] = {};
    const char* const file = std::getenv("NIMBRALE_TEST_WALL_CLOCK");
    const int descriptor = file ? open(file, O_RDONLY | O_CLOEXEC) : -1;
    if (descriptor < 0)
        return 0;
    const ssize_t count = read(descriptor, text, sizeof text - 1);
    close(descriptor);
    return count > 0 ? std::strtol(text, nullptr, 10) : 0;
}

bool isTimeOfDay(clockid_t clock)
{
    return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
}

} // namespace

// The names that the system's headers give to parameters are reserved.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" int clock_gettime(clockid_t clock, timespec* time)
{
    static const auto original = reinterpret_cast<int (*)(clockid_t, timespec*)>(dlsym(RTLD_NEXT, "clock_gettime"));
    const int result = original(clock, time);
    if (result == 0 && isTimeOfDay(clock))
        time->tv_sec += shift();
    return result;
}

extern "C" int gettimeofday(timeval* time, void* zone)
{
    static const auto original = reinterpret_cast<int (*)(timeval*, void*)>(dlsym(RTLD_NEXT, "gettimeofday"));
    const int result = original(time, zone);
    if (result == 0)
        time->tv_sec += shift();
    return result;
}

extern "C" time_t time(time_t* result)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (result)
        *result = now.tv_sec;
    return now.tv_sec;
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
