#pragma once

#include "share/region_capture.h"

#include "tests/fakes/fake_platform.h"
#include "tests/fakes/log_capture.h"

#include <QTemporaryDir>
#include <gmock/gmock.h>

#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace nimbrale {

inline constexpr const char* captureCategory = "Nimbrale.capture";
inline constexpr DisplayID mainDisplay = 10;
inline constexpr DisplayID sideDisplay = 20;
inline const CaptureApplication ownApplication{::getpid(), "nimbrale"};
inline const CaptureApplication notifications{0, notificationApplicationIdentifier};
inline const CaptureApplication editor{1, "org.example.Editor"};
inline const Error someError{ErrorCode::temporary, "it went wrong"};

/// Two displays, of which the second is the main one, and the own application with a window on screen.
[[nodiscard]] inline ShareableContent makeContent()
{
    return {{{sideDisplay, 1280, 1024}, {mainDisplay, 1440, 900}},
            {editor, ownApplication, notifications},
            {{::getpid(), true}}};
}

/// A capture on a fake desktop.
class RegionCaptureTest : public testing::Test {
protected:
    RegionCaptureTest()
    {
        Screen main = makeScreen(mainDisplay, {0, 0, 1440, 900}, 2);
        main.visibleFrame = {0, 0, 1440, 875};
        screens.list = {makeScreen(sideDisplay, {1440, 0, 1280, 1024}, 1), main};
        screens.main = mainDisplay;
        storeRegion(100, 50, 400, 300);
        capture->onFrame = [this](const Frame& frame) { frames.push_back(frame.region); };
    }

    void storeRegion(std::int64_t left, std::int64_t top, std::int64_t width, std::int64_t height)
    {
        settings.setLeft(left);
        settings.setTop(top);
        settings.setWidth(width);
        settings.setHeight(height);
    }
    void begin(std::optional<Result<ShareableContent>> content)
    {
        capture->start(std::move(content), [this](const Result<void>& result) {
            results.push_back(result ? std::nullopt : std::optional(result.error()));
        });
    }
    void startRunning(const ShareableContent& content = makeContent())
    {
        begin(content);
        screenCapture.stream().completeStart();
    }
    [[nodiscard]] FakeCaptureStream& stream() { return screenCapture.stream(); }
    /// The region that a start takes over from the settings.
    [[nodiscard]] Rect startedRegion()
    {
        startRunning();
        return capture->region();
    }
    /// Applies the region, and the stream has taken it over.
    void changeRegion(const Rect& region)
    {
        capture->setRegion(region);
        capture->applyRegion();
        stream().completeConfigurationUpdate();
    }
    void deliverPicture(int width, int height)
    {
        stream().deliverPicture(width, height);
        queue.runPosted();
    }

    LogCapture log;
    QTemporaryDir folder;
    AppSettings settings{folder.filePath("settings.conf").toStdString()};
    FakePlatform platform;
    FakeMainQueue& queue = platform.mainQueue();
    FakeScreens& screens = platform.screens();
    FakeScreenCapture& screenCapture = platform.screenCapture();
    std::shared_ptr<RegionCapture> capture = RegionCapture::create(screenCapture, screens, queue, settings);
    /// What starts completed with; no error stands for success.
    std::vector<std::optional<Error>> results;
    std::vector<Rect> frames;
};

} // namespace nimbrale
