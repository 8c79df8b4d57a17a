#pragma once

#include "tests/support/application.h"
#include "tests/support/file_manager.h"
#include "tests/support/image_compare.h"
#include "tests/support/movie_file.h"
#include "tests/support/requirements.h"
#include "tests/support/scene.h"

#include <QColor>
#include <QImage>
#include <QRect>

#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale::test {

/// The real application on a desktop with a picture of large rectangles, recording without sound unless told otherwise.
class RecordingJourney : public testing::Test {
protected:
    static constexpr QRect region{201, 101, 640, 360};
    static constexpr QPoint farAway{1500, 850};

    void prepare(const PrivateDesktop::Options& options = {
                     .width = 1600, .height = 900, .windowManager = PrivateDesktop::WindowManager::openbox})
    {
        if (const std::string missing = MovieFile::missing(); !missing.empty())
            skipTest(missing);
        desktop = requireDesktop(options);
        videos = desktop->folder() / "home" / "Videos";
        scene = requireScene(*desktop);
        scene->add("wall", {.geometry = QRect(QPoint(0, 0), desktop->screenSize()),
                            .seed = 0,
                            .color = QColor(40, 44, 52),
                            .type = Scene::Type::desktop,
                            .overrideRedirect = false});
        // Their edges are at odd places, which the movie's colors, but not its brightness, are too coarse for.
        for (std::size_t index = 0; index < blocks.size(); ++index)
            scene->add("block" + std::to_string(index),
                       {.geometry = blocks[index].first, .seed = 0, .color = blocks[index].second});
        desktop->movePointer(farAway);
    }
    void start(std::map<std::string, std::string> settings = {}, Environment changes = {})
    {
        settings.insert({"recordMicrophone", "false"});
        changes.insert({"PATH", putFileManager(desktop->folder(), desktop->environment().at("PATH"))});
        application =
            requireApplication(*desktop, {.region = region, .framesPerSecond = 30, .others = settings}, changes);
        ASSERT_TRUE(application->waitForVirtualDisplay(region.size())) << application->process().output();
        ASSERT_TRUE(isFrameShown());
    }
    [[nodiscard]] bool hasFrame() const
    {
        return desktop->pixel(region.x() - 1, region.center().y()) == QColor(255, 214, 10);
    }
    [[nodiscard]] bool isFrameShown(Milliseconds patience = Milliseconds{3000}) const
    {
        return waitUntil([&] { return hasFrame(); }, patience);
    }
    /// The frame has that title too, and is never the active window.
    [[nodiscard]] bool isAlertShown() const { return desktop->activeWindowTitle() == "Nimbrale"; }
    /// Waits for an alert that takes keys, presses its button, and waits until it is gone: while one is open, the frame
    /// takes no clicks. Which window is the active one may change back and forth before either.
    [[nodiscard]] testing::AssertionResult dismissAlert()
    {
        constexpr std::uint32_t returnKey = 0xff0d;
        std::optional<std::uint32_t> alert;
        const auto takesKeys = [&] {
            alert = desktop->focusedWindow();
            return alert && isAlertShown();
        };
        const auto failed = [&](const char* what) {
            return testing::AssertionFailure() << what << ": " << keepImage(desktop->screenshot(), "desktop");
        };
        if (!waitUntil(takesKeys, Milliseconds{8000}))
            return failed("no alert takes keys");
        desktop->pressKey(returnKey);
        desktop->releaseKey(returnKey);
        if (!waitUntil([&] { return !desktop->isViewable(*alert); }, Milliseconds{8000}))
            return failed("the alert stays open");
        return testing::AssertionSuccess();
    }

    /// What the file manager, of which there is a stand-in that shows nothing, was asked to show.
    [[nodiscard]] std::string revealed() const { return revealedTo(desktop->folder()); }

    void pressRecord(const QRect& frame = region)
    {
        desktop->click(Application::recordButtonOf(frame));
        desktop->movePointer(farAway);
    }
    /// Waits until a movie is being written.
    [[nodiscard]] bool isRecording(Milliseconds patience = Milliseconds{8000}) const
    {
        return waitUntil([&] { return !otherFilesIn(videos).empty(); }, patience);
    }
    void record(Milliseconds duration)
    {
        pressRecord();
        ASSERT_TRUE(isRecording()) << application->process().output();
        sleepFor(duration);
        pressRecord();
    }
    /// Waits for that many movies, and for nothing else in their folder.
    [[nodiscard]] bool isSaved(std::size_t count = 1, Milliseconds patience = Milliseconds{10'000}) const
    {
        return waitUntil([&] { return moviesIn(videos).size() == count && otherFilesIn(videos).empty(); }, patience);
    }
    /// The only one.
    [[nodiscard]] MovieFile movie() const { return MovieFile(moviesIn(videos).at(0)); }

    /// Whether a movie's picture shows that area: away from the edges the colors within the codec's error, and the
    /// edges of what is bright at the right pixel.
    [[nodiscard]] testing::AssertionResult showsAreaOf(const QImage& picture, const QRect& area) const
    {
        const QImage content = contentOf(area);
        if (const auto colors = imagesMatch(picture, content, {.perChannel = 8, .edgeDistance = 8}); !colors)
            return colors;
        return imagesMatch(brightPart(picture), brightPart(content));
    }
    [[nodiscard]] static QImage brightPart(const QImage& picture)
    {
        QImage bright(picture.size(), QImage::Format_RGB32);
        for (int y = 0; y < picture.height(); ++y) {
            for (int x = 0; x < picture.width(); ++x)
                bright.setPixelColor(x, y, qGray(picture.pixel(x, y)) > 140 ? Qt::white : Qt::black);
        }
        return bright;
    }
    [[nodiscard]] QImage contentOf(const QRect& area) const
    {
        QImage content(area.size(), QImage::Format_RGB32);
        content.fill(QColor(40, 44, 52));
        for (const auto& [block, color] : blocks) {
            for (int y = 0; y < area.height(); ++y) {
                for (int x = 0; x < area.width(); ++x) {
                    if (block.contains(area.topLeft() + QPoint(x, y)))
                        content.setPixelColor(x, y, color);
                }
            }
        }
        return content;
    }

    static inline const std::vector<std::pair<QRect, QColor>> blocks{
        {{231, 131, 101, 75}, QColor(250, 250, 250)}, {{401, 151, 99, 203}, QColor(200, 30, 40)},
        {{555, 131, 120, 121}, QColor(30, 60, 220)},  {{241, 301, 133, 91}, QColor(20, 180, 60)},
        {{701, 201, 91, 221}, QColor(235, 200, 20)},  {{501, 401, 63, 31}, QColor(0, 0, 0)},
    };

    std::unique_ptr<PrivateDesktop> desktop;
    std::unique_ptr<Scene> scene;
    std::unique_ptr<Application> application;
    std::filesystem::path videos;
};

} // namespace nimbrale::test
