// What the application wires between its windows and the rest.

#include "app/nimbrale_app.h"
#include "tests/fakes/fake_platform.h"
#include "tests/fakes/offscreen_toolkit.h"
#include "ui/settings_window.h"

#include <QApplication>
#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
    [[nodiscard]] FakeWorkspace& workspace() { return platform_.workspace(); }
    [[nodiscard]] FakePanels& panels() { return platform_.panels(); }

    OffscreenToolkit toolkit_;
    QTemporaryDir directory_;
    AppSettings settings_{directory_.filePath("Nimbrale.conf").toStdString()};
    FakePlatform platform_;
    NimbraleApp app_{platform_, settings_};
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
    app_.applicationWasReopened(4711);
    ASSERT_TRUE(settingsWindow());
    EXPECT_TRUE(settingsWindow()->isVisible());
    using Activation = FakeWorkspace::Activation;
    EXPECT_THAT(workspace().activations, ElementsAre(Activation{settingsWindow()->winId(), 4711}));
    settingsWindow()->close();
    app_.applicationWasReopened(std::nullopt);
    EXPECT_TRUE(settingsWindow()->isVisible());
    EXPECT_EQ(workspace().activations.back(), (Activation{settingsWindow()->winId(), std::nullopt}));
}

TEST_F(NimbraleAppTest, PanelsStandBehindSettingsWhileItIsKey)
{
    app_.applicationWasReopened(std::nullopt);
    EXPECT_THAT(panels().windowsAbove(), IsEmpty());
    settingsWindow()->onKeyChanged(true);
    EXPECT_THAT(panels().windowsAbove(), ElementsAre(settingsWindow()->winId()));
    settingsWindow()->onKeyChanged(false);
    EXPECT_THAT(panels().windowsAbove(), IsEmpty());
}

TEST_F(NimbraleAppTest, ItIsEndingWhileItDecides)
{
    EXPECT_FALSE(app_.isEnding());
    workspace().termination().onShouldTerminate = [] { return TerminateReply::later; };
    workspace().terminate();
    EXPECT_TRUE(app_.isEnding());
    workspace().termination().reply(false);
    EXPECT_FALSE(app_.isEnding());
}

} // namespace
} // namespace nimbrale
