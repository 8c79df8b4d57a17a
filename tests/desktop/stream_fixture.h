#pragma once

#include "tests/desktop/captured_stream.h"
#include "tests/desktop/x11_capture_fixture.h"

#include <QScopeGuard>

#include <memory>

namespace nimbrale::test {

inline const QRect area(100, 80, 400, 300);
inline const Rect region{static_cast<double>(area.x()), static_cast<double>(area.y()),
                         static_cast<double>(area.width()), static_cast<double>(area.height())};

/// A stream of the captured desktop.
class X11StreamTest : public X11CaptureTest {
protected:
    void begin(const Options& options = {})
    {
        startDesktop(options);
        stream = makeStream();
    }
    [[nodiscard]] std::unique_ptr<CapturedStream> makeStream()
    {
        return std::make_unique<CapturedStream>(captured->capture(), captured->mainQueue(), captured->connection());
    }
    /// Leaves out the own windows, as the shared region does.
    [[nodiscard]] ContentFilter filter() const { return {captured->screens().mainDisplay(), {{getpid(), {}}}}; }
    [[nodiscard]] static StreamConfiguration configuration(std::int64_t width = area.width(),
                                                           std::int64_t height = area.height())
    {
        return {.sourceRect = region,
                .width = width,
                .height = height,
                .minimumFrameInterval = {1, 120},
                .showsCursor = false};
    }
    /// Ends the stream with the scope, however the test leaves it: its handler may refer to what came before.
    [[nodiscard]] auto endStreamWithScope()
    {
        return qScopeGuard([this] { stream.reset(); });
    }
    void TearDown() override
    {
        stream.reset();
        X11CaptureTest::TearDown();
    }
    /// Waits until what is delivered is this picture.
    [[nodiscard]] testing::AssertionResult becomes(const QImage& expected, ImageTolerance tolerance = {})
    {
        if (pumpUntil([&] { return imagesAreAlike(stream->image(), expected, tolerance); }))
            return testing::AssertionSuccess();
        return imagesMatch(stream->image(), expected, tolerance);
    }
    /// Whether nothing is delivered for a while.
    [[nodiscard]] bool isQuiet(Milliseconds duration = Milliseconds{300})
    {
        const int frames = stream->frames();
        return !pumpUntil([&] { return stream->frames() != frames; }, duration);
    }

    std::unique_ptr<CapturedStream> stream;
};

} // namespace nimbrale::test
