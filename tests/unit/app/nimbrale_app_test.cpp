// What the application wires between its windows and the rest.

#include "app/nimbrale_app.h"
#include "recording/recording_folder.h"
#include "tests/fakes/offscreen_toolkit.h"
#include "tests/fakes/plain_camera.h"
#include "ui/settings_window.h"

#include <QAbstractButton>
#include <QApplication>
#include <QColor>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QIcon>
#include <QImage>
#include <QLabel>
#include <QPainter>
#include <QPointer>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTimer>

#include <chrono>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <thread>
#include <unistd.h>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class NimbraleAppTest : public testing::Test {
protected:
    NimbraleAppTest()
    {
        platform_.screens().list = {makeScreen(1, {0, 0, 1920, 1080})};
        platform_.screens().main = 1;
    }
    [[nodiscard]] static SettingsWindow* settingsWindow()
    {
        for (QWidget* window : QApplication::topLevelWidgets()) {
            if (auto* const found = dynamic_cast<SettingsWindow*>(window))
                return found;
        }
        return nullptr;
    }
    /// Starts up and runs until `work`, the event loop's first, has ended the application: the exit code.
    [[nodiscard]] int run(const std::function<void()>& work)
    {
        QTimer::singleShot(0, [work] { work(); });
        return app_->run();
    }
    /// Starts the capture, so that there are a frame, which comes last, and a virtual display.
    void showFrame()
    {
        ShareableContent content;
        content.displays = {{1, 1920, 1080}};
        content.applications = {{getpid(), "nimbrale"}};
        content.windows = {{getpid(), true}};
        EXPECT_EQ(run([&] {
                      platform_.screenCapture().answerContent(content);
                      platform_.screenCapture().stream().completeStart();
                      QApplication::exit(0);
                  }),
                  0);
    }
    /// The color of the frame's border.
    [[nodiscard]] QColor frameColor()
    {
        FakePanel& panel = panels().last();
        const Rect& frame = panel.frame();
        QImage picture(static_cast<int>(frame.width), static_cast<int>(frame.height),
                       QImage::Format_ARGB32_Premultiplied);
        QPainter painter(&picture);
        panel.rootLayer().painter()(painter, {0, 0, frame.width, frame.height});
        const Rect border = panel.rootLayer().coverage().front();
        return picture.pixelColor(static_cast<int>(border.minX()) + 20, static_cast<int>(border.midY()));
    }
    /// What the Settings window says about the shared picture; empty where it says nothing.
    [[nodiscard]] static QString sharedSize()
    {
        for (const QLabel* label : settingsWindow()->findChildren<QLabel*>()) {
            if (label->isVisible() && label->text().startsWith("Shared:"))
                return label->text();
        }
        return {};
    }
    /// Starts up, does `work` and ends.
    void whileItRuns(const std::function<void()>& work)
    {
        EXPECT_EQ(run([&work] {
                      work();
                      QApplication::quit();
                  }),
                  0);
    }
    void completeStart()
    {
        FakeScreenCapture& capture = platform_.screenCapture();
        ShareableContent content;
        for (const Screen& screen : platform_.screens().list)
            content.displays.push_back({screen.displayID, screen.frame.width, screen.frame.height});
        capture.answerContent(content);
        capture.stream().completeStart({});
    }
    [[nodiscard]] FakeWorkspace& workspace() { return platform_.workspace(); }
    [[nodiscard]] FakePanels& panels() { return platform_.panels(); }

    OffscreenToolkit toolkit_;
    QTemporaryDir directory_;
    AppSettings settings_{directory_.filePath("Nimbrale.conf").toStdString()};
    FakePlatform platform_;
    std::optional<NimbraleApp> app_{std::in_place, platform_, settings_, makePlainCamera(platform_)};
};

TEST_F(NimbraleAppTest, PanelsTakeNoInputAndStandBehindWhileAnAlertIsOpen)
{
    workspace().onAlertsChanged({17});
    EXPECT_EQ(panels().input, PanelInput::disabled);
    EXPECT_THAT(panels().windowsAbove(), ElementsAre(17));
    workspace().onAlertsChanged({17, 18});
    EXPECT_EQ(panels().input, PanelInput::disabled);
    EXPECT_THAT(panels().windowsAbove(), UnorderedElementsAre(17, 18));
    workspace().onAlertsChanged({18});
    EXPECT_EQ(panels().input, PanelInput::disabled);
    EXPECT_THAT(panels().windowsAbove(), ElementsAre(18));
    workspace().onAlertsChanged({});
    EXPECT_EQ(panels().input, PanelInput::enabled);
    EXPECT_THAT(panels().windowsAbove(), IsEmpty());
}

TEST_F(NimbraleAppTest, AnotherStartShowsSettingsActiveForItsCause)
{
    EXPECT_FALSE(settingsWindow());
    app_->applicationWasReopened(4711);
    ASSERT_TRUE(settingsWindow());
    EXPECT_TRUE(settingsWindow()->isVisible());
    using Activation = FakeWorkspace::Activation;
    EXPECT_THAT(workspace().activations, ElementsAre(Activation{settingsWindow()->winId(), 4711}));
    const QPointer<SettingsWindow> first = settingsWindow();
    first->close();
    app_->applicationWasReopened(std::nullopt);
    EXPECT_EQ(first, settingsWindow()) << "there is one";
    EXPECT_TRUE(settingsWindow()->isVisible());
    EXPECT_EQ(workspace().activations.back(), (Activation{settingsWindow()->winId(), std::nullopt}));
}

TEST_F(NimbraleAppTest, PanelsStandBehindSettingsWhileItIsKey)
{
    app_->applicationWasReopened(std::nullopt);
    EXPECT_THAT(panels().windowsAbove(), IsEmpty());
    settingsWindow()->onKeyChanged(true);
    EXPECT_THAT(panels().windowsAbove(), ElementsAre(settingsWindow()->winId()));
    settingsWindow()->onKeyChanged(false);
    EXPECT_THAT(panels().windowsAbove(), IsEmpty());
}

TEST_F(NimbraleAppTest, SettingsOfferEveryDisplayOfTheUsersAsTheyComeAndGo)
{
    showFrame();
    app_->applicationWasReopened(std::nullopt);
    const auto offered = [this] {
        QApplication::processEvents();
        for (const QComboBox* box : settingsWindow()->findChildren<QComboBox*>()) {
            if (box->accessibleName() == "Display")
                return box->count();
        }
        return -1;
    };
    ASSERT_TRUE(platform_.virtualDisplays().device().isAlive);
    const int before = offered();
    platform_.screens().list.push_back(makeScreen(2, {1920, 0, 1600, 900}));
    platform_.screens().notify();
    EXPECT_EQ(offered(), before + 1);
    const DisplayID own = platform_.virtualDisplays().device().displayID;
    platform_.screens().list.push_back(makeScreen(own, {3520, 0, 800, 600}));
    platform_.screens().notify();
    EXPECT_EQ(offered(), before + 1) << "the frame is never put on the own one";
}

TEST_F(NimbraleAppTest, SettingsOfferCamerasAndMicrophonesAsTheyComeAndGo)
{
    app_->applicationWasReopened(std::nullopt);
    const auto offered = [](const char* picker) {
        QApplication::processEvents();
        for (const QComboBox* box : settingsWindow()->findChildren<QComboBox*>()) {
            if (box->accessibleName() == picker)
                return box->count();
        }
        return -1;
    };
    const int cameras = offered("Camera");
    platform_.cameras().plugIn({"desk", "Desk camera"});
    EXPECT_EQ(offered("Camera"), cameras + 1);
    platform_.cameras().unplug("desk");
    EXPECT_EQ(offered("Camera"), cameras);
    const int microphones = offered("Microphone");
    platform_.microphones().plugIn({"desk", "Desk microphone"});
    EXPECT_EQ(offered("Microphone"), microphones + 1);
    platform_.microphones().unplug("desk");
    EXPECT_EQ(offered("Microphone"), microphones);
}

TEST_F(NimbraleAppTest, FrameIsYellowUnlessATestWantsAnotherColor)
{
    showFrame();
    EXPECT_EQ(frameColor(), QColor(255, 214, 10));
    app_.reset();
    qputenv("NIMBRALE_FRAME_COLOR", "#123456");
    app_.emplace(platform_, settings_, makePlainCamera(platform_));
    qunsetenv("NIMBRALE_FRAME_COLOR");
    showFrame();
    EXPECT_EQ(frameColor(), QColor(0x12, 0x34, 0x56));
}

TEST_F(NimbraleAppTest, EndsWithAnErrorWhenTheDesktopIsLost)
{
    EXPECT_EQ(run([this] { platform_.onConnectionLost({ErrorCode::permanent, "The connection is gone."}); }), 1);
}

TEST_F(NimbraleAppTest, NobodyIsToldOnceItIsGone)
{
    ASSERT_TRUE(platform_.onConnectionLost);
    ASSERT_TRUE(workspace().onAlertsChanged);
    app_.reset();
    EXPECT_FALSE(platform_.onConnectionLost);
    EXPECT_FALSE(workspace().onAlertsChanged);
}

TEST_F(NimbraleAppTest, ClosingTheLastWindowDoesNotEndIt)
{
    EXPECT_FALSE(QApplication::quitOnLastWindowClosed());
}

TEST_F(NimbraleAppTest, SettingsTellsThePixelsOfTheFrameAlsoWhileItIsDragged)
{
    platform_.screens().list = {makeScreen(1, {0, 0, 1600, 1000}, 2)};
    app_->applicationWasReopened(std::nullopt);
    EXPECT_EQ(sharedSize(), "") << "nothing is shared yet";
    whileItRuns([this] {
        completeStart();
        EXPECT_EQ(sharedSize(), "Shared: 1600 × 1200 pixels");

        FakePanel& frame = panels().last();
        const Point corner{800, 1000 - 601};
        frame.press(corner);
        platform_.screens().mouse = {corner.x + 33, corner.y - 44};
        frame.dragTo(platform_.screens().mouse, true);
        EXPECT_EQ(sharedSize(), "Shared: 1666 × 1288 pixels");
        EXPECT_EQ(settings_.width(), 800) << "the drag has not ended";
        frame.release(platform_.screens().mouse);

        settings_.setWidth(500);
        platform_.mainQueue().advance(std::chrono::milliseconds{100});
        EXPECT_EQ(sharedSize(), "Shared: 1000 × 1288 pixels");
    });
}

TEST_F(NimbraleAppTest, TheButtonForTheFolderLetsTheUserChooseOne)
{
    app_->applicationWasReopened(std::nullopt);
    for (QAbstractButton* const button : settingsWindow()->findChildren<QAbstractButton*>()) {
        if (button->text().remove('&') == "Choose…")
            button->click();
    }
    const std::filesystem::path talks = directory_.filePath("talks").toStdString();
    std::filesystem::create_directory(talks);
    workspace().answerFolderQuestion(talks);
    for (int attempt = 0; attempt < 10'000 && settings_.recordFolderBookmark().empty(); ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
        platform_.mainQueue().runPosted();
    }
    EXPECT_EQ(recording_folder::resolve(settings_.recordFolderBookmark()), std::filesystem::canonical(talks));
}

TEST_F(NimbraleAppTest, WindowsHaveTheFrameAsTheirIcon)
{
    app_->applicationWasReopened(std::nullopt);
    const QIcon icon = settingsWindow()->windowIcon();
    for (const int size : {16, 24, 32, 48, 64, 128, 256}) {
        const QImage image = icon.pixmap(QSize(size, size), 1).toImage();
        ASSERT_EQ(image.size(), QSize(size, size));
        // Half way down, in the middle of the frame's left border.
        const QColor border = image.pixelColor(size * 48 / 256, size / 2);
        EXPECT_GT(border.red(), 180) << size;
        EXPECT_LT(border.blue(), 100) << size;
        EXPECT_EQ(image.pixelColor(0, 0).alpha(), 0) << size;
    }
}

TEST_F(NimbraleAppTest, AnInstalledIconStaysInUse)
{
    const QDir theme(directory_.filePath("icons/hicolor"));
    ASSERT_TRUE(theme.mkpath("48x48/apps"));
    QFile index(theme.filePath("index.theme"));
    ASSERT_TRUE(index.open(QFile::WriteOnly));
    index.write("[Icon Theme]\nName=Hicolor\nDirectories=48x48/apps\n[48x48/apps]\nSize=48\nType=Fixed\n");
    index.close();
    QImage installed(48, 48, QImage::Format_RGB32);
    installed.fill(Qt::magenta);
    ASSERT_TRUE(installed.save(theme.filePath("48x48/apps/nimbrale.png")));
    const auto restoreTheme = qScopeGuard([paths = QIcon::themeSearchPaths(), name = QIcon::themeName()] {
        QIcon::setThemeSearchPaths(paths);
        QIcon::setThemeName(name);
    });
    QIcon::setThemeSearchPaths({directory_.filePath("icons")});
    QIcon::setThemeName("hicolor");

    const NimbraleApp app(platform_, settings_, makePlainCamera(platform_));
    EXPECT_EQ(QApplication::windowIcon().pixmap(QSize(48, 48), 1).toImage().pixelColor(24, 24), QColor(Qt::magenta));
}

TEST_F(NimbraleAppTest, ItIsEndingWhileItDecides)
{
    EXPECT_FALSE(app_->isEnding());
    workspace().termination().onShouldTerminate = [] { return TerminateReply::later; };
    workspace().terminate();
    EXPECT_TRUE(app_->isEnding());
    workspace().termination().reply(false);
    EXPECT_FALSE(app_->isEnding());
}

} // namespace
} // namespace nimbrale
