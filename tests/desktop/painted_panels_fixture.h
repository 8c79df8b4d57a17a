#pragma once

#include "tests/desktop/masked_capture_fixture.h"
#include "tests/desktop/painted_panel.h"

#include <memory>
#include <vector>

namespace nimbrale::test {

/// The compositing manager has no time while this lives, where it is wanted.
class Slowdown {
public:
    Slowdown(PrivateDesktop& desktop, bool isWanted) : desktop_(isWanted ? &desktop : nullptr)
    {
        EXPECT_TRUE(!desktop_ || desktop_->pauseCompositor());
    }
    Slowdown(const Slowdown&) = delete;
    Slowdown& operator=(const Slowdown&) = delete;
    ~Slowdown()
    {
        if (desktop_)
            desktop_->resumeCompositor();
    }

private:
    PrivateDesktop* desktop_;
};

/// Panels of this process that a test changes request by request, in front of windows that go on drawing.
class PaintedPanelsTest : public X11MaskedCaptureTest {
protected:
    void TearDown() override
    {
        if (desktop)
            desktop->resumeCompositor();
        painted.clear();
        X11MaskedCaptureTest::TearDown();
    }

    PaintedPanel& addPanel(const QRect& place, const x11::PixelRegion& paint)
    {
        painted.push_back(std::make_unique<PaintedPanel>(captured->connection(), captured->painted(), place, paint));
        expectShown(*painted.back());
        return *painted.back();
    }

    void expectShown(const PaintedPanel& panel)
    {
        EXPECT_TRUE(captured->pumpUntil(
            [&] { return ownPixels(desktop->screenshot(panel.place())) > panel.shownPixels() * 9 / 10; }, 5000))
            << "the control: the screen shows it";
    }

    void beginWatch()
    {
        waitUntilStill();
        captured->settle();
        watch.watch(*captured);
    }
    /// Lets other windows draw meanwhile, so that there are pictures at whatever moment.
    void pumpBusily(int steps)
    {
        for (int step = 0; step < steps; ++step) {
            ++fills;
            scene->fill("upper", {10 + 12 * (fills % 20), 20 + fills % 150, 30, 30}, QColor(fills % 255, 200, 40));
            scene->fill("lower", {200 + 4 * (fills % 20), 5 + fills % 150, 8, 8}, QColor(10, 90, fills % 140));
            captured->pumpFor(Milliseconds{8});
        }
    }
    void expectNothing(int atLeastPictures)
    {
        captured->pumpFor(Milliseconds{300});
        captured->onFrame = nullptr;
        watch.expectNoneFound(atLeastPictures);
    }
    void flush() { captured->connection().flush(); }

    std::vector<std::unique_ptr<PaintedPanel>> painted;
    int fills = 0;
};

} // namespace nimbrale::test
