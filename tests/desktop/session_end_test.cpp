// The end of the desktop's session, as a session manager and the application settle it between them.

#include "platform/desktop/qt_workspace.h"
#include "tests/support/requirements.h"
#include "tests/support/session_manager.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTimer>

#include <functional>
#include <gtest/gtest.h>

namespace nimbrale::test {
namespace {

/// A program of a session, in this process: nothing but the toolkit and the workspace.
class SessionEndTest : public testing::Test {
protected:
    void SetUp() override
    {
        desktop_ = requireDesktop({});
        std::string reason;
        session_ = SessionManager::start(*desktop_, reason);
        ASSERT_TRUE(session_) << reason;
        desktop_->adoptEnvironment();
        qputenv("SESSION_MANAGER", session_->environment().at("SESSION_MANAGER").c_str());
        application_ = std::make_unique<QApplication>(argumentCount_, arguments_);
        workspace_ = std::make_unique<QtWorkspace>();
        workspace_->termination().onShouldTerminate = [this] {
            ++questions_;
            return reply_;
        };
        ASSERT_EQ(nextAfterEvents(), "registered");
    }
    void TearDown() override
    {
        workspace_.reset();
        application_.reset();
        qunsetenv("SESSION_MANAGER");
    }

    /// What the session manager tells next, while the program's event loop runs.
    [[nodiscard]] std::string nextAfterEvents(Milliseconds timeout = Milliseconds{5000})
    {
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < timeout.count()) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
            if (const std::string line = session_->next(Milliseconds{5}); !line.empty())
                return line;
        }
        return {};
    }
    /// Runs the event loop as the application does; absent when it has to be broken off.
    [[nodiscard]] std::optional<int> exitCodeWithin(Milliseconds timeout)
    {
        constexpr int brokenOff = 99;
        QTimer::singleShot(timeout, application_.get(), [] { QCoreApplication::exit(brokenOff); });
        const int code = QApplication::exec();
        return code == brokenOff ? std::nullopt : std::optional(code);
    }

    std::unique_ptr<PrivateDesktop> desktop_;
    std::unique_ptr<SessionManager> session_;
    int argumentCount_ = 1;
    char name_[5] = "test";
    char* arguments_[2] = {name_, nullptr};
    std::unique_ptr<QApplication> application_;
    std::unique_ptr<QtWorkspace> workspace_;
    TerminateReply reply_ = TerminateReply::now;
    int questions_ = 0;
};

TEST_F(SessionEndTest, WhoMayQuitAnswersAtOnceAndQuitsWhenTold)
{
    session_->shutDown();
    EXPECT_EQ(nextAfterEvents(), "saved");
    EXPECT_EQ(questions_, 1);
    EXPECT_FALSE(workspace_->isTerminating()) << "the session may still be kept by another program";
    EXPECT_EQ(exitCodeWithin(Milliseconds{200}), std::nullopt);

    session_->die();
    EXPECT_EQ(exitCodeWithin(Milliseconds{5000}), 0);
    EXPECT_TRUE(workspace_->isTerminating());
}

TEST_F(SessionEndTest, TheSessionWaitsForALaterAnswer)
{
    std::optional<std::string> heardBefore;
    workspace_->termination().onShouldTerminate = [&] {
        ++questions_;
        QTimer::singleShot(500, application_.get(), [&] {
            heardBefore = session_->next(Milliseconds{50});
            workspace_->termination().reply(true);
        });
        return TerminateReply::later;
    };
    session_->shutDown();
    EXPECT_EQ(nextAfterEvents(), "saved");
    EXPECT_EQ(heardBefore, "") << "nothing is told before the application is ready";
    workspace_->termination().onShouldTerminate = nullptr;
    EXPECT_EQ(questions_, 1);
    session_->die();
    EXPECT_EQ(exitCodeWithin(Milliseconds{5000}), 0);
}

TEST_F(SessionEndTest, ARefusalKeepsTheSession)
{
    reply_ = TerminateReply::cancel;
    session_->shutDown();
    // The toolkit asks for a talk with the user before it may refuse.
    std::string told = nextAfterEvents();
    if (told == "asked")
        told = nextAfterEvents();
    EXPECT_EQ(told, "cancelled");
    EXPECT_EQ(nextAfterEvents(), "saved");
    EXPECT_FALSE(workspace_->isTerminating());
}

TEST_F(SessionEndTest, ThatIsOnlySavedGoesOn)
{
    session_->checkpoint();
    EXPECT_EQ(nextAfterEvents(), "saved");
    EXPECT_EQ(exitCodeWithin(Milliseconds{300}), std::nullopt);
    EXPECT_FALSE(workspace_->isTerminating());
}

TEST_F(SessionEndTest, TheToolkitsOwnQuitPassesThroughTheQuestion)
{
    reply_ = TerminateReply::later;
    QTimer::singleShot(0, application_.get(), [] { QCoreApplication::quit(); });
    EXPECT_EQ(exitCodeWithin(Milliseconds{300}), std::nullopt);
    EXPECT_EQ(questions_, 1);
    EXPECT_TRUE(workspace_->isTerminating());
    QTimer::singleShot(0, application_.get(), [this] { workspace_->termination().reply(true); });
    EXPECT_EQ(exitCodeWithin(Milliseconds{5000}), 0);
}

} // namespace
} // namespace nimbrale::test
