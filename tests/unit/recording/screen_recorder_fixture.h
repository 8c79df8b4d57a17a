#pragma once

#include "recording/screen_recorder.h"
#include "tests/fakes/fake_platform.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace nimbrale {

/// A recorder on a fake platform with two displays, of which one is the application's own, and two microphones.
class ScreenRecorderTest : public testing::Test {
protected:
    static constexpr DisplayID ownDisplay = 7;

    ScreenRecorderTest()
    {
        platform_.screens().list = {makeScreen(1, {0, 0, 1920, 1080}), makeScreen(ownDisplay, {1920, 0, 640, 360})};
        platform_.microphones().list = {{"desk", "Desk microphone"}, {"head", "Headset"}};
        recorder_->onFinish = [this](const ScreenRecorder::MovieResult& movie) { movies_.push_back(movie); };
        recorder_->onSavingStalled = [this] { ++savingStalls_; };
        recorder_->onEndingByItself = [this](const std::string& reason) { reasons_.push_back(reason); };
    }

    void start(const ScreenRecorder::Options& options)
    {
        recorder_->start(ownDisplay, options,
                         [this](const ScreenRecorder::StartResult& result) { starts_.push_back(result); });
    }
    void answerContent(std::vector<CaptureDisplay> displays = {{1, 1920, 1080}, {ownDisplay, 640, 360}})
    {
        ShareableContent content;
        content.displays = std::move(displays);
        const std::size_t begun = platform_.movies().beginnings.size();
        capture().answerContent(content);
        if (!platform_.movies().holdsPreparations && !disk_->isSilent)
            waitFor([&] { return !recorder_->isBusy() || platform_.movies().beginnings.size() > begun; });
    }
    /// Lets the main queue run until what other threads do has come to that.
    template <typename Condition>
    void waitFor(Condition condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        for (platform_.mainQueue().runPosted(); !condition(); platform_.mainQueue().runPosted()) {
            if (std::chrono::steady_clock::now() > deadline)
                throw std::runtime_error("What the test waits for does not come.");
            std::this_thread::yield();
        }
    }
    void startRecording(const ScreenRecorder::Options& options = {"/videos"})
    {
        start(options);
        if (options.microphoneID)
            platform_.microphones().answerAccess(true);
        answerContent();
        stream().completeStart();
        ASSERT_TRUE(recorder_->isRecording());
    }
    /// Returns when the recorder's queue has done what it was given, and the main queue what came of that.
    void settle()
    {
        stream().deliver({OutputType::screen, FrameStatus::idle});
        platform_.mainQueue().runPosted();
    }
    void letTicksPass(int count)
    {
        for (int tick = 0; tick < count; ++tick) {
            platform_.mainQueue().advance(RecordingPipeline::tickInterval);
            settle();
        }
    }
    void finishMovie(Result<std::filesystem::path> result = std::filesystem::path("/videos/movie.mov"))
    {
        while (!movie().isFinishAwaited)
            std::this_thread::yield();
        movie().completeFinish(std::move(result));
        platform_.mainQueue().runPosted();
    }

    [[nodiscard]] FakeScreenCapture& capture() { return platform_.screenCapture(); }
    [[nodiscard]] FakeCaptureStream& stream() { return capture().stream(); }
    [[nodiscard]] FakeMovie& movie() { return platform_.movies().movie(); }

    /// A question may outlive the recorder that asked it, and the test.
    struct Disk {
        std::atomic<std::uint64_t> freeSpace = ScreenRecorder::roomToKeep;
        /// How often it was asked for its room.
        std::atomic<int> roomQuestions = 0;
        /// Whether it then does not answer.
        std::atomic<bool> isSilent = false;
    };

    FakePlatform platform_;
    const std::shared_ptr<Disk> disk_ = std::make_shared<Disk>();
    std::shared_ptr<ScreenRecorder> recorder_ = ScreenRecorder::create(
        {platform_.mainQueue(), platform_.screens(), platform_.screenCapture(), platform_.microphones(),
         platform_.movies(), [disk = disk_](const std::filesystem::path&) {
             ++disk->roomQuestions;
             while (disk->isSilent)
                 std::this_thread::yield();
             return std::optional<std::uint64_t>(disk->freeSpace);
         }});
    std::vector<ScreenRecorder::StartResult> starts_;
    std::vector<ScreenRecorder::MovieResult> movies_;
    std::vector<std::string> reasons_;
    int savingStalls_ = 0;
};

} // namespace nimbrale
