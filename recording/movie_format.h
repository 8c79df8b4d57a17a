#pragma once

#include "platform/movie_writer.h"
#include "settings/app_settings.h"

#include <cstdint>
#include <string>

class QDateTime;

namespace nimbrale {

struct MovieSize {
    int width = 0;
    int height = 0;

    bool operator==(const MovieSize&) const = default;
};

/// The movie's size in pixels for a display of that many points: all of the display's pixels, made smaller in
/// proportion where they are more than the quality's bounds, and each side rounded down to an even number, but at
/// least 2.
[[nodiscard]] MovieSize movieSize(double displayWidth, double displayHeight, double pixelScale,
                                  AppSettings::RecordingQuality quality);

/// How a movie of that size is encoded. `framerate` in pictures per second, which counts as 1 to 240.
[[nodiscard]] MovieVideo movieVideo(MovieSize size, std::int64_t framerate, AppSettings::RecordingQuality quality);

/// The name of the file, in the words of that moment: "Nimbrale Recording 2026-03-01 at 09.05.00.mov".
[[nodiscard]] std::string movieFileName(const QDateTime& date);

} // namespace nimbrale
