// A stream of the X11 capture with what the computer really plays, on a desktop and a PipeWire of the test's own.

#include "tests/desktop/pipewire_sound_fixture.h"
#include "tests/desktop/stream_fixture.h"

namespace nimbrale::test {
namespace {

using namespace std::chrono_literals;

std::chrono::nanoseconds now()
{
    return std::chrono::steady_clock::now().time_since_epoch();
}

class X11CaptureSoundTest : public X11StreamTest {
protected:
    void SetUp() override
    {
        if (const std::string missing = PrivatePipewire::missing(); !missing.empty())
            GTEST_SKIP() << missing;
        pipewire = PrivatePipewire::start(reason);
        ASSERT_TRUE(pipewire) << reason;
        qputenv("XDG_RUNTIME_DIR", pipewire->runtimeFolder().c_str());
        begin();
        capture_ =
            std::make_unique<x11::X11ScreenCapture>(captured->connection(), captured->engine(), captured->screens(),
                                                    captured->mainQueue(), desktop->displayName(), systemAudio_.get());
        stream = std::make_unique<CapturedStream>(*capture_, captured->mainQueue(), captured->connection());
        stream->onSound = [handler = sound.handler()](const CaptureSample& sample) {
            handler(sample.audio, sample.presentationTime);
        };
    }
    void TearDown() override
    {
        stream.reset();
        capture_.reset();
        X11StreamTest::TearDown();
        pipewire.reset();
    }
    [[nodiscard]] static StreamConfiguration withSound()
    {
        StreamConfiguration result = configuration();
        result.audio = AudioConfiguration{.excludesOwnAudio = true};
        return result;
    }
    [[nodiscard]] std::unique_ptr<VirtualSound> plugIn(const VirtualSound::Options& options)
    {
        auto device = VirtualSound::start(*pipewire, options, reason);
        EXPECT_TRUE(device) << reason;
        return device;
    }

    std::string reason;
    std::unique_ptr<PrivatePipewire> pipewire;
    Listener sound;

private:
    std::unique_ptr<SystemAudio> systemAudio_ = pipewire::createPipewireSystemAudio();
    std::unique_ptr<x11::X11ScreenCapture> capture_;
};

TEST_F(X11CaptureSoundTest, WhatIsPlayedComesBesideThePicturesOnTheirClock)
{
    const auto loudspeaker = plugIn({.kind = "sink", .id = "loud", .name = "Loudspeaker"});
    const auto player =
        plugIn({.kind = "player", .id = "player", .name = "Player", .more = {"--target", "loud", "--tone", "660"}});
    const auto begun = now();
    ASSERT_TRUE(stream->start(filter(), withSound())) << stream->error.message;
    ASSERT_TRUE(pumpUntil([&] { return sound.hears(660) && stream->frames() > 0; }, Milliseconds{10'000}));
    const auto pieces = sound.pieces();
    EXPECT_GT(pieces.front().time, begun - 100ms);
    EXPECT_LT(pieces.back().time, now());
    for (std::size_t index = 1; index < pieces.size(); ++index)
        EXPECT_GT(pieces[index].time, pieces[index - 1].time) << "piece " << index;
    EXPECT_GT(stream->last().presentationTime, begun);
    EXPECT_LT(stream->last().presentationTime, now());

    EXPECT_EQ(pipewire->hasNode("nimbrale-system-audio", reason), true) << reason;
    ASSERT_TRUE(stream->stop());
    EXPECT_EQ(pipewire->hasNode("nimbrale-system-audio", reason), false) << reason;
    const std::size_t count = sound.pieces().size();
    EXPECT_FALSE(pumpUntil([&] { return sound.pieces().size() > count; }, Milliseconds{300})) << "after the stop";
}

TEST_F(X11CaptureSoundTest, NothingIsOpenWhileNoSoundIsWanted)
{
    const auto loudspeaker = plugIn({.kind = "sink", .id = "loud", .name = "Loudspeaker"});
    ASSERT_TRUE(stream->start(filter(), configuration()));
    EXPECT_TRUE(pumpUntil([&] { return stream->frames() > 0; }));
    EXPECT_EQ(pipewire->hasNode("nimbrale-system-audio", reason), false) << reason;
}

TEST_F(X11CaptureSoundTest, WithoutALoudspeakerTheStartFailsWithTheReason)
{
    EXPECT_FALSE(stream->start(filter(), withSound()));
    EXPECT_NE(stream->error.message.find("sound output"), std::string::npos) << stream->error.message;
}

} // namespace
} // namespace nimbrale::test
