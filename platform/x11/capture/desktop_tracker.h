#pragma once

#include "platform/screen_capture.h"
#include "platform/x11/capture/change_collector.h"
#include "platform/x11/capture/hiding_pacer.h"
#include "platform/x11/capture/paint_proof.h"
#include "platform/x11/capture/painting_time.h"
#include "platform/x11/capture/pointer_follower.h"
#include "platform/x11/capture/pointer_hiding.h"
#include "platform/x11/capture/pointer_image.h"
#include "platform/x11/capture/pointer_rest_alarm.h"
#include "platform/x11/capture/region_composer.h"
#include "platform/x11/capture/root_background.h"
#include "platform/x11/capture/seen_picture.h"
#include "platform/x11/capture/window_stack.h"
#include "platform/x11/server/compositing_watcher.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_routes.h"
#include "platform/x11/server/owned_id.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>
#include <xcb/damage.h>
#include <xcb/xfixes.h>

namespace nimbrale::x11 {

/// What the desktop shows, followed over one connection: windows, background, pointer, and where each of them changed.
/// Thread of its connection only, but for the constructor, which may run before that thread does.
class DesktopTracker {
public:
    using Clock = std::chrono::steady_clock;

    /// The pointer may have moved, and where it is (root pixels) if that is known.
    using PointerObserver = std::function<void(std::optional<PixelPoint> position)>;

    /// Redirects the windows before it returns. `connection` must outlive it. `onPointerMoved` is also called by the
    /// constructor, on a server that tells of moves. `painted` is what this process tells of its translucent windows.
    DesktopTracker(Connection& connection, PointerObserver onPointerMoved, std::shared_ptr<PaintedRegions> painted);
    DesktopTracker(const DesktopTracker&) = delete;
    DesktopTracker& operator=(const DesktopTracker&) = delete;

    /// What the server's missing extensions cost, in words for the user.
    [[nodiscard]] const std::vector<std::string>& limitations() const { return limitations_; }

    /// `changes` is told of every change from now on, until it is removed. What is dirty in it stays its own affair.
    void add(ChangeCollector& changes);
    void remove(ChangeCollector& changes);
    /// Takes over into `seen` what the screen shows, before the first window that `changes` leaves out is there: what
    /// comes below such a window may be nowhere else. Nothing is taken where one is, or while one that was there
    /// lately may still be shown. Waits for the server.
    void lookAround(RegionComposer& composer, SeenPicture& seen, ChangeCollector& changes);
    /// To be called after the collector's source, contents or pointer visibility has changed.
    void update(ChangeCollector& changes);

    /// For others who follow something over the same connection.
    [[nodiscard]] EventRoutes& events() { return events_; }
    /// Handles what the server has told so far.
    void handleEvents();
    /// Handles one event that a reply brought along and that the socket therefore does not announce; false for none.
    bool handleQueuedEvent();
    /// Finds out whose the windows are that came since. To be called before `collect`.
    void classifyNewWindows();

    /// Whether `collect` will find a change for this collector.
    [[nodiscard]] ChangeExpectation expectation(const ChangeCollector& changes) const;
    /// When the desktop has to be asked although nothing tells of a change; absent for never.
    [[nodiscard]] std::optional<std::chrono::nanoseconds> timeToPoll(Clock::time_point now) const;
    /// Has the collectors expect a change when that time has come, but for the pointer.
    void poll(Clock::time_point now);
    /// Asks for the pointer's position when that is due and `collect` did not, and whether a program hides it.
    void pollPointer(Clock::time_point now);
    /// Asks the server for all damage that can be seen and for the pointer's position, in one round trip, and adds to
    /// the collectors what changed.
    void collect();

    /// Finds out where the collectors' masks are, as far as events were handled and this process has told what it
    /// painted.
    void updateMasks(Clock::time_point now);

    /// What a stream draws its frames with.
    struct Drawing {
        RegionComposer& composer;
        SeenPicture& seen;
        RegionComposer::WindowTest isIncluded;
        /// The frame before, whose top-left corner shows that root pixel, and where it can be trusted to show what was
        /// seen without the pointer.
        xcb_pixmap_t before = XCB_NONE;
        PixelPoint beforeOrigin;
        PixelRegion seenBefore;
    };
    /// Draws `region` (root pixels) anew, as a stream with those changes shows it.
    void compose(const Drawing& drawing, const CompositionTarget& target, const PixelRegion& region,
                 ChangeCollector& changes) const;

    /// Every window that is not input-only, classified.
    [[nodiscard]] std::vector<CaptureWindow> listWindows();

private:
    /// How the server lets changes be found.
    enum class Mode {
        redirected, ///< each window's own pixels, own windows left out
        rootDamage, ///< no COMPOSITE: a copy of the root where it changed
        rootTimed   ///< no DAMAGE either: a copy of the root at every interval
    };

    void chooseMode();
    void watchWindows(std::shared_ptr<PaintedRegions> painted);
    void watchPointer();
    void watchCompositor();
    void registerHandlers();
    template <typename Event>
    void subscribe(std::initializer_list<int> types, void (DesktopTracker::*handler)(const Event&));
    void notePointerMove();
    void handleDeviceEvent(const xcb_ge_generic_event_t& event);
    void handleAlarm(const xcb_sync_alarm_notify_event_t& event);
    void handleCursorChange(const xcb_xfixes_cursor_notify_event_t& event);
    void handleDamage(const xcb_damage_notify_event_t& event);
    void updateCompositor();
    [[nodiscard]] bool isPointerShown() const;
    void handleBackgroundChange(const xcb_generic_event_t& event);
    void addAll();
    void tellPointerMove(std::optional<PixelPoint> position) const;
    void expectPointerMove();
    void listenToPointer();
    [[nodiscard]] bool isPointerAsked(Clock::time_point now) const;
    struct PointerQuestion {
        std::optional<xcb_sync_query_counter_cookie_t> rest;
        xcb_query_pointer_cookie_t position;
    };
    [[nodiscard]] PointerQuestion askForPointer() const;
    void takePointer(const PointerQuestion& question, Clock::time_point askedAt);
    [[nodiscard]] bool showsScreen(const ChangeCollector& changes) const;
    [[nodiscard]] bool needsMask(const ChangeCollector& changes) const;
    [[nodiscard]] bool isCopiedFromScreen(const ChangeCollector& changes) const;
    void chooseMask(ChangeCollector& changes, std::chrono::milliseconds time) const;
    void composeMasked(const Drawing& drawing, const CompositionTarget& target, const PixelRegion& region,
                       ChangeCollector& changes, std::optional<PointerPlace> pointer) const;
    void watchScreen();
    void showPointer(ChangeCollector& changes) const;
    /// When a window has had the time to paint itself below a mask; absent for never.
    [[nodiscard]] std::optional<Clock::time_point> nextAging() const;
    void proveMasks(Clock::time_point now);
    /// Has the compositing manager paint something, where there is no light that it would paint. False where there is
    /// nothing to paint.
    bool pokeManager(Clock::time_point now);
    [[nodiscard]] HeldPlaces::Progress takeProgress(Clock::time_point now);
    /// How often to look for a proof: hardly ever where nobody has had the time to paint anything for long.
    [[nodiscard]] std::chrono::milliseconds proofInterval(Clock::time_point now) const;
    void reportPainted(const CapturedWindow& window);
    /// Of a window that streams may leave out.
    void noteLeftOut(const CapturedWindow& window, WindowChange change, Clock::time_point now);
    [[nodiscard]] bool isVisible(const CapturedWindow& window) const;
    void collectWindowDamage();
    [[nodiscard]] std::optional<xcb_xfixes_fetch_region_cookie_t> askForScreenDamage();
    [[nodiscard]] PixelRegion fetchScreenDamage(xcb_xfixes_fetch_region_cookie_t cookie) const;
    void addScreenDamage(const PixelRegion& damage);
    /// Where a compositing manager was seen to paint.
    void notePainted(const PixelRegion& damage);
    void addBareRootDamage(const PixelRegion& rootDamage);
    void measurePointerDistance();
    void movePointer(const PointerPlace& place, PointerFollower::NextChange nextChange, Clock::time_point askedAt);
    void redrawPointer();
    /// Only where it would be drawn is it of interest whether it is hidden.
    [[nodiscard]] bool isPointerInFrames() const;
    void askWhetherHidden(Clock::time_point now);

    Connection& connection_;
    PointerObserver onPointerMoved_;
    EventRoutes events_;
    std::vector<std::string> limitations_;
    Mode mode_ = Mode::redirected;
    std::unique_ptr<WindowStack> stack_;
    std::unique_ptr<RootBackground> background_;
    std::unique_ptr<PointerImage> pointer_;
    PointerHiding hiding_;
    /// There while a stream shows the screen and the server has DAMAGE.
    OwnedWindowDamage screenDamage_;
    bool isScreenDamaged_ = false;
    OwnedRegion fetchedRegion_;
    PaintProof proof_;
    Clock::time_point proofAsked_;
    PaintingTime paintingTime_;
    /// Since when the compositing manager is known to have something to paint.
    std::optional<Clock::time_point> paintingAwaited_;
    Clock::time_point poked_;
    /// When a window that streams may leave out came, went or moved last.
    std::optional<Clock::time_point> leftOutChange_;
    /// Where such windows were lately, for streams that begin to be masked.
    HeldPlaces leftOutPlaces_;
    CompositingWatcher compositor_;
    Compositing compositing_ = Compositing::absent;
    /// The root's own damage is to be asked for.
    bool isBareRootExpected_ = false;
    PointerFollower follower_;
    PointerRestAlarm restAlarm_;
    bool hearsPointerMoves_ = false;
    bool isPointerHidden_ = false;
    HidingPacer hidingPacer_;
    /// Not before then is the root's own damage asked for.
    Clock::time_point bareRootDue_;
    std::optional<PointerPlace> pointerPlace_;
    std::vector<ChangeCollector*> collectors_;
    std::vector<Subscription> subscriptions_;
};

} // namespace nimbrale::x11
