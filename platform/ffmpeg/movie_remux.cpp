#include "platform/ffmpeg/movie_remux.h"

#include "platform/ffmpeg/av_handles.h"
#include "platform/ffmpeg/movie_boxes.h"

#include <array>
#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavformat/avformat.h>
}

namespace nimbrale::ffmpeg {

namespace {

constexpr int bufferSize = 1 << 16;

auto failed(const char* step, int error)
{
    return fail(ErrorCode::permanent, std::string(step) + ": " + avErrorText(error));
}

/// A file as the library reads and writes it. The descriptor stays the caller's.
class FileStream {
public:
    enum class Direction { read, write };

    FileStream(int file, Direction direction)
        : file_(file), context_(avio_alloc_context(static_cast<unsigned char*>(av_malloc(bufferSize)), bufferSize,
                                                   direction == Direction::write ? 1 : 0, this, read, write, seek))
    {}
    ~FileStream()
    {
        av_freep(&context_->buffer);
        avio_context_free(&context_);
    }
    FileStream(const FileStream&) = delete;
    FileStream& operator=(const FileStream&) = delete;

    [[nodiscard]] AVIOContext* context() const { return context_; }

private:
    static int read(void* stream, std::uint8_t* bytes, int count)
    {
        const ssize_t done = ::read(static_cast<FileStream*>(stream)->file_, bytes, static_cast<std::size_t>(count));
        if (done < 0)
            return AVERROR(errno);
        return done == 0 ? AVERROR_EOF : static_cast<int>(done);
    }
    static int write(void* stream, std::uint8_t* bytes, int count)
    {
        for (int done = 0; done < count;) {
            const ssize_t step =
                ::write(static_cast<FileStream*>(stream)->file_, bytes + done, static_cast<std::size_t>(count - done));
            if (step < 0 && errno != EINTR)
                return AVERROR(errno);
            done += static_cast<int>(step < 0 ? 0 : step);
        }
        return count;
    }
    static std::int64_t seek(void* stream, std::int64_t offset, int origin)
    {
        const int file = static_cast<FileStream*>(stream)->file_;
        if (origin & AVSEEK_SIZE) {
            struct stat status {};
            return ::fstat(file, &status) == 0 ? status.st_size : AVERROR(errno);
        }
        const off_t position = ::lseek(file, static_cast<off_t>(offset), origin & ~AVSEEK_FORCE);
        return position < 0 ? AVERROR(errno) : position;
    }

    int file_;
    AVIOContext* context_;
};

struct CloseInput {
    void operator()(AVFormatContext* input) const { avformat_close_input(&input); }
};
using Input = std::unique_ptr<AVFormatContext, CloseInput>;

Result<Input> openInput(const FileStream& stream)
{
    AVFormatContext* context = avformat_alloc_context();
    context->pb = stream.context();
    // Named, so that the content does not choose among the library's many formats.
    if (const int error = avformat_open_input(&context, "", av_find_input_format("mov"), nullptr); error < 0)
        return failed("opening the pieces", error);
    return Input(context);
}

Result<FormatContextHandle> openOutput(const FileStream& stream, const AVFormatContext& input)
{
    AVFormatContext* context = nullptr;
    if (const int error = avformat_alloc_output_context2(&context, nullptr, "mov", nullptr); error < 0)
        return failed("making a movie", error);
    FormatContextHandle output(context);
    output->pb = stream.context();
    for (unsigned int i = 0; i < input.nb_streams; ++i) {
        const AVStream* const from = input.streams[i];
        AVStream* const to = avformat_new_stream(output.get(), nullptr);
        if (to == nullptr || avcodec_parameters_copy(to->codecpar, from->codecpar) < 0)
            return failed("making a track", AVERROR(ENOMEM));
        to->time_base = from->time_base;
        to->avg_frame_rate = from->avg_frame_rate;
    }
    if (const int error = avformat_write_header(output.get(), nullptr); error < 0)
        return failed("beginning the movie", error);
    return output;
}

/// How many bytes of media a file has: all of it but the other boxes, and what is cut off at its end.
std::int64_t mediaSize(int file)
{
    std::int64_t media = 0;
    std::array<std::uint8_t, BoxHeader::largest> bytes{};
    std::int64_t position = 0;
    const off_t size = ::lseek(file, 0, SEEK_END);
    while (position < size) {
        const ssize_t count = ::pread(file, bytes.data(), bytes.size(), static_cast<off_t>(position));
        const auto header =
            count < 0 ? std::nullopt : readBoxHeader(Bytes(bytes).first(static_cast<std::size_t>(count)));
        if (!header)
            return media + size - position;
        if (header->type == boxType("mdat") && header->size <= size - position)
            media += header->size - static_cast<std::int64_t>(header->length);
        position += header->size;
    }
    return media;
}

/// Returns how many bytes of media were copied.
Result<std::int64_t> copyPackets(AVFormatContext& input, AVFormatContext& output)
{
    std::int64_t copied = 0;
    const PacketHandle packet = newPacket();
    while (av_read_frame(&input, packet.get()) >= 0) {
        const AVStream* const from = input.streams[packet->stream_index];
        // The last one may be cut off.
        if (packet->flags & AV_PKT_FLAG_CORRUPT) {
            av_packet_unref(packet.get());
            continue;
        }
        av_packet_rescale_ts(packet.get(), from->time_base, output.streams[packet->stream_index]->time_base);
        packet->pos = -1;
        copied += packet->size;
        if (const int error = av_interleaved_write_frame(&output, packet.get()); error < 0)
            return failed("copying", error);
    }
    if (const int error = av_write_trailer(&output); error < 0)
        return failed("ending the movie", error);
    return copied;
}

} // namespace

Result<void> remuxMovie(int from, int to)
{
    if (::lseek(from, 0, SEEK_SET) != 0)
        return failed("going to the beginning", AVERROR(errno));
    const FileStream source(from, FileStream::Direction::read);
    const FileStream target(to, FileStream::Direction::write);
    const Result<Input> input = openInput(source);
    if (!input)
        return tl::make_unexpected(input.error());
    const Result<FormatContextHandle> output = openOutput(target, **input);
    if (!output)
        return tl::make_unexpected(output.error());
    const Result<std::int64_t> copied = copyPackets(**input, **output);
    if (!copied)
        return tl::make_unexpected(copied.error());
    // The pieces are given up for the copy, which therefore must not be what the library could make of damaged ones.
    if (*copied / 19 < mediaSize(from) / 20)
        return fail(ErrorCode::permanent, "too little could be read");
    return {};
}

} // namespace nimbrale::ffmpeg
