#include "platform/ffmpeg/movie_encoding.h"

#include "platform/log.h"

#include <algorithm>
#include <thread>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace nimbrale::ffmpeg {

namespace {

using std::chrono::nanoseconds;

/// A second of sound takes a few milliseconds: a silence of an hour must not hold up the pictures.
constexpr int soundFramesAtOnce = 47;

/// The nearest one.
std::int64_t ticksOf(nanoseconds time, int ticksPerSecond)
{
    return av_rescale(time.count(), ticksPerSecond, std::nano::den);
}

bool haveSameHeaders(const AVCodecContext& one, const AVCodecContext& other)
{
    return std::equal(one.extradata, one.extradata + one.extradata_size, other.extradata,
                      other.extradata + other.extradata_size);
}

} // namespace

MovieEncoding::MovieEncoding(const MovieVideo& settings, const QueueWatch& queue,
                             std::function<void()> onHardwareFailure)
    : settings_(settings), watch_(queue), onHardwareFailure_(std::move(onHardwareFailure))
{}

Result<void> MovieEncoding::openVideo(std::unique_ptr<WatchedEncoder> hardware)
{
    if (hardware) {
        hardware_ = std::move(hardware);
        return {};
    }
    effort_ = initialEffort(settings_, std::thread::hardware_concurrency());
    auto video = VideoEncoder::create(settings_, effort_);
    if (!video)
        return tl::make_unexpected(video.error());
    processor_ = *std::move(video);
    return {};
}

const AVCodecContext& MovieEncoding::videoContext() const
{
    return hardware_ ? hardware_->context() : processor_->context();
}

Result<std::unique_ptr<MovieEncoding>> MovieEncoding::create(const MovieSettings& settings, int descriptor,
                                                             const QueueWatch& queue, HardwareVideo hardware)
{
    std::unique_ptr<MovieEncoding> encoding(new MovieEncoding(settings.video, queue, std::move(hardware.onFailure)));
    if (const Result<void> opened = encoding->openVideo(std::move(hardware.encoder)); !opened)
        return tl::make_unexpected(opened.error());
    if (settings.audio) {
        auto audio = AudioEncoder::create(*settings.audio);
        if (!audio)
            return tl::make_unexpected(audio.error());
        encoding->audio_ = *std::move(audio);
    }
    auto pieces = PieceWriter::create(encoding->videoContext(),
                                      encoding->audio_ ? &encoding->audio_->context() : nullptr, descriptor);
    if (!pieces)
        return tl::make_unexpected(pieces.error());
    encoding->pieces_ = *std::move(pieces);
    return encoding;
}

Result<void> MovieEncoding::addPicture(std::shared_ptr<const AVFrame> picture, nanoseconds time, std::size_t waiting)
{
    if (hasLostVideo_)
        return {};
    watch_.note(waiting, std::chrono::steady_clock::now().time_since_epoch());
    // The movie begins with a picture, whenever the first one came.
    const std::int64_t tick =
        hasPicture() ? std::max(ticksOf(time, videoTicksPerSecond), lastTick_ + 1) : std::int64_t{0};
    lastPicture_ = std::move(picture);
    return encodePicture(tick);
}

Result<void> MovieEncoding::repeatPicture(nanoseconds time)
{
    const std::int64_t tick = ticksOf(time, videoTicksPerSecond);
    if (hasLostVideo_ || !hasPicture() || tick <= lastTick_)
        return {};
    const Result<void> encoded = encodePicture(tick);
    return encoded ? pieces_->endPieceEarly() : encoded;
}

bool MovieEncoding::isKeyPictureDue(std::int64_t tick) const
{
    // By time: of a screen that seldom changes, a number of pictures may be any time. Half a picture's time before it
    // is due counts as due, or a picture that came a bit early would put it off by one.
    const std::int64_t picture = videoTicksPerSecond / settings_.expectedFrameRate;
    return lastKeyTick_ < 0 || tick - lastKeyTick_ >= settings_.maximumKeyFrameInterval * picture - picture / 2;
}

bool MovieEncoding::takeLessEffort()
{
    // Two key pictures in a row, by two encoders that do not know of each other, could bear the same number.
    if (hardware_ || effort_ != EncoderEffort::careful || !watch_.isOverloaded() || lastTick_ == lastKeyTick_)
        return false;
    effort_ = EncoderEffort::quick;
    auto quick = VideoEncoder::create(settings_, effort_);
    if (!quick || !haveSameHeaders((*quick)->context(), processor_->context())) {
        qCWarning(recordingLog, "The encoder does not keep up, and there is no quicker one.");
        return false;
    }
    qCInfo(recordingLog, "The encoder does not keep up and goes on with less effort.");
    processor_ = *std::move(quick);
    return true;
}

Result<void> MovieEncoding::encodePicture(std::int64_t tick)
{
    const PictureKind kind = takeLessEffort() || isKeyPictureDue(tick) ? PictureKind::key : PictureKind::any;
    Result<PacketHandle> packet =
        hardware_ ? hardware_->encode(lastPicture_, tick, kind) : processor_->encode(*lastPicture_, tick, kind);
    if (!packet) {
        loseVideo();
        return tl::make_unexpected(packet.error());
    }
    if (((*packet)->flags & AV_PKT_FLAG_KEY) != 0)
        lastKeyTick_ = tick;
    lastTick_ = tick;
    return pieces_->addVideo(*std::move(packet));
}

void MovieEncoding::loseVideo()
{
    hasLostVideo_ = true;
    if (hardware_ && onHardwareFailure_)
        onHardwareFailure_();
}

void MovieEncoding::addSound(const AudioBuffer& sound, nanoseconds time)
{
    audio_->append(sound, ticksOf(time, audio_->context().sample_rate));
}

Result<void> MovieEncoding::encodeSound()
{
    Result<std::vector<PacketHandle>> packets = audio_->encode(soundFramesAtOnce);
    if (!packets)
        return tl::make_unexpected(packets.error());
    for (PacketHandle& packet : *packets) {
        if (Result<void> added = pieces_->addAudio(std::move(packet)); !added)
            return added;
    }
    return {};
}

Result<void> MovieEncoding::finish(nanoseconds time)
{
    const std::int64_t end = std::max(ticksOf(time, videoTicksPerSecond), lastTick_ + 1);
    const std::int64_t picture = videoTicksPerSecond / settings_.expectedFrameRate;
    // Players differ in how long they show the last picture, whatever the file says.
    const Result<void> repeated =
        !hasLostVideo_ && end - lastTick_ > picture ? encodePicture(end - picture) : Result<void>();
    if (!repeated && !hasLostVideo_)
        return repeated;
    if (audio_)
        audio_->endAt(ticksOf(time, audio_->context().sample_rate));
    while (hasSound()) {
        if (Result<void> encoded = encodeSound(); !encoded)
            return encoded;
    }
    const Result<void> ended = pieces_->end(end);
    return ended ? repeated : ended;
}

} // namespace nimbrale::ffmpeg
