#include "platform/ffmpeg/encoder_effort.h"

#include <gtest/gtest.h>

namespace nimbrale::ffmpeg {
namespace {

using namespace std::chrono_literals;

MovieVideo videoOf(int width, int height, int framerate = 30)
{
    return {.width = width, .height = height, .averageBitRate = 1000000, .expectedFrameRate = framerate};
}

TEST(EncoderEffortTest, WhatTheProcessorsCanDoIsEncodedWithCare)
{
    EXPECT_EQ(initialEffort(videoOf(1920, 1080), 1), EncoderEffort::careful);
    EXPECT_EQ(initialEffort(videoOf(1920, 1080), 2), EncoderEffort::careful);
    EXPECT_EQ(initialEffort(videoOf(1920, 1080, 60), 2), EncoderEffort::quick);
    EXPECT_EQ(initialEffort(videoOf(2560, 1440), 2), EncoderEffort::quick);
    EXPECT_EQ(initialEffort(videoOf(2560, 1440), 4), EncoderEffort::careful);
    EXPECT_EQ(initialEffort(videoOf(3840, 2160), 16), EncoderEffort::quick);
}

TEST(EncoderEffortTest, TheSharingKeepsItsCores)
{
    EXPECT_EQ(encoderThreads(0), 1); // Nobody knows how many there are.
    EXPECT_EQ(encoderThreads(1), 1);
    EXPECT_EQ(encoderThreads(2), 1);
    EXPECT_EQ(encoderThreads(4), 2);
    EXPECT_EQ(encoderThreads(64), 2);
}

TEST(QueueWatchTest, QueueThatStaysHalfFullIsOverloaded)
{
    QueueWatch watch(16);
    for (auto time = 0ms; time < 1s; time += 33ms) {
        watch.note(8, 100s + time);
        EXPECT_FALSE(watch.isOverloaded()) << time.count();
    }
    watch.note(9, 101s);
    EXPECT_TRUE(watch.isOverloaded());
}

TEST(QueueWatchTest, QueueThatEmptiesInBetweenIsNot)
{
    QueueWatch watch(16);
    for (auto time = 0ms; time < 10s; time += 33ms) {
        watch.note(time % 990ms == 0ms ? 7 : 16, time);
        EXPECT_FALSE(watch.isOverloaded()) << time.count();
    }
}

} // namespace
} // namespace nimbrale::ffmpeg
