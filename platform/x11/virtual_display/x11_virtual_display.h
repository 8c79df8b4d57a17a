#pragma once

#include "platform/main_queue.h"
#include "platform/virtual_displays.h"
#include "platform/x11/displays/randr_layout.h"
#include "platform/x11/displays/x11_screens.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/correction_limiter.h"
#include "platform/x11/server/event_dispatcher.h"
#include "platform/x11/virtual_display/backdrop_card.h"
#include "platform/x11/virtual_display/pointer_barriers.h"
#include "platform/x11/virtual_display/stray_windows.h"
#include "platform/x11/virtual_display/virtual_area.h"
#include "platform/x11/virtual_display/virtual_display_record.h"

#include <chrono>
#include <memory>
#include <optional>

namespace nimbrale::x11 {

/// A RandR monitor beyond the bottom right corner of all displays, over an X screen enlarged for it.
///
/// The server knows nothing of the purpose: every program that arranges displays shrinks the screen to the real ones,
/// and a display that is plugged in may come to lie on ours. So each change of the displays is followed by a check that
/// puts right what is not as it should be. Main thread only.
class X11VirtualDisplay final : public VirtualDisplayDevice {
public:
    /// What it works with; all of it must outlive the display. `screens` has asked for RandR's events.
    struct Environment {
        Connection& connection;
        EventDispatcher& events;
        X11Screens& screens;
        MainQueue& mainQueue;
        VirtualArea& area;
        /// Empty means the environment's.
        std::string displayName;
    };

    /// Takes over what an application that has ended left of its virtual display: the monitor stays, for viewers of it.
    /// Fails when the server cannot grow its screen or another process has a virtual display on it, leaving the desktop
    /// as it was, or the display that was left.
    [[nodiscard]] static Result<std::unique_ptr<X11VirtualDisplay>> create(const Environment& environment,
                                                                           const VirtualDisplayDescriptor& descriptor);
    /// Leaves the display, with the card, to the caretaker while a program reads the screen.
    ~X11VirtualDisplay() override;

    [[nodiscard]] DisplayID displayID() const override { return displayID_; }
    [[nodiscard]] Result<void> applySettings(const VirtualDisplaySettings& settings) override;
    [[nodiscard]] Result<void> setOrigin(int x, int y) override;

private:
    X11VirtualDisplay(const Environment& environment, const VirtualDisplayDescriptor& descriptor,
                      std::unique_ptr<VirtualDisplayClaim> claim);

    void beginRecord(const std::string& name);
    void takeOver(const RandrMonitor& left);
    void removeEarlierCard();
    [[nodiscard]] bool leave();
    void takeDown();
    void ensureCard();
    [[nodiscard]] Result<void> configure(const PixelRect& pixels);
    [[nodiscard]] Result<void> putBack(const RandrMonitor& before, const PixelRect& screenBefore);
    void recordCard();
    [[nodiscard]] Result<void> announce();
    void areaVerified();
    void repeatScreenSize();
    [[nodiscard]] bool isInPlace(const PixelRect& wanted) const;
    [[nodiscard]] PixelRect atCorner(int width, int height) const;
    [[nodiscard]] bool isScreenBigEnough() const;
    void ensurePrimary();
    void screenChanged(const xcb_randr_screen_change_notify_event_t& change);
    void takeScreenBack();
    void giveOutputBack(const xcb_randr_notify_event_t& event);
    void checkSoon(std::chrono::milliseconds delay);
    void check();
    [[nodiscard]] bool mayCorrect();
    void loseClaim();
    void becomeUnusable(Error error);

    Environment environment_;
    RandrLayout layout_;
    std::unique_ptr<VirtualDisplayClaim> claim_;
    VirtualDisplayRecord record_;
    DisplayID displayID_;
    int maximumWidth_;
    int maximumHeight_;
    PixelPitch pitch_;
    /// Empty until there is room for the monitor.
    PixelRect pixels_;
    /// Whether the monitor is there for others to see.
    bool isAnnounced_ = false;
    /// An output without a display that the monitor bears, or XCB_NONE.
    xcb_randr_output_t output_ = XCB_NONE;
    /// The corner of the real displays for which the place was chosen.
    PixelRect realBounds_;
    std::optional<BackdropCard> card_;
    PointerBarriers barriers_;
    StrayWindows strays_;
    Subscription screenChanges_;
    Subscription outputChanges_;
    Subscription rootChanges_;
    Subscription claimChanges_;
    std::unique_ptr<Timer> checkTimer_;
    std::unique_ptr<Timer> unusableTimer_;
    /// A program that keeps undoing what we do is not fought for longer than this.
    CorrectionLimiter corrections_{10, std::chrono::seconds{5}};
    /// How often the screen is taken back at once, which may be several times for each change of the displays. What
    /// comes after that waits for the check.
    CorrectionLimiter takeBacks_{40, std::chrono::seconds{5}};
    int unseenTakeBacks_ = 0;
    /// Whether what happened since the last check has been counted as a correction.
    bool isCorrecting_ = false;
    /// How many sizes were refused one after the other.
    int refusals_ = 0;
    bool isUnusable_ = false;
    bool hasCaretaker_ = false;
    /// Whether another process has taken the claim, and with it everything that is shared by name.
    bool isClaimLost_ = false;
};

} // namespace nimbrale::x11
