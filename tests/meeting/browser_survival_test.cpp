// The application quits or is killed while a browser shares the virtual display: the browser goes on, and the far side
// sees that sharing has stopped until the application is back.

#include "tests/support/meeting.h"

#include <csignal>
#include <gtest/gtest.h>

namespace nimbrale::test {

namespace {

using Browser = BrowserCall::Browser;

class BrowserSurvival : public testing::TestWithParam<Browser> {
protected:
    void begin()
    {
        meeting_ = requireMeeting(
            {.application = {.region = region_}, .call = {.browser = GetParam(), .window = {40, 300, 520, 480}}});
    }

    [[nodiscard]] bool isBrowserRunning() { return meeting_->call().browser().isRunning(); }
    [[nodiscard]] bool isDisplayThere() { return meeting_->desktop().monitorNamed("Nimbrale").has_value(); }

    [[nodiscard]] bool isLeftClean()
    {
        return !isDisplayThere() && meeting_->desktop().screenSize() == QSize(1600, 900);
    }

    /// The card is dark, with a light text in its middle.
    [[nodiscard]] bool isCardReceived()
    {
        const QImage picture = meeting_->call().receivedImage();
        if (picture.isNull())
            return false;
        int light = 0;
        int dark = 0;
        for (int y = 0; y < picture.height(); ++y) {
            for (int x = 0; x < picture.width(); ++x) {
                const int grey = qGray(picture.pixel(x, y));
                light += grey > 150 ? 1 : 0;
                dark += grey < 60 ? 1 : 0;
            }
        }
        return light > 100 && dark > picture.width() * picture.height() * 9 / 10;
    }

    void expectCardAtTheFarSide()
    {
        EXPECT_TRUE(waitUntil([&] { return isCardReceived(); }, Milliseconds{5000}, Milliseconds{100}))
            << keepImage(meeting_->call().receivedImage(), "received");
        EXPECT_TRUE(meeting_->call().state().isLive);
    }

    void startAgain()
    {
        std::string reason;
        ASSERT_TRUE(meeting_->restartApplication(reason)) << reason;
        EXPECT_TRUE(meeting_->trackShowsContentOf(region_, Milliseconds{8000}));
        EXPECT_TRUE(meeting_->call().waitForChangesReceived(10, Milliseconds{5000}));
    }

    const QRect region_{1000, 200, 500, 350};
    std::unique_ptr<Meeting> meeting_;
};

TEST_P(BrowserSurvival, OfTheEndOfTheApplicationAndShowsTheCard)
{
    begin();
    ASSERT_FALSE(isCardReceived());
    EXPECT_EQ(meeting_->application().quit(), 0);
    expectCardAtTheFarSide();
    sleepFor(Milliseconds{3000});
    ASSERT_TRUE(isBrowserRunning()) << meeting_->call().browserOutput();
    EXPECT_TRUE(isDisplayThere());
    EXPECT_TRUE(isCardReceived());
    startAgain();
}

TEST_P(BrowserSurvival, OfAKillOfTheApplicationAndTheNextStart)
{
    begin();
    meeting_->application().process().signal(SIGKILL);
    ASSERT_TRUE(meeting_->application().process().waitForEnd(Milliseconds{3000}));
    startAgain();
    meeting_->application().process().signal(SIGKILL);
    ASSERT_TRUE(meeting_->application().process().waitForEnd(Milliseconds{3000}));
    expectCardAtTheFarSide();
    sleepFor(Milliseconds{3000});
    ASSERT_TRUE(isBrowserRunning()) << meeting_->call().browserOutput();
    startAgain();
}

TEST_P(BrowserSurvival, OfAFrameThatIsResized)
{
    begin();
    for (const QPoint& distance : {QPoint(-100, -80), QPoint(100, 80), QPoint(-50, 30)}) {
        const QSize before = meeting_->call().trackSize();
        const QRect now =
            meeting_->application().storedRegion().isNull() ? region_ : meeting_->application().storedRegion();
        const QPoint from = Application::resizeButtonOf(now);
        meeting_->desktop().drag(from, from + distance);
        EXPECT_TRUE(waitUntil([&] { return meeting_->call().trackSize() != before; }, Milliseconds{5000}));
        EXPECT_TRUE(meeting_->call().waitForChangesReceived(5, Milliseconds{5000}));
        ASSERT_TRUE(isBrowserRunning()) << meeting_->call().browserOutput();
    }
}

TEST_P(BrowserSurvival, TheDisplayGoesWithItsViewer)
{
    begin();
    EXPECT_EQ(meeting_->application().quit(), 0);
    ASSERT_TRUE(isDisplayThere());
    meeting_->call().browser().terminate();
    EXPECT_TRUE(waitUntil([&] { return isLeftClean(); }, Milliseconds{4000}));
}

TEST_P(BrowserSurvival, TheDisplayGoesWithTheShare)
{
    begin();
    EXPECT_EQ(meeting_->application().quit(), 0);
    sleepFor(Milliseconds{1500});
    ASSERT_TRUE(isDisplayThere());
    meeting_->call().stopSharing();
    EXPECT_TRUE(waitUntil([&] { return isLeftClean(); }, Milliseconds{4000}));
    sleepFor(Milliseconds{500});
    EXPECT_TRUE(isBrowserRunning()) << meeting_->call().browserOutput();
}

INSTANTIATE_TEST_SUITE_P(Browsers, BrowserSurvival, testing::Values(Browser::chromium, Browser::firefox),
                         [](const auto& browser) {
                             return browser.param == Browser::firefox ? "Firefox" : "Chromium";
                         });

} // namespace

} // namespace nimbrale::test
