// Window managers that do not leave the X screen larger than its displays.

#include "tests/desktop/virtual_display_fixture.h"
#include "tests/support/screen_size_watch.h"

#include <gtest/gtest.h>

namespace nimbrale::test {

namespace {

class RefusedVirtualDisplayTest : public VirtualDisplayTest {
protected:
    void startOnMuffin()
    {
        start({.server = PrivateDesktop::Server::xorgDummy,
               .width = 1280,
               .height = 720,
               .windowManager = PrivateDesktop::WindowManager::muffin});
    }
};

TEST_F(RefusedVirtualDisplayTest, MuffinIsNotFoughtAndHasItsScreenBack)
{
    startOnMuffin();
    ScreenSizeWatch sizes(*desktop_);
    auto device = make();
    ErrorCode code = ErrorCode::unsupported;
    device->onUnusable = [&](const Error& error) {
        code = error.code;
        unusable_ = error.message;
    };
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return !unusable_.empty(); }, Milliseconds{3000}));
    EXPECT_EQ(code, ErrorCode::permanent) << "it is not to be tried again: " << unusable_;
    EXPECT_FALSE(desktop_->monitorNamed("Nimbrale"));
    device.reset();
    EXPECT_TRUE(
        DisplaysHost::pumpUntil([&] { return desktop_->screenSize() == QSize(1280, 720); }, Milliseconds{3000}));
    EXPECT_LE(sizes.sizes().size(), 10U) << "each is a new picture of the desktop";
    EXPECT_GE(sizes.sizes().size(), 2U) << "the control: it was tried";
}

} // namespace

} // namespace nimbrale::test
