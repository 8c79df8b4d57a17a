#include "platform/pipewire/handles.h"

#include <mutex>

namespace nimbrale::pipewire {

ThreadLoop makeThreadLoop(const char* name)
{
    static std::once_flag isPrepared;
    std::call_once(isPrepared, [] { pw_init(nullptr, nullptr); });
    return ThreadLoop(pw_thread_loop_new(name, nullptr));
}

timespec timeOf(std::chrono::milliseconds duration)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
    return {seconds.count(), std::chrono::nanoseconds(duration - seconds).count()};
}

} // namespace nimbrale::pipewire
