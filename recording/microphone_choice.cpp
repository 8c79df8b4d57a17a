#include "recording/microphone_choice.h"

#include <QCoreApplication>

#include <algorithm>
#include <vector>

namespace nimbrale {

namespace {

QString translated(const char* text)
{
    return QCoreApplication::translate("ScreenRecorder", text);
}

} // namespace

tl::expected<std::optional<MicrophoneDevice>, RecorderError> chooseMicrophone(Microphones& microphones,
                                                                              const std::optional<std::string>& id)
{
    if (!id)
        return std::nullopt;
    const std::vector<MicrophoneDevice> devices = microphones.devices();
    for (const auto& wanted : {id, microphones.preferredDevice()}) {
        const auto found = std::find_if(devices.begin(), devices.end(),
                                        [&](const MicrophoneDevice& device) { return device.id == wanted; });
        if (found != devices.end())
            return *found;
    }
    if (!devices.empty())
        return devices.front();
    return tl::make_unexpected(RecorderError::failed(
        translated(QT_TRANSLATE_NOOP("ScreenRecorder", "There's no microphone to record from.")).toStdString()));
}

RecorderError microphoneNotUsable(const MicrophoneDevice& device)
{
    return RecorderError::failed(translated(QT_TRANSLATE_NOOP("ScreenRecorder", "The microphone %1 can't be used."))
                                     .arg(QString::fromStdString(device.name))
                                     .toStdString());
}

} // namespace nimbrale
