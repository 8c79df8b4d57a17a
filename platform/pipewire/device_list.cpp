#include "platform/pipewire/device_list.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QString>

#include <algorithm>
#include <string_view>
#include <type_traits>

namespace nimbrale::pipewire {

namespace {

bool is(const char* text, std::string_view expected)
{
    return text && text == expected;
}

/// What a program says of itself need be no UTF-8.
std::string readable(const char* text)
{
    return QString::fromUtf8(text).trimmed().toStdString();
}

std::string nameOf(const NodeProperties& properties)
{
    std::string nick = readable(properties.nick);
    if (!nick.empty())
        return nick;
    std::string description = readable(properties.description);
    constexpr std::string_view driver = " (V4L2)";
    if (description.ends_with(driver))
        description.resize(description.size() - driver.size());
    return description.empty() ? readable(properties.name) : description;
}

} // namespace

bool isCamera(const NodeProperties& properties)
{
    return is(properties.mediaClass, "Video/Source") && is(properties.role, "Camera");
}

bool isMicrophone(const NodeProperties& properties)
{
    return is(properties.mediaClass, "Audio/Source") || is(properties.mediaClass, "Audio/Source/Virtual");
}

bool isLoudspeaker(const NodeProperties& properties)
{
    return is(properties.mediaClass, "Audio/Sink") || is(properties.mediaClass, "Audio/Duplex");
}

template <typename Device>
void DeviceList<Device>::add(std::uint32_t number, const NodeProperties& properties)
{
    constexpr bool areCameras = std::is_same_v<Device, CameraDevice>;
    const bool isWanted = areCameras ? isCamera(properties) : isMicrophone(properties);
    if (isWanted && properties.name && *properties.name)
        devices_[number] = {properties.name, nameOf(properties)};
}

template <typename Device>
void DeviceList<Device>::setDefault(const char* text)
{
    default_ = QJsonDocument::fromJson(text).object().value(QLatin1String("name")).toString().toStdString();
}

template <typename Device>
void DeviceList<Device>::clear()
{
    devices_.clear();
    default_.clear();
}

template <typename Device>
DeviceSnapshot<Device> DeviceList<Device>::snapshot() const
{
    DeviceSnapshot<Device> snapshot;
    const auto isListed = [&snapshot](const std::string& id) {
        return std::ranges::any_of(snapshot.devices, [&id](const Device& device) { return device.id == id; });
    };
    for (const auto& [number, device] : devices_) {
        if (!isListed(device.id))
            snapshot.devices.push_back(device);
    }
    if (isListed(default_))
        snapshot.preferred = default_;
    return snapshot;
}

template class DeviceList<CameraDevice>;
template class DeviceList<MicrophoneDevice>;

} // namespace nimbrale::pipewire
