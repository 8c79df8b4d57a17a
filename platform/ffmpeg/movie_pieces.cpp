#include "platform/ffmpeg/movie_pieces.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace nimbrale::ffmpeg {

namespace {

/// What one second needs is a few kilobytes.
constexpr std::int64_t largestHead = 1 << 20;
/// Less of a head or of a piece's head may be cut off than this: where more of the file is left, its size is wrong.
constexpr std::int64_t largestCutHead = 1 << 16;
/// The index of a movie of a day has 100 MB.
constexpr std::int64_t largestIndex = std::int64_t{1} << 28;
constexpr int mostPaddings = 100;

auto wrong(const char* what)
{
    return fail(ErrorCode::permanent, what);
}

bool isPadding(BoxType type)
{
    return type == boxType("free") || type == boxType("skip") || type == boxType("wide") || type == boxType("mfra");
}

class PiecesReader {
public:
    PiecesReader(int file, std::int64_t size) : file_(file), size_(size) {}

    [[nodiscard]] Result<MoviePieces> read();
    /// Why the file could not be read, or 0; what was made of it means nothing then.
    [[nodiscard]] int error() const { return error_; }

private:
    /// What is at a position.
    enum class Found { box, cut, other };
    /// What was made of it.
    enum class Step { next, cut, other };

    [[nodiscard]] Found findBox(std::int64_t position, BoxHeader& header);
    [[nodiscard]] bool isWhole(std::int64_t position, const BoxHeader& header) const
    {
        return header.size <= size_ - position;
    }
    [[nodiscard]] std::vector<std::uint8_t> readBytes(std::int64_t position, std::int64_t count);
    [[nodiscard]] Result<MoviePieces> readOrdinary(std::int64_t position, const BoxHeader& media);
    [[nodiscard]] Result<MoviePieces> readFromHead(std::int64_t position, const BoxHeader& head);
    [[nodiscard]] Result<Step> readBox(std::int64_t& position, MoviePieces& pieces);
    [[nodiscard]] Result<Step> readPiece(std::int64_t& position, const BoxHeader& header, MoviePieces& pieces);

    int file_;
    std::int64_t size_;
    int paddings_ = 0;
    int error_ = 0;
};

std::vector<std::uint8_t> PiecesReader::readBytes(std::int64_t position, std::int64_t count)
{
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(std::min(count, size_ - position)));
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t step = ::pread(file_, bytes.data() + done, bytes.size() - done,
                                     static_cast<off_t>(position + static_cast<std::int64_t>(done)));
        if (step < 0 && errno == EINTR)
            continue;
        if (step <= 0) {
            error_ = step < 0 ? errno : EIO; // It has become shorter.
            return {};
        }
        done += static_cast<std::size_t>(step);
    }
    return bytes;
}

PiecesReader::Found PiecesReader::findBox(std::int64_t position, BoxHeader& header)
{
    const std::vector<std::uint8_t> bytes = readBytes(position, BoxHeader::largest);
    if (const auto read = readBoxHeader(bytes)) {
        header = *read;
        return Found::box;
    }
    const bool isLong = bytes.size() >= 4 && bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 0 && bytes[3] == 1;
    return bytes.size() < (isLong ? BoxHeader::largest : BoxHeader::smallest) ? Found::cut : Found::other;
}

Result<MoviePieces> PiecesReader::read()
{
    BoxHeader header;
    const Found first = findBox(0, header);
    if (first == Found::cut)
        return MoviePieces();
    if (first == Found::other || header.type != boxType("ftyp"))
        return wrong("no movie");
    std::int64_t position = 0;
    do {
        if (!isWhole(position, header))
            return size_ <= largestCutHead ? Result<MoviePieces>(MoviePieces()) : wrong("a beginning that is too long");
        position += header.size;
        const Found next = findBox(position, header);
        if (next == Found::cut)
            return MoviePieces();
        if (next == Found::other || ++paddings_ > mostPaddings)
            return wrong("no movie behind its type");
    } while (isPadding(header.type));
    if (header.type == boxType("mdat"))
        return readOrdinary(position, header);
    return header.type == boxType("moov") ? readFromHead(position, header) : wrong("neither pieces nor a movie");
}

Result<MoviePieces> PiecesReader::readOrdinary(std::int64_t position, const BoxHeader& media)
{
    BoxHeader header;
    if (!isWhole(position, media) || findBox(position + media.size, header) != Found::box)
        return wrong("a movie without an index");
    position += media.size;
    if (header.type != boxType("moov") || header.size != size_ - position || header.size > largestIndex)
        return wrong("a movie without a whole index");
    const std::vector<std::uint8_t> index = readBytes(position, header.size);
    const auto boxes = readBoxes(Bytes(index).subspan(std::min(header.length, index.size())));
    if (!boxes || onlyBox(*boxes, boxType("mvhd")) == nullptr || onlyBox(*boxes, boxType("mvex")) != nullptr)
        return wrong("a movie whose index is none");
    MoviePieces pieces;
    pieces.kind = MoviePieces::Kind::ordinary;
    return pieces;
}

Result<MoviePieces> PiecesReader::readFromHead(std::int64_t position, const BoxHeader& head)
{
    MoviePieces pieces;
    if (head.size > largestHead)
        return wrong("a head that is too long");
    if (!isWhole(position, head))
        return size_ <= largestCutHead ? Result<MoviePieces>(pieces) : wrong("a head that is longer than it says");
    pieces.headOffset = position;
    pieces.head = readBytes(position + static_cast<std::int64_t>(head.length),
                            head.size - static_cast<std::int64_t>(head.length));
    auto tracks = readHead(pieces.head);
    if (!tracks)
        return tl::make_unexpected(tracks.error());
    pieces.tracks = std::move(*tracks);

    position += head.size;
    Step step = Step::next;
    while (step == Step::next && position < size_) {
        pieces.end = position;
        const Result<Step> read = readBox(position, pieces);
        if (!read)
            return tl::make_unexpected(read.error());
        step = *read;
    }
    if (step != Step::cut)
        pieces.end = size_;
    const bool hasPictures = std::any_of(pieces.tracks.begin(), pieces.tracks.end(), [](const MovieTrack& track) {
        return track.isVideo && track.samples.sampleCount() > 0;
    });
    if (!hasPictures && step == Step::other)
        return wrong("pieces that are none");
    pieces.kind = hasPictures ? MoviePieces::Kind::pieces : MoviePieces::Kind::empty;
    return pieces;
}

Result<PiecesReader::Step> PiecesReader::readBox(std::int64_t& position, MoviePieces& pieces)
{
    BoxHeader header;
    const Found found = findBox(position, header);
    if (found != Found::box)
        return found == Found::cut ? Step::cut : Step::other;
    if (header.type == boxType("moof"))
        return readPiece(position, header, pieces);
    // An index that was not finished ends with the file, or would go on.
    if (header.type == boxType("moov"))
        return header.size >= size_ - position ? Step::cut : Step::other;
    if (!isPadding(header.type) || ++paddings_ > mostPaddings || !isWhole(position, header))
        return Step::other;
    position += header.size;
    return Step::next;
}

Result<PiecesReader::Step> PiecesReader::readPiece(std::int64_t& position, const BoxHeader& header, MoviePieces& pieces)
{
    if (header.size > largestHead)
        return Step::other;
    if (!isWhole(position, header))
        return size_ - position <= largestCutHead ? Step::cut : Step::other;
    std::vector<FragmentTrack> tracks;
    for (MovieTrack& track : pieces.tracks) {
        track.fragments.nextTime = track.samples.endTime();
        tracks.push_back(track.fragments);
    }
    const std::vector<std::uint8_t> content = readBytes(position, header.size);
    const auto runs = readFragment(Bytes(content).subspan(std::min(header.length, content.size())), position, tracks);
    if (!runs && runs.error().code == ErrorCode::unsupported)
        return tl::make_unexpected(runs.error());
    if (!runs)
        return Step::other;

    const std::int64_t mediaPosition = position + header.size;
    BoxHeader media;
    const Found found = findBox(mediaPosition, media);
    if (found == Found::cut)
        return Step::cut;
    if (found == Found::other || media.type != boxType("mdat"))
        return Step::other;
    // Its size is believed only where the samples say the same, since what follows in the file goes by it.
    const std::int64_t begin = mediaPosition + static_cast<std::int64_t>(media.length);
    std::int64_t end = begin;
    for (const SampleRun& run : *runs) {
        if (run.offset < begin)
            return Step::other;
        end = std::max(end, run.offset + run.size);
    }
    if (end != mediaPosition + media.size)
        return Step::other;
    if (!isWhole(mediaPosition, media))
        return Step::cut;
    for (const SampleRun& run : *runs) {
        if (!pieces.tracks[run.track].samples.append(run))
            return Step::other;
    }
    position = end;
    return Step::next;
}

} // namespace

Result<MoviePieces> readPieces(int file)
{
    struct stat status {};
    if (::fstat(file, &status) != 0)
        return fail(ErrorCode::temporary, std::strerror(errno));
    PiecesReader reader(file, status.st_size);
    Result<MoviePieces> pieces = reader.read();
    if (reader.error() != 0)
        return fail(ErrorCode::temporary, std::strerror(reader.error()));
    return pieces;
}

} // namespace nimbrale::ffmpeg
