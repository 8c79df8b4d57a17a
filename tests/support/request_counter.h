#pragma once

#include "platform/file_descriptor.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

namespace nimbrale::test {

/// Stands between one client and an X server, and counts the client's requests by their major opcode.
class RequestCounter {
public:
    /// `displayName` is the server's, as ":123". Null when there is none or no number is free.
    [[nodiscard]] static std::unique_ptr<RequestCounter> start(const std::string& displayName);
    ~RequestCounter();
    RequestCounter(const RequestCounter&) = delete;
    RequestCounter& operator=(const RequestCounter&) = delete;

    /// What the client names as its display. One client only.
    [[nodiscard]] const std::string& displayName() const { return displayName_; }
    /// Any thread.
    [[nodiscard]] int count(std::uint8_t majorOpcode) const { return counts_[majorOpcode]; }
    /// Requests reach the server so much later from now on. Any thread.
    void delayRequests(std::chrono::milliseconds delay) { delay_ = delay; }
    /// Of all requests. Any thread.
    [[nodiscard]] int total() const { return std::accumulate(counts_.begin(), counts_.end(), 0); }

private:
    RequestCounter(std::string displayName, FileDescriptor listening, FileDescriptor server);
    void run();
    void countRequests();
    [[nodiscard]] static bool pass(int from, int to, std::vector<std::uint8_t>* copy);

    std::string displayName_;
    FileDescriptor listening_;
    FileDescriptor server_;
    FileDescriptor ending_;
    std::array<std::atomic<int>, 256> counts_{};
    std::atomic<std::chrono::milliseconds> delay_{};
    /// What the client sent and is no whole request yet.
    std::vector<std::uint8_t> pending_;
    bool isSetUp_ = false;
    std::thread thread_;
};

} // namespace nimbrale::test
