// The sound of a stream of the X11 capture: when it is open, and what becomes of it.

#include "platform/x11/capture/x11_capture_stream.h"
#include "tests/desktop/stream_fixture.h"
#include "tests/fakes/fake_microphones.h"

#include <mutex>

namespace nimbrale::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class X11StreamSoundTest : public X11StreamTest {
protected:
    void SetUp() override
    {
        begin();
        capture_ =
            std::make_unique<x11::X11ScreenCapture>(captured->connection(), captured->engine(), captured->screens(),
                                                    captured->mainQueue(), desktop->displayName(), &systemAudio);
        stream = std::make_unique<CapturedStream>(*capture_, captured->mainQueue(), captured->connection());
        stream->onSound = [this](const CaptureSample& sample) {
            const std::lock_guard lock(mutex_);
            sounds_.push_back(sample);
        };
    }
    void TearDown() override
    {
        stream.reset();
        capture_.reset();
        X11StreamTest::TearDown();
    }
    [[nodiscard]] static StreamConfiguration withSound()
    {
        StreamConfiguration result = configuration();
        result.audio = AudioConfiguration{.excludesOwnAudio = true};
        return result;
    }
    [[nodiscard]] std::vector<CaptureSample> sounds() const
    {
        const std::lock_guard lock(mutex_);
        return sounds_;
    }
    [[nodiscard]] bool waitForSounds(std::size_t count)
    {
        return pumpUntil([&] { return sounds().size() >= count; });
    }

    FakeSystemAudio systemAudio;

private:
    std::unique_ptr<x11::X11ScreenCapture> capture_;
    mutable std::mutex mutex_;
    std::vector<CaptureSample> sounds_;
};

TEST_F(X11StreamSoundTest, SoundComesFromTheStartToTheStopWithItsTimes)
{
    ASSERT_TRUE(stream->start(filter(), withSound()));
    ASSERT_THAT(systemAudio.opened, SizeIs(1));
    systemAudio.opened[0]->play(480, 0.25F, 2, 5s);
    systemAudio.opened[0]->play(480, 0.5F, 2, 5s + 10ms);
    ASSERT_TRUE(waitForSounds(2));
    const std::vector<CaptureSample> heard = sounds();
    EXPECT_EQ(heard[0].type, OutputType::audio);
    EXPECT_EQ(heard[0].presentationTime, 5s);
    EXPECT_EQ(heard[1].presentationTime, 5s + 10ms);
    ASSERT_TRUE(heard[1].audio);
    EXPECT_EQ(heard[1].audio->sample(479, 1), 0.5F);
    EXPECT_EQ(heard[1].surface, nullptr);
    EXPECT_TRUE(pumpUntil([&] { return stream->frames() > 0; })) << "no picture beside the sound";

    ASSERT_TRUE(stream->stop());
    EXPECT_EQ(systemAudio.openCount(), 0U);
    ASSERT_TRUE(stream->restart());
    EXPECT_EQ(systemAudio.openCount(), 1U);
    systemAudio.opened.back()->play(480, 0.5F, 2, 9s);
    EXPECT_TRUE(waitForSounds(3));
}

TEST_F(X11StreamSoundTest, NothingIsListenedToWhereNoSoundIsWanted)
{
    ASSERT_TRUE(stream->start(filter(), configuration()));
    EXPECT_TRUE(pumpUntil([&] { return stream->frames() > 0; }));
    EXPECT_THAT(systemAudio.opened, IsEmpty());
}

TEST_F(X11StreamSoundTest, WhenTheSoundCannotBeOpenedTheStartFailsWithItsReason)
{
    systemAudio.openResult = fail(ErrorCode::temporary, "The sound service sleeps.");
    EXPECT_FALSE(stream->start(filter(), withSound()));
    EXPECT_EQ(stream->error.message, "The sound service sleeps.");
    EXPECT_EQ(stream->error.code, ErrorCode::temporary);
    EXPECT_FALSE(pumpUntil([&] { return stream->frames() > 0; }, Milliseconds{300})) << "half of it was started";
    systemAudio.openResult = {};
    ASSERT_TRUE(stream->restart());
    EXPECT_TRUE(pumpUntil([&] { return stream->frames() > 0; }));
}

TEST_F(X11StreamSoundTest, AFormatThatIsNotDeliveredIsRefused)
{
    StreamConfiguration wrong = withSound();
    wrong.audio->sampleRate = 44100;
    EXPECT_FALSE(stream->start(filter(), wrong));
    EXPECT_EQ(stream->error.code, ErrorCode::unsupported);
    EXPECT_THAT(systemAudio.opened, IsEmpty());
}

TEST_F(X11StreamSoundTest, AnUpdateOpensAndClosesTheSound)
{
    ASSERT_TRUE(stream->start(filter(), configuration()));
    ASSERT_TRUE(stream->update(withSound()));
    EXPECT_EQ(systemAudio.openCount(), 1U);
    ASSERT_TRUE(stream->update(withSound()));
    EXPECT_THAT(systemAudio.opened, SizeIs(1)) << "it stays open";
    ASSERT_TRUE(stream->update(configuration()));
    EXPECT_EQ(systemAudio.openCount(), 0U);
}

TEST_F(X11StreamSoundTest, TheEndOfAStreamEndsItsSound)
{
    ASSERT_TRUE(stream->start(filter(), withSound()));
    const auto sound = systemAudio.opened.at(0);
    sound->play(480, 0.5F, 2, 5s);
    ASSERT_TRUE(waitForSounds(1));
    stream->destroy();
    EXPECT_FALSE(sound->isOpen);
}

} // namespace
} // namespace nimbrale::test
