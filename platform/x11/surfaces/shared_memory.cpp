#include "platform/x11/surfaces/shared_memory.h"

#include "platform/x11/server/handles.h"

#include <sys/ipc.h>
#include <sys/shm.h>

namespace nimbrale::x11 {

std::unique_ptr<SharedMemory> SharedMemory::create(Connection& connection, std::size_t size)
{
    if (!connection.extensions().sharedMemory.isPresent)
        return nullptr;
    const int identifier = shmget(IPC_PRIVATE, size, IPC_CREAT | 0600);
    if (identifier < 0)
        return nullptr;
    void* const address = shmat(identifier, nullptr, 0);
    if (address == reinterpret_cast<void*>(-1)) {
        shmctl(identifier, IPC_RMID, nullptr);
        return nullptr;
    }
    const xcb_shm_seg_t segment = connection.newId();
    constexpr std::uint8_t isReadOnly = 0;
    // A server that cannot reach the memory says so here.
    const Reply<xcb_generic_error_t> error(xcb_request_check(
        connection.get(),
        xcb_shm_attach_checked(connection.get(), segment, static_cast<std::uint32_t>(identifier), isReadOnly)));
    // It lasts until the last of both has detached it.
    shmctl(identifier, IPC_RMID, nullptr);
    std::shared_ptr<std::byte[]> memory(static_cast<std::byte*>(address), shmdt);
    if (error)
        return nullptr;
    return std::unique_ptr<SharedMemory>(new SharedMemory(connection, segment, std::move(memory)));
}

SharedMemory::~SharedMemory()
{
    xcb_shm_detach(connection_.get(), segment_);
}

} // namespace nimbrale::x11
