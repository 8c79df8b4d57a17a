#include "platform/pulseaudio/audio_source.h"

#include "platform/log.h"
#include "platform/pulseaudio/source_list.h"

#include <span>
#include <utility>

namespace nimbrale::pulseaudio {

namespace {

constexpr auto sampleRate = static_cast<int>(soundSamplesPerSecond);
/// How long the server may take to answer when a source is opened.
constexpr std::chrono::milliseconds longestOpening{1000};
constexpr std::chrono::microseconds retryDelay{1'000'000};
/// How much sound comes at a time.
constexpr int samplesAtATime = sampleRate / 100;
/// How often the server is asked where the stream is, in such pieces.
constexpr int piecesBetweenQuestions = 10;
constexpr auto watched = static_cast<pa_subscription_mask_t>(PA_SUBSCRIPTION_MASK_SOURCE | PA_SUBSCRIPTION_MASK_SINK |
                                                             PA_SUBSCRIPTION_MASK_SERVER);

/// CLOCK_MONOTONIC.
std::chrono::nanoseconds now()
{
    return std::chrono::steady_clock::now().time_since_epoch();
}

} // namespace

struct AudioSource::Events {
    static AudioSource& of(void* data) { return *static_cast<AudioSource*>(data); }

    static void serverTold(pa_context* context, const pa_server_info* server, void* data)
    {
        AudioSource& self = of(data);
        if (server && server->default_sink_name)
            self.sourceQuestion_.reset(
                pa_context_get_sink_info_by_name(context, server->default_sink_name, &sinkTold, data));
        else
            self.missed();
    }

    static void sinkTold(pa_context* /*context*/, const pa_sink_info* sink, int end, void* data)
    {
        if (end == 0 && sink->monitor_source_name)
            of(data).use(sink->monitor_source_name, 2);
        else if (end < 0)
            of(data).missed();
    }

    static void sourceTold(pa_context* /*context*/, const pa_source_info* source, int end, void* data)
    {
        if (end == 0 && isMicrophone(*source))
            of(data).use(source->name, source->sample_spec.channels == 1 ? 1 : 2);
        else if (end <= 0)
            of(data).missed();
    }

    static void streamChanged(pa_stream* stream, void* data)
    {
        const pa_stream_state_t state = pa_stream_get_state(stream);
        if (state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED)
            of(data).tryAgainLater(pa_strerror(pa_context_errno(pa_stream_get_context(stream))));
        else if (state == PA_STREAM_READY)
            of(data).askForTimes();
    }

    static void timesAreTold(pa_stream* stream, int isAnswered, void* data)
    {
        AudioSource& self = of(data);
        const pa_timing_info* const answer = pa_stream_get_timing_info(stream);
        if (isAnswered != 0 && answer)
            self.times_.note(*answer, *pa_stream_get_sample_spec(stream), self.asked_, now());
        self.timesQuestion_.reset();
    }

    static void soundIsThere(pa_stream* /*stream*/, std::size_t /*bytes*/, void* data) { of(data).takeSound(); }
    static void retryIsDue(void* data)
    {
        if (of(data).context_)
            of(data).look();
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
    : microphone_(std::move(microphone)), onAudio_(std::move(onAudio)), connection_("nimbrale-sound", watched,
                                                                                    {.onConnected =
                                                                                         [this](pa_context* context) {
                                                                                             context_ = context;
                                                                                             look();
                                                                                         },
                                                                                     .onChanged = [this] { look(); },
                                                                                     .onGone =
                                                                                         [this] {
                                                                                             stopStream();
                                                                                             outputQuestion_.reset();
                                                                                             sourceQuestion_.reset();
                                                                                             context_ = nullptr;
                                                                                             found(Finding::noServer);
                                                                                         }})
{
    if (connection_.loop())
        retryTimer_.emplace(pa_threaded_mainloop_get_api(connection_.loop()), &Events::retryIsDue, this);
}

AudioSource::~AudioSource()
{
    isClosing_ = true;
    connection_.stop();
}

Result<void> AudioSource::start()
{
    const Error noAnswer{ErrorCode::temporary, "The system's sound service (PulseAudio) does not answer."};
    if (!connection_.start())
        return tl::make_unexpected(noAnswer);
    std::unique_lock lock(findingMutex_);
    findingChanged_.wait_for(lock, longestOpening, [this] { return finding_ != Finding::nothingYet; });
    if (finding_ == Finding::source)
        return {};
    if (finding_ != Finding::noSource)
        return tl::make_unexpected(noAnswer);
    if (!microphone_)
        return fail(ErrorCode::unsupported, "There is no sound output that could be listened to.");
    return {};
}

/// Only the first look counts: whoever opens waits for no other.
void AudioSource::found(Finding finding)
{
    const std::lock_guard lock(findingMutex_);
    if (finding_ != Finding::nothingYet)
        return;
    finding_ = finding;
    findingChanged_.notify_all();
}

/// Asks the server what is to be listened to now. What it was asked before is withdrawn.
void AudioSource::look()
{
    sourceQuestion_.reset();
    if (microphone_)
        sourceQuestion_.reset(
            pa_context_get_source_info_by_name(context_, microphone_->c_str(), &Events::sourceTold, this));
    else
        outputQuestion_.reset(pa_context_get_server_info(context_, &Events::serverTold, this));
}

void AudioSource::use(const std::string& source, int channels)
{
    found(Finding::source);
    if (stream_ && source == source_)
        return;
    stopStream();
    source_ = source;
    channels_ = channels;
    const pa_sample_spec format{PA_SAMPLE_FLOAT32LE, sampleRate, static_cast<std::uint8_t>(channels)};
    stream_.reset(
        pa_stream_new(context_, microphone_ ? "nimbrale-microphone" : "nimbrale-system-audio", &format, nullptr));
    if (!stream_) {
        tryAgainLater("no stream");
        return;
    }
    pa_stream_set_state_callback(stream_.get(), &Events::streamChanged, this);
    pa_stream_set_read_callback(stream_.get(), &Events::soundIsThere, this);
    constexpr auto unset = static_cast<std::uint32_t>(-1);
    pa_buffer_attr buffer{unset, unset, unset, unset, unset};
    buffer.fragsize = static_cast<std::uint32_t>(samplesAtATime * channels * static_cast<int>(sizeof(float)));
    // It stays with this source: another one must not be heard in its place when it goes.
    constexpr auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | PA_STREAM_DONT_MOVE);
    clock_.restart();
    times_.restart();
    if (pa_stream_connect_record(stream_.get(), source.c_str(), &buffer, flags) < 0)
        tryAgainLater(pa_strerror(pa_context_errno(context_)));
}

/// What is to be listened to is not there.
void AudioSource::missed()
{
    found(Finding::noSource);
    stopStream();
    if (microphone_ && !std::exchange(hasLoggedProblem_, true))
        qCWarning(recordingLog, "The microphone %s is not there; it is heard once it is.", name());
}

void AudioSource::stopStream()
{
    timesQuestion_.reset();
    stream_.reset();
    source_.clear();
}

void AudioSource::tryAgainLater(const char* reason)
{
    if (!std::exchange(hasLoggedProblem_, true))
        qCWarning(recordingLog, "No sound of %s for now: %s", name(), reason);
    stopStream();
    retryTimer_->start(static_cast<pa_usec_t>(retryDelay.count()));
}

void AudioSource::takeSound()
{
    const void* data = nullptr;
    std::size_t bytes = 0;
    while (!isClosing_ && pa_stream_readable_size(stream_.get()) > 0) {
        const auto measured = timeOfNextPiece();
        if (pa_stream_peek(stream_.get(), &data, &bytes) < 0 || bytes == 0)
            return;
        const std::size_t count = bytes / (sizeof(float) * static_cast<std::size_t>(channels_));
        if (!data)
            clock_.leaveOut(count);
        else if (measured)
            handOver(*measured, static_cast<const float*>(data), count);
        pa_stream_drop(stream_.get());
        if (++piecesSinceQuestion_ >= piecesBetweenQuestions)
            askForTimes();
    }
}

/// One question at a time: a server that is busy is not made busier.
void AudioSource::askForTimes()
{
    if (timesQuestion_)
        return;
    piecesSinceQuestion_ = 0;
    asked_ = now();
    timesQuestion_.reset(pa_stream_update_timing_info(stream_.get(), &Events::timesAreTold, this));
}

std::optional<std::chrono::nanoseconds> AudioSource::timeOfNextPiece() const
{
    const pa_timing_info* const known = pa_stream_get_timing_info(stream_.get());
    return known && known->read_index_corrupt == 0 ? times_.timeOf(known->read_index) : std::nullopt;
}

void AudioSource::handOver(std::chrono::nanoseconds measured, const float* samples, std::size_t count)
{
    const auto place = clock_.place(measured, count);
    if (!place)
        return;
    hasLoggedProblem_ = false;
    const std::span<const float> piece(samples, count * static_cast<std::size_t>(channels_));
    onAudio_(playableSound(piece, channels_, place->skipped), place->time);
}

const char* AudioSource::name() const
{
    return microphone_ ? microphone_->c_str() : "the computer";
}

} // namespace nimbrale::pulseaudio
