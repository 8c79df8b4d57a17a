#pragma once

#include "tests/support/x_reply.h"

#include <QImage>
#include <QRect>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

struct xcb_connection_t;
struct xcb_screen_t;

namespace nimbrale::test {

/// Looks at a monitor as a meeting application does that shares it: reads its rectangle from the screen, over and over,
/// from a thread and a connection of its own.
class DisplayViewer {
public:
    struct Result {
        /// Pictures taken while the monitor had the rectangle that was read.
        int pictures = 0;
        /// Of them, those with a pixel that is not allowed.
        int foreignPictures = 0;
        std::int64_t foreignPixels = 0;
        /// Pictures of a rectangle that the monitor had just left, with a pixel that is not allowed.
        int staleForeignPictures = 0;
        /// The longest time for which every picture was a foreign one, in milliseconds.
        double longestForeignRun = 0;
        /// The first picture with a foreign pixel; null without any.
        QImage firstForeign;
    };

    /// `isAllowed` says for a color, 0xRRGGBB, whether the monitor may show it; it is called on the viewer's thread.
    /// For servers whose root has depth 24. Rests for `pause` between pictures; none means as fast as the server
    /// answers, which then has little time for others.
    DisplayViewer(const std::string& displayName, std::string monitorName, std::function<bool(std::uint32_t)> isAllowed,
                  std::chrono::milliseconds pause = {});
    ~DisplayViewer();
    DisplayViewer(const DisplayViewer&) = delete;
    DisplayViewer& operator=(const DisplayViewer&) = delete;

    /// Ends the watching.
    [[nodiscard]] Result stop();
    /// How many pictures were taken so far. Any thread.
    [[nodiscard]] int pictures() const { return pictures_; }

private:
    void watch();
    void take(QRect area);
    void examine(const QImage& picture, bool isCurrent);

    xcb_connection_t* connection_;
    const xcb_screen_t* screen_ = nullptr;
    std::uint32_t monitor_ = 0;
    std::function<bool(std::uint32_t)> isAllowed_;
    std::chrono::milliseconds pause_;
    QRect known_;
    Result result_;
    double foreignSince_ = -1;
    std::atomic<int> pictures_ = 0;
    std::atomic<bool> isEnding_ = false;
    std::thread thread_;
};

} // namespace nimbrale::test
