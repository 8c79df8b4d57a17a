// The frame's settings button under window managers that do not let programs steal the user's attention.

#include "tests/meeting/framed_desktop.h"
#include "tests/support/image_compare.h"
#include "tests/support/scene.h"
#include "tests/support/x_reply.h"

#include <gtest/gtest.h>
#include <xcb/xcb.h>

namespace nimbrale::test {
namespace {

using WindowManager = PrivateDesktop::WindowManager;

class SettingsActivation : public FramedDesktop, public testing::TestWithParam<WindowManager> {
protected:
    void SetUp() override
    {
        start(GetParam());
        scene_ = requireScene(*desktop_);
        // It leaves the frame's buttons free and lies where Settings opens.
        scene_->add("work", {.geometry = {840, 60, 700, 800}, .seed = 3, .overrideRedirect = false});
    }

    /// As toolkits do when the user types: window managers compare with it.
    void tellUserTime(xcb_window_t window)
    {
        xcb_connection_t* const connection = desktop_->connection();
        const auto atom = [&](const std::string& name) {
            const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
                connection, xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(name.size()), name.data()),
                nullptr));
            return reply->atom;
        };
        // Every change of a property tells the server's time.
        const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_change_window_attributes(connection, window, XCB_CW_EVENT_MASK, &events);
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, atom("_TEST_TIME"), XCB_ATOM_CARDINAL, 32, 0,
                            nullptr);
        xcb_flush(connection);
        while (const Reply<xcb_generic_event_t> event{xcb_wait_for_event(connection)}) {
            if ((event->response_type & 0x7f) != XCB_PROPERTY_NOTIFY)
                continue;
            const auto& change = reinterpret_cast<const xcb_property_notify_event_t&>(*event);
            if (change.atom != atom("_TEST_TIME"))
                continue;
            xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, atom("_NET_WM_USER_TIME"), XCB_ATOM_CARDINAL,
                                32, 1, &change.time);
            break;
        }
        const std::uint32_t none = 0;
        xcb_change_window_attributes(connection, window, XCB_CW_EVENT_MASK, &none);
        desktop_->synchronize();
    }
    /// The user clicks into the other program and types there.
    [[nodiscard]] testing::AssertionResult workElsewhere()
    {
        std::optional<QRect> window;
        if (!waitUntil([&] { return (window = desktop_->windowTitled("work")).has_value(); }, Milliseconds{3000}))
            return testing::AssertionFailure() << "the other window is not shown";
        desktop_->click(window->bottomRight() - QPoint(20, 20));
        const bool hasFocus = waitUntil([&] { return scene_->focused() == "work"; }, Milliseconds{3000});
        type("abc");
        desktop_->movePointer({1500, 880});
        tellUserTime(scene_->identifier("work"));
        return hasFocus ? testing::AssertionSuccess()
                        : testing::AssertionFailure()
                              << "the other window does not get the keyboard, but " << desktop_->activeWindowTitle();
    }
    /// Settings has the keyboard, and nothing of another program covers it.
    [[nodiscard]] testing::AssertionResult showsSettingsInFront()
    {
        if (!waitUntil(
                [&] { return desktop_->activeWindowTitle() == "Nimbrale Settings" && scene_->focused().empty(); },
                Milliseconds{3000}))
            return testing::AssertionFailure() << "active is \"" << desktop_->activeWindowTitle() << "\"; "
                                               << keepImage(desktop_->screenshot(), "desktop");
        return testing::AssertionSuccess();
    }
    [[nodiscard]] bool isWidthTaken(int width)
    {
        return waitUntil([&] { return application_->storedRegion().width() == width; }, Milliseconds{3000});
    }

    std::unique_ptr<Scene> scene_;
};

TEST_P(SettingsActivation, TheButtonBringsSettingsToTheFrontWithTheKeyboardEachTime)
{
    int width = 520;
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        ASSERT_TRUE(workElsewhere());
        ASSERT_TRUE(
            waitUntil([&] { return desktop_->activeWindowTitle() != "Nimbrale Settings"; }, Milliseconds{3000}));
        const QRect frame(region.topLeft(), QSize(round == 0 ? region.width() : width, region.height()));
        // The border above the resize button: the frame has followed what was typed.
        ASSERT_TRUE(desktop_->waitForPixel(frame.right() + 3, frame.bottom() - 40, frameYellow))
            << keepImage(desktop_->screenshot(), "desktop");
        desktop_->click(Application::settingsButtonOf(frame));
        ASSERT_TRUE(showsSettingsInFront());
        width = 540 + 20 * round;
        typeWidth(std::to_string(width));
        EXPECT_TRUE(isWidthTaken(width)) << "what the user types goes there";
    }
}

TEST_P(SettingsActivation, ASecondStartBringsSettingsToTheFrontWithTheKeyboard)
{
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        ASSERT_TRUE(workElsewhere());
        std::string reason;
        const auto second = Application::startAgain(*desktop_, reason);
        ASSERT_TRUE(second) << reason;
        EXPECT_EQ(second->process().waitForEnd(Milliseconds{5000}), 0) << second->process().output();
        EXPECT_TRUE(showsSettingsInFront());
    }
}

INSTANTIATE_TEST_SUITE_P(WindowManagers, SettingsActivation,
                         testing::Values(WindowManager::openbox, WindowManager::xfwm4, WindowManager::kwin,
                                         WindowManager::marco),
                         [](const auto& manager) { return PrivateDesktop::managerName(manager.param); });

} // namespace
} // namespace nimbrale::test
