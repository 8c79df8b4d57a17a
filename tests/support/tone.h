#pragma once

#include <cmath>
#include <cstddef>
#include <numbers>
#include <span>

namespace nimbrale::test {

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

} // namespace nimbrale::test
