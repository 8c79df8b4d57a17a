#pragma once

#include "platform/x11/server/connection.h"

#include <cstddef>
#include <memory>
#include <xcb/shm.h>

namespace nimbrale::x11 {

/// Memory that the server maps too. Both sides let go of it when they end, however they end. Thread of the connection
/// only.
class SharedMemory {
public:
    /// Null where there is none to share: a server on another computer or in another namespace, or one without MIT-SHM.
    /// `connection` must outlive it.
    [[nodiscard]] static std::unique_ptr<SharedMemory> create(Connection& connection, std::size_t size);
    ~SharedMemory();
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    [[nodiscard]] xcb_shm_seg_t segment() const { return segment_; }
    [[nodiscard]] std::byte* address() const { return address_; }

private:
    SharedMemory(Connection& connection, xcb_shm_seg_t segment, std::byte* address)
        : connection_(connection), segment_(segment), address_(address)
    {}

    Connection& connection_;
    xcb_shm_seg_t segment_;
    std::byte* address_;
};

} // namespace nimbrale::x11
