// The X11 capture on servers of every kind, and what it tells of them.

#include "tests/desktop/x11_capture_fixture.h"
#include "tests/support/requirements.h"

#include <algorithm>
#include <atomic>
#include <future>
#include <optional>
#include <thread>
#include <unistd.h>

namespace nimbrale::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST_F(X11CaptureTest, contentListsApplicationsAndOwnWindows)
{
    startDesktop({});
    makeOwnWindow({0, 0, 10, 10});
    std::optional<ShareableContent> content;
    captured->capture().shareableContent([&](const Result<ShareableContent>& result) { content = *result; });
    ASSERT_TRUE(captured->pumpUntil([&] { return content.has_value(); }));
    EXPECT_EQ(content->displays.size(), 1u);
    EXPECT_TRUE(std::any_of(content->applications.begin(), content->applications.end(),
                            [](const auto& application) { return application.processID == getpid(); }));
    EXPECT_TRUE(std::any_of(content->windows.begin(), content->windows.end(), [](const CaptureWindow& window) {
        return window.owningProcess == getpid() && window.isOnScreen;
    }));
}

TEST_F(X11CaptureTest, whatACompletionOwnsIsReleasedOnTheMainThread)
{
    startDesktop({});
    captured->start({0, 0, 100, 100});
    const std::thread::id mainThread = std::this_thread::get_id();
    std::atomic<int> released = 0;
    std::atomic<int> releasedElsewhere = 0;
    const auto makeOwned = [&] {
        return std::shared_ptr<void>(nullptr, [&](void*) {
            ++released;
            if (std::this_thread::get_id() != mainThread)
                ++releasedElsewhere;
        });
    };
    // What the main thread does meanwhile decides who comes last, so that one try would show nothing.
    constexpr int tries = 2000;
    for (int i = 0; i < tries; ++i) {
        captured->capture().shareableContent([owned = makeOwned()](const Result<ShareableContent>&) {});
        captured->stream().updateContentFilter({}, [owned = makeOwned()](const Result<void>&) {});
        // Without a pause, so that a completion runs as soon as another thread has posted it.
        ASSERT_TRUE(waitUntil(
            [&] {
                QCoreApplication::processEvents();
                return released == 2 * (i + 1);
            },
            Milliseconds{3000}, Milliseconds{0}));
    }
    EXPECT_EQ(releasedElsewhere, 0);
}

TEST_F(X11CaptureTest, whatIsStillPostedAtTheEndIsReleasedThoughItPostsOnceMore)
{
    startDesktop({});
    auto engine =
        std::move(*x11::CaptureEngine::create(desktop->displayName(), {}, std::make_shared<x11::PaintedRegions>()));
    std::atomic<bool> isBusy = false;
    std::atomic<bool> mayGoOn = false;
    engine->post([&] {
        isBusy = true;
        while (!mayGoOn)
            std::this_thread::yield();
    });
    ASSERT_TRUE(waitUntil([&] { return isBusy.load(); }, Milliseconds{3000}));
    bool isReleased = false;
    bool isLastReleased = false;
    // As a stream does when it goes.
    std::shared_ptr<void> stream(nullptr, [&, raw = engine.get()](void*) {
        isReleased = true;
        raw->post([last = std::shared_ptr<void>(nullptr, [&](void*) { isLastReleased = true; })] {});
    });
    engine->post([stream = std::move(stream)] {});
    std::thread ending([&] { engine.reset(); });
    // Long enough for the end to be asked for while the thread is busy.
    sleepFor(Milliseconds{100});
    mayGoOn = true;
    ending.join();
    EXPECT_TRUE(isReleased);
    EXPECT_TRUE(isLastReleased);
}

TEST_F(X11CaptureTest, theThreadEndsWheneverItIsAskedTo)
{
    startDesktop({});
    for (int round = 0; round < 60; ++round) {
        auto engine =
            std::move(*x11::CaptureEngine::create(desktop->displayName(), {}, std::make_shared<x11::PaintedRegions>()));
        x11::CaptureEngine* const raw = engine.get();
        // Busy with its first turns at one time, asleep at another.
        sleepFor(Milliseconds{round % 6});
        std::promise<void> ended;
        std::thread ending([&] {
            engine.reset();
            ended.set_value();
        });
        const bool isOver = ended.get_future().wait_for(std::chrono::seconds(3)) == std::future_status::ready;
        EXPECT_TRUE(isOver) << "in round " << round;
        if (!isOver)
            raw->waker()(); // So that this test ends.
        ending.join();
        if (!isOver)
            return;
    }
}

TEST_F(X11CaptureTest, everyDepthOfTheRootIsCapturedExactly)
{
    for (const int depth : {16, 30}) {
        startDesktop({.server = PrivateDesktop::Server::xvfb, .depth = depth});
        scene->add("a", {.geometry = {100, 100, 300, 200}, .seed = 1});
        scene->add("glass", {.geometry = {200, 150, 100, 100}, .seed = 2, .depth = 32});
        captured->start({51, 52, 501, 402});
        captured->settle();
        EXPECT_EQ(captured->bytes(), captured->rootBytes()) << "depth " << depth;
        TearDown();
    }
}

TEST_F(X11CaptureTest, theServerOfRealDesktopsIsCapturedExactly)
{
    startDesktop(
        {.server = PrivateDesktop::Server::xorgDummy, .windowManager = PrivateDesktop::WindowManager::openbox});
    scene->add("a", {.geometry = {100, 100, 300, 200}, .seed = 1});
    captured->start({50, 50, 500, 400});
    expectSameAsScreen({50, 50, 500, 400});
    scene->move("a", {200, 180});
    expectSameAsScreen({50, 50, 500, 400});
}

TEST_F(X11CaptureTest, withoutCompositeTheRootIsCopiedAndTheUserIsTold)
{
    startDesktop({.serverArguments = {"-extension", "Composite"}});
    if (captured->connection().extensions().composite.isPresent)
        skipTest("this server cannot leave COMPOSITE out");
    EXPECT_THAT(captured->capture().limitations(NotificationSharing::shared),
                ElementsAre(HasSubstr("no COMPOSITE extension")));
    scene->add("a", {.geometry = {100, 100, 300, 200}, .seed = 1});
    captured->start({50, 50, 500, 400});
    expectSameAsScreen({50, 50, 500, 400});
    scene->repaint("a", 2);
    expectSameAsScreen({50, 50, 500, 400});
}

TEST_F(X11CaptureTest, withoutCompositeAndDamageBothAreNamed)
{
    startDesktop({.serverArguments = {"-extension", "Composite", "-extension", "DAMAGE"}});
    EXPECT_THAT(captured->capture().limitations(NotificationSharing::shared),
                ElementsAre(HasSubstr("no COMPOSITE extension"), HasSubstr("no DAMAGE extension")));
    scene->add("a", {.geometry = {100, 100, 300, 200}, .seed = 1});
    captured->start({50, 50, 500, 400}, 20);
    EXPECT_TRUE(captured->pumpUntil([&] { return captured->image() == desktop->screenshot({50, 50, 500, 400}); }));
}

TEST_F(X11CaptureTest, theServersEndIsReported)
{
    startDesktop({});
    captured->start({0, 0, 100, 100});
    scene.reset();
    desktop->server().terminate();
    EXPECT_TRUE(captured->pumpUntil([&] { return captured->isLost(); }));
}

TEST_F(X11CaptureTest, withoutDamageThePictureIsCopiedAtEveryInterval)
{
    startDesktop({.serverArguments = {"-extension", "DAMAGE"}});
    if (captured->connection().extensions().damage.isPresent)
        skipTest("this server cannot leave DAMAGE out");
    EXPECT_THAT(captured->capture().limitations(NotificationSharing::shared),
                ElementsAre(HasSubstr("no DAMAGE extension")));
    scene->add("a", {.geometry = {100, 100, 300, 200}, .seed = 1});
    captured->start({50, 50, 500, 400}, 20);
    const auto isSame = [&] { return captured->image() == desktop->screenshot({50, 50, 500, 400}); };
    EXPECT_TRUE(captured->pumpUntil(isSame));
    scene->repaint("a", 2);
    EXPECT_TRUE(captured->pumpUntil([&] {
        return captured->image().pixelColor(100, 100) == Scene::pattern(2, {300, 200}).pixelColor(50, 50);
    }));
    EXPECT_TRUE(captured->pumpUntil(isSame));
}

} // namespace
} // namespace nimbrale::test
