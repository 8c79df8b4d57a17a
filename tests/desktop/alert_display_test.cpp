// Where alerts stand while displays come and go, one of them the one that others see.

#include "platform/desktop/qt_workspace.h"
#include "tests/support/event_loop.h"
#include "tests/support/requirements.h"

#include <QApplication>
#include <QMessageBox>
#include <QScreen>

#include <gtest/gtest.h>

namespace nimbrale::test {
namespace {

const QRect realDisplay(0, 0, 1280, 720);
const QRect sharedDisplay(1280, 720, 400, 300);
const Alert question{AlertStyle::warning, "It did not start", "The reason.", {"Again", "Quit"}};

class AlertDisplayTest : public testing::Test {
protected:
    void SetUp() override
    {
        desktop_ = requireDesktop(
            {.server = PrivateDesktop::Server::xorgDummy, .windowManager = PrivateDesktop::WindowManager::openbox});
        desktop_->adoptEnvironment();
        ASSERT_TRUE(desktop_->resizeScreen({1680, 1020}));
        desktop_->setMonitor("Shared", sharedDisplay);
        // Where a window manager would put a new window by itself.
        desktop_->movePointer(sharedDisplay.center());
        application_ = std::make_unique<QApplication>(argumentCount_, arguments_);
        QApplication::setApplicationName("AlertTest");
        workspace_ = std::make_unique<QtWorkspace>();
        workspace_->onAlertsChanged = [this](const auto& windows) { alertsShown_ = windows.size(); };
    }
    void TearDown() override
    {
        open_.reset();
        // What was closed goes with the next turn of an event loop, of which there is none any more.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        workspace_.reset();
        application_.reset();
    }

    /// On the root, without the manager's frame.
    [[nodiscard]] std::optional<QRect> alert() const { return desktop_->windowTitled("AlertTest"); }
    [[nodiscard]] bool standsOn(const QRect& display) const
    {
        const auto found = alert();
        return found && display.contains(*found);
    }
    void ask()
    {
        open_ = workspace_->showAlert(question, [this](int button) { answer_ = button; });
    }

    std::unique_ptr<PrivateDesktop> desktop_;
    int argumentCount_ = 1;
    char name_[5] = "test";
    char* arguments_[2] = {name_, nullptr};
    std::unique_ptr<QApplication> application_;
    std::unique_ptr<QtWorkspace> workspace_;
    std::unique_ptr<OpenQuestion> open_;
    std::size_t alertsShown_ = 0;
    std::optional<int> answer_;
};

TEST_F(AlertDisplayTest, ItStandsInTheMiddleOfADisplayThatOnlyTheUserSees)
{
    workspace_->keepAlertsOffDisplay("Shared");
    ask();
    ASSERT_TRUE(runUntil([&] { return standsOn(realDisplay); }));
    const QPoint distance = alert()->center() - realDisplay.center();
    EXPECT_LT(distance.manhattanLength(), 60);
    EXPECT_TRUE(runUntil([&] { return desktop_->activeWindowTitle() == "AlertTest"; })) << "it has the keyboard";
    EXPECT_EQ(alertsShown_, 1U);
}

TEST_F(AlertDisplayTest, ItMovesWhenItsDisplayTurnsOutToBeSharedWithOthers)
{
    // The other way round: the display that it stands on becomes the one to keep off.
    ask();
    ASSERT_TRUE(runUntil([&] { return alert().has_value(); }));
    const bool wasOnShared = standsOn(sharedDisplay);
    workspace_->keepAlertsOffDisplay(wasOnShared ? "Shared" : desktop_->outputName(0));
    EXPECT_TRUE(runUntil([&] { return wasOnShared ? standsOn(realDisplay) : alert() && !standsOn(realDisplay); }));
}

TEST_F(AlertDisplayTest, WithoutADisplayOfTheUsersItWaitsForOne)
{
    workspace_->keepAlertsOffDisplay("Shared");
    desktop_->unplug(desktop_->outputName(0));
    ASSERT_TRUE(runUntil([&] { return QGuiApplication::screens().size() == 1; }));
    ask();
    EXPECT_FALSE(runUntil([&] { return alert().has_value(); }, Milliseconds{500})) << "nothing is shown to the others";
    EXPECT_EQ(alertsShown_, 0U);
    desktop_->plug(desktop_->outputName(0), realDisplay);
    EXPECT_TRUE(runUntil([&] { return standsOn(realDisplay); }));
    EXPECT_EQ(alertsShown_, 1U);
    EXPECT_FALSE(answer_);
}

TEST_F(AlertDisplayTest, ItGoesWithItsDisplayAndComesBackWithIt)
{
    workspace_->keepAlertsOffDisplay("Shared");
    ask();
    ASSERT_TRUE(runUntil([&] { return standsOn(realDisplay); }));
    for (int round = 0; round < 2; ++round) {
        desktop_->unplug(desktop_->outputName(0));
        ASSERT_TRUE(runUntil([&] { return !alert(); })) << "the others do not get to see it";
        EXPECT_EQ(alertsShown_, 0U);
        desktop_->plug(desktop_->outputName(0), realDisplay);
        EXPECT_TRUE(runUntil([&] { return standsOn(realDisplay); }));
        EXPECT_EQ(alertsShown_, 1U);
        EXPECT_FALSE(answer_) << "that is no answer";
    }
    open_.reset();
    EXPECT_TRUE(runUntil([&] { return !alert(); }));
    EXPECT_EQ(alertsShown_, 0U);
}

} // namespace
} // namespace nimbrale::test
