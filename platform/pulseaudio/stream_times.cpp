#include "platform/pulseaudio/stream_times.h"

namespace nimbrale::pulseaudio {

namespace {

std::chrono::nanoseconds durationOf(std::int64_t bytes, const pa_sample_spec& format)
{
    const auto frames = bytes / static_cast<std::int64_t>(pa_frame_size(&format));
    const std::int64_t rate = format.rate;
    return std::chrono::seconds{frames / rate} + std::chrono::nanoseconds{frames % rate * std::nano::den / rate};
}

} // namespace

// What was heard at the moment of the answer lies before the stream's end by what the device still holds; of what is
// listened to before it is played, by as much behind it.
void StreamTimes::note(const pa_timing_info& answer, const pa_sample_spec& format, std::chrono::nanoseconds asked,
                       std::chrono::nanoseconds answered)
{
    if (answer.write_index_corrupt != 0 || (origin_ && answered - asked > longestAnswer))
        return;
    const std::chrono::microseconds held{static_cast<std::int64_t>(answer.source_usec)};
    const std::chrono::microseconds ahead{static_cast<std::int64_t>(answer.sink_usec)};
    const std::chrono::nanoseconds moment = asked + (answered - asked) / 2;
    format_ = format;
    origin_ = moment - held + ahead - durationOf(answer.write_index, format);
}

std::optional<std::chrono::nanoseconds> StreamTimes::timeOf(std::int64_t place) const
{
    return origin_ ? std::optional(*origin_ + durationOf(place, format_)) : std::nullopt;
}

} // namespace nimbrale::pulseaudio
