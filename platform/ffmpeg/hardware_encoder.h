#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace nimbrale::ffmpeg {

/// An encoder of H.264 on a graphics card.
struct HardwareEncoder {
    /// The library's name for it.
    std::string codec;
    /// The card's device file; empty where the codec finds its card itself.
    std::string device;
    /// "name=value:name=value": what the codec needs to give every picture's packet at once.
    std::string options;

    /// For a log.
    [[nodiscard]] std::string name() const { return device.empty() ? codec : codec + " on " + device; }
    bool operator==(const HardwareEncoder&) const = default;
};

/// Those that a machine with these device files may have, the most promising first. Whether one works shows only when
/// it is tried: `probeEncoder`. Any thread.
[[nodiscard]] std::vector<HardwareEncoder> hardwareCandidates(const std::filesystem::path& devices = "/dev");

} // namespace nimbrale::ffmpeg
