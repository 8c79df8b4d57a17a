#include "platform/pipewire/node_registry.h"

#include <string_view>

namespace nimbrale::pipewire {

NodeRegistry::NodeRegistry(Handler onChange, RemoteQuestion openRemote)
    : onChange_(std::move(onChange)), isRemote_(openRemote != nullptr),
      connection_("nimbrale-nodes",
                  {.onConnected = [this](DaemonConnection& connection) { watch(connection); },
                   .onAnswer = [this](int call) { answered(call); },
                   .onGone = [this] { forget(); },
                   .onRelease = [this] { nodes_.reset(); }},
                  DataPriority::ordinary, std::move(openRemote))
{
    // Without a thread there are no devices, which is known at once.
    if (!connection_.start())
        forget();
}

void NodeRegistry::watch(DaemonConnection& connection)
{
    hasDaemon_ = true;
    hasManager_ = isRemote_;
    isSettled_ = false;
    nodes_ =
        NodeWatch::start(connection, {.onAdded =
                                          [this](std::uint32_t number, const NodeProperties& properties) {
                                              cameras_.add(number, properties);
                                              microphones_.add(number, properties);
                                              if (isMicrophone(properties) || isLoudspeaker(properties))
                                                  soundNodes_.insert(number);
                                              report();
                                          },
                                      .onRemoved =
                                          [this](std::uint32_t number) {
                                              cameras_.remove(number);
                                              microphones_.remove(number);
                                              soundNodes_.erase(number);
                                              report();
                                          },
                                      .onDefault = [this](const char* key, const char* text) { setDefault(key, text); },
                                      .onManager =
                                          [this](bool isThere) {
                                              hasManager_ = isThere;
                                              report();
                                          },
                                      .onAsked = [this](int call) { settlingCall_ = call; }});
    settlingCall_ = connection.ask();
}

void NodeRegistry::setDefault(const char* key, const char* text)
{
    const std::string_view name = key ? key : "";
    if (!key || name == "default.video.source")
        cameras_.setDefault(text);
    if (!key || name == "default.audio.source")
        microphones_.setDefault(text);
    report();
}

void NodeRegistry::answered(int call)
{
    if (call != settlingCall_)
        return;
    isSettled_ = true;
    report();
}

void NodeRegistry::forget()
{
    cameras_.clear();
    microphones_.clear();
    soundNodes_.clear();
    hasDaemon_ = false;
    hasManager_ = false;
    isSettled_ = true;
    report();
}

void NodeRegistry::report()
{
    if (!isSettled_)
        return;
    NodeSnapshot snapshot{
        cameras_.snapshot(), microphones_.snapshot(), !soundNodes_.empty(), hasDaemon_, hasManager_, true};
    if (snapshot == reported_)
        return;
    reported_ = snapshot;
    onChange_(snapshot);
}

} // namespace nimbrale::pipewire
