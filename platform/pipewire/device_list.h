#pragma once

#include "platform/audio_sources.h"
#include "platform/cameras.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale::pipewire {

/// What the daemon says of a node, as far as devices are concerned; null where it says nothing.
struct NodeProperties {
    const char* mediaClass = nullptr;
    const char* role = nullptr;
    const char* name = nullptr;
    const char* nick = nullptr;
    const char* description = nullptr;
};

/// Shared screens are video sources too, but have another role.
[[nodiscard]] bool isCamera(const NodeProperties& properties);
/// What can be listened to is a source; what a loudspeaker plays is heard at the loudspeaker's own node, a sink.
[[nodiscard]] bool isMicrophone(const NodeProperties& properties);
/// Whether it plays what programs send it.
[[nodiscard]] bool isLoudspeaker(const NodeProperties& properties);

/// What the application sees of the devices of one kind.
template <typename Device>
struct DeviceSnapshot {
    std::vector<Device> devices;
    std::optional<std::string> preferred;

    bool operator==(const DeviceSnapshot&) const = default;
};

/// The daemon's nodes that are devices of one kind, and what they are called. Not thread-safe.
template <typename Device>
class DeviceList {
public:
    /// A node without a name is left out.
    void add(std::uint32_t number, const NodeProperties& properties);
    void remove(std::uint32_t number) { devices_.erase(number); }
    /// The daemon's text for the default source, which names it in JSON; null when there is none.
    void setDefault(const char* text);
    void clear();

    /// In the daemon's order. A name that several nodes have stands for the first of them. Preferred is only what is
    /// there: where no microphone is left, the daemon's default source is a loudspeaker.
    [[nodiscard]] DeviceSnapshot<Device> snapshot() const;

private:
    std::map<std::uint32_t, Device> devices_;
    std::string default_;
};

extern template class DeviceList<CameraDevice>;
extern template class DeviceList<MicrophoneDevice>;

/// All that the daemon has.
struct NodeSnapshot {
    DeviceSnapshot<CameraDevice> cameras;
    DeviceSnapshot<MicrophoneDevice> microphones;
    /// Whether it has a microphone or a loudspeaker. Where another service has the sound devices, it has neither.
    bool hasSound = false;
    /// Whether there is a daemon.
    bool hasDaemon = false;
    /// Whether a session manager is there, who brings it the devices of the computer.
    bool hasManager = false;
    /// Whether the daemon has told of all that it has, or there is none.
    bool isKnown = false;

    bool operator==(const NodeSnapshot&) const = default;
};

} // namespace nimbrale::pipewire
