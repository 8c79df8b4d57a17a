#include "platform/pipewire/handles.h"

#include <mutex>

namespace nimbrale::pipewire {

ThreadLoop makeThreadLoop(const char* name)
{
    static std::once_flag isPrepared;
    std::call_once(isPrepared, [] { pw_init(nullptr, nullptr); });
    return ThreadLoop(pw_thread_loop_new(name, nullptr));
}

} // namespace nimbrale::pipewire
