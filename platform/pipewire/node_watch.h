#pragma once

#include "platform/pipewire/daemon_connection.h"
#include "platform/pipewire/device_list.h"

#include <functional>
#include <memory>

namespace nimbrale::pipewire {

/// Listens to which nodes the daemon has and which ones are the defaults. As its connection, it is for the loop's
/// thread, and goes before the connection does.
class NodeWatch {
public:
    struct Handlers {
        std::function<void(std::uint32_t number, const NodeProperties& properties)> onAdded;
        /// Also called for what is no node.
        std::function<void(std::uint32_t number)> onRemoved;
        /// `text` is the daemon's, null where there is no default any more; no key stands for all of them.
        std::function<void(const char* key, const char* text)> onDefault = {};
        /// The session manager, who tells which nodes are the defaults, came or went.
        std::function<void(bool isThere)> onManager = {};
        /// The daemon was asked for more, so that what it has is known only when this call is answered.
        std::function<void(int call)> onAsked = {};
    };

    /// Null when the daemon cannot be asked for more. Nothing is called before the loop runs.
    [[nodiscard]] static std::unique_ptr<NodeWatch> start(DaemonConnection& connection, Handlers handlers);
    /// To listen to one of the nodes; null when the daemon cannot be asked.
    [[nodiscard]] Proxy bindNode(std::uint32_t number);
    NodeWatch(const NodeWatch&) = delete;
    NodeWatch& operator=(const NodeWatch&) = delete;

private:
    struct Events;

    NodeWatch(DaemonConnection& connection, Handlers handlers) : connection_(connection), handlers_(std::move(handlers))
    {}
    void followDefaults(std::uint32_t number);
    void tellManager(bool isThere);

    DaemonConnection& connection_;
    Handlers handlers_;
    Proxy registry_;
    Listener registryListener_;
    Proxy metadata_;
    Listener metadataListener_;
    std::uint32_t metadataNumber_ = SPA_ID_INVALID;
};

} // namespace nimbrale::pipewire
