// The webcam in the framed area: its place, its settings and what the shared picture is told.

#include "webcam/webcam_overlay.h"

#include "tests/fakes/offscreen_application.h"
#include "tests/fakes/plain_camera.h"

#include <QFile>
#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <vector>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using Shape = AppSettings::WebcamShape;
using Background = AppSettings::WebcamBackground;

const Rect screenFrame{0, 0, 1920, 1080};
const Rect region{100, 200, 1280, 720};
const DisplayGeometry geometry{{1920, 1080}, screenFrame, 0};

class WebcamOverlayTest : public testing::Test {
protected:
    WebcamOverlayTest()
    {
        startOffscreenApplication();
        platform.screens().list = {makeScreen(1, screenFrame)};
        platform.screens().mouse = {5, 5};
        platform.cameras().list = {{"front", "Front camera"}};
        overlay = WebcamOverlay::create(platform, settings, camera, {geometry, region});
        overlay->onAppearanceChange = [this](const WebcamAppearance& changed) { appearances.push_back(changed); };
        overlay->onOpenSettings = [this] { ++settingsOpened; };
    }

    void show()
    {
        overlay->show();
        while (!platform.cameras().questions.empty())
            platform.cameras().answerAccess(true);
    }
    [[nodiscard]] Rect box() const { return appearances.back().box; }
    /// On the screen, as the panel has it.
    [[nodiscard]] static Rect frameOf(const Rect& box)
    {
        return {100 + box.x, 1080 - 200 - box.y - box.height, box.width, box.height};
    }
    FakePanel& panel() { return *platform.panels().living.at(0); }
    void drag(WebcamControl control, double dx, double dyUp)
    {
        const Rect rect = WebcamControlsLayout(panel().frame().size()).rect(control);
        const Point from{panel().frame().x + rect.midX(), panel().frame().y + rect.midY()};
        panel().press(from);
        panel().dragTo({from.x + dx, from.y + dyUp});
        panel().release({from.x + dx, from.y + dyUp});
    }
    void pointAt(Point location)
    {
        platform.screens().mouse = location;
        platform.screens().notifyPointer();
        platform.mainQueue().advance(40ms);
    }

    QTemporaryDir directory;
    AppSettings settings{directory.filePath("Nimbrale.conf").toStdString()};
    FakePlatform platform;
    std::shared_ptr<WebcamCamera> camera = makePlainCamera(platform);
    std::vector<WebcamAppearance> appearances;
    int settingsOpened = 0;
    std::shared_ptr<WebcamOverlay> overlay;
};

TEST_F(WebcamOverlayTest, IsHiddenAtFirstAndNoCameraIsAskedFor)
{
    EXPECT_FALSE(overlay->isShown());
    EXPECT_TRUE(platform.panels().created.empty());
    EXPECT_TRUE(platform.cameras().questions.empty());
}

TEST_F(WebcamOverlayTest, NeverPlacedItComesToTheBottomRightCorner)
{
    show();
    EXPECT_EQ(box(), (Rect{944, 524, 320, 180}));
    EXPECT_EQ(panel().frame(), frameOf(box()));
    EXPECT_EQ(panel().order, FakePanel::Order::front);
    EXPECT_EQ(appearances.back().camera, camera->pictures());
    EXPECT_EQ(settings.webcamX(), -1) << "not placed by the user yet";
}

TEST_F(WebcamOverlayTest, PicturesAreAsSmallAsItShowsThemOnADisplayWithThatManyPixels)
{
    for (const auto& [scale, width] : {std::pair{1.0, 320}, std::pair{1.5, 640}, std::pair{2.0, 640}}) {
        platform.screens().list.front().backingScaleFactor = scale;
        show();
        platform.cameras().opened.back()->show(1280, 720);
        platform.mainQueue().runPosted();
        EXPECT_EQ(camera->pictures()->live()->width(), width) << "at " << scale;
    }
}

TEST_F(WebcamOverlayTest, StoredBoxesAreClamped)
{
    settings.setWebcamX(1200);
    settings.setWebcamY(10);
    settings.setWebcamWidth(200);
    settings.setWebcamHeight(60);
    show();
    EXPECT_EQ(box(), (Rect{1080, 10, 200, 120}));
}

TEST_F(WebcamOverlayTest, TheSettingsReachPanelAndPicture)
{
    settings.setWebcamShape(Shape::circle);
    settings.setWebcamMirrored(false);
    settings.setWebcamBackground(Background::blurred);
    show();
    EXPECT_EQ(appearances.back().shape, Shape::circle);
    EXPECT_FALSE(appearances.back().mirrored);
    EXPECT_EQ(box().width, box().height);
    EXPECT_TRUE(overlay->window()->isSquare());
    EXPECT_EQ(overlay->window()->view().pictureLayer().shape(), Shape::circle);
    EXPECT_EQ(camera->pictures()->background(), Background::blurred);
    settings.setWebcamShape(Shape::rectangle);
    show();
    EXPECT_EQ(platform.panels().created.size(), 1U) << "the same panel";
    EXPECT_EQ(appearances.back().shape, Shape::rectangle);
    EXPECT_EQ(box(), (Rect{944, 524, 320, 180}));
}

TEST_F(WebcamOverlayTest, TheCameraOfTheSettingsIsOpenWhileItIsShown)
{
    platform.cameras().list.push_back({"desk", "Desk camera"});
    settings.setWebcamDeviceID("desk");
    overlay->show();
    EXPECT_EQ(platform.cameras().openCount(), 0U) << "before the user allows it";
    platform.cameras().answerAccess(true);
    ASSERT_EQ(platform.cameras().openCount(), 1U);
    EXPECT_EQ(platform.cameras().opened.back()->id, "desk");
    settings.setWebcamDeviceID("front");
    show();
    EXPECT_EQ(platform.cameras().opened.back()->id, "front");
    EXPECT_EQ(platform.cameras().openCount(), 1U);
    overlay->hide();
    EXPECT_EQ(platform.cameras().openCount(), 0U);
}

TEST_F(WebcamOverlayTest, HiddenItIsGoneFromScreenAndPicture)
{
    show();
    overlay->hide();
    EXPECT_FALSE(overlay->isShown());
    EXPECT_TRUE(platform.panels().living.empty());
    EXPECT_EQ(appearances.back().camera, nullptr);
    const std::size_t told = appearances.size();
    overlay->hide();
    EXPECT_EQ(appearances.size(), told);
}

TEST_F(WebcamOverlayTest, AnAnswerThatComesAfterItWasHiddenOpensNothing)
{
    overlay->show();
    overlay->hide();
    platform.cameras().answerAccess(true);
    EXPECT_EQ(platform.cameras().openCount(), 0U);
}

TEST_F(WebcamOverlayTest, RefusedTheWebcamIsOffBeforeTheAlertComes)
{
    settings.setWebcamEnabled(true);
    overlay->show();
    std::vector<std::size_t> alertsWhenItChanged;
    const Subscription observer =
        settings.observeChanges([&] { alertsWhenItChanged.push_back(platform.workspace().alerts.size()); });
    platform.cameras().answerAccess(false);
    EXPECT_FALSE(settings.webcamEnabled());
    EXPECT_THAT(alertsWhenItChanged, testing::ElementsAre(0U));
    ASSERT_EQ(platform.workspace().alerts.size(), 1U);
    const Alert& alert = platform.workspace().alerts.back();
    EXPECT_EQ(alert.message, "Camera access needed");
    EXPECT_EQ(alert.informativeText, "To show your webcam, allow Nimbrale in System Settings → Privacy & Security → "
                                     "Camera, then turn the webcam on again in Settings.");
    EXPECT_THAT(alert.buttons, testing::ElementsAre("Open System Settings", "Cancel"));
    EXPECT_EQ(platform.cameras().openCount(), 0U);
    platform.workspace().answerAlert(0);
    EXPECT_THAT(platform.workspace().locations,
                testing::ElementsAre("x-apple.systempreferences:com.apple.preference.security?Privacy_Camera"));
}

TEST_F(WebcamOverlayTest, RefusedAndCancelledNothingIsOpened)
{
    overlay->show();
    platform.cameras().answerAccess(false);
    platform.workspace().answerAlert(1);
    EXPECT_TRUE(platform.workspace().locations.empty());
}

TEST_F(WebcamOverlayTest, ADragStaysInTheRegionAndIsStoredOnceAtItsEnd)
{
    show();
    const std::size_t told = appearances.size();
    drag(WebcamControl::move, 500, -500);
    EXPECT_EQ(box(), (Rect{960, 540, 320, 180}));
    EXPECT_EQ(panel().frame(), frameOf(box()));
    EXPECT_EQ(appearances.size(), told + 1) << "one step";
    EXPECT_EQ(settings.webcamX(), 960);
    EXPECT_EQ(settings.webcamY(), 540);
    EXPECT_EQ(settings.webcamWidth(), 320);
    EXPECT_EQ(settings.webcamHeight(), 180);
}

TEST_F(WebcamOverlayTest, ABoxIsWrittenAsAWhole)
{
    show();
    std::vector<bool> wasWritten;
    const Subscription observer = settings.observeChanges([&] {
        QFile file(directory.filePath("Nimbrale.conf"));
        wasWritten.push_back(file.open(QIODevice::ReadOnly) && file.readAll().contains("webcam"));
    });
    drag(WebcamControl::resize, -40, 10);
    EXPECT_THAT(wasWritten, testing::ElementsAre(false, false, false, false)) << "before each of the four numbers";
    const AppSettings stored(directory.filePath("Nimbrale.conf").toStdString());
    EXPECT_EQ((Rect{stored.webcamX(), stored.webcamY(), stored.webcamWidth(), stored.webcamHeight()}),
              (Rect{944, 524, 280, 170}));
}

TEST_F(WebcamOverlayTest, NothingIsStoredDuringADrag)
{
    show();
    const Rect rect = WebcamControlsLayout(panel().frame().size()).rect(WebcamControl::move);
    const Point from{panel().frame().x + rect.midX(), panel().frame().y + rect.midY()};
    panel().press(from);
    panel().dragTo({from.x - 100, from.y});
    EXPECT_EQ(settings.webcamX(), -1);
    panel().release({from.x - 100, from.y});
    EXPECT_EQ(settings.webcamX(), 844);
}

TEST_F(WebcamOverlayTest, AResizeKeepsTheSmallestSize)
{
    show();
    drag(WebcamControl::resize, -400, 400);
    EXPECT_EQ(box(), (Rect{944, 524, 120, 120}));
    EXPECT_EQ(settings.webcamWidth(), 120);
}

TEST_F(WebcamOverlayTest, FollowsTheRegion)
{
    settings.setWebcamX(1000);
    settings.setWebcamY(600);
    show();
    overlay->followRegion({0, 0, 640, 400});
    EXPECT_EQ(box(), (Rect{320, 220, 320, 180}));
    EXPECT_EQ(panel().frame(), (Rect{320, 1080 - 400, 320, 180}));
    overlay->followRegion(region);
    EXPECT_EQ(box(), (Rect{960, 540, 320, 180})) << "what the user chose is not forgotten";
}

TEST_F(WebcamOverlayTest, ARegionThatChangesWhileItIsHiddenCountsLater)
{
    overlay->followRegion({0, 0, 640, 400});
    EXPECT_TRUE(appearances.empty());
    show();
    EXPECT_EQ(box(), (Rect{304, 204, 320, 180}));
}

TEST_F(WebcamOverlayTest, UnderThePointerItIsFadedForTheOthersToo)
{
    show();
    const Point middle{panel().frame().midX(), panel().frame().midY()};
    pointAt(middle);
    EXPECT_TRUE(appearances.back().isFaded);
    pointAt({5, 5});
    EXPECT_FALSE(appearances.back().isFaded);
    settings.setWebcamFadeOnHover(false);
    show();
    pointAt(middle);
    EXPECT_FALSE(appearances.back().isFaded);
}

TEST_F(WebcamOverlayTest, FadingSwitchedOffUnderThePointerEndsTheFade)
{
    show();
    pointAt({panel().frame().midX(), panel().frame().midY()});
    ASSERT_TRUE(appearances.back().isFaded);
    settings.setWebcamFadeOnHover(false);
    show();
    EXPECT_FALSE(appearances.back().isFaded);
}

TEST_F(WebcamOverlayTest, ItsButtonsTurnItOffAndOpenItsSettings)
{
    settings.setWebcamEnabled(true);
    show();
    drag(WebcamControl::settings, 0, 0);
    EXPECT_EQ(settingsOpened, 1);
    drag(WebcamControl::close, 0, 0);
    EXPECT_FALSE(settings.webcamEnabled());
    EXPECT_TRUE(overlay->isShown()) << "whoever follows the setting hides it";
}

TEST_F(WebcamOverlayTest, IsDescribedWhileItIsShown)
{
    show();
    ASSERT_EQ(platform.workspace().described().count("Nimbrale webcam"), 1U);
    EXPECT_EQ(platform.workspace().described().at("Nimbrale webcam")().size(), 4U);
    overlay->hide();
    EXPECT_TRUE(platform.workspace().described().empty());
}

TEST_F(WebcamOverlayTest, EndsWithItsCameraClosed)
{
    show();
    overlay.reset();
    EXPECT_EQ(platform.cameras().openCount(), 0U);
    EXPECT_TRUE(platform.panels().living.empty());
}

} // namespace
} // namespace nimbrale
