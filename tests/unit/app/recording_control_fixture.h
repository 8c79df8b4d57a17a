#pragma once

#include "tests/fakes/offscreen_application.h"
#include "tests/unit/app/app_delegate_fixture.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
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
    void answerOwnDisplay() { capture().answerContent(ShareableContent{{{ownDisplay(), 800, 600}}, {}, {}}); }
    void pressRecord() { delegate_->editor()->onToggleRecording(); }
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
    [[nodiscard]] FakeMovie& movie() { return platform_.movies().movie(); }
    [[nodiscard]] std::optional<double> timeOnFrame() { return delegate_->editor()->overlay().view().recordingTime(); }
    [[nodiscard]] std::string toldAlert() { return workspace().alerts.back().message; }

    std::filesystem::path home_ = std::filesystem::path(directory_.path().toStdString()) / "home";
};

} // namespace nimbrale
