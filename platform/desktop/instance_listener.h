#pragma once

#include "platform/desktop/instance_messages.h"
#include "platform/file_descriptor.h"

#include <QSocketNotifier>

#include <functional>
#include <memory>
#include <vector>

namespace nimbrale {

/// Answers what other starts of the application ask. Listens as long as it exists. What comes in is bounded: a few
/// connections at a time, one short line of each, a short while for it; other users' connections are closed unread.
/// Main thread only.
class InstanceListener {
public:
    using Handler = std::function<InstanceAnswer(const InstanceRequest& request)>;

    /// `socket` listens; an empty one leaves the listener without anything to hear. `handler` runs on the event loop.
    /// Only programs of `user` are heard.
    InstanceListener(FileDescriptor socket, Handler handler, uid_t user = getuid());
    ~InstanceListener();
    InstanceListener(const InstanceListener&) = delete;
    InstanceListener& operator=(const InstanceListener&) = delete;

private:
    class Conversation;

    void takeConnections();
    void remove(const Conversation& conversation);

    FileDescriptor socket_;
    Handler handler_;
    uid_t user_;
    std::unique_ptr<QSocketNotifier> notifier_;
    std::vector<std::unique_ptr<Conversation>> conversations_;
};

} // namespace nimbrale
