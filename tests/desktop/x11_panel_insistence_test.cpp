// Panels and a program that insists on being in front with many windows of which nothing is seen: they are let be.

#include "platform/x11/server/events.h"
#include "platform/x11/server/window_events.h"
#include "tests/desktop/panel_test.h"

#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace nimbrale::test {
namespace {

enum class Kind { inputOnly, unmapped };

/// Raises all of its windows whenever another window comes to stand above one of them.
class Rival {
public:
    Rival(const PrivateDesktop& desktop, int count, Kind kind)
        : connection_(std::move(*x11::Connection::open(desktop.displayName()))),
          rootEvents_(*connection_, connection_->root(), XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY)
    {
        const std::uint32_t isUnmanaged = 1;
        const auto type = static_cast<std::uint16_t>(kind == Kind::inputOnly ? XCB_WINDOW_CLASS_INPUT_ONLY
                                                                             : XCB_WINDOW_CLASS_INPUT_OUTPUT);
        for (int index = 0; index < count; ++index) {
            windows_.push_back(connection_->newId());
            xcb_create_window(connection_->get(), XCB_COPY_FROM_PARENT, windows_.back(), connection_->root(), 100, 100,
                              50, 50, 0, type, XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT, &isUnmanaged);
            if (kind == Kind::inputOnly)
                xcb_map_window(connection_->get(), windows_.back());
        }
        connection_->synchronize();
        insist();
    }

    void raiseAll()
    {
        const std::uint32_t above = XCB_STACK_MODE_ABOVE;
        for (const xcb_window_t window : windows_)
            xcb_configure_window(connection_->get(), window, XCB_CONFIG_WINDOW_STACK_MODE, &above);
        connection_->flush();
    }
    void insist()
    {
        bool isCovered = false;
        while (const x11::Reply<xcb_generic_event_t> event{xcb_poll_for_event(connection_->get())}) {
            if (x11::eventType(*event) != XCB_CONFIGURE_NOTIFY)
                continue;
            const auto& configure = x11::eventAs<xcb_configure_notify_event_t>(*event);
            isCovered = isCovered || (isOwn(configure.above_sibling) && !isOwn(configure.window));
        }
        if (isCovered)
            raiseAll();
    }

private:
    [[nodiscard]] bool isOwn(xcb_window_t window) const
    {
        return std::find(windows_.begin(), windows_.end(), window) != windows_.end();
    }

    std::unique_ptr<x11::Connection> connection_;
    x11::WindowEvents rootEvents_;
    std::vector<xcb_window_t> windows_;
};

class X11PanelInsistenceTest : public X11PanelTest, public testing::WithParamInterface<std::tuple<int, Kind>> {
protected:
    void SetUp() override
    {
        startScene({});
        panel = showFrame();
        const std::vector<xcb_window_t> own = host->ownWindowsInOrder();
        ASSERT_EQ(own.size(), 1U);
        counter = host->events->add({XCB_CONFIGURE_NOTIFY}, [this, window = own.front()](const auto& event) {
            const auto& configure = x11::eventAs<xcb_configure_notify_event_t>(event);
            restackings += configure.event == host->connection->root() && configure.window == window;
        });
        rival = std::make_unique<Rival>(*desktop, std::get<int>(GetParam()), std::get<Kind>(GetParam()));
    }

    void TearDown() override
    {
        rival.reset();
        counter.reset();
        panel.reset();
        X11PanelTest::TearDown();
    }

    void insistFor(Milliseconds duration)
    {
        const auto insist = [this] {
            rival->insist();
            return false;
        };
        EXPECT_FALSE(host->pumpUntil(insist, duration));
    }
    [[nodiscard]] int restackingsAtRest()
    {
        insistFor(Milliseconds{500});
        const int before = restackings;
        insistFor(Milliseconds{2000});
        return restackings - before;
    }

    std::unique_ptr<Panel> panel;
    std::unique_ptr<Rival> rival;
    Subscription counter;
    int restackings = 0;
};

TEST_P(X11PanelInsistenceTest, windowsOfWhichNothingIsSeenAreLetBeHoweverMany)
{
    rival->raiseAll();
    EXPECT_EQ(restackingsAtRest(), 0);

    const int before = restackings;
    scene->add("cover", {.geometry = {0, 0, 1280, 700}, .seed = 0, .color = Qt::white});
    EXPECT_TRUE(host->pumpUntil([&] { return restackings > before && desktop->pixel(100 + 22, 80 + 22) == yellow; }))
        << "one that is seen is not";
    EXPECT_EQ(restackingsAtRest(), 0) << "and it stays at that";
}

INSTANTIATE_TEST_SUITE_P(, X11PanelInsistenceTest,
                         testing::Combine(testing::Values(10, 60, 200),
                                          testing::Values(Kind::inputOnly, Kind::unmapped)),
                         [](const auto& parameter) {
                             return std::to_string(std::get<int>(parameter.param)) +
                                    (std::get<Kind>(parameter.param) == Kind::inputOnly ? "InputOnly" : "Unmapped");
                         });

} // namespace
} // namespace nimbrale::test
