// What streams deliver: pictures and sound with their times, each to the handler of its type.

#include "platform/screen_capture.h"
#include "tests/fakes/fake_screen_capture.h"

#include <cmath>
#include <gtest/gtest.h>
#include <numbers>
#include <vector>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;

constexpr int sampleRate = 48000;
constexpr double leftHertz = 440;
constexpr double rightHertz = 880;

float toneAt(double hertz, std::size_t frame)
{
    return static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * hertz * static_cast<double>(frame) / sampleRate));
}

/// A piece of a tone that goes on through all pieces, another one in each of two channels.
AudioBuffer tone(AudioLayout layout, std::size_t firstFrame, std::size_t frameCount)
{
    AudioBuffer buffer{sampleRate, 2, layout, std::vector<float>(2 * frameCount)};
    for (std::size_t frame = 0; frame < frameCount; ++frame) {
        const bool isPlanar = layout == AudioLayout::planar;
        buffer.samples[isPlanar ? frame : 2 * frame] = toneAt(leftHertz, firstFrame + frame);
        buffer.samples[isPlanar ? frameCount + frame : 2 * frame + 1] = toneAt(rightHertz, firstFrame + frame);
    }
    return buffer;
}

class CaptureStreamTest : public testing::Test {
protected:
    void listen(OutputType type)
    {
        ASSERT_TRUE(stream->addOutput(type, queue,
                                      [this, type](const CaptureSample& sample) { received[type].push_back(sample); }));
    }

    FakeScreenCapture capture;
    SerialQueue queue{"test"};
    std::map<OutputType, std::vector<CaptureSample>> received;
    std::unique_ptr<CaptureStream> stream =
        capture.makeStream({}, {.audio = AudioConfiguration{.excludesOwnAudio = true}}, [](const Error&) {});
};

TEST_F(CaptureStreamTest, AToneArrivesWholeInEitherLayout)
{
    listen(OutputType::audio);
    constexpr std::size_t pieceFrames = 480;
    for (std::size_t piece = 0; piece < 10; ++piece)
        capture.stream().deliverSound(
            tone(piece % 2 == 0 ? AudioLayout::interleaved : AudioLayout::planar, piece * pieceFrames, pieceFrames),
            5s + piece * 10ms);

    const auto& pieces = received[OutputType::audio];
    ASSERT_EQ(pieces.size(), 10u);
    for (std::size_t piece = 0; piece < pieces.size(); ++piece) {
        EXPECT_EQ(pieces[piece].type, OutputType::audio);
        EXPECT_EQ(pieces[piece].presentationTime, 5s + piece * 10ms);
        ASSERT_TRUE(pieces[piece].audio);
        const AudioBuffer& sound = *pieces[piece].audio;
        ASSERT_EQ(sound.frameCount(), pieceFrames);
        for (std::size_t frame = 0; frame < pieceFrames; ++frame) {
            ASSERT_EQ(sound.sample(frame, 0), toneAt(leftHertz, piece * pieceFrames + frame));
            ASSERT_EQ(sound.sample(frame, 1), toneAt(rightHertz, piece * pieceFrames + frame));
        }
    }
}

TEST_F(CaptureStreamTest, EachTypeGoesToItsOwnHandler)
{
    listen(OutputType::screen);
    capture.stream().deliverPicture(20, 10, 7s);
    capture.stream().deliverSound(tone(AudioLayout::planar, 0, 10), 7s);
    EXPECT_EQ(received[OutputType::screen].size(), 1u);
    EXPECT_TRUE(received[OutputType::audio].empty()) << "nobody listens to sound yet";

    listen(OutputType::audio);
    capture.stream().deliverPicture(20, 10, 8s);
    capture.stream().deliverSound(tone(AudioLayout::planar, 0, 10), 8s);
    ASSERT_EQ(received[OutputType::screen].size(), 2u);
    ASSERT_EQ(received[OutputType::audio].size(), 1u);
    EXPECT_EQ(received[OutputType::screen][1].presentationTime, 8s);
    EXPECT_FALSE(received[OutputType::screen][1].audio);
    EXPECT_FALSE(received[OutputType::audio][0].surface);
}

TEST_F(CaptureStreamTest, ABufferWithoutChannelsHoldsNothing)
{
    EXPECT_EQ((AudioBuffer{sampleRate, 0, AudioLayout::planar, {1, 2}}.frameCount()), 0u);
}

} // namespace
} // namespace nimbrale
