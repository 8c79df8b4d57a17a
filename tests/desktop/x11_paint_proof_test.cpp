// The pixel by which it is found out how far a compositing manager has got.

#include "platform/x11/capture/paint_proof.h"
#include "tests/desktop/named_manager.h"
#include "tests/desktop/paint_watch.h"
#include "tests/support/requirements.h"

#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace nimbrale::test {
namespace {

using namespace std::chrono_literals;

using x11::PaintProof;

constexpr QRect place(100, 80, 60, 40);
/// The server tells windows that overlap of each other's damage.
constexpr QPoint beside(200, 150);
constexpr std::uint32_t yellow = 0xffd60a;

class X11PaintProofTest : public testing::Test {
protected:
    void SetUp() override
    {
        desktop = requireDesktop({});
        connection = std::move(*x11::Connection::open(desktop->displayName()));
        host.id = addWindow(yellow);
        host.x = place.x();
        host.y = place.y();
        host.width = place.width();
        host.height = place.height();
        host.isMapped = true;
        host.painted = x11::PixelRegion(0, 0, place.width(), place.height());
        proof.emplace(*connection);
    }

    void TearDown() override { proof.reset(); }

    xcb_window_t addWindow(std::uint32_t color, const QPoint& corner = place.topLeft())
    {
        const xcb_window_t window = connection->newId();
        const std::uint32_t values[] = {color, 1};
        xcb_create_window(connection->get(), XCB_COPY_FROM_PARENT, window, connection->root(), std::int16_t(corner.x()),
                          std::int16_t(corner.y()), std::uint16_t(place.width()), std::uint16_t(place.height()), 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
        xcb_map_window(connection->get(), window);
        connection->synchronize();
        return window;
    }

    void advance(std::chrono::milliseconds sinceStart)
    {
        proof->advance(panels, start, start + sinceStart);
        connection->synchronize();
    }

    static constexpr PaintProof::Clock::time_point start{1h};
    std::unique_ptr<PrivateDesktop> desktop;
    std::unique_ptr<x11::Connection> connection;
    x11::CapturedWindow host;
    std::vector<const x11::CapturedWindow*> panels{&host};
    std::optional<PaintProof> proof;
};

TEST_F(X11PaintProofTest, TwoLightsThatAreSeenProveWhatWasBeforeTheFirst)
{
    advance(0ms);
    advance(10ms);
    EXPECT_LT(proof->proven(), start);
    advance(20ms);
    EXPECT_EQ(proof->proven(), start);
}

TEST_F(X11PaintProofTest, ALightThatIsNotSeenIsFollowedByReminders)
{
    addWindow(0);
    advance(0ms);
    PaintWatch watch(std::move(*x11::Connection::open(desktop->displayName())), QRect({0, 0}, place.size()), host.id);
    const auto isReminded = [&](std::chrono::milliseconds sinceStart) {
        advance(sinceStart);
        return watch.takePainted();
    };
    EXPECT_FALSE(isReminded(PaintProof::patience - 1ms));
    EXPECT_TRUE(isReminded(PaintProof::patience));
    EXPECT_FALSE(isReminded(2 * PaintProof::patience - 1ms));
    EXPECT_TRUE(isReminded(2 * PaintProof::patience)) << "and once more";
    EXPECT_LT(proof->proven(), start) << "the control: it is not seen";
}

TEST_F(X11PaintProofTest, OneThatMissesDamageIsToldWithEachLightThatAllPanelsWereDrawn)
{
    x11::CapturedWindow other;
    other.id = addWindow(yellow, beside);
    other.width = place.width();
    other.height = place.height();
    panels = {&other, &host};
    PaintWatch watch(std::move(*x11::Connection::open(desktop->displayName())), QRect({0, 0}, place.size()), other.id);
    advance(0ms);
    EXPECT_FALSE(watch.takePainted()) << "the control: there is no such manager";
    proof->end();

    const x11::OwnedWindow manager = nameManager(*connection, "Mutter");
    advance(10ms);
    EXPECT_TRUE(watch.takePainted());
    advance(20ms);
    EXPECT_TRUE(watch.takePainted()) << "the next light";
}

TEST_F(X11PaintProofTest, WhatOthersDrewIsToldWithEachLightUntilItIsProven)
{
    const xcb_window_t other = addWindow(yellow, beside);
    const x11::OwnedWindow manager = nameManager(*connection, "Mutter");
    PaintWatch watch(std::move(*x11::Connection::open(desktop->displayName())), QRect(0, 0, 5, 5), other);
    proof->addDrawn(other, x11::PixelRegion(0, 0, 5, 5), start);
    const auto isTold = [&](std::chrono::milliseconds sinceStart) {
        proof->advance(panels, start + sinceStart, start + sinceStart);
        connection->synchronize();
        return watch.takePainted();
    };
    EXPECT_TRUE(isTold(10ms));
    EXPECT_TRUE(isTold(20ms));
    EXPECT_FALSE(isTold(30ms)) << "proven by now";
    EXPECT_GT(proof->proven(), start) << "the control";
}

} // namespace
} // namespace nimbrale::test
