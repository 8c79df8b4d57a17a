#pragma once

#include "platform/pipewire/device_list.h"
#include "platform/pipewire/lasting_connection.h"
#include "platform/pipewire/node_watch.h"

#include <functional>
#include <memory>
#include <set>

namespace nimbrale::pipewire {

/// Follows which devices the daemon has, on a thread of its own, as the daemon comes and goes.
class NodeRegistry {
public:
    using Handler = std::function<void(const NodeSnapshot& snapshot)>;

    /// `onChange` is called on the registry's thread when something changed, which counts from nothing at all, and not
    /// before the daemon has told of all that it has. Where there is no daemon at the start it is called once within
    /// the constructor.
    explicit NodeRegistry(Handler onChange, RemoteQuestion openRemote = {});
    /// No handler is called any more after it.
    ~NodeRegistry() { connection_.stop(); }
    NodeRegistry(const NodeRegistry&) = delete;
    NodeRegistry& operator=(const NodeRegistry&) = delete;

    /// As `LastingConnection::connectAgain`.
    void connectAgain() { connection_.connectAgain(); }

private:
    void watch(DaemonConnection& connection);
    void setDefault(const char* key, const char* text);
    void answered(int call);
    void forget();
    void report();

    Handler onChange_;
    DeviceList<CameraDevice> cameras_;
    DeviceList<MicrophoneDevice> microphones_;
    std::set<std::uint32_t> soundNodes_; ///< microphones and loudspeakers
    NodeSnapshot reported_;
    int settlingCall_ = 0;
    bool hasDaemon_ = false;
    const bool isRemote_; ///< a sandbox shows nothing of the session manager, without which there is no portal
    bool hasManager_ = false;
    bool isSettled_ = false; ///< the daemon has told of all that it has
    std::unique_ptr<NodeWatch> nodes_;
    LastingConnection connection_;
};

} // namespace nimbrale::pipewire
