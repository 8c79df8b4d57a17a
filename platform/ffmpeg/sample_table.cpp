#include "platform/ffmpeg/sample_table.h"

#include <algorithm>

namespace nimbrale::ffmpeg {

namespace {

/// A day of 120 pictures a second has 10 million.
constexpr std::size_t mostSamples = std::size_t{1} << 24;
/// Between two samples, in the track's units; readers take the durations for signed numbers.
constexpr std::int64_t longestDuration = std::int64_t{1} << 31;

} // namespace

bool SampleTable::accepts(const SampleRun& run) const
{
    if (run.samples.empty() || run.samples.size() > mostSamples - sizes_.size())
        return false;
    std::int64_t before = sizes_.empty() ? -1 : lastTime_;
    for (const MovieSample& sample : run.samples) {
        if (sample.time <= before || sample.time - before >= longestDuration || sample.duration >= longestDuration)
            return false;
        before = sample.time;
    }
    return true;
}

bool SampleTable::append(const SampleRun& run)
{
    if (!accepts(run))
        return false;
    for (const MovieSample& sample : run.samples) {
        if (sizes_.empty())
            firstTime_ = sample.time;
        else
            repeat(durations_, static_cast<std::uint32_t>(sample.time - lastTime_));
        sizes_.push_back(sample.size);
        repeat(delays_, static_cast<std::uint32_t>(sample.delay));
        if (sample.isSync)
            syncSamples_.push_back(static_cast<std::uint32_t>(sizes_.size()));
        lastTime_ = sample.time;
        lastDuration_ = sample.duration;
    }
    chunks_.push_back({run.offset, static_cast<std::uint32_t>(run.samples.size())});
    return true;
}

void SampleTable::repeat(std::vector<Repeated>& values, std::uint32_t value)
{
    if (values.empty() || values.back().value != value)
        values.push_back({0, value});
    ++values.back().count;
}

std::vector<SampleTable::Repeated> SampleTable::allDurations(std::uint32_t longerFirst) const
{
    std::vector<Repeated> durations = durations_;
    repeat(durations, lastDuration_);
    if (longerFirst == 0)
        return durations;
    const std::uint32_t first = durations.front().value + longerFirst;
    if (--durations.front().count == 0)
        durations.erase(durations.begin());
    durations.insert(durations.begin(), {1, first});
    return durations;
}

void SampleTable::write(BoxWriter& writer, BoxType type, std::uint32_t version, const std::vector<Repeated>& values)
{
    writer.box(type, [&] {
        writer.write32(version << 24);
        writer.write32(static_cast<std::uint32_t>(values.size()));
        for (const Repeated& value : values) {
            writer.write32(value.count);
            writer.write32(value.value);
        }
    });
}

void SampleTable::write(BoxWriter& writer, std::uint32_t longerFirst) const
{
    write(writer, boxType("stts"), 0, allDurations(longerFirst));
    if (std::any_of(delays_.begin(), delays_.end(), [](const Repeated& delay) { return delay.value != 0; })) {
        // Only version 1 knows negative ones, and only it should be used for them.
        const bool isAnyNegative = std::any_of(delays_.begin(), delays_.end(), [](const Repeated& delay) {
            return static_cast<std::int32_t>(delay.value) < 0;
        });
        write(writer, boxType("ctts"), isAnyNegative ? 1 : 0, delays_);
    }
    if (syncSamples_.size() < sizes_.size()) {
        writer.box(boxType("stss"), [&] {
            writer.write32(0);
            writer.write32(static_cast<std::uint32_t>(syncSamples_.size()));
            for (const std::uint32_t sample : syncSamples_)
                writer.write32(sample);
        });
    }
    writer.box(boxType("stsz"), [&] {
        writer.write32(0);
        writer.write32(0); // They differ.
        writer.write32(static_cast<std::uint32_t>(sizes_.size()));
        for (const std::uint32_t size : sizes_)
            writer.write32(size);
    });
    writeChunks(writer);
}

void SampleTable::writeChunks(BoxWriter& writer) const
{
    std::vector<std::pair<std::uint32_t, std::uint32_t>> changes; // the chunk, counted from 1, and its samples
    for (std::size_t i = 0; i < chunks_.size(); ++i) {
        if (changes.empty() || changes.back().second != chunks_[i].sampleCount)
            changes.emplace_back(static_cast<std::uint32_t>(i + 1), chunks_[i].sampleCount);
    }
    writer.box(boxType("stsc"), [&] {
        writer.write32(0);
        writer.write32(static_cast<std::uint32_t>(changes.size()));
        for (const auto& [chunk, sampleCount] : changes) {
            writer.write32(chunk);
            writer.write32(sampleCount);
            writer.write32(1); // the sample description
        }
    });
    writer.box(boxType("co64"), [&] {
        writer.write32(0);
        writer.write32(static_cast<std::uint32_t>(chunks_.size()));
        for (const Chunk& chunk : chunks_)
            writer.write64(static_cast<std::uint64_t>(chunk.offset));
    });
}

} // namespace nimbrale::ffmpeg
