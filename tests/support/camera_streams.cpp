#include "tests/support/camera_streams.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <filesystem>
#include <string>

namespace nimbrale::test {

int openCameraStreams(const PrivatePipewire& pipewire)
{
    // Threads may ask at one time.
    static std::atomic<int> asked = 0;
    const std::filesystem::path file =
        std::filesystem::path(pipewire.runtimeFolder()) / ("objects-" + std::to_string(++asked) + ".json");
    Process::Options options;
    options.environment = pipewire.environment();
    options.outputFile = file;
    std::string reason;
    const auto dump = Process::start("pw-dump", {"--no-colors"}, options, reason);
    if (!dump || dump->waitForEnd(Milliseconds{5000}) != 0)
        return -1;
    const QJsonArray objects = QJsonDocument::fromJson(QByteArray::fromStdString(dump->output())).array();
    std::filesystem::remove(file);
    const auto isCameraStream = [](const QJsonValue& object) {
        const QJsonValue properties = object["info"]["props"];
        return properties["media.class"].toString() == "Stream/Input/Video";
    };
    return objects.isEmpty() ? -1 : static_cast<int>(std::count_if(objects.begin(), objects.end(), isCameraStream));
}

CameraStreamWatch::CameraStreamWatch(const PrivatePipewire& pipewire)
    : thread_([this, &pipewire] {
          while (!isEnding_) {
              most_ = std::max(most_.load(), openCameraStreams(pipewire));
              ++looks_;
              sleepFor(Milliseconds{30});
          }
      })
{}

CameraStreamWatch::~CameraStreamWatch()
{
    isEnding_ = true;
    thread_.join();
}

} // namespace nimbrale::test
