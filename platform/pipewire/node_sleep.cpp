#include "platform/pipewire/node_sleep.h"

#include <utility>

namespace nimbrale::pipewire {

struct NodeSleep::Events {
    static void informed(void* data, const pw_node_info* info)
    {
        NodeSleep& self = *static_cast<NodeSleep*>(data);
        const bool wasRunning = std::exchange(self.isRunning_, info->state == PW_NODE_STATE_RUNNING);
        if (wasRunning && info->state == PW_NODE_STATE_SUSPENDED)
            self.onAsleep_();
    }
};

NodeSleep::NodeSleep(Proxy node, std::function<void()> onAsleep)
    : onAsleep_(std::move(onAsleep)), node_(std::move(node))
{
    if (!node_)
        return;
    static const pw_node_events events = [] {
        pw_node_events list{};
        list.version = PW_VERSION_NODE_EVENTS;
        list.info = Events::informed;
        return list;
    }();
    pw_node_add_listener(reinterpret_cast<pw_node*>(node_.get()), listener_.hook(), &events, this);
}

} // namespace nimbrale::pipewire
