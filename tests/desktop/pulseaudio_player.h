#pragma once

#include "tests/support/tone.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <pulse/pulseaudio.h>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale::test {

/// A program that plays what the test computes, so that each sample is heard at its time, as far as the server tells
/// when that is. It is silent for its first second, and for a second after it was too slow for the server. Plays until
/// it goes.
class PulseaudioPlayer {
public:
    /// `sound` is called on a thread of the player's own.
    PulseaudioPlayer(std::string sink, Sound sound)
        : sink_(std::move(sink)), sound_(std::move(sound)), loop_(pa_threaded_mainloop_new()),
          context_(pa_context_new(pa_threaded_mainloop_get_api(loop_), "player"))
    {
        pa_context_set_state_callback(context_, &PulseaudioPlayer::contextChanged, this);
        pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr);
        pa_threaded_mainloop_start(loop_);
    }
    ~PulseaudioPlayer()
    {
        pa_threaded_mainloop_stop(loop_);
        if (stream_) {
            pa_stream_disconnect(stream_);
            pa_stream_unref(stream_);
        }
        pa_context_disconnect(context_);
        pa_context_unref(context_);
        pa_threaded_mainloop_free(loop_);
    }
    PulseaudioPlayer(const PulseaudioPlayer&) = delete;
    PulseaudioPlayer& operator=(const PulseaudioPlayer&) = delete;

    /// The server may have refused it.
    [[nodiscard]] bool isPlaying() const { return isPlaying_; }

private:
    static constexpr std::int64_t sampleRate = 48'000;

    static void contextChanged(pa_context* context, void* data)
    {
        if (pa_context_get_state(context) == PA_CONTEXT_READY)
            static_cast<PulseaudioPlayer*>(data)->connect();
    }
    static void write(pa_stream* stream, std::size_t bytes, void* data)
    {
        static_cast<PulseaudioPlayer*>(data)->play(stream, bytes / sizeof(float));
    }

    /// The server ran out of sound: what comes now is heard later than was counted.
    static void ranOut(pa_stream* /*stream*/, void* data)
    {
        auto& self = *static_cast<PulseaudioPlayer*>(data);
        self.isPlaying_ = false;
        self.origins_.clear();
        self.written_ = 0;
    }

    void connect()
    {
        const pa_sample_spec format{PA_SAMPLE_FLOAT32LE, sampleRate, 1};
        stream_ = pa_stream_new(context_, "player", &format, nullptr);
        pa_stream_set_write_callback(stream_, &PulseaudioPlayer::write, this);
        pa_stream_set_underflow_callback(stream_, &PulseaudioPlayer::ranOut, this);
        constexpr auto unset = static_cast<std::uint32_t>(-1);
        constexpr std::uint32_t tenthOfASecond = sampleRate / 10 * sizeof(float);
        const pa_buffer_attr buffer{unset, tenthOfASecond, unset, unset, unset};
        constexpr auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | PA_STREAM_AUTO_TIMING_UPDATE |
                                                              PA_STREAM_INTERPOLATE_TIMING | PA_STREAM_DONT_MOVE);
        pa_stream_connect_playback(stream_, sink_.c_str(), &buffer, flags, nullptr, nullptr);
    }
    void play(pa_stream* stream, std::size_t count)
    {
        // The latency wavers, and says nothing before the stream runs: it is looked at for the second half of a second,
        // and the samples are counted then.
        pa_usec_t latency = 0;
        int isNegative = 0;
        if (written_ < sampleRate) {
            if (written_ > sampleRate / 2 && pa_stream_get_latency(stream, &latency, &isNegative) == 0 && !isNegative)
                origins_.push_back(std::chrono::steady_clock::now().time_since_epoch() +
                                   std::chrono::microseconds(latency) - lengthOf(written_));
        } else if (!origins_.empty() && !isPlaying_) {
            const auto middle = origins_.begin() + static_cast<std::ptrdiff_t>(origins_.size() / 2);
            std::ranges::nth_element(origins_, middle);
            origin_ = *middle;
            isPlaying_ = true;
        }
        std::vector<float> samples(count);
        for (std::size_t index = 0; isPlaying_ && index < count; ++index)
            samples[index] = sound_(origin_ + lengthOf(written_ + static_cast<std::int64_t>(index)));
        pa_stream_write(stream, samples.data(), count * sizeof(float), nullptr, 0, PA_SEEK_RELATIVE);
        written_ += static_cast<std::int64_t>(count);
    }
    static std::chrono::nanoseconds lengthOf(std::int64_t samples)
    {
        return std::chrono::nanoseconds{samples * std::nano::den / sampleRate};
    }

    const std::string sink_;
    const Sound sound_;
    pa_threaded_mainloop* loop_;
    pa_context* context_;
    pa_stream* stream_ = nullptr;
    std::int64_t written_ = 0;
    std::vector<std::chrono::nanoseconds> origins_; ///< when the first sample was heard, as measured each time
    std::chrono::nanoseconds origin_{};
    std::atomic<bool> isPlaying_ = false;
};

} // namespace nimbrale::test
