#pragma once

#include "platform/cameras.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale::pipewire {

/// What the daemon says of a node, as far as cameras are concerned; null where it says nothing.
struct NodeProperties {
    const char* mediaClass = nullptr;
    const char* role = nullptr;
    const char* name = nullptr;
    const char* nick = nullptr;
    const char* description = nullptr;
};

/// What the application sees of the cameras.
struct CameraSnapshot {
    std::vector<CameraDevice> devices;
    std::optional<std::string> preferred;

    bool operator==(const CameraSnapshot&) const = default;
};

/// Which of the daemon's nodes are cameras, and what they are called. Not thread-safe.
class CameraList {
public:
    /// A node that is no camera is left out: shared screens are video sources too, but have another role.
    void add(std::uint32_t number, const NodeProperties& properties);
    void remove(std::uint32_t number) { devices_.erase(number); }
    /// The daemon's text for the default source, which names it in JSON; null when there is none.
    void setDefault(const char* text);
    void clear();

    /// In the daemon's order. A name that several nodes have stands for the first of them. Preferred is only what is
    /// there.
    [[nodiscard]] CameraSnapshot snapshot() const;

private:
    std::map<std::uint32_t, CameraDevice> devices_;
    std::string default_;
};

} // namespace nimbrale::pipewire
