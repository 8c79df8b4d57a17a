#pragma once

#include "tests/unit/platform/ffmpeg/file_calls.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>

namespace nimbrale::ffmpeg {

/// A disk that holds up whoever writes, for as long as the test wants.
class StalledDisk {
public:
    /// Only calls of that name are held up.
    explicit StalledDisk(std::string held = "pwrite")
    {
        calls_.before = [this, held = std::move(held)](const std::string& call) {
            if (call != held)
                return;
            std::unique_lock lock(mutex_);
            isHoldingUp_ = isStalled_;
            changed_.wait(lock, [this] { return !isStalled_; });
            isHoldingUp_ = false;
        };
    }
    /// Nobody is held up any longer.
    ~StalledDisk() { goOn(); }
    StalledDisk(const StalledDisk&) = delete;
    StalledDisk& operator=(const StalledDisk&) = delete;

    void stall() { set(true); }
    void goOn() { set(false); }
    /// Whether somebody waits for it.
    [[nodiscard]] bool isHoldingUp()
    {
        const std::lock_guard lock(mutex_);
        return isHoldingUp_;
    }

private:
    void set(bool isStalled)
    {
        {
            const std::lock_guard lock(mutex_);
            isStalled_ = isStalled;
        }
        changed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool isStalled_ = false;
    bool isHoldingUp_ = false;
    FileCalls calls_;
};

} // namespace nimbrale::ffmpeg
