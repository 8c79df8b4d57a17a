#pragma once

#include "platform/pipewire/handles.h"

#include <functional>
#include <memory>

namespace nimbrale::pipewire {

/// Notices that a node is sent to sleep while it runs. (One that nobody uses any more is idle for a while before it
/// sleeps.) As its connection, it is for the loop's thread, and goes before the connection does.
class NodeSleep {
public:
    /// `node` may be null: nothing is noticed then.
    NodeSleep(Proxy node, std::function<void()> onAsleep);
    NodeSleep(const NodeSleep&) = delete;
    NodeSleep& operator=(const NodeSleep&) = delete;

private:
    struct Events;

    std::function<void()> onAsleep_;
    bool isRunning_ = false;
    Proxy node_;
    Listener listener_;
};

} // namespace nimbrale::pipewire
