#pragma once

#include "platform/pulseaudio/pulseaudio_audio.h"
#include "tests/desktop/sound_fixture.h"
#include "tests/fakes/fake_main_queue.h"
#include "tests/support/private_pulseaudio.h"
#include "tests/support/tone.h"

#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace nimbrale::test {

/// One private PulseAudio for the whole suite, on which each test plugs in its own devices.
class PulseaudioSessionTest : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        missing = PrivatePulseaudio::missing();
        if (!missing.empty())
            return;
        pulseaudio = PrivatePulseaudio::start(reason, serverEnvironment);
        if (!pulseaudio)
            return;
        qunsetenv("DISPLAY");
        for (const auto& [name, value] : pulseaudio->environment()) {
            if (name != "PATH")
                qputenv(name.c_str(), value.c_str());
        }
    }
    static void TearDownTestSuite() { pulseaudio.reset(); }
    void SetUp() override
    {
        if (!missing.empty())
            GTEST_SKIP() << missing;
        ASSERT_TRUE(pulseaudio) << reason;
    }

    /// Does what is posted to the main thread until the condition holds.
    template <typename Condition>
    [[nodiscard]] bool eventually(Condition condition, Milliseconds patience = Milliseconds{10'000})
    {
        return waitUntil(
            [&] {
                queue.runPosted();
                return condition();
            },
            patience);
    }
    /// Without the end of the line.
    [[nodiscard]] std::string control(const std::vector<std::string>& arguments)
    {
        std::string why;
        std::string printed = pulseaudio->control(arguments, why);
        if (printed.empty())
            failTest(why);
        printed.erase(printed.find_last_not_of('\n') + 1);
        return printed;
    }
    [[nodiscard]] std::unique_ptr<PipedMicrophone> plugInMicrophone(const std::string& id, Sound sound,
                                                                    int channels = 1)
    {
        std::string why;
        auto microphone = PipedMicrophone::start(*pulseaudio, id, channels, std::move(sound), why);
        if (!microphone)
            failTest(why);
        return microphone;
    }
    /// Returns what it is unplugged by.
    [[nodiscard]] std::string plugInSink(const std::string& id)
    {
        return control({"load-module", "module-null-sink", "sink_name=" + id});
    }
    void unplugSink(const std::string& module) { static_cast<void>(control({"unload-module", module})); }
    /// A program that plays a tone for a minute, or until it goes.
    [[nodiscard]] std::unique_ptr<Process> play(const std::string& sink, double frequency)
    {
        const std::filesystem::path file = pulseaudio->folder() / (sink + ".sound");
        constexpr int samples = 60 * 48000;
        const auto sound = tone(frequency);
        std::ofstream stream(file, std::ios::binary);
        for (int index = 0; index < samples; ++index) {
            const float sample = sound(std::chrono::nanoseconds{std::int64_t{index} * std::nano::den / 48000});
            stream.write(reinterpret_cast<const char*>(&sample), sizeof sample);
        }
        stream.close();
        Process::Options options;
        options.environment = pulseaudio->environment();
        options.outputFile = pulseaudio->folder() / "player.log";
        std::string why;
        auto player = Process::start("pacat",
                                     {"--playback", "--device=" + sink, "--raw", "--format=float32le", "--rate=48000",
                                      "--channels=1", file.string()},
                                     options, why);
        if (!player)
            failTest(why);
        return player;
    }

    /// More of what the server finds in its environment; to be set before the suite is.
    static inline Environment serverEnvironment;
    static inline std::string missing;
    static inline std::string reason;
    static inline std::unique_ptr<PrivatePulseaudio> pulseaudio;

    FakeMainQueue queue;
};

/// The microphones and the system's sound on it.
class PulseaudioTest : public SoundTest<PulseaudioSessionTest> {
protected:
    void SetUp() override
    {
        PulseaudioSessionTest::SetUp();
        if (IsSkipped() || HasFatalFailure())
            return;
        microphones = pulseaudio::createPulseaudioMicrophones(queue);
        systemAudio = pulseaudio::createPulseaudioSystemAudio();
    }
};

} // namespace nimbrale::test
