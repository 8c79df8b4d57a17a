#include "platform/v4l2/camera_nodes.h"

#include "platform/file_descriptor.h"
#include "platform/log.h"

#include <QString>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <map>
#include <optional>
#include <string_view>
#include <sys/ioctl.h>

namespace nimbrale::v4l2 {

namespace {

namespace fs = std::filesystem;

/// Of a file called "video" and a number.
std::optional<int> numberOf(const fs::path& file)
{
    constexpr std::string_view prefix = "video";
    const std::string name = file.filename().string();
    int number = 0;
    if (!name.starts_with(prefix))
        return std::nullopt;
    const char* const end = name.data() + name.size();
    const auto [rest, error] = std::from_chars(name.data() + prefix.size(), end, number);
    return error == std::errc() && rest == end ? std::optional(number) : std::nullopt;
}

/// What the system calls the socket of each file. Of several names the first counts: newer systems have added some.
std::map<fs::path, std::string> socketsIn(const fs::path& folder)
{
    std::map<fs::path, std::string> sockets;
    std::error_code error;
    for (fs::directory_iterator entry(folder / "v4l" / "by-path", error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code isDangling;
        const fs::path target = fs::canonical(entry->path(), isDangling);
        if (isDangling)
            continue;
        const std::string name = entry->path().filename().string();
        const auto [known, isNew] = sockets.emplace(target, name);
        if (!isNew)
            known->second = std::min(known->second, name);
    }
    return sockets;
}

/// What the camera is called, empty where the file belongs to no camera. Many cameras have a second file, which gives
/// only what is known of each picture.
std::optional<std::string> askName(const fs::path& file)
{
    const FileDescriptor device(open(file.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    v4l2_capability capability{};
    if (!device || ioctl(device.get(), VIDIOC_QUERYCAP, &capability) != 0) {
        qCDebug(webcamLog, "%s is no camera that can be used: %s", file.c_str(), std::strerror(errno));
        return std::nullopt;
    }
    constexpr std::uint32_t needed = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
    const bool tellsOfFile = (capability.capabilities & V4L2_CAP_DEVICE_CAPS) != 0;
    if (((tellsOfFile ? capability.device_caps : capability.capabilities) & needed) != needed)
        return std::nullopt;
    const auto* const card = reinterpret_cast<const char*>(capability.card);
    const auto length = static_cast<qsizetype>(strnlen(card, sizeof(capability.card)));
    const std::string name = QString::fromUtf8(card, length).trimmed().toStdString();
    return name.empty() ? file.filename().string() : name;
}

/// "pci-0000:00:14.0-usb-0:5:1.0-video-index0" is "v4l2_input.pci-0000_00_14.0-usb-0_5_1.0" in PipeWire.
std::string identifierOf(std::string socket)
{
    if (const std::size_t ending = socket.rfind("-video-index"); ending != std::string::npos)
        socket.resize(ending);
    std::ranges::replace_if(
        socket,
        [](unsigned char character) {
            return !std::isalnum(character) && character != '_' && character != '-' && character != '.';
        },
        '_');
    return "v4l2_input." + socket;
}

/// Some sockets have several cameras, such as one for colors and one for heat; the later ones are numbered.
std::string unused(const std::string& identifier, const std::vector<CameraNode>& nodes)
{
    const auto isUsed = [&nodes](const std::string& candidate) {
        return std::ranges::any_of(nodes, [&](const CameraNode& node) { return node.device.id == candidate; });
    };
    std::string candidate = identifier;
    for (int number = 2; isUsed(candidate); ++number)
        candidate = identifier + "." + std::to_string(number);
    return candidate;
}

} // namespace

std::vector<CameraNode> findCameraNodes(const fs::path& folder)
{
    std::map<int, fs::path> files;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        if (const std::optional<int> number = numberOf(entry->path()))
            files[*number] = entry->path();
    }
    const std::map<fs::path, std::string> sockets = socketsIn(folder);
    std::vector<CameraNode> nodes;
    for (const auto& [number, file] : files) {
        const std::optional<std::string> name = askName(file);
        if (!name)
            continue;
        std::error_code isGone;
        const auto socket = sockets.find(fs::canonical(file, isGone));
        const std::string id = socket != sockets.end() ? identifierOf(socket->second) : file.filename().string();
        nodes.push_back({{unused(id, nodes), *name}, file});
    }
    return nodes;
}

} // namespace nimbrale::v4l2
