// Events that another client made up and sent to the real application: nothing of it happened.

#include "tests/faults/other_clients_fixture.h"

#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::test {
namespace {

const QColor privateColor(200, 20, 180);
const QColor coverColor(20, 160, 90);

/// What any event may be: 32 bytes.
using EventBytes = std::array<char, 32>;

template <typename Event>
EventBytes bytesOf(const Event& event)
{
    static_assert(sizeof event <= sizeof(EventBytes));
    EventBytes bytes{};
    std::memcpy(bytes.data(), &event, sizeof event);
    return bytes;
}

class SentEventsTest : public OtherClientsTest {
protected:
    void send(xcb_window_t window, std::uint32_t mask, const EventBytes& event) const
    {
        xcb_discard_reply(desktop->connection(),
                          xcb_send_event_checked(desktop->connection(), 0, window, mask, event.data()).sequence);
    }

    /// Whether a color is anywhere in the share within that time.
    [[nodiscard]] bool isEverShared(const QColor& color, Milliseconds duration) const
    {
        const QRect place = sharedPlace();
        return waitUntil(
            [&] {
                const QImage picture = desktop->screenshot(place);
                for (int y = 0; y < picture.height(); y += 4) {
                    for (int x = 0; x < picture.width(); x += 4) {
                        if (picture.pixel(x, y) == color.rgb())
                            return true;
                    }
                }
                return false;
            },
            duration, Milliseconds{1});
    }

    [[nodiscard]] EventBytes button(std::uint8_t type, xcb_window_t window, QPoint position) const
    {
        xcb_button_press_event_t event{};
        event.response_type = type;
        event.detail = XCB_BUTTON_INDEX_1;
        event.root = desktop->screen().root;
        event.event = window;
        event.root_x = static_cast<std::int16_t>(position.x());
        event.root_y = static_cast<std::int16_t>(position.y());
        event.state = type == XCB_BUTTON_RELEASE ? XCB_BUTTON_MASK_1 : 0;
        event.same_screen = 1;
        return bytesOf(event);
    }
};

TEST_F(SentEventsTest, ASentClickOnCloseDoesNothingAndARealOneEndsTheProgram)
{
    const QPoint close = Application::closeButtonOf(region);
    constexpr std::uint32_t buttons = XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_BUTTON_RELEASE;
    for (int round = 0; round < 5; ++round) {
        for (const xcb_window_t window : ownWindows) {
            // With the mask, those who listen get it; without one, whoever made the window.
            for (const std::uint32_t mask : {0U, buttons}) {
                send(window, mask, button(XCB_BUTTON_PRESS, window, close));
                send(window, mask, button(XCB_BUTTON_RELEASE, window, close));
            }
        }
        desktop->synchronize();
    }
    EXPECT_EQ(application->process().waitForEnd(Milliseconds{1000}), std::nullopt) << application->process().output();
    desktop->click(close);
    EXPECT_EQ(application->process().waitForEnd(Milliseconds{5000}), 0) << application->process().output();
}

TEST_F(SentEventsTest, ASentUnmapNotifyDoesNotShareWhatIsBehindTheWindow)
{
    scene->add("private", {.geometry = {150, 150, 200, 200}, .seed = 0, .color = privateColor});
    scene->add("cover", {.geometry = {140, 140, 220, 220}, .seed = 0, .color = coverColor});
    ASSERT_TRUE(isEverShared(coverColor, Milliseconds{3000}));
    // Whatever flashed by while the windows came.
    ASSERT_TRUE(waitUntil([&] { return !isEverShared(privateColor, Milliseconds{50}); }, Milliseconds{3000}));
    const xcb_window_t root = desktop->screen().root;
    xcb_unmap_notify_event_t unmapped{};
    unmapped.response_type = XCB_UNMAP_NOTIFY;
    unmapped.event = root;
    unmapped.window = scene->identifier("cover");
    send(root, XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY, bytesOf(unmapped));
    unmapped.event = unmapped.window;
    send(unmapped.window, XCB_EVENT_MASK_STRUCTURE_NOTIFY, bytesOf(unmapped));
    desktop->synchronize();
    scene->fill("private", {10, 10, 180, 180}, privateColor);
    EXPECT_FALSE(isEverShared(privateColor, Milliseconds{1500})) << keepImage(desktop->screenshot(), "desktop");
    scene->unmap("cover");
    EXPECT_TRUE(isEverShared(privateColor, Milliseconds{3000})) << "a real one is seen";
}

TEST_F(SentEventsTest, TwentyThousandRandomSentEventsLeavePictureFrameAndDragsWorking)
{
    const xcb_window_t root = desktop->screen().root;
    std::vector<xcb_window_t> targets = ownWindows;
    targets.push_back(root);
    targets.push_back(scene->identifier("content"));
    std::mt19937 random(20260);
    const auto anyOf = [&](std::uint32_t count) {
        return std::uniform_int_distribution<std::uint32_t>(0, count - 1)(random);
    };
    const auto anyTarget = [&] { return targets[anyOf(static_cast<std::uint32_t>(targets.size()))]; };
    constexpr int count = 20000;
    for (int index = 0; index < count; ++index) {
        EventBytes event{};
        for (char& byte : event)
            byte = static_cast<char>(anyOf(256));
        event[0] = static_cast<char>(2 + anyOf(126));
        // Windows and small numbers where events have such, so that they mean something to a reader.
        for (std::size_t offset = 4; offset < event.size(); offset += 4) {
            const std::uint32_t kind = anyOf(3);
            const std::uint32_t word = kind == 0 ? anyTarget() : anyOf(500);
            if (kind != 2)
                std::memcpy(event.data() + offset, &word, sizeof word);
        }
        constexpr std::uint32_t everyMask = (1U << 25) - 1;
        const std::uint32_t masks[] = {0, everyMask, XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY, anyOf(1U << 25)};
        send(anyTarget(), masks[anyOf(4)], event);
        if (index % 500 == 0)
            desktop->synchronize();
    }
    desktop->synchronize();
    expectEverythingWorks();
}

} // namespace
} // namespace nimbrale::test
