// The real application beside another capture of the same desktop: neither keeps the other busy.

#include "tests/desktop/captured_desktop.h"
#include "tests/fakes/offscreen_application.h"
#include "tests/support/application.h"
#include "tests/support/request_counter.h"
#include "tests/support/requirements.h"
#include "tests/support/scene.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace nimbrale::test {
namespace {

TEST(TwoCapturesTest, leaveEachOtherAtRest)
{
    startOffscreenApplication();
    const auto desktop = requireDesktop({});
    const auto scene = requireScene(*desktop);
    scene->add("content", {.geometry = {60, 60, 520, 420}, .seed = 7});
    desktop->movePointer({1200, 700});
    const auto counter = RequestCounter::start(desktop->displayName());
    ASSERT_TRUE(counter);
    CapturedDesktop captured(*desktop, counter->displayName());
    captured.start({50, 50, 500, 400}, 60, false, true);
    const auto requestsAtRest = [&] {
        captured.rest();
        const int before = counter->total();
        (void)captured.pumpUntil([] { return false; }, 2000);
        return counter->total() - before;
    };
    const int alone = requestsAtRest();
    const auto application = requireApplication(*desktop, {.region = {100, 100, 400, 300}});
    ASSERT_TRUE(application->waitForVirtualDisplay({400, 300}));
    sleepFor(Milliseconds{3000}); // What follows a start, such as the display's settling, is over.
    EXPECT_LE(requestsAtRest(), alone + 20);
    const int frames = captured.frames();
    scene->repaint("content", 8);
    EXPECT_TRUE(captured.pumpUntil([&] { return captured.frames() > frames; }));
    EXPECT_EQ(application->quit(), 0) << application->process().output();
}

} // namespace
} // namespace nimbrale::test
