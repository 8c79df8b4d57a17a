#pragma once

#include "tests/fakes/offscreen_application.h"
#include "tests/support/desktop_session.h"
#include "tests/support/gtk_window.h"
#include "tests/support/scene.h"
#include "tests/support/window_requests.h"

#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <string>

namespace nimbrale::test {

/// A test on a real desktop. The tests of one instantiation, which is one desktop, share the session.
class DesktopTest : public testing::TestWithParam<DesktopKind> {
protected:
    /// Where the pointer lies over nothing that looks at it, in points.
    static constexpr QPoint pointerRest{1150, 600};

    DesktopTest() { startOffscreenApplication(); }

    static void TearDownTestSuite()
    {
        session_.reset();
        hasFailedToStart_ = false;
    }

    void SetUp() override
    {
        if (hasFailedToStart_)
            FAIL() << "the session did not come up for an earlier test";
        if (!session_)
            startSession();
        if (!session_ || IsSkipped())
            return;
        ASSERT_NO_FATAL_FAILURE(prepareSession());
        desktop().movePointer(pointerRest * scale());
        ASSERT_TRUE(session_->waitUntilStill()) << "what the test before left does not come to rest";
        scene = Scene::start(desktop());
        ASSERT_TRUE(scene);
    }

    void TearDown() override
    {
        gtk.reset();
        scene.reset();
    }

    /// The X server of the session: Xvnc has one output, the dummy driver two, one of them free.
    [[nodiscard]] virtual PrivateDesktop::Server server() const { return PrivateDesktop::Server::xvnc; }

    [[nodiscard]] virtual DesktopSession::Options options() const
    {
        return {
            .kind = GetParam(), .server = server(), .width = 1280 * scale(), .height = 720 * scale(), .scale = scale()};
    }

    /// What a fixture has of its own to do before each test, once the session is there.
    virtual void prepareSession() {}

    /// By how much the desktop's settings scale it; the screen has as many pixels more.
    [[nodiscard]] virtual int scale() const { return 1; }

    /// From points at the screen's top-left corner to root pixels.
    [[nodiscard]] QRect inPixels(const QRect& points) const
    {
        return {points.topLeft() * scale(), points.size() * scale()};
    }

    [[nodiscard]] static DesktopSession& session() { return *session_; }
    [[nodiscard]] static PrivateDesktop& desktop() { return session_->desktop(); }
    [[nodiscard]] static WindowRequests requests() { return WindowRequests(desktop()); }

    /// A window that the desktop's window manager decorates.
    void addWindow(const std::string& name, const QRect& geometry, std::uint32_t seed)
    {
        scene->add(name, {.geometry = geometry, .seed = seed, .overrideRedirect = false});
    }
    void addColoredWindow(const std::string& name, const QRect& geometry, const QColor& color)
    {
        scene->add(name, {.geometry = geometry, .seed = 0, .color = color, .overrideRedirect = false});
    }

    void showGtkWindow(const QRect& geometry)
    {
        gtk = GtkWindow::start(desktop());
        ASSERT_TRUE(gtk);
        gtk->show(geometry);
        ASSERT_TRUE(waitUntil([&] { return desktop().windowTitled("header bar").has_value(); }, Milliseconds{10000}));
    }

    /// Said also by a test that passes: the numbers are what one compares from one version to the next.
    static void report(const std::string& figure)
    {
        std::cout << "[ FIGURE   ] " << desktopName(GetParam()) << ": " << figure << std::endl;
    }

    std::unique_ptr<Scene> scene;
    std::unique_ptr<GtkWindow> gtk;

private:
    void startSession()
    {
        std::string reason;
        session_ = DesktopSession::start(options(), reason);
        if (session_) {
            report("session complete after " + std::to_string(session_->startTime().count()) + " ms");
            return;
        }
        hasFailedToStart_ = HasFatalFailure();
        if (!hasFailedToStart_)
            GTEST_SKIP() << reason;
    }

    static inline std::unique_ptr<DesktopSession> session_;
    static inline bool hasFailedToStart_ = false;
};

} // namespace nimbrale::test
