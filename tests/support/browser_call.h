#pragma once

#include "tests/support/call_server.h"
#include "tests/support/marionette.h"
#include "tests/support/private_desktop.h"

#include <QImage>
#include <QRect>
#include <QSize>

#include <memory>
#include <string>

namespace nimbrale::test {

/// A real browser on a private desktop, in a call with itself: its page asks for a screen or a window to share on a
/// real click, sends it through a real-time connection, and receives it as a far participant does. Reports the shared
/// track (what the browser captured) and the receiver (what came out of the codec). Sizes and places are pixels of the
/// pictures. Blocking; one thread.
class BrowserCall {
public:
    enum class Browser { chromium, firefox };

    struct Options {
        Browser browser = Browser::chromium;
        /// What its picker is answered with: "Screen 2" (screens are numbered in RandR's order), "Entire screen" for a
        /// lone one, or part of a window's title, ASCII only, which for Firefox is the whole title.
        std::string source = "Screen 2";
        /// Where its own window goes.
        QRect window = {20, 20, 320, 240};
    };

    struct Side {
        QSize size = {};
        int frames = 0;
        /// Of those, the ones that look unlike the one before.
        int changes = 0;
    };
    struct State {
        /// "idle", "asking", "sharing" or "failed", or "silent" when the page does not answer.
        std::string phase;
        std::string failure = {};
        /// Whether the pointer is over the button, as the page has noticed by what it was sent.
        bool isPointerOverButton = false;
        /// "monitor" or "window".
        std::string surface = {};
        bool isLive = false;
        /// As the track's settings tell it.
        QSize settingsSize = {};
        Side shared = {};
        Side received = {};
    };
    struct MarkerCount {
        /// Frames whose every pixel was looked at.
        int looked = 0;
        /// Of those, the ones in which something was magenta.
        int found = 0;
        int unreadable = 0;
    };
    struct MarkerReport {
        MarkerCount shared;
        MarkerCount received;
    };

    /// What this machine lacks for a call; empty when it lacks nothing.
    [[nodiscard]] static std::string missing(Browser browser);
    /// Opens the call's page. Null, with what is missing in `reason`, when the browser is not installed; a page that
    /// cannot be served is a failure of the test, with null too. A browser that does not show the page is for `share`
    /// to report: the desktop, with our display on it, may be what ended it.
    [[nodiscard]] static std::unique_ptr<BrowserCall> start(PrivateDesktop& desktop, const Options& options,
                                                            std::string& reason);
    ~BrowserCall();

    /// Clicks the page's button, once, as soon as the page takes clicks, and waits until frames arrive at the far side.
    /// On false, `failure` says what happened.
    [[nodiscard]] bool share(Milliseconds timeout = Milliseconds{15000});
    /// Ends the share, not the browser.
    void stopSharing();
    /// What the browser has logged, that of its screen capture included.
    [[nodiscard]] Process& browser() { return *browser_; }
    [[nodiscard]] std::string browserOutput() const { return browser_->output(); }
    [[nodiscard]] std::string failure() { return failure_; }

    [[nodiscard]] State state();
    /// The size of the newest frame of the shared track.
    [[nodiscard]] QSize trackSize() { return state().shared.size; }
    [[nodiscard]] int framesReceived() { return state().received.frames; }
    /// The newest frame of the shared track, or a part of it.
    [[nodiscard]] QImage trackImage(const QRect& part = {});
    /// The newest frame that the far side decoded, or a part of it.
    [[nodiscard]] QImage receivedImage(const QRect& part = {});
    [[nodiscard]] bool waitForTrackSize(QSize size, Milliseconds timeout);
    [[nodiscard]] bool waitForFramesReceived(int more, Milliseconds timeout);
    /// Waits until the far side has got so many frames more that look unlike the one before, as only a stream does that
    /// is not frozen, of content that moves.
    [[nodiscard]] bool waitForChangesReceived(int more, Milliseconds timeout);

    /// From now on every frame, of the track and at the far side, is looked through for magenta. Not with Firefox,
    /// which hands out no frames as they are.
    void watchForMarker();
    [[nodiscard]] MarkerReport markerReport();
    /// The first frame in which it was found; null when there is none.
    [[nodiscard]] QImage markerImage();

private:
    BrowserCall(PrivateDesktop& desktop, Options options);
    [[nodiscard]] bool bringPointerOverButton();

    PrivateDesktop& desktop_;
    Options options_;
    CallServer server_;
    std::unique_ptr<Process> browser_;
    /// Of Firefox only.
    std::unique_ptr<Marionette> control_;
    std::string failure_;
};

} // namespace nimbrale::test
