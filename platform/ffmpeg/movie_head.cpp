#include "platform/ffmpeg/movie_head.h"

#include <algorithm>
#include <limits>
#include <optional>

namespace nimbrale::ffmpeg {

namespace {

constexpr std::size_t mostTracks = 16;

auto wrong(const char* what)
{
    return fail(ErrorCode::permanent, what);
}

/// `mvhd`, `tkhd` and `mdhd` in one: two dates, what stands between them and the duration, and what follows.
struct TimedHeader {
    std::uint32_t flags = 0;
    std::uint64_t created = 0;
    std::uint64_t modified = 0;
    /// `mvhd`, `mdhd`: the timescale. `tkhd`: the track's number and four bytes of nothing.
    std::vector<std::uint32_t> middle;
    std::uint64_t duration = 0;
    Bytes rest;
};

std::optional<TimedHeader> readTimedHeader(const Box& box)
{
    NumberReader reader(box.content);
    TimedHeader header;
    const std::uint32_t versionAndFlags = reader.read32();
    const bool isLong = versionAndFlags >> 24 != 0;
    const auto readTime = [&] { return isLong ? reader.read64() : reader.read32(); };
    header.flags = versionAndFlags & 0xffffff;
    header.created = readTime();
    header.modified = readTime();
    header.middle.resize(box.type == boxType("tkhd") ? 2 : 1);
    for (std::uint32_t& number : header.middle)
        number = reader.read32();
    header.duration = readTime();
    header.rest = reader.rest();
    return reader.failed() ? std::nullopt : std::optional(header);
}

void writeTimedHeader(BoxWriter& writer, BoxType type, const TimedHeader& header)
{
    // The long form is rarely seen, so it is used only where it must be.
    const bool isLong = std::max({header.created, header.modified, header.duration}) > UINT32_MAX;
    const auto writeTime = [&](std::uint64_t time) {
        if (isLong)
            writer.write64(time);
        else
            writer.write32(static_cast<std::uint32_t>(time));
    };
    writer.box(type, [&] {
        writer.write32((isLong ? 1U << 24 : 0) | header.flags);
        writeTime(header.created);
        writeTime(header.modified);
        for (const std::uint32_t number : header.middle)
            writer.write32(number);
        writeTime(header.duration);
        writer.write(header.rest);
    });
}

/// The boxes of a track that the index needs.
struct TrackBoxes {
    std::vector<Box> track;
    std::vector<Box> media;
    std::vector<Box> information;
    TimedHeader header;
    TimedHeader mediaHeader;
    BoxType handler = 0;
    /// What its samples are encoded with.
    Bytes descriptions;
};

std::optional<std::vector<Box>> readBoxesIn(const std::vector<Box>& boxes, BoxType type)
{
    const Box* const box = onlyBox(boxes, type);
    return box == nullptr ? std::nullopt : readBoxes(box->content);
}

std::optional<TimedHeader> readTimedHeaderIn(const std::vector<Box>& boxes, BoxType type)
{
    const Box* const box = onlyBox(boxes, type);
    return box == nullptr ? std::nullopt : readTimedHeader(*box);
}

std::optional<TrackBoxes> readTrackBoxes(Bytes content)
{
    auto track = readBoxes(content);
    auto media = track ? readBoxesIn(*track, boxType("mdia")) : std::nullopt;
    auto information = media ? readBoxesIn(*media, boxType("minf")) : std::nullopt;
    const auto table = information ? readBoxesIn(*information, boxType("stbl")) : std::nullopt;
    const Box* const descriptions = table ? onlyBox(*table, boxType("stsd")) : nullptr;
    const Box* const handler = media ? onlyBox(*media, boxType("hdlr")) : nullptr;
    if (descriptions == nullptr || handler == nullptr)
        return std::nullopt;
    const auto header = readTimedHeaderIn(*track, boxType("tkhd"));
    const auto mediaHeader = readTimedHeaderIn(*media, boxType("mdhd"));
    NumberReader handlerReader(handler->content);
    handlerReader.skip(8);
    const BoxType handlerType = handlerReader.read32();
    if (!header || !mediaHeader || handlerReader.failed())
        return std::nullopt;
    return TrackBoxes{std::move(*track), std::move(*media), std::move(*information), *header,
                      *mediaHeader,      handlerType,       descriptions->whole};
}

/// What the track's edit list moves its times by: it may leave room at the beginning and cut the first of its samples.
std::optional<std::int64_t> readShift(const TrackBoxes& boxes, std::uint32_t timescale, std::uint32_t movieTimescale)
{
    const auto edits = readBoxesIn(boxes.track, boxType("edts"));
    const Box* const list = edits ? onlyBox(*edits, boxType("elst")) : nullptr;
    if (list == nullptr)
        return 0;
    NumberReader reader(list->content);
    const bool isLong = reader.read32() >> 24 != 0;
    const std::uint32_t count = reader.read32();
    std::int64_t shift = 0;
    for (std::uint32_t i = 0; i < std::min(count, 2U); ++i) {
        const std::uint64_t duration = isLong ? reader.read64() : reader.read32();
        const std::int64_t mediaTime =
            isLong ? static_cast<std::int64_t>(reader.read64()) : static_cast<std::int32_t>(reader.read32());
        reader.skip(4); // the speed
        if (reader.failed() || duration > UINT32_MAX || mediaTime > UINT32_MAX || mediaTime < -1)
            return std::nullopt;
        shift += mediaTime < 0 ? static_cast<std::int64_t>(duration * timescale / movieTimescale) : -mediaTime;
        if (mediaTime >= 0)
            break;
    }
    return shift;
}

/// What `mvex` says of the track's samples.
std::optional<SampleDefaults> readDefaults(const std::vector<Box>& boxes, std::uint32_t id)
{
    for (const Box& box : boxes) {
        NumberReader reader(box.content);
        reader.skip(4);
        if (box.type != boxType("trex") || reader.read32() != id)
            continue;
        if (reader.read32() != 1)
            return std::nullopt;
        SampleDefaults defaults;
        defaults.duration = reader.read32();
        defaults.size = reader.read32();
        defaults.flags = reader.read32();
        return reader.failed() ? std::nullopt : std::optional(defaults);
    }
    return std::nullopt;
}

Result<MovieTrack> readTrack(Bytes content, const std::vector<Box>& defaults, std::uint32_t movieTimescale)
{
    const auto boxes = readTrackBoxes(content);
    if (!boxes)
        return wrong("a track that is not described");
    MovieTrack track;
    track.fragments.id = boxes->header.middle.front();
    // Those beyond keep the library, which would copy such a movie, busy for seconds to find nothing in the track.
    constexpr std::uint32_t largestNumber = std::numeric_limits<std::int32_t>::max();
    if (track.fragments.id > largestNumber)
        return wrong("a track whose number is too large");
    track.isVideo = boxes->handler == boxType("vide");
    track.timescale = boxes->mediaHeader.middle.front();
    const auto shift = readShift(*boxes, track.timescale, movieTimescale);
    const auto sampleDefaults = readDefaults(defaults, track.fragments.id);
    if (track.timescale == 0 || !shift)
        return wrong("a track without times");
    if (!sampleDefaults)
        return fail(ErrorCode::unsupported, "a track that has no fragments");
    track.shift = *shift;
    track.fragments.defaults = *sampleDefaults;
    return track;
}

/// `value` in other units, rounded up.
std::uint64_t rescaled(std::uint64_t value, std::uint32_t from, std::uint32_t to)
{
    return value / from * to + (value % from * to + from - 1) / from;
}

/// When a track is shown, in its own units.
struct Presentation {
    /// Nothing is shown for so long. No video has this: its first picture lasts longer instead.
    std::uint64_t emptyTime = 0;
    std::uint64_t longerFirst = 0;
    /// Where in the samples' times it begins.
    std::uint64_t begin = 0;
    /// From there to the end.
    std::uint64_t duration = 0;
};

std::optional<Presentation> presentation(const MovieTrack& track)
{
    const SampleTable& samples = track.samples;
    const std::int64_t first = samples.firstTime() + samples.firstDelay() + track.shift;
    const std::int64_t cut = std::max<std::int64_t>(-first, 0);
    const std::int64_t room = std::max<std::int64_t>(first, 0);
    const std::int64_t length = samples.endTime() - samples.firstTime() - cut + (track.isVideo ? room : 0);
    const std::int64_t begin = samples.firstDelay() + cut;
    // Beyond this, sums of 32-bit numbers would not be such any more, and no recording comes near it.
    if (room > INT32_MAX || begin > INT32_MAX || begin < 0 || length < 0)
        return std::nullopt;
    Presentation shown;
    (track.isVideo ? shown.longerFirst : shown.emptyTime) = static_cast<std::uint64_t>(room);
    shown.begin = static_cast<std::uint64_t>(begin);
    shown.duration = static_cast<std::uint64_t>(length);
    return shown;
}

/// Writes the `moov`, part by part.
class IndexWriter {
public:
    IndexWriter(const std::vector<MovieTrack>& tracks, std::uint32_t timescale) : tracks_(tracks), timescale_(timescale)
    {}

    [[nodiscard]] Result<std::vector<std::uint8_t>> write(const std::vector<Box>& head);

private:
    [[nodiscard]] std::uint64_t shownDuration(const MovieTrack& track, const Presentation& shown) const;
    void writeTrack(const MovieTrack& track, const Presentation& shown, const TrackBoxes& boxes);
    void writeEdits(const MovieTrack& track, const Presentation& shown);
    void writeMedia(const MovieTrack& track, const Presentation& shown, const TrackBoxes& boxes);

    const std::vector<MovieTrack>& tracks_;
    std::uint32_t timescale_;
    BoxWriter writer_;
};

Result<std::vector<std::uint8_t>> IndexWriter::write(const std::vector<Box>& head)
{
    std::vector<std::optional<Presentation>> shown;
    std::uint64_t duration = 0;
    for (const MovieTrack& track : tracks_) {
        shown.push_back(track.samples.sampleCount() > 0 ? presentation(track) : Presentation());
        if (!shown.back())
            return wrong("times that no movie can have");
        duration = std::max(duration, shownDuration(track, *shown.back()));
    }
    std::size_t index = 0;
    writer_.box(boxType("moov"), [&] {
        for (const Box& box : head) {
            if (box.type == boxType("mvhd")) {
                TimedHeader header = *readTimedHeader(box);
                header.middle.front() = timescale_;
                header.duration = duration;
                writeTimedHeader(writer_, box.type, header);
            } else if (box.type == boxType("trak")) {
                const MovieTrack& track = tracks_[index];
                if (track.samples.sampleCount() > 0)
                    writeTrack(track, *shown[index], *readTrackBoxes(box.content));
                ++index;
            } else if (box.type != boxType("mvex")) {
                writer_.write(box.whole);
            }
        }
    });
    return writer_.bytes();
}

std::uint64_t IndexWriter::shownDuration(const MovieTrack& track, const Presentation& shown) const
{
    return rescaled(shown.emptyTime, track.timescale, timescale_) +
           rescaled(shown.duration, track.timescale, timescale_);
}

void IndexWriter::writeTrack(const MovieTrack& track, const Presentation& shown, const TrackBoxes& boxes)
{
    writer_.box(boxType("trak"), [&] {
        for (const Box& box : boxes.track) {
            if (box.type == boxType("tkhd")) {
                TimedHeader header = boxes.header;
                header.duration = shownDuration(track, shown);
                writeTimedHeader(writer_, box.type, header);
                if (shown.emptyTime > 0 || shown.begin > 0)
                    writeEdits(track, shown);
            } else if (box.type == boxType("mdia")) {
                writer_.box(box.type, [&] { writeMedia(track, shown, boxes); });
            } else if (box.type != boxType("edts")) {
                writer_.write(box.whole);
            }
        }
    });
}

void IndexWriter::writeEdits(const MovieTrack& track, const Presentation& shown)
{
    const std::uint64_t emptyTime = rescaled(shown.emptyTime, track.timescale, timescale_);
    const std::uint64_t duration = rescaled(shown.duration, track.timescale, timescale_);
    const bool isLong = std::max(emptyTime, duration) > UINT32_MAX;
    const auto writeEdit = [&](std::uint64_t length, std::uint64_t mediaTime) {
        for (const std::uint64_t time : {length, mediaTime}) {
            if (isLong)
                writer_.write64(time);
            else
                writer_.write32(static_cast<std::uint32_t>(time));
        }
        writer_.write32(0x10000); // normal speed
    };
    writer_.box(boxType("edts"), [&] {
        writer_.box(boxType("elst"), [&] {
            writer_.write32(isLong ? 1U << 24 : 0);
            writer_.write32(emptyTime > 0 ? 2 : 1);
            if (emptyTime > 0)
                writeEdit(emptyTime, UINT64_MAX); // No media: -1 in either length.
            writeEdit(duration, shown.begin);
        });
    });
}

void IndexWriter::writeMedia(const MovieTrack& track, const Presentation& shown, const TrackBoxes& boxes)
{
    const auto longerFirst = static_cast<std::uint32_t>(shown.longerFirst);
    const auto writeTable = [&] {
        writer_.write(boxes.descriptions);
        track.samples.write(writer_, longerFirst);
    };
    for (const Box& box : boxes.media) {
        if (box.type == boxType("mdhd")) {
            TimedHeader header = boxes.mediaHeader;
            header.duration =
                static_cast<std::uint64_t>(track.samples.endTime() - track.samples.firstTime()) + longerFirst;
            writeTimedHeader(writer_, box.type, header);
        } else if (box.type == boxType("minf")) {
            writer_.box(box.type, [&] {
                for (const Box& part : boxes.information) {
                    if (part.type == boxType("stbl"))
                        writer_.box(part.type, writeTable);
                    else
                        writer_.write(part.whole);
                }
            });
        } else {
            writer_.write(box.whole);
        }
    }
}

} // namespace

Result<std::vector<MovieTrack>> readHead(Bytes content)
{
    const auto boxes = readBoxes(content);
    const auto header = boxes ? readTimedHeaderIn(*boxes, boxType("mvhd")) : std::nullopt;
    if (!header || header->middle.front() == 0)
        return wrong("a movie without a header");
    const auto defaults = readBoxesIn(*boxes, boxType("mvex"));
    if (!defaults)
        return wrong("a movie without fragments");
    std::vector<MovieTrack> tracks;
    for (const Box& box : *boxes) {
        if (box.type != boxType("trak"))
            continue;
        auto track = readTrack(box.content, *defaults, header->middle.front());
        if (!track)
            return tl::make_unexpected(track.error());
        const auto isKnown = [&](const MovieTrack& other) { return other.fragments.id == track->fragments.id; };
        if (tracks.size() == mostTracks || std::any_of(tracks.begin(), tracks.end(), isKnown))
            return wrong("too many tracks");
        tracks.push_back(std::move(*track));
    }
    if (std::none_of(tracks.begin(), tracks.end(), [](const MovieTrack& track) { return track.isVideo; }))
        return wrong("a movie without a track of pictures");
    return tracks;
}

Result<std::vector<std::uint8_t>> writeIndex(Bytes head, const std::vector<MovieTrack>& tracks)
{
    // Times of the movie itself are told in the units of its sound, so that sound can begin at any sample.
    const auto sound =
        std::find_if(tracks.begin(), tracks.end(), [](const MovieTrack& track) { return !track.isVideo; });
    const std::uint32_t timescale = sound == tracks.end() ? tracks.front().timescale : sound->timescale;
    return IndexWriter(tracks, timescale).write(*readBoxes(head));
}

} // namespace nimbrale::ffmpeg
