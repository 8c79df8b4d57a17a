// A pointer at rest costs the server nothing and one that moves little, and nothing that happens to it is noticed late
// for that.

#include "tests/desktop/x11_capture_fixture.h"
#include "tests/support/request_counter.h"
#include "tests/support/rfb_client.h"
#include "tests/support/x_reply.h"

#include <chrono>
#include <xcb/res.h>
#include <xcb/xfixes.h>

namespace nimbrale::test {
namespace {

using Clock = std::chrono::steady_clock;
using Server = PrivateDesktop::Server;

constexpr QPoint corner(100, 100);
constexpr QPoint restingPlace(250, 220);
constexpr QPoint otherPlace(350, 300);
/// As late as a pointer that moves has ever been, and what a busy computer takes for it.
constexpr Milliseconds noticedAtOnce{200};
constexpr Milliseconds untilAskedSeldom{5600};

class X11RestingPointerTest : public X11CaptureTest {
protected:
    void startOn(Server server)
    {
        startDesktop({.server = server});
        captured.reset();
        counter = RequestCounter::start(desktop->displayName());
        ASSERT_TRUE(counter);
        captured = std::make_unique<CapturedDesktop>(*desktop, counter->displayName());
        scene->add("below", {.geometry = {0, 0, 1280, 720}, .seed = 0, .color = Qt::white});
        desktop->movePointer(restingPlace);
        captured->start({double(corner.x()), double(corner.y()), 400, 300}, 60, false, true);
        ASSERT_TRUE(captured->pumpUntil([&] { return isDrawnAt(restingPlace); }));
    }

    void TearDown() override
    {
        captured.reset();
        counter.reset();
        X11CaptureTest::TearDown();
    }

    [[nodiscard]] bool isDrawn() const { return inkIn({0, 0, 400, 300}); }
    [[nodiscard]] bool isDrawnAt(QPoint root) const
    {
        return inkIn(QRect(root - corner - QPoint(30, 30), QSize(60, 60)));
    }
    [[nodiscard]] bool inkIn(const QRect& area) const
    {
        const QImage part = captured->image().copy(area);
        for (int y = 0; y < part.height(); ++y)
            for (int x = 0; x < part.width(); ++x)
                if (part.pixel(x, y) != qRgb(255, 255, 255))
                    return true;
        return false;
    }

    void letItRest() { captured->pumpFor(Milliseconds{1000}); }
    [[nodiscard]] int positionQuestions() const { return counter->count(XCB_QUERY_POINTER); }
    [[nodiscard]] int hidingQuestions() const
    {
        return counter->count(captured->connection().extensions().resources.majorOpcode);
    }
    void setPointer(QPoint place)
    {
        xcb_warp_pointer(desktop->connection(), XCB_NONE, desktop->screen().root, 0, 0, 0, 0, std::int16_t(place.x()),
                         std::int16_t(place.y()));
        desktop->synchronize();
    }
    /// How long it takes for the pointer to be drawn where `move` brings it.
    template <typename Move>
    [[nodiscard]] Milliseconds timeUntilDrawnAt(QPoint place, Move move)
    {
        EXPECT_FALSE(isDrawnAt(place));
        const auto start = Clock::now();
        move(place);
        EXPECT_TRUE(captured->pumpUntil([&] { return isDrawnAt(place); })) << "never";
        return std::chrono::duration_cast<Milliseconds>(Clock::now() - start);
    }
    /// A program that hides the pointer for as long as it lives.
    [[nodiscard]] std::unique_ptr<x11::Connection> hidePointer() const
    {
        auto program = std::move(*x11::Connection::open(desktop->displayName()));
        xcb_xfixes_hide_cursor(program->get(), program->root());
        program->synchronize();
        return program;
    }

    std::unique_ptr<RequestCounter> counter;
};

class X11CapturePointerTest : public X11RestingPointerTest, public testing::WithParamInterface<Server> {
protected:
    void SetUp() override { startOn(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(, X11CapturePointerTest, testing::Values(Server::xvnc, Server::xvfb, Server::xorgDummy),
                         [](const auto& server) {
                             return server.param == Server::xvnc   ? "Xvnc"
                                    : server.param == Server::xvfb ? "Xvfb"
                                                                   : "Xorg";
                         });

TEST_P(X11CapturePointerTest, atRestItsPositionIsNotAskedFor)
{
    letItRest();
    const int before = positionQuestions();
    captured->pumpFor(Milliseconds{1500});
    EXPECT_EQ(positionQuestions(), before);
    setPointer(otherPlace);
    EXPECT_TRUE(captured->pumpUntil([&] { return positionQuestions() > before; })) << "the control: questions count";
    // It rests again.
    letItRest();
    const int after = positionQuestions();
    captured->pumpFor(Milliseconds{1500});
    EXPECT_EQ(positionQuestions(), after);
}

TEST_P(X11CapturePointerTest, aPositionThatAProgramSetsAfterARestIsShownAtOnce)
{
    for (const QPoint place : {otherPlace, restingPlace, otherPlace}) {
        letItRest();
        EXPECT_LE(timeUntilDrawnAt(place, [this](QPoint to) { setPointer(to); }), noticedAtOnce);
        EXPECT_TRUE(captured->pumpUntil([&] { return !isDrawnAt(place == otherPlace ? restingPlace : otherPlace); }));
    }
}

TEST_P(X11CapturePointerTest, positionsThatAProgramSetsInARowAreAllShown)
{
    letItRest();
    // The second within the time that the server needs to call it a rest.
    for (const QPoint place : {otherPlace, restingPlace, otherPlace, restingPlace})
        EXPECT_LE(timeUntilDrawnAt(place, [this](QPoint to) { setPointer(to); }), 2 * noticedAtOnce);
}

TEST_P(X11CapturePointerTest, aMoveAfterARestIsShownAtOnce)
{
    for (const QPoint place : {otherPlace, restingPlace}) {
        letItRest();
        EXPECT_LE(timeUntilDrawnAt(place, [this](QPoint to) { desktop->movePointer(to); }), noticedAtOnce);
    }
}

TEST_P(X11CapturePointerTest, whileAnotherProgramHasGrabbedThePointerNothingIsLate)
{
    xcb_connection_t* const program = desktop->connection();
    const Reply<xcb_grab_pointer_reply_t> grab(xcb_grab_pointer_reply(
        program,
        xcb_grab_pointer(program, 0, desktop->screen().root, XCB_EVENT_MASK_BUTTON_PRESS, XCB_GRAB_MODE_ASYNC,
                         XCB_GRAB_MODE_ASYNC, XCB_NONE, XCB_NONE, XCB_CURRENT_TIME),
        nullptr));
    ASSERT_TRUE(grab && grab->status == XCB_GRAB_STATUS_SUCCESS);
    letItRest();
    EXPECT_LE(timeUntilDrawnAt(otherPlace, [this](QPoint to) { setPointer(to); }), noticedAtOnce);
    letItRest();
    EXPECT_LE(timeUntilDrawnAt(restingPlace, [this](QPoint to) { desktop->movePointer(to); }), noticedAtOnce);
    xcb_ungrab_pointer(program, XCB_CURRENT_TIME);
    desktop->synchronize();
}

// It comes near the region and goes away again several times a second.
TEST_F(X11RestingPointerTest, aPointerThatMovesBesideTheRegionIsNeitherHeardNorTakenToRest)
{
    startOn(Server::xvfb);
    const auto mover = desktop->spawn("nimbrale_animation", {"pointer", "540", "150", "480", "200", "500", "0"});
    ASSERT_TRUE(mover);
    captured->pumpFor(Milliseconds{500});
    const std::uint8_t input = captured->connection().extensions().input.majorOpcode;
    const int selections = counter->count(input);
    const int questions = positionQuestions();
    captured->pumpFor(Milliseconds{2000});
    EXPECT_GT(positionQuestions() - questions, 10) << "the control: it is asked for";
    EXPECT_LT(positionQuestions() - questions, 2 * 60);
    EXPECT_LE(counter->count(input) - selections, 4) << "the mover may be held up now and then";
    mover->terminate();
    captured->pumpFor(Milliseconds{500});
    EXPECT_GT(counter->count(input), selections) << "the control: it rests, and its moves are heard again";
}

TEST_F(X11RestingPointerTest, aMoveOfAViewersMouseIsShownAtOnce)
{
    startOn(Server::xvnc);
    letItRest();
    EXPECT_LE(timeUntilDrawnAt(otherPlace,
                               [this](QPoint to) { EXPECT_EQ(moveVncPointer(desktop->folder() / "rfb", to), ""); }),
              noticedAtOnce);
}

TEST_F(X11RestingPointerTest, afterALongRestItIsAskedSeldomWhetherItIsHiddenAndSeenNoLongerThanASecond)
{
    startOn(Server::xvnc);
    const int first = hidingQuestions();
    captured->pumpFor(Milliseconds{1000});
    const int often = hidingQuestions() - first;
    captured->pumpFor(untilAskedSeldom);
    const int before = hidingQuestions();
    captured->pumpFor(Milliseconds{2000});
    const int seldom = hidingQuestions() - before;
    EXPECT_GT(seldom, 0);
    EXPECT_LT(seldom, often) << "in twice the time";
    auto program = hidePointer();
    EXPECT_TRUE(captured->pumpUntil([&] { return !isDrawn(); }, 1000));
    program.reset();
    EXPECT_TRUE(captured->pumpUntil([&] { return isDrawn(); }, 1000));
}

TEST_F(X11RestingPointerTest, aPointerThatIsMovedAfterALongRestAndHiddenIsGoneAtOnce)
{
    startOn(Server::xvnc);
    captured->pumpFor(untilAskedSeldom);
    desktop->movePointer(otherPlace);
    ASSERT_TRUE(captured->pumpUntil([&] { return isDrawnAt(otherPlace); }));
    const auto program = hidePointer();
    EXPECT_TRUE(captured->pumpUntil([&] { return !isDrawn(); }, 500));
}

} // namespace
} // namespace nimbrale::test
