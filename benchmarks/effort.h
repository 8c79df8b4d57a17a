#pragma once

#include <chrono>

namespace nimbrale::benchmarks {

/// How long and how often is measured.
struct Effort {
    int repetitions = 5;
    /// Each measurement of processor time.
    std::chrono::milliseconds costTime{4000};
    /// The same on a still screen, where little adds up.
    std::chrono::milliseconds stillTime{10000};
    int latencySamples = 60;
    int dragSteps = 60;
    std::chrono::milliseconds videoBeforeMemory{10000};

    [[nodiscard]] static Effort quick()
    {
        return {.repetitions = 2,
                .costTime = std::chrono::milliseconds{2000},
                .stillTime = std::chrono::milliseconds{4000},
                .latencySamples = 25,
                .dragSteps = 25,
                .videoBeforeMemory = std::chrono::milliseconds{3000}};
    }
};

} // namespace nimbrale::benchmarks
