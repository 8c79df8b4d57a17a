#pragma once

#include "tests/meeting/recording_journey.h"
#include "tests/support/private_pipewire.h"
#include "tests/support/tone.h"

#include <map>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale::test {

/// The real application recording sound, of devices on a PipeWire of the test's own.
class RecordingSoundJourney : public RecordingJourney {
protected:
    void SetUp() override
    {
        if (const std::string missing = PrivatePipewire::missing(); !missing.empty())
            skipTest(missing);
        std::string reason;
        pipewire = PrivatePipewire::start(reason);
        if (!pipewire)
            failTest(reason);
        prepare();
    }
    [[nodiscard]] std::unique_ptr<VirtualSound> plugIn(const VirtualSound::Options& options)
    {
        std::string reason;
        auto sound = VirtualSound::start(*pipewire, options, reason);
        if (!sound)
            failTest(reason);
        return sound;
    }
    void plugInLoudspeaker() { loudspeaker = plugIn({.kind = "sink", .id = "loud", .name = "Loudspeaker"}); }
    [[nodiscard]] std::unique_ptr<VirtualSound> microphoneOf(double frequency)
    {
        return plugIn({.kind = "microphone",
                       .id = "desk",
                       .name = "Desk microphone",
                       .more = {"--tone", std::to_string(frequency), "--channels", "1"}});
    }
    [[nodiscard]] std::unique_ptr<VirtualSound> playerOf(const std::string& what, double frequency)
    {
        return plugIn({.kind = "player",
                       .id = "player",
                       .name = "Player",
                       .more = {"--target", "loud", what, std::to_string(frequency)}});
    }
    void startWith(const std::map<std::string, std::string>& sounds, Environment changes = {})
    {
        changes.insert({"PIPEWIRE_RUNTIME_DIR", pipewire->runtimeFolder()});
        start(sounds, changes);
    }

    /// How loud a tone is in the movie, from a second on for so long.
    [[nodiscard]] static double levelAt(const std::vector<float>& samples, double frequency, double from,
                                        double length = 0.5)
    {
        const auto begin = static_cast<std::size_t>(from * 48000);
        const auto count = static_cast<std::size_t>(length * 48000);
        if (begin + count > samples.size())
            return 0;
        return levelOfTone(std::span(samples).subspan(begin, count), frequency);
    }

    std::unique_ptr<PrivatePipewire> pipewire;
    std::unique_ptr<VirtualSound> loudspeaker;
};

} // namespace nimbrale::test
