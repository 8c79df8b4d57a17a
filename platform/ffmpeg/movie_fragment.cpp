#include "platform/ffmpeg/movie_fragment.h"

#include <algorithm>
#include <limits>

namespace nimbrale::ffmpeg {

namespace {

constexpr std::size_t mostSamples = std::size_t{1} << 20; // of one fragment

// Flags of `tfhd`.
constexpr std::uint32_t hasBaseOffset = 0x1;
constexpr std::uint32_t hasDescription = 0x2;
constexpr std::uint32_t hasDefaultDuration = 0x8;
constexpr std::uint32_t hasDefaultSize = 0x10;
constexpr std::uint32_t hasDefaultFlags = 0x20;
constexpr std::uint32_t baseIsFragment = 0x20000;

// Flags of `trun`.
constexpr std::uint32_t hasOffset = 0x1;
constexpr std::uint32_t hasFirstFlags = 0x4;
constexpr std::uint32_t hasDuration = 0x100;
constexpr std::uint32_t hasSize = 0x200;
constexpr std::uint32_t hasFlags = 0x400;
constexpr std::uint32_t hasDelay = 0x800;

constexpr std::uint32_t isNotSync = 0x10000; // of a sample

auto wrong(const char* what)
{
    return fail(ErrorCode::permanent, what);
}

auto unsupported(const char* what)
{
    return fail(ErrorCode::unsupported, what);
}

/// Reads one fragment, track by track and run by run.
class FragmentReader {
public:
    FragmentReader(std::int64_t offset, const std::vector<FragmentTrack>& tracks) : offset_(offset), tracks_(tracks) {}

    [[nodiscard]] Result<void> readTrack(Bytes content);
    [[nodiscard]] std::vector<SampleRun> takeRuns() { return std::move(runs_); }

private:
    [[nodiscard]] Result<void> readHeader(Bytes content);
    [[nodiscard]] Result<void> readTime(Bytes content);
    [[nodiscard]] Result<void> readRun(Bytes content);
    [[nodiscard]] MovieSample readSample(NumberReader& reader, std::uint32_t flags, std::uint32_t defaultFlags) const;

    std::int64_t offset_;
    std::vector<FragmentTrack> tracks_;
    std::vector<SampleRun> runs_;
    std::size_t sampleCount_ = 0;
    bool isFirstTrack_ = true;
    // Of the track that is read.
    std::uint32_t track_ = 0;
    SampleDefaults defaults_;
    std::int64_t base_ = 0;
    std::int64_t nextOffset_ = 0;
};

Result<void> FragmentReader::readTrack(Bytes content)
{
    const auto boxes = readBoxes(content);
    if (!boxes || boxes->empty() || boxes->front().type != boxType("tfhd"))
        return wrong("a track of a fragment without a header");
    if (auto read = readHeader(boxes->front().content); !read)
        return read;
    for (const Box& box : *boxes) {
        Result<void> read;
        if (box.type == boxType("tfdt"))
            read = readTime(box.content);
        else if (box.type == boxType("trun"))
            read = readRun(box.content);
        if (!read)
            return read;
    }
    isFirstTrack_ = false;
    return {};
}

Result<void> FragmentReader::readHeader(Bytes content)
{
    NumberReader reader(content);
    const std::uint32_t flags = reader.read32();
    const std::uint32_t id = reader.read32();
    const auto track = std::find_if(tracks_.begin(), tracks_.end(), [id](const auto& each) { return each.id == id; });
    if (track == tracks_.end())
        return wrong("a fragment of an unknown track");
    track_ = static_cast<std::uint32_t>(track - tracks_.begin());
    defaults_ = track->defaults;
    base_ = offset_;
    if (flags & hasBaseOffset)
        base_ = static_cast<std::int64_t>(std::min<std::uint64_t>(reader.read64(), std::uint64_t{1} << 62));
    else if (!(flags & baseIsFragment) && !isFirstTrack_)
        return unsupported("a track that begins where the one before ends");
    nextOffset_ = base_;
    if ((flags & hasDescription) && reader.read32() != 1)
        return unsupported("more than one description of a track's samples");
    if (flags & hasDefaultDuration)
        defaults_.duration = reader.read32();
    if (flags & hasDefaultSize)
        defaults_.size = reader.read32();
    if (flags & hasDefaultFlags)
        defaults_.flags = reader.read32();
    return reader.failed() ? Result<void>(wrong("a track's header is too short")) : Result<void>();
}

Result<void> FragmentReader::readTime(Bytes content)
{
    NumberReader reader(content);
    const bool isLong = reader.read32() >> 24 != 0;
    const std::uint64_t time = isLong ? reader.read64() : reader.read32();
    // Some room is left, so that sums of times stay numbers.
    if (reader.failed() || time > std::uint64_t{1} << 60)
        return wrong("a fragment without a time");
    tracks_[track_].nextTime = static_cast<std::int64_t>(time);
    return {};
}

Result<void> FragmentReader::readRun(Bytes content)
{
    NumberReader reader(content);
    const std::uint32_t flags = reader.read32();
    const std::uint32_t count = reader.read32();
    if (count > mostSamples - sampleCount_)
        return wrong("a fragment of too many samples");
    sampleCount_ += count;
    if (flags & hasOffset)
        nextOffset_ = base_ + static_cast<std::int32_t>(reader.read32());
    std::uint32_t firstFlags = defaults_.flags;
    if (flags & hasFirstFlags)
        firstFlags = reader.read32();

    SampleRun run{track_, nextOffset_, 0, {}};
    for (std::uint32_t i = 0; i < count; ++i) {
        MovieSample sample = readSample(reader, flags, i == 0 ? firstFlags : defaults_.flags);
        if (reader.failed() || sample.size == 0)
            return wrong("a sample that is not told, or empty");
        sample.time = tracks_[track_].nextTime;
        tracks_[track_].nextTime += sample.duration;
        run.size += sample.size;
        run.samples.push_back(sample);
    }
    nextOffset_ += run.size;
    if (count > 0)
        runs_.push_back(std::move(run));
    return {};
}

MovieSample FragmentReader::readSample(NumberReader& reader, std::uint32_t flags, std::uint32_t defaultFlags) const
{
    MovieSample sample;
    sample.duration = flags & hasDuration ? reader.read32() : defaults_.duration;
    sample.size = flags & hasSize ? reader.read32() : defaults_.size;
    sample.isSync = !((flags & hasFlags ? reader.read32() : defaultFlags) & isNotSync);
    if (flags & hasDelay)
        sample.delay = static_cast<std::int32_t>(reader.read32());
    return sample;
}

} // namespace

Result<std::vector<SampleRun>> readFragment(Bytes content, std::int64_t offset,
                                            const std::vector<FragmentTrack>& tracks)
{
    const auto boxes = readBoxes(content);
    if (!boxes)
        return wrong("a fragment that does not consist of boxes");
    FragmentReader reader(offset, tracks);
    for (const Box& box : *boxes) {
        if (box.type != boxType("traf"))
            continue;
        if (const auto read = reader.readTrack(box.content); !read)
            return tl::make_unexpected(read.error());
    }
    std::vector<SampleRun> runs = reader.takeRuns();
    if (runs.empty())
        return wrong("a fragment without samples");
    return runs;
}

} // namespace nimbrale::ffmpeg
