// What a compositing manager makes of single windows: the capture follows, with one and without.

#include "tests/desktop/x11_capture_fixture.h"

namespace nimbrale::test {
namespace {

constexpr QRect region(100, 100, 400, 300);

class X11CaptureCompositedTest : public X11CaptureTest {
protected:
    void SetUp() override
    {
        startDesktop({.compositor = PrivateDesktop::Compositor::picom});
        scene->add("below", {.geometry = {0, 0, 1280, 700}, .seed = 5});
    }

    /// Waits for a picture that is what the screen shows; two roundings of a blend may differ by one.
    void expectTheScreenIsCaptured()
    {
        EXPECT_TRUE(captured->pumpUntil([&] {
            return imagesAreAlike(captured->image(), desktop->screenshot(region), {.perChannel = 1});
        })) << "kept as "
            << keepImage(captured->image(), "captured") << " and " << keepImage(desktop->screenshot(region), "screen");
    }

    void setOpacity(const std::string& name, std::uint32_t opacity)
    {
        x11::Connection& connection = captured->connection();
        xcb_change_property(connection.get(), XCB_PROP_MODE_REPLACE, scene->identifier(name),
                            connection.atom("_NET_WM_WINDOW_OPACITY"), XCB_ATOM_CARDINAL, 32, 1, &opacity);
        connection.synchronize();
    }

    void startCapture()
    {
        captured->start({double(region.x()), double(region.y()), double(region.width()), double(region.height())});
    }
};

TEST_F(X11CaptureCompositedTest, AnOpacitySetWhileTheWindowIsShownIsFollowed)
{
    scene->add("faded", {.geometry = {150, 150, 200, 150}, .seed = 4});
    startCapture();
    expectTheScreenIsCaptured();
    const QImage opaque = captured->image();
    const QPoint inside(100, 100);
    for (const std::uint32_t opacity : {0x80000000U, 0x20000000U}) {
        setOpacity("faded", opacity);
        ASSERT_TRUE(captured->pumpUntil([&] {
            return desktop->screenshot(region).pixel(inside) != opaque.pixel(inside);
        })) << "the control: the compositing manager fades it";
        expectTheScreenIsCaptured();
    }
    setOpacity("faded", 0xffffffff);
    EXPECT_TRUE(captured->pumpUntil([&] { return captured->image() == opaque; }));
}

TEST_F(X11CaptureCompositedTest, AnOpacityThatNobodyAppliesAnyMoreIsNotDrawn)
{
    scene->add("faded", {.geometry = {150, 150, 200, 150}, .seed = 4});
    setOpacity("faded", 0x80000000);
    startCapture();
    expectTheScreenIsCaptured();
    const QImage faded = captured->image();
    ASSERT_TRUE(desktop->stopCompositor());
    // It says that it goes before it does.
    ASSERT_TRUE(captured->pumpUntil([&] { return desktop->screenshot(region) != faded; }));
    expectSameAsScreen(region);
    EXPECT_NE(captured->image(), faded);
}

TEST_F(X11CaptureCompositedTest, AFullScreenWindowThatIsNoLongerCompositedIsCapturedExactly)
{
    ASSERT_TRUE(desktop->stopCompositor());
    const auto picom = desktop->spawn(
        "picom", {"--config", "/dev/null", "--backend", "xrender", "--unredir-if-possible", "--log-level", "debug"});
    ASSERT_TRUE(waitUntil([&] { return desktop->isComposited(); }, Milliseconds{5000}));
    const auto lastSaid = [&](const std::string& words) {
        const auto place = picom->output().rfind(words);
        return place == std::string::npos ? -1 : static_cast<int>(place);
    };
    const auto isRedirected = [&] { return lastSaid("Screen redirected") > lastSaid("Screen unredirected"); };
    startCapture();
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(captured->pumpUntil(isRedirected)) << picom->output();
        expectTheScreenIsCaptured();
        scene->add("film", {.geometry = {0, 0, 1280, 720}, .seed = 9});
        ASSERT_TRUE(captured->pumpUntil([&] { return !isRedirected(); })) << picom->output();
        expectTheScreenIsCaptured();
        const QImage before = captured->image();
        scene->repaint("film", 10);
        ASSERT_TRUE(captured->pumpUntil([&] { return captured->image() != before; }));
        expectTheScreenIsCaptured();
        scene->remove("film");
    }
}

} // namespace
} // namespace nimbrale::test
