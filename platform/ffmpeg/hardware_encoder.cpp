#include "platform/ffmpeg/hardware_encoder.h"

#include <algorithm>
#include <system_error>

namespace nimbrale::ffmpeg {

namespace {

constexpr const char* nvencOptions =
    "preset=p4:tune=ll:profile=high:rc=vbr:delay=0:zerolatency=1:forced-idr=1:rc-lookahead=0";
constexpr const char* vaapiOptions = "rc_mode=VBR:async_depth=1:coder=cabac";
/// Newer cards of one maker have no other encoder.
constexpr const char* vaapiLowPowerOptions = "rc_mode=VBR:async_depth=1:coder=cabac:low_power=1";

std::vector<std::string> renderNodes(const std::filesystem::path& devices)
{
    std::vector<std::string> nodes;
    std::error_code error;
    // Where there is no such folder, there is no card.
    std::filesystem::directory_iterator entry(devices / "dri", error);
    while (!error && entry != std::filesystem::directory_iterator()) {
        if (entry->path().filename().string().starts_with("renderD"))
            nodes.push_back(entry->path().string());
        entry.increment(error);
    }
    std::sort(nodes.begin(), nodes.end());
    return nodes;
}

} // namespace

std::vector<HardwareEncoder> hardwareCandidates(const std::filesystem::path& devices)
{
    std::vector<HardwareEncoder> candidates;
    std::error_code error;
    if (std::filesystem::exists(devices / "nvidiactl", error))
        candidates.push_back({"h264_nvenc", "", nvencOptions});
    for (const std::string& node : renderNodes(devices)) {
        candidates.push_back({"h264_vaapi", node, vaapiOptions});
        candidates.push_back({"h264_vaapi", node, vaapiLowPowerOptions});
    }
    return candidates;
}

} // namespace nimbrale::ffmpeg
