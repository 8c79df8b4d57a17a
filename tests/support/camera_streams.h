#pragma once

#include "tests/support/private_pipewire.h"

#include <atomic>
#include <thread>

namespace nimbrale::test {

/// How many streams take pictures of cameras there now, whoever opened them; -1 when the daemon does not answer.
[[nodiscard]] int openCameraStreams(const PrivatePipewire& pipewire);

/// Looks again and again, on a thread of its own, how many such streams there are.
class CameraStreamWatch {
public:
    /// `pipewire` must outlive it.
    explicit CameraStreamWatch(const PrivatePipewire& pipewire);
    ~CameraStreamWatch();
    CameraStreamWatch(const CameraStreamWatch&) = delete;
    CameraStreamWatch& operator=(const CameraStreamWatch&) = delete;

    /// The most that were seen at one time so far.
    [[nodiscard]] int most() const { return most_; }
    /// How often it has looked.
    [[nodiscard]] int looks() const { return looks_; }

private:
    std::atomic<int> most_ = 0;
    std::atomic<int> looks_ = 0;
    std::atomic<bool> isEnding_ = false;
    std::thread thread_;
};

} // namespace nimbrale::test
