#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

namespace nimbrale::ffmpeg {

/// Tells when a thread is stuck in one piece of its work, such as a disk that does not answer. The thread itself begins
/// and ends its work; another one looks, from time to time.
class StallWatch {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// Local disks wake up within that, and connections over a network that come back do so too.
    static constexpr std::chrono::milliseconds usualPatience = std::chrono::seconds(10);

    explicit StallWatch(std::chrono::milliseconds patience) : patience_(patience) {}

    /// A piece of the thread's work, as long as it lives.
    class Work {
    public:
        explicit Work(StallWatch& watch) : watch_(watch) { ++watch_.changes_; }
        ~Work() { ++watch_.changes_; }
        Work(const Work&) = delete;
        Work& operator=(const Work&) = delete;

    private:
        StallWatch& watch_;
    };

    /// Whether the present piece of work has taken longer than the patience. Of the time between two looks a second
    /// counts at most: where nobody looked, the whole process may have stood still. One thread at a time.
    [[nodiscard]] bool isStalled(TimePoint now);

private:
    std::chrono::milliseconds patience_;
    /// Odd while there is work under way.
    std::atomic<std::uint64_t> changes_ = 0;
    std::uint64_t seenChanges_ = 0;
    std::optional<TimePoint> lastLook_;
    std::chrono::steady_clock::duration waited_{0};
};

} // namespace nimbrale::ffmpeg
