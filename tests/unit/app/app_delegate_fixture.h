#pragma once

#include "app/app_delegate.h"
#include "tests/fakes/plain_camera.h"

#include <QTemporaryDir>

#include <chrono>
#include <gtest/gtest.h>
#include <optional>
#include <unistd.h>
#include <vector>

namespace nimbrale {

constexpr DisplayID mainDisplay = 1;
constexpr DisplayID otherDisplay = 2;

/// The controller on a fake platform with two displays.
class AppDelegateTest : public testing::Test {
protected:
    AppDelegateTest()
    {
        platform_.screens().list = {makeScreen(mainDisplay, {0, 0, 1920, 1080}),
                                    makeScreen(otherDisplay, {1920, 0, 1600, 900})};
        platform_.screens().main = mainDisplay;
        delegate_ = AppDelegate::create(platform_, settings_, camera_, [this](std::optional<EventTime> cause) {
            settingsWindowCauses_.push_back(cause);
        });
    }

    [[nodiscard]] ShareableContent content()
    {
        ShareableContent content;
        for (const Screen& screen : platform_.screens().list)
            content.displays.push_back({screen.displayID, screen.frame.width, screen.frame.height});
        content.applications = {{getpid(), "nimbrale"}};
        content.windows = {{getpid(), true}};
        return content;
    }

    void answerContent()
    {
        ASSERT_FALSE(capture().pendingContent.empty());
        capture().answerContent(content());
    }
    void finishStart(Result<void> result = {})
    {
        answerContent();
        ASSERT_FALSE(capture().stream().pendingStarts.empty());
        capture().stream().completeStart(std::move(result));
    }
    void launch()
    {
        delegate_->applicationWillFinishLaunching();
        finishStart();
        ASSERT_TRUE(delegate_->editor());
    }
    /// After the launch: whether the next capture waits for the one before to stop.
    [[nodiscard]] bool isRestarting() const { return !delegate_->capture(); }
    void settle() { queue().advance(std::chrono::milliseconds{100}); }

    /// The captured picture that a panel of the shared screen shows.
    [[nodiscard]] static std::shared_ptr<const Surface> pictureOn(FakePanel& panel)
    {
        return panel.rootLayer().sublayersInOrder().at(0)->contents();
    }

    [[nodiscard]] FakeScreenCapture& capture() { return platform_.screenCapture(); }
    [[nodiscard]] FakeMainQueue& queue() { return platform_.mainQueue(); }
    [[nodiscard]] FakeWorkspace& workspace() { return platform_.workspace(); }
    [[nodiscard]] std::size_t streams() { return capture().streams.size(); }

    QTemporaryDir directory_;
    AppSettings settings_{directory_.filePath("Nimbrale.conf").toStdString()};
    FakePlatform platform_;
    std::shared_ptr<WebcamCamera> camera_ = makePlainCamera(platform_);
    /// One for each time the Settings window was shown.
    std::vector<std::optional<EventTime>> settingsWindowCauses_;
    std::shared_ptr<AppDelegate> delegate_;
};

} // namespace nimbrale
