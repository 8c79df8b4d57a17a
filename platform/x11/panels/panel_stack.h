#pragma once

#include "platform/main_queue.h"
#include "platform/observers.h"
#include "platform/x11/panels/aside_windows.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/correction_limiter.h"
#include "platform/x11/server/event_dispatcher.h"
#include "platform/x11/server/window_events.h"

#include <functional>
#include <memory>
#include <set>
#include <unordered_set>
#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Whether a screen locker covers a window of ours.
enum class OnLockedScreen {
    covered,
    shown ///< for what lies where no locker has to be seen, and nothing else may be
};

/// Keeps windows of ours above all other children of the root, in an order among themselves. A program that insists on
/// the same gets its way between two of our corrections, of which there are at most ten a second. Main thread only.
class PanelStack {
public:
    /// `isInArea` tells the windows that the virtual area keeps in front of all others itself; they may be anywhere.
    /// All references must outlive it.
    PanelStack(Connection& connection, EventDispatcher& events, MainQueue& queue,
               std::function<bool(xcb_window_t)> isInArea);
    PanelStack(const PanelStack&) = delete;
    PanelStack& operator=(const PanelStack&) = delete;

    /// From now on the window, mapped or about to be, stands at that level, in front of those of its level that were
    /// raised before. Windows that are no children of the root are left where they are.
    void raise(xcb_window_t window, int level, OnLockedScreen onLockedScreen);
    /// The window is left alone from now on.
    void remove(xcb_window_t window);
    /// The windows stay below the top-level window that `window` is or lies in, while that is shown and until the
    /// subscription goes, which may outlive the stack.
    [[nodiscard]] Subscription keepBelow(xcb_window_t window);
    /// The same for a screen locker's window, which not all windows of ours stay below.
    [[nodiscard]] Subscription giveWayTo(xcb_window_t locker);

private:
    struct Entry {
        xcb_window_t window = XCB_NONE;
        int level = 0;
        OnLockedScreen onLockedScreen = OnLockedScreen::covered;
    };
    using Windows = std::set<xcb_window_t>;
    struct Wanted {
        xcb_window_t window = XCB_NONE;
        /// What it is to be below.
        Windows below;
    };

    void handle(const xcb_generic_event_t& event);
    void scheduleCheck();
    void check();
    /// True when something had to be moved.
    bool restack();
    [[nodiscard]] Subscription keep(std::vector<xcb_window_t>& list, xcb_window_t window);
    [[nodiscard]] bool isOurs(xcb_window_t window) const;
    /// The top-level windows of those in the list that are shown.
    [[nodiscard]] Windows shownOf(const std::vector<xcb_window_t>& list) const;
    /// Front to back, what is among the root's children.
    [[nodiscard]] std::vector<Wanted> wantedOrder(const std::vector<xcb_window_t>& children) const;
    /// Notes what stands above, too.
    [[nodiscard]] bool isInPlace(const std::vector<xcb_window_t>& bottomToTop, const std::vector<Wanted>& wanted);

    Connection& connection_;
    MainQueue& queue_;
    std::function<bool(xcb_window_t)> isInArea_;
    /// Front to back.
    std::vector<Entry> entries_;
    /// To be above; one that was asked for twice is here twice.
    std::vector<xcb_window_t> windowsAbove_;
    std::vector<xcb_window_t> lockers_;
    /// Others that stood above at the last check and were let be, and windows made since, which begin on top.
    std::unordered_set<xcb_window_t> othersAbove_;
    AsideWindows aside_;
    CorrectionLimiter limiter_;
    std::unique_ptr<Timer> pendingCheck_;
    WindowEvents rootEvents_;
    Subscription handler_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace nimbrale::x11
