#pragma once

#include "platform/x11/capture/capture_session.h"
#include "platform/x11/capture/desktop_tracker.h"
#include "platform/x11/capture/display_watcher.h"
#include "platform/x11/capture/work_inbox.h"
#include "platform/x11/server/connection.h"

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace nimbrale::x11 {

/// The capture thread with its connection: composes the frames of all sessions when something in them changed and their
/// interval allows. While nothing changes, it only asks, about once a second, whether a program hides the pointer.
class CaptureEngine {
public:
    struct Callbacks {
        /// Frees a pixmap that nobody shows any more. Any thread.
        std::function<void(xcb_pixmap_t)> releasePixmap;
        /// The pointer may have moved, and where it is (root pixels) if that is known; also once at the start, on a
        /// server that tells of it. Capture thread, and the thread that creates the engine.
        DesktopTracker::PointerObserver onPointerMoved;
        /// The server has gone. Capture thread.
        std::function<void()> onLost;
    };

    /// Makes the connection and redirects the windows before it returns; the thread runs from then on. `painted` is
    /// what this process tells of its translucent windows; those that it tells nothing of count as painted all over.
    [[nodiscard]] static Result<std::unique_ptr<CaptureEngine>>
    create(const std::string& displayName, Callbacks callbacks, std::shared_ptr<PaintedRegions> painted);
    ~CaptureEngine();
    CaptureEngine(const CaptureEngine&) = delete;
    CaptureEngine& operator=(const CaptureEngine&) = delete;

    /// What the server's missing extensions cost, in words for the user.
    [[nodiscard]] const std::vector<std::string>& limitations() const { return desktop_.limitations(); }

    /// Runs `work` on the capture thread, in order. Any thread.
    void post(std::function<void()> work) { inbox_->post(std::move(work)); }
    /// Where `post` puts its work, for whoever may outlive the engine: it goes with it.
    [[nodiscard]] std::weak_ptr<WorkInbox> inbox() const { return inbox_; }
    /// What makes the capture thread see again which frames are due; does nothing once the engine has gone. Any thread.
    [[nodiscard]] std::function<void()> waker() const
    {
        return [inbox = inbox()] {
            if (const auto there = inbox.lock())
                there->wake();
        };
    }

    // Capture thread, from posted work.
    void addSession(std::shared_ptr<CaptureSession> session);
    void removeSession(const std::shared_ptr<CaptureSession>& session);
    /// Every window that is not input-only, classified.
    [[nodiscard]] std::vector<CaptureWindow> listWindows() { return desktop_.listWindows(); }

private:
    CaptureEngine(std::unique_ptr<Connection> connection, Callbacks callbacks, std::shared_ptr<PaintedRegions> painted);

    void run();
    void runPosted();
    [[nodiscard]] std::vector<CaptureSession*> dueSessions(FramePacer::Clock::time_point now) const;
    void takeDueTurns();
    void handOver(const std::vector<CaptureSession*>& drawn);
    /// When the thread has to come by although nobody tells of a change; absent for never.
    [[nodiscard]] std::optional<std::chrono::nanoseconds> timeToComeBy(FramePacer::Clock::time_point now) const;
    void wait();

    std::unique_ptr<Connection> connection_;
    Callbacks callbacks_;
    DesktopTracker desktop_;
    DisplayWatcher displays_;
    std::vector<std::shared_ptr<CaptureSession>> sessions_;
    std::shared_ptr<WorkInbox> inbox_ = std::make_shared<WorkInbox>();
    /// The thread's own: set by work that is posted to it.
    bool isEnding_ = false;
    std::thread thread_;
};

} // namespace nimbrale::x11
