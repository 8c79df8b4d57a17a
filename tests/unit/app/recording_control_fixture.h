#pragma once

#include "tests/fakes/offscreen_application.h"
#include "tests/unit/app/app_delegate_fixture.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace nimbrale {

/// The controller with a home of its own, which records without sound unless told otherwise.
class RecordingControlTest : public AppDelegateTest {
protected:
    RecordingControlTest()
    {
        startOffscreenApplication();
        setenv("HOME", home_.c_str(), 1);
        unsetenv("XDG_CONFIG_HOME");
        settings_.setRecordMicrophone(false);
    }

    [[nodiscard]] DisplayID ownDisplay() { return delegate_->sharedScreen().virtualDisplayIdentity()->displayID; }
    void answerOwnDisplay()
    {
        const std::size_t begun = platform_.movies().beginnings.size();
        capture().answerContent(ShareableContent{{{ownDisplay(), 800, 600}}, {}, {}});
        waitFor([&] { return !delegate_->recording().isBusy() || platform_.movies().beginnings.size() > begun; });
    }
    /// Where that starts a recording, returns when the disk has told where the folder is.
    void pressRecord()
    {
        const bool starts = !delegate_->recording().isBusy() && !delegate_->recording().isRecording();
        const int asked = questions();
        delegate_->editor()->onToggleRecording();
        if (starts)
            waitFor([&] { return !delegate_->recording().isBusy() || questions() > asked; });
    }
    /// Lets the main queue run until what other threads do has come to that.
    template <typename Condition>
    void waitFor(Condition condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        for (queue().runPosted(); !condition(); queue().runPosted()) {
            if (std::chrono::steady_clock::now() > deadline)
                throw std::runtime_error("What the test waits for does not come.");
            std::this_thread::yield();
        }
    }
    void startRecording()
    {
        pressRecord();
        answerOwnDisplay();
        capture().stream().completeStart();
        ASSERT_TRUE(delegate_->recording().isRecording());
        capture().stream().deliverPicture(800, 600, std::chrono::seconds(1));
    }
    /// From the stop of the recording on.
    void finishMovie(Result<std::filesystem::path> result = std::filesystem::path("/videos/movie.mov"))
    {
        while (!movie().isFinishAwaited)
            std::this_thread::yield();
        movie().completeFinish(std::move(result));
        queue().runPosted();
    }
    /// What the recorder has asked when it knows the folder.
    [[nodiscard]] int questions()
    {
        return capture().contentRequests + static_cast<int>(platform_.microphones().questions.size());
    }
    [[nodiscard]] FakeMovie& movie() { return platform_.movies().movie(); }
    [[nodiscard]] std::optional<double> timeOnFrame() { return delegate_->editor()->overlay().view().recordingTime(); }
    [[nodiscard]] std::string toldAlert() { return workspace().alerts.back().message; }

    std::filesystem::path home_ = std::filesystem::path(directory_.path().toStdString()) / "home";
};

} // namespace nimbrale
