#include "recording/movie_format.h"

#include <QDateTime>
#include <QLocale>

#include <algorithm>

namespace nimbrale {

namespace {

using Quality = AppSettings::RecordingQuality;

struct Bounds {
    double width;
    double height;
};

constexpr Bounds bounds(Quality quality)
{
    return quality == Quality::high ? Bounds{3840, 2160} : Bounds{2560, 1440};
}

constexpr double bitsPerPixel(Quality quality)
{
    return quality == Quality::high ? 0.15 : 0.1;
}

constexpr std::int64_t secondsBetweenKeyFrames = 2;
/// Whoever writes the settings file may ask for anything.
constexpr std::int64_t largestFramerate = 240;

int evenPixels(double pixels)
{
    return std::max(2, static_cast<int>(pixels) / 2 * 2);
}

} // namespace

MovieSize movieSize(double displayWidth, double displayHeight, double pixelScale, Quality quality)
{
    const double width = pixelScale * displayWidth;
    const double height = pixelScale * displayHeight;
    const Bounds largest = bounds(quality);
    const double factor = std::min({1.0, largest.width / width, largest.height / height});
    return {evenPixels(width * factor), evenPixels(height * factor)};
}

MovieVideo movieVideo(MovieSize size, std::int64_t framerateSetting, Quality quality)
{
    const std::int64_t framerate = std::clamp<std::int64_t>(framerateSetting, 1, largestFramerate);
    MovieVideo video;
    video.width = size.width;
    video.height = size.height;
    video.averageBitRate =
        static_cast<std::int64_t>(bitsPerPixel(quality) * size.width * size.height * static_cast<double>(framerate));
    video.expectedFrameRate = static_cast<int>(framerate);
    video.maximumKeyFrameInterval = static_cast<int>(secondsBetweenKeyFrames * framerate);
    return video;
}

std::string movieFileName(const QDateTime& date)
{
    return "Nimbrale Recording " + QLocale::c().toString(date, "yyyy-MM-dd 'at' HH.mm.ss").toStdString() + ".mov";
}

} // namespace nimbrale
