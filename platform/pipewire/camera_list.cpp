#include "platform/pipewire/camera_list.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QString>

#include <algorithm>
#include <string_view>

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

void CameraList::add(std::uint32_t number, const NodeProperties& properties)
{
    const bool isCamera = is(properties.mediaClass, "Video/Source") && is(properties.role, "Camera");
    if (isCamera && properties.name && *properties.name)
        devices_[number] = {properties.name, nameOf(properties)};
}

void CameraList::setDefault(const char* text)
{
    default_ = QJsonDocument::fromJson(text).object().value(QLatin1String("name")).toString().toStdString();
}

void CameraList::clear()
{
    devices_.clear();
    default_.clear();
}

CameraSnapshot CameraList::snapshot() const
{
    CameraSnapshot snapshot;
    const auto isListed = [&snapshot](const std::string& id) {
        return std::ranges::any_of(snapshot.devices, [&id](const CameraDevice& device) { return device.id == id; });
    };
    for (const auto& [number, device] : devices_) {
        if (!isListed(device.id))
            snapshot.devices.push_back(device);
    }
    if (isListed(default_))
        snapshot.preferred = default_;
    return snapshot;
}

} // namespace nimbrale::pipewire
