// What the X11 capture has in the server is given back.

#include "tests/desktop/x11_capture_fixture.h"
#include "tests/support/server_resources.h"

#include <set>
#include <unistd.h>

namespace nimbrale::test {
namespace {

using Resources = std::map<std::string, std::uint32_t>;

class X11CaptureLeaksTest : public X11CaptureTest {
protected:
    [[nodiscard]] Resources resources()
    {
        // Pictures are freed through the connection that shows them.
        captured->connection().synchronize();
        Resources found = serverResources(desktop->connection(), getpid());
        // The one on the pointer's rest comes and goes with its moves.
        EXPECT_LE(found["SyncAlarm"], 1u);
        found.erase("SyncAlarm");
        return found;
    }
    [[nodiscard]] std::uint32_t pixmaps() { return resources()["PIXMAP"]; }
    [[nodiscard]] std::uint32_t alarms() const { return serverResources(desktop->connection(), getpid())["SyncAlarm"]; }

    /// What is freed last is freed through the main queue.
    void expectResources(const Resources& expected)
    {
        (void)captured->pumpUntil([&] { return resources() == expected; });
        EXPECT_EQ(resources(), expected);
    }
};

TEST_F(X11CaptureLeaksTest, picturesThatReachNobodyAreFreed)
{
    startDesktop({});
    scene->add("below", {.geometry = {0, 0, 800, 600}, .seed = 5});
    SerialQueue queue("Nimbrale.frames");
    ContentFilter filter;
    filter.displayID = captured->screens().mainDisplay();
    filter.excludedApplications = {{getpid(), {}}};
    StreamConfiguration configuration;
    configuration.sourceRect = {0, 0, 400, 300};
    configuration.minimumFrameInterval = {1, 60};
    int samples = 0;
    const auto startAndEnd = [&](int round) {
        // Every other stream scales, which takes pictures of its own.
        configuration.width = round % 2 == 0 ? 400 : 200;
        configuration.height = round % 2 == 0 ? 300 : 150;
        auto stream = captured->capture().makeStream(filter, configuration, [](const Error&) {});
        ASSERT_TRUE(stream->addOutput(OutputType::screen, queue, [&](const CaptureSample& sample) {
            captured->mainQueue().post([&samples, surface = sample.surface] { ++samples; });
        }));
        stream->start([](const Result<void>&) {});
        // Before the first picture is composed, while it is on the way, and after it.
        sleepFor(Milliseconds{round % 5});
        if (round % 3 != 0)
            stream->stop([](const Result<void>&) {});
        stream.reset();
        QCoreApplication::processEvents();
    };
    startAndEnd(0);
    (void)captured->pumpUntil([] { return false; }, 200);
    const Resources before = resources();
    ASSERT_GT(before.at("WINDOW"), 0u) << "this process is seen";
    samples = 0;
    for (int round = 0; round < 200; ++round)
        startAndEnd(round);
    EXPECT_GT(samples, 0);
    expectResources(before);
}

TEST_F(X11CaptureLeaksTest, aPixmapThatTookTurnsGoesOnceTheScreenIsStillAndNotBefore)
{
    startDesktop({});
    scene->add("content", {.geometry = {0, 0, 800, 600}, .seed = 5});
    captured->start({0, 0, 400, 300});
    captured->rest();
    (void)captured->pumpUntil([] { return false; }, 6000);
    const std::uint32_t atRest = pixmaps();
    std::set<std::uint64_t> storages;
    captured->onFrame = [&] { storages.insert(captured->surface()->storage()); };
    for (std::uint32_t picture = 0; picture < 8; ++picture) {
        scene->repaint("content", 6 + picture);
        captured->pumpFor(Milliseconds{1000});
    }
    EXPECT_EQ(storages.size(), 2u) << "two take turns, and none is made anew";
    EXPECT_EQ(pixmaps(), atRest + 1) << "the control: the one that is not shown is seen";
    EXPECT_TRUE(captured->pumpUntil([&] { return pixmaps() == atRest; }, 8000));
    scene->repaint("content", 5);
    expectSameAsScreen({0, 0, 400, 300});
}

TEST_F(X11CaptureLeaksTest, whatWasSeenUnderACompositingManagerGoesWithIt)
{
    startDesktop({.compositor = PrivateDesktop::Compositor::picom});
    scene->add("content", {.geometry = {0, 0, 800, 600}, .seed = 5});
    captured->start({0, 0, 400, 300});
    captured->rest();
    ASSERT_TRUE(desktop->stopCompositor());
    // Windows are trusted to have painted themselves by then, and a pixmap that took turns is gone.
    captured->pumpFor(Milliseconds{8000});
    const Resources after = resources();
    captured->start({0, 0, 400, 300});
    captured->pumpFor(Milliseconds{7000});
    EXPECT_EQ(after, resources()) << "as a stream that has never seen one";
    expectSameAsScreen({0, 0, 400, 300});
}

TEST_F(X11CaptureLeaksTest, whileThePointerMovesNoAlarmWaitsForTheEndOfItsRest)
{
    startDesktop({});
    captured->start({0, 0, 400, 300}, 60, false, true);
    EXPECT_TRUE(captured->pumpUntil([&] { return alarms() == 1; })) << "the control: there is one while it rests";
    const auto mover = desktop->spawn("nimbrale_animation", {"pointer", "540", "150", "480", "200", "500", "0"});
    ASSERT_TRUE(mover);
    EXPECT_TRUE(captured->pumpUntil([&] { return alarms() == 0; }));
    mover->terminate();
    EXPECT_TRUE(captured->pumpUntil([&] { return alarms() == 1; })) << "it rests again";
}

} // namespace
} // namespace nimbrale::test
