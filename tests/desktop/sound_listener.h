#pragma once

#include "platform/audio_sources.h"
#include "tests/support/tone.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale::test {

/// How far a time is from the nearest whole second, at which devices that beep do so; negative before it.
[[nodiscard]] inline std::chrono::nanoseconds offWholeSecond(std::chrono::nanoseconds time)
{
    constexpr std::chrono::milliseconds half{500};
    return (time + half) % std::chrono::seconds{1} - half;
}

/// Somebody who listens, and remembers all that was heard.
class Listener {
public:
    struct Piece {
        std::chrono::nanoseconds time{};
        std::shared_ptr<const AudioBuffer> audio;

        [[nodiscard]] std::chrono::nanoseconds end() const
        {
            return time +
                   std::chrono::nanoseconds{static_cast<std::int64_t>(audio->frameCount()) * 1'000'000'000 / 48'000};
        }
    };

    [[nodiscard]] AudioHandler handler()
    {
        return [this](std::shared_ptr<const AudioBuffer> audio, std::chrono::nanoseconds time) {
            const std::lock_guard lock(mutex_);
            pieces_.push_back({time, std::move(audio)});
        };
    }
    [[nodiscard]] std::vector<Piece> pieces() const
    {
        const std::lock_guard lock(mutex_);
        return pieces_;
    }
    /// Forgets what was heard so far.
    void clear()
    {
        const std::lock_guard lock(mutex_);
        pieces_.clear();
    }
    /// The left channel of what was heard last.
    [[nodiscard]] std::vector<float> newest(std::size_t count) const
    {
        std::vector<float> samples;
        for (const Piece& piece : pieces()) {
            for (std::size_t frame = 0; frame < piece.audio->frameCount(); ++frame)
                samples.push_back(piece.audio->sample(frame, 0));
        }
        if (samples.size() > count)
            samples.erase(samples.begin(), samples.end() - static_cast<std::ptrdiff_t>(count));
        return samples;
    }
    /// How loud that frequency was in the last tenth of a second, as the level of a sine; 0 before so much was heard.
    [[nodiscard]] double levelOf(double frequency) const
    {
        constexpr std::size_t count = 4800;
        const std::vector<float> samples = newest(count);
        if (samples.size() < count)
            return 0;
        return levelOfTone(samples, frequency);
    }
    [[nodiscard]] bool hears(double frequency) const { return std::abs(levelOf(frequency) - toneLevel) < 0.04; }
    /// When each sound after at least half a second of silence began. Of what follows a gap nobody knows when it did.
    [[nodiscard]] std::vector<std::chrono::nanoseconds> onsets() const
    {
        constexpr std::chrono::milliseconds gap{1};
        std::vector<std::chrono::nanoseconds> found;
        std::chrono::nanoseconds quietSince = std::chrono::nanoseconds::max();
        std::chrono::nanoseconds before = std::chrono::nanoseconds::min() / 2;
        for (const Piece& piece : pieces()) {
            for (std::size_t frame = 0; frame < piece.audio->frameCount(); ++frame) {
                const auto time =
                    piece.time + std::chrono::nanoseconds{static_cast<std::int64_t>(frame) * 1'000'000'000 / 48'000};
                const bool isAfterGap = time - std::exchange(before, time) > gap;
                quietSince = std::min(quietSince, time);
                if (std::abs(piece.audio->sample(frame, 0)) < 0.02F)
                    continue;
                if (time - quietSince > std::chrono::milliseconds{500} && !isAfterGap)
                    found.push_back(time);
                quietSince = time;
            }
        }
        return found;
    }
    /// The same in the times from then on.
    [[nodiscard]] std::vector<std::chrono::nanoseconds> onsetsSince(std::chrono::nanoseconds time) const
    {
        std::vector<std::chrono::nanoseconds> found = onsets();
        std::erase_if(found, [time](std::chrono::nanoseconds onset) { return onset < time; });
        return found;
    }

private:
    mutable std::mutex mutex_;
    std::vector<Piece> pieces_;
};

/// Every beep that was heard began less than `tolerance` from its whole second. The worst one is noted for the report.
inline void expectOnsetsAtWholeSeconds(const Listener& listener, std::chrono::nanoseconds tolerance)
{
    std::chrono::nanoseconds worst{};
    for (const std::chrono::nanoseconds onset : listener.onsets()) {
        const std::chrono::nanoseconds off = offWholeSecond(onset);
        EXPECT_LT(std::chrono::abs(off), tolerance) << off.count() << " ns";
        worst = std::max(worst, std::chrono::abs(off));
    }
    testing::Test::RecordProperty("worst", std::to_string(worst.count()));
}

} // namespace nimbrale::test
