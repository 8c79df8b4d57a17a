#pragma once

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <functional>
#include <numbers>
#include <optional>
#include <span>

namespace nimbrale::test {

/// What the programs of the tests play at.
constexpr double toneLevel = 0.4;

/// Gives the sample that is heard at a time of the steady clock.
using Sound = std::function<float(std::chrono::nanoseconds time)>;

[[nodiscard]] inline Sound tone(double frequency)
{
    return [frequency](std::chrono::nanoseconds time) {
        const double phase = std::fmod(std::chrono::duration<double>(time).count() * frequency, 1.0);
        return static_cast<float>(toneLevel * std::sin(2 * std::numbers::pi * phase));
    };
}

/// A short tone at each whole second of the steady clock, and silence between.
[[nodiscard]] inline Sound beeps()
{
    return [sound = tone(1000)](std::chrono::nanoseconds time) {
        return time % std::chrono::seconds{1} < std::chrono::milliseconds{100} ? sound(time) : 0.0F;
    };
}

/// How loud a frequency is in samples at 48000 a second, as the level of a sine.
[[nodiscard]] inline double levelOfTone(std::span<const float> samples, double frequency)
{
    if (samples.empty())
        return 0;
    double real = 0;
    double imaginary = 0;
    for (std::size_t index = 0; index < samples.size(); ++index) {
        const double phase = 2 * std::numbers::pi * frequency * static_cast<double>(index) / 48000;
        real += samples[index] * std::cos(phase);
        imaginary += samples[index] * std::sin(phase);
    }
    return 2 * std::hypot(real, imaginary) / static_cast<double>(samples.size());
}

/// When the beep of that length around a time begins, in seconds, as the time is: by the middle of the energy that is
/// there from 0.15 s before to 0.25 s after, which an encoder that smears an edge does not move. Absent where all is
/// silent.
[[nodiscard]] inline std::optional<double> beepAround(std::span<const float> samples, double time, double length)
{
    const auto first = static_cast<std::size_t>(std::max(0.0, (time - 0.15) * 48000));
    const auto last = std::min(samples.size(), static_cast<std::size_t>((time + 0.25) * 48000));
    double energy = 0;
    double moment = 0;
    for (std::size_t sample = first; sample < last; ++sample) {
        const double square = static_cast<double>(samples[sample]) * samples[sample];
        energy += square;
        moment += square * static_cast<double>(sample) / 48000;
    }
    constexpr double audible = 10;
    if (energy < audible)
        return std::nullopt;
    return moment / energy - length / 2;
}

} // namespace nimbrale::test
