#include "platform/pipewire/audio_source.h"

#include "platform/log.h"
#include "platform/pipewire/sound_chunk.h"

#include <array>
#include <spa/param/audio/format-utils.h>
#include <span>
#include <utility>

namespace nimbrale::pipewire {

namespace {

constexpr auto sampleRate = static_cast<int>(soundSamplesPerSecond);
/// How long the daemon may take to answer when a source is opened.
constexpr std::chrono::milliseconds longestOpening{1000};
/// How long closing may wait for it.
constexpr std::chrono::milliseconds longestClosing{500};
constexpr std::chrono::milliseconds retryDelay{1000};
/// How long a device that was sent to sleep may take to wake up.
constexpr std::chrono::milliseconds wakingDelay{100};

/// CLOCK_MONOTONIC.
std::chrono::nanoseconds now()
{
    return std::chrono::steady_clock::now().time_since_epoch();
}

/// When the first sample of the piece that the stream just got was heard; the earliest of times where the daemon does
/// not say.
std::chrono::nanoseconds measuredTime(pw_stream* stream)
{
    pw_time time{};
    if (pw_stream_get_time_n(stream, &time, sizeof time) < 0 || time.now <= 0 || time.rate.denom == 0)
        return std::chrono::nanoseconds::min();
    constexpr auto second = static_cast<std::int64_t>(SPA_NSEC_PER_SEC);
    const std::int64_t delay = time.delay * second * time.rate.num / time.rate.denom;
    const std::int64_t buffered = static_cast<std::int64_t>(time.buffered) * second / sampleRate;
    return std::chrono::nanoseconds{time.now - delay - buffered};
}

} // namespace

struct AudioSource::Events {
    static AudioSource& of(void* data) { return *static_cast<AudioSource*>(data); }

    static void stateChanged(void* data, pw_stream_state /*before*/, pw_stream_state state, const char* error)
    {
        if (state == PW_STREAM_STATE_ERROR)
            of(data).tryAgainLater(error ? error : "an error");
        else if (state == PW_STREAM_STATE_UNCONNECTED)
            of(data).tryAgainLater("it is not connected any more");
    }

    static void parameterChanged(void* data, std::uint32_t kind, const spa_pod* parameter)
    {
        if (kind == SPA_PARAM_Format)
            of(data).changeFormat(parameter);
    }

    static void process(void* data) { of(data).takeSound(); }
    static void soundIsThere(void* data, std::uint64_t /*count*/) { of(data).handOver(); }

    static void retryIsDue(void* data, std::uint64_t /*expirations*/)
    {
        AudioSource& self = of(data);
        self.stopStream();
        if (!self.nodes_.empty())
            self.startStream();
    }
};

Result<std::unique_ptr<OpenAudioSource>> AudioSource::open(std::optional<std::string> microphone, AudioHandler onAudio)
{
    std::unique_ptr<AudioSource> source(new AudioSource(std::move(microphone), std::move(onAudio)));
    if (const Result<void> started = source->start(); !started)
        return tl::make_unexpected(started.error());
    return source;
}

AudioSource::AudioSource(std::optional<std::string> microphone, AudioHandler onAudio)
    : microphone_(std::move(microphone)), onAudio_(std::move(onAudio)),
      connection_("nimbrale-sound",
                  {.onConnected = [this](DaemonConnection& connection) { watch(connection); },
                   .onGone = [this] { nodes_.clear(); },
                   .onRelease =
                       [this] {
                           stopStream();
                           sleeps_.clear();
                           watch_.reset();
                       }},
                  DataPriority::realTime)
{}

AudioSource::~AudioSource()
{
    isClosing_ = true;
    if (connection_.loop()) {
        const LoopLock lock(connection_.loop());
        DaemonConnection* const connection = connection_.connection();
        // What the daemon has sent to the stream may carry descriptors, which the library loses once the stream is
        // gone.
        const bool isAnswering = connection && connection->settle(longestClosing);
        stopStream();
        if (isAnswering)
            static_cast<void>(connection->settle(longestClosing));
    }
    connection_.stop();
    retryTimer_.reset();
    soundIsThere_.reset();
}

Result<void> AudioSource::start()
{
    const Error noAnswer{ErrorCode::temporary, "The system's sound service (PipeWire) does not answer."};
    if (!connection_.loop())
        return tl::make_unexpected(noAnswer);
    pw_loop* const loop = pw_thread_loop_get_loop(connection_.loop());
    soundIsThere_ = {loop, pw_loop_add_event(loop, &Events::soundIsThere, this)};
    retryTimer_ = {loop, pw_loop_add_timer(loop, &Events::retryIsDue, this)};
    if (!connection_.start())
        return tl::make_unexpected(noAnswer);
    const LoopLock lock(connection_.loop());
    DaemonConnection* const connection = connection_.connection();
    if (!connection || !connection->settle(longestOpening))
        return tl::make_unexpected(noAnswer);
    if (!nodes_.empty())
        return {};
    if (!microphone_)
        return fail(ErrorCode::unsupported, "There is no sound output that could be listened to.");
    qCWarning(recordingLog, "The microphone %s is not there; it is heard once it is.", name());
    return {};
}

void AudioSource::watch(DaemonConnection& connection)
{
    watch_ = NodeWatch::start(
        connection,
        {.onAdded = [this](std::uint32_t number, const NodeProperties& properties) { nodeAdded(number, properties); },
         .onRemoved = [this](std::uint32_t number) { nodeRemoved(number); }});
}

void AudioSource::nodeAdded(std::uint32_t number, const NodeProperties& properties)
{
    const bool isWanted = microphone_ ? isMicrophone(properties) && properties.name && *microphone_ == properties.name
                                      : isLoudspeaker(properties);
    if (!isWanted)
        return;
    nodes_.insert(number);
    sleeps_.try_emplace(number, watch_->bindNode(number), [this] { nodeFellAsleep(); });
    if (!stream_)
        startStream();
}

void AudioSource::nodeRemoved(std::uint32_t number)
{
    sleeps_.erase(number);
    if (nodes_.erase(number) == 0 || !nodes_.empty())
        return;
    if (microphone_)
        qCWarning(recordingLog, "The microphone %s is gone; it is heard again once it is back.", name());
    stopStream();
}

/// A stream that a device wakes up for again gets nothing but silence from it.
void AudioSource::nodeFellAsleep()
{
    if (stream_)
        tryAgainAfter(wakingDelay);
}

void AudioSource::startStream()
{
    pw_properties* const properties = pw_properties_new(
        PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Capture", PW_KEY_MEDIA_ROLE, "Production", PW_KEY_NODE_NAME,
        microphone_ ? "nimbrale-microphone" : "nimbrale-system-audio", PW_KEY_APP_NAME, "Nimbrale",
        PW_KEY_APP_ICON_NAME, "nimbrale", PW_KEY_NODE_LATENCY, "480/48000", nullptr);
    if (microphone_) {
        // It stays with this microphone: another one must not be heard in its place when it goes.
        pw_properties_set(properties, PW_KEY_TARGET_OBJECT, microphone_->c_str());
        pw_properties_set(properties, PW_KEY_NODE_DONT_RECONNECT, "true");
    } else {
        pw_properties_set(properties, PW_KEY_STREAM_CAPTURE_SINK, "true");
    }
    stream_.reset(pw_stream_new(connection_.connection()->core(), "nimbrale-sound", properties)); // It owns them.
    if (!stream_) {
        tryAgainLater("no stream");
        return;
    }
    streamOfData_ = stream_.get();
    static const pw_stream_events events = [] {
        pw_stream_events list{};
        list.version = PW_VERSION_STREAM_EVENTS;
        list.state_changed = Events::stateChanged;
        list.param_changed = Events::parameterChanged;
        list.process = Events::process;
        return list;
    }();
    pw_stream_add_listener(stream_.get(), streamListener_.hook(), &events, this);

    // A microphone is heard with as many channels as it has.
    spa_audio_info_raw format{};
    format.format = SPA_AUDIO_FORMAT_F32;
    format.rate = sampleRate;
    if (!microphone_) {
        format.channels = 2;
        format.position[0] = SPA_AUDIO_CHANNEL_FL;
        format.position[1] = SPA_AUDIO_CHANNEL_FR;
    }
    std::array<std::uint8_t, 1024> bytes{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    const spa_pod* offer = spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &format);
    constexpr auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                                                        PW_STREAM_FLAG_RT_PROCESS);
    if (pw_stream_connect(stream_.get(), PW_DIRECTION_INPUT, PW_ID_ANY, flags, &offer, 1) != 0)
        tryAgainLater("it cannot be connected");
}

void AudioSource::stopStream()
{
    streamListener_.stop();
    stream_.reset();
    channels_ = 0;
    pw_loop_update_timer(pw_thread_loop_get_loop(connection_.loop()), retryTimer_.get(), nullptr, nullptr, false);
}

// The stream goes later: this is called from within it.
void AudioSource::tryAgainLater(const char* reason)
{
    if (!std::exchange(hasLoggedProblem_, true))
        qCWarning(recordingLog, "No sound of %s for now: %s", name(), reason);
    tryAgainAfter(retryDelay);
}

void AudioSource::tryAgainAfter(std::chrono::milliseconds delay)
{
    timespec time = timeOf(delay);
    pw_loop_update_timer(pw_thread_loop_get_loop(connection_.loop()), retryTimer_.get(), &time, nullptr, false);
}

void AudioSource::changeFormat(const spa_pod* parameter)
{
    spa_audio_info_raw format{};
    if (parameter && spa_format_audio_raw_parse(parameter, &format) >= 0)
        channels_ = static_cast<int>(format.channels);
    else
        channels_ = 0;
}

// Called by the daemon's thread for data, which must not wait.
void AudioSource::takeSound()
{
    pw_stream* const stream = streamOfData_;
    pw_buffer* const buffer = pw_stream_dequeue_buffer(stream);
    if (!buffer)
        return;
    const int channels = channels_;
    const std::span<const float> samples = samplesIn(*buffer->buffer, channels);
    if (!samples.empty()) {
        const std::size_t count = samples.size() / static_cast<std::size_t>(channels);
        if (!ring_.write(plausibleTime(measuredTime(stream), now(), count), channels, samples))
            hasOverrun_ = true;
        pw_loop_signal_event(pw_thread_loop_get_loop(connection_.loop()), soundIsThere_.get());
    }
    pw_stream_queue_buffer(stream, buffer);
}

void AudioSource::handOver()
{
    if (hasOverrun_ && !std::exchange(hasLoggedOverrun_, true))
        qCWarning(recordingLog, "Sound of %s was lost: it comes faster than it is taken.", name());
    while (auto piece = ring_.read()) {
        const auto channels = static_cast<std::size_t>(piece->channels);
        const auto place = timeline_.place(piece->time, piece->samples.size() / channels);
        if (!place || isClosing_)
            continue;
        hasLoggedProblem_ = false;
        onAudio_(playableSound(piece->samples, piece->channels, place->skipped), place->time);
    }
}

const char* AudioSource::name() const
{
    return microphone_ ? microphone_->c_str() : "the computer";
}

} // namespace nimbrale::pipewire
