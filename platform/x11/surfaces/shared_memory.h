#pragma once

#include "platform/x11/server/connection.h"

#include <cstddef>
#include <memory>
#include <utility>
#include <xcb/shm.h>

namespace nimbrale::x11 {

/// Memory that the server maps too. Both sides let go of it when they end, however they end. Thread of the connection
/// only, but for the memory itself.
class SharedMemory {
public:
    /// Null where there is none to share: a server on another computer or in another namespace, or one without MIT-SHM.
    /// `connection` must outlive it.
    [[nodiscard]] static std::unique_ptr<SharedMemory> create(Connection& connection, std::size_t size);
    ~SharedMemory();
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    [[nodiscard]] xcb_shm_seg_t segment() const { return segment_; }
    [[nodiscard]] std::byte* address() const { return memory_.get(); }
    /// The same memory, which stays in this process as long as anybody holds it, on any thread, and in the server as
    /// long as a pixmap lies in it.
    [[nodiscard]] std::shared_ptr<std::byte[]> memory() const { return memory_; }

private:
    SharedMemory(Connection& connection, xcb_shm_seg_t segment, std::shared_ptr<std::byte[]> memory)
        : connection_(connection), segment_(segment), memory_(std::move(memory))
    {}

    Connection& connection_;
    xcb_shm_seg_t segment_;
    std::shared_ptr<std::byte[]> memory_;
};

} // namespace nimbrale::x11
