#pragma once

#include "platform/ffmpeg/movie_boxes.h"

#include <cstdint>
#include <vector>

namespace nimbrale::ffmpeg {

/// A picture or a piece of sound as it is encoded.
struct MovieSample {
    /// In bytes.
    std::uint32_t size = 0;
    /// When it is decoded and for how long, in the track's units.
    std::int64_t time = 0;
    std::uint32_t duration = 0;
    /// From decoding to showing, in the track's units.
    std::int32_t delay = 0;
    /// Whether it can be decoded without the samples before.
    bool isSync = false;
};

/// Samples of one track that lie one after another in the file.
struct SampleRun {
    std::uint32_t track = 0;
    /// Of the first sample, in bytes from the file's beginning.
    std::int64_t offset = 0;
    /// In bytes, of all samples together.
    std::int64_t size = 0;
    std::vector<MovieSample> samples;
};

/// Where a track's samples are and when: what an ordinary movie's `stbl` says. Takes a few bytes for each sample.
class SampleTable {
public:
    /// False, and nothing is appended, where times do not rise from sample to sample, where a movie cannot express them
    /// or where there are far more samples than any recording has.
    [[nodiscard]] bool append(const SampleRun& run);

    [[nodiscard]] std::size_t sampleCount() const { return sizes_.size(); }
    /// When the first sample is decoded and how much later it is shown.
    [[nodiscard]] std::int64_t firstTime() const { return firstTime_; }
    [[nodiscard]] std::int32_t firstDelay() const
    {
        return delays_.empty() ? 0 : static_cast<std::int32_t>(delays_.front().value);
    }
    /// When the last sample's decoding is over. 0 without a sample.
    [[nodiscard]] std::int64_t endTime() const { return lastTime_ + lastDuration_; }

    /// Writes the table's boxes. The first sample lasts longer by `longerFirst` and comes earlier by as much.
    void write(BoxWriter& writer, std::uint32_t longerFirst) const;

private:
    /// `count` samples in a row have this value.
    struct Repeated {
        std::uint32_t count = 0;
        std::uint32_t value = 0;
    };
    struct Chunk {
        std::int64_t offset = 0;
        std::uint32_t sampleCount = 0;
    };

    [[nodiscard]] bool accepts(const SampleRun& run) const;
    static void repeat(std::vector<Repeated>& values, std::uint32_t value);
    static void write(BoxWriter& writer, BoxType type, std::uint32_t version, const std::vector<Repeated>& values);
    [[nodiscard]] std::vector<Repeated> allDurations(std::uint32_t longerFirst) const;
    void writeChunks(BoxWriter& writer) const;

    std::vector<std::uint32_t> sizes_;
    /// All but that of the last sample, which the next one may still change.
    std::vector<Repeated> durations_;
    std::vector<Repeated> delays_;
    /// Counted from 1.
    std::vector<std::uint32_t> syncSamples_;
    std::vector<Chunk> chunks_;
    std::int64_t firstTime_ = 0;
    std::int64_t lastTime_ = 0;
    std::uint32_t lastDuration_ = 0;
};

} // namespace nimbrale::ffmpeg
