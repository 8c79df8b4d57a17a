#pragma once

#include "platform/main_queue.h"
#include "platform/x11/capture/capture_session.h"
#include "platform/x11/capture/pointer_image.h"
#include "platform/x11/capture/root_background.h"
#include "platform/x11/capture/window_stack.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/error_log.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace nimbrale::x11 {

/// The capture thread with its connection: follows windows, damage and pointer, and composes the pictures of all
/// sessions when something in them changed and their interval allows. While nothing changes, it only asks for the
/// pointer's place, five times a second.
class CaptureEngine {
public:
    struct Callbacks {
        /// Frees a pixmap that nobody shows any more. Any thread.
        std::function<void(xcb_pixmap_t)> releasePixmap;
        /// The pointer may have moved; also once at the start, on a server that tells of it. Capture thread, and the
        /// thread that creates the engine.
        std::function<void()> onPointerMoved;
        /// The server has gone. Capture thread.
        std::function<void()> onLost;
    };

    /// Makes the connection and redirects the windows before it returns; the thread runs from then on.
    [[nodiscard]] static Result<std::unique_ptr<CaptureEngine>> create(const std::string& displayName,
                                                                       Callbacks callbacks);
    ~CaptureEngine();
    CaptureEngine(const CaptureEngine&) = delete;
    CaptureEngine& operator=(const CaptureEngine&) = delete;

    /// What the server's missing extensions cost, in words for the user.
    [[nodiscard]] const std::vector<std::string>& limitations() const { return limitations_; }

    /// Runs `work` on the capture thread, in order. Any thread.
    void post(std::function<void()> work);
    /// Makes the capture thread look for due pictures again. Any thread.
    void wake();

    // Capture thread, from posted work.
    void addSession(std::shared_ptr<CaptureSession> session);
    void removeSession(const std::shared_ptr<CaptureSession>& session);
    void applyConfiguration(CaptureSession& session, const SessionConfiguration& configuration);
    void applyFilter(CaptureSession& session, const SessionFilter& filter);
    /// Every window that is not input-only, classified.
    [[nodiscard]] std::vector<CaptureWindow> listWindows();

private:
    using Clock = std::chrono::steady_clock;

    /// How the server lets changes be found.
    enum class Mode {
        redirected, ///< each window's own pixels, own windows left out
        rootDamage, ///< no COMPOSITE: a copy of the root where it changed
        rootTimed   ///< no DAMAGE either: a copy of the root at every interval
    };

    CaptureEngine(std::unique_ptr<Connection> connection, Callbacks callbacks);
    void prepare();
    void watchPointer();
    void notePointerMove();
    void watchCompositor();
    void readCompositor();

    void run();
    void runPosted();
    [[nodiscard]] std::vector<std::function<void()>> takePosted();
    void drainEvents();
    void handle(const xcb_generic_event_t& event);
    void damaged(const xcb_generic_event_t& event);
    /// Composes what is due. The time until the next picture that is known to be needed, absent for none.
    [[nodiscard]] std::optional<std::chrono::nanoseconds> composeDue();
    /// The time in which no session may have a picture, absent when one may have it at once.
    [[nodiscard]] std::optional<std::chrono::nanoseconds> timeToNextTick() const;
    [[nodiscard]] bool hasWork(const CaptureSession& session) const;
    void collectChanges();
    void collectRootDamage();
    /// Whether the root's damage is worth a question now.
    [[nodiscard]] bool isBareRootDue(Clock::time_point now) const;
    void markBareRoot(PixelRegion damage);
    [[nodiscard]] bool isRelevant(const CapturedWindow& window) const;
    void subtractHidden(PixelRegion& region, const CapturedWindow& window, const CaptureSession& session) const;
    void movePointer(const PointerPlace& place);
    void redrawPointer();
    void compose(CaptureSession& session, Clock::time_point now);
    [[nodiscard]] SyncPoint mark(CaptureSession& session);
    [[nodiscard]] bool isPointerShown() const;
    void sleep(std::optional<std::chrono::nanoseconds> wait);

    std::unique_ptr<Connection> connection_;
    ErrorLog errors_;
    Callbacks callbacks_;
    std::vector<std::string> limitations_;
    Mode mode_ = Mode::redirected;
    std::unique_ptr<WindowStack> stack_;
    std::unique_ptr<RootBackground> background_;
    std::unique_ptr<PointerImage> pointer_;
    xcb_damage_damage_t rootDamage_ = XCB_NONE;
    std::uint32_t fetchedRegion_ = XCB_NONE;
    xcb_atom_t compositorSelection_ = XCB_NONE;
    bool isComposited_ = false;
    bool hasDamage_ = false;
    bool isPointerStale_ = true;
    Clock::time_point pointerAsked_;
    /// Not before then is the root's damage asked for.
    Clock::time_point bareRootDue_;
    std::optional<PointerPlace> pointerPlace_;
    std::vector<std::shared_ptr<CaptureSession>> sessions_;

    std::mutex postedMutex_;
    std::vector<std::function<void()>> posted_;
    int wakeDescriptor_ = -1;
    std::atomic<bool> isEnding_ = false;
    std::thread thread_;
};

} // namespace nimbrale::x11
