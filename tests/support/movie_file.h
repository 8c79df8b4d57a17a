#pragma once

#include "tests/support/process.h"

#include <QImage>
#include <QPoint>
#include <QSize>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale::test {

/// A movie as programs that others wrote understand it: ffprobe and ffmpeg.
class MovieFile {
public:
    struct Picture {
        double time = 0; ///< seconds
        bool isKey = false;
    };
    struct Video {
        std::string codec;
        std::string profile;
        QSize size;
        /// Matrix, transfer, primaries and range: "bt709 bt709 bt709 tv".
        std::string colors;
        double start = 0;    ///< seconds
        double duration = 0; ///< seconds
        std::vector<Picture> pictures;
    };
    struct Audio {
        std::string codec;
        int sampleRate = 0;
        int channels = 0;
        double start = 0;    ///< seconds
        double duration = 0; ///< seconds
    };

    /// What this machine lacks for it; empty when it lacks nothing.
    [[nodiscard]] static std::string missing();

    explicit MovieFile(std::filesystem::path path);

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    /// What went wrong when every picture and sound was decoded; empty when nothing did.
    [[nodiscard]] std::string problems() const;
    /// The names of the file's outermost boxes, in order: "ftyp mdat moov".
    [[nodiscard]] std::string boxes() const;
    /// Absent where there is no such track.
    [[nodiscard]] const std::optional<Video>& video() const { return video_; }
    [[nodiscard]] const std::optional<Audio>& audio() const { return audio_; }
    /// The picture that a player shows at that time, in seconds; null when there is none. Only with a video track.
    [[nodiscard]] QImage pictureAt(double time) const;
    /// How bright that pixel is in each picture, in the pictures' order. Only with a video track.
    [[nodiscard]] std::vector<int> brightnessAt(QPoint pixel) const;
    /// All samples of one channel, counted from 0, at 48000 a second.
    [[nodiscard]] std::vector<float> samples(int channel) const;

private:
    std::filesystem::path path_;
    std::optional<Video> video_;
    std::optional<Audio> audio_;
};

/// The movies in a folder that have their final names, oldest first by name.
[[nodiscard]] std::vector<std::filesystem::path> moviesIn(const std::filesystem::path& folder);
/// Everything else in it.
[[nodiscard]] std::vector<std::filesystem::path> otherFilesIn(const std::filesystem::path& folder);

} // namespace nimbrale::test
