#pragma once

#include <cstdint>
#include <ctime>

namespace nimbrale::test {

// Nanoseconds of the monotonic clock, for programs that draw at a fixed rate.

inline constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;

[[nodiscard]] inline std::int64_t now()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * nanosecondsPerSecond + time.tv_nsec;
}

inline void sleepUntil(std::int64_t time)
{
    const timespec wanted{time / nanosecondsPerSecond, time % nanosecondsPerSecond};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &wanted, nullptr);
}

} // namespace nimbrale::test
