#pragma once

#include "platform/pixel_rect.h"
#include "platform/x11/capture/captured_window.h"
#include "platform/x11/capture/frame_pacer.h"
#include "platform/x11/capture/held_places.h"
#include "platform/x11/capture/screen_mask.h"
#include "platform/x11/capture/unpainted_memory.h"
#include "platform/x11/server/pixel_region.h"

#include <chrono>
#include <functional>
#include <optional>

namespace nimbrale::x11 {

/// Which pixels of one stream's source have to be drawn anew: what changed, less what opaque windows above hide. All in
/// root pixels. Pure: needs no server. Capture thread only.
class ChangeCollector {
public:
    using Clock = ScreenMask::Clock;

    /// For how long a compositing manager may still show a window where it was; some fade out what has vanished.
    static constexpr std::chrono::milliseconds longestLag = HeldPlaces::longestLag;
    static constexpr std::chrono::milliseconds longestFade{500};
    static constexpr HeldPlaces::Hold throughFade{.time = longestFade, .fade = longestFade};

    /// For how long a compositing manager may show a window as it was before that.
    [[nodiscard]] static HeldPlaces::Hold holdAfter(WindowChange change)
    {
        return change == WindowChange::vanished ? throughFade : HeldPlaces::Hold{};
    }

    /// `isIncluded`: whether the stream shows a window at all.
    explicit ChangeCollector(std::function<bool(const CapturedWindow&)> isIncluded) : isIncluded_(std::move(isIncluded))
    {}

    /// Another source, or another choice about the pointer, has everything drawn anew.
    void setSource(const PixelRect& source, PointerVisibility pointer);
    /// Frames of the screen take no notice of windows: what is drawn on the screen is told by `addScreenDamage` alone.
    void setContents(FrameContents contents) { contents_ = contents; }
    [[nodiscard]] FrameContents contents() const { return contents_; }
    /// Whether frames of windows are copied from the screen, but where it may show windows that are left out: there,
    /// below the mask, goes what was seen last, and what windows there tell of. Everything is drawn anew.
    void setMasked(bool isMasked);
    [[nodiscard]] bool isMasked() const { return isMasked_; }
    /// The screen may show anything for that long. No frame is drawn meanwhile, and the next one is drawn whole.
    void freeze(Clock::time_point now, const HeldPlaces::Hold& hold);
    /// The window manager hides `window`, or shows it again. Until it is there or gone, a compositing manager may show
    /// it anywhere: some slide a whole workspace across the screen.
    void addHiding(const CapturedWindow& window, Clock::time_point now);
    [[nodiscard]] bool isFrozen() const { return freeze_.nextRelease().has_value(); }
    /// When a place or the whole picture may be let go of next; absent while nothing is held. Past where a proof is
    /// waited for.
    [[nodiscard]] std::optional<Clock::time_point> nextRelease() const;
    /// Until when the screen has to be proven, at `now`, to show all that was heard of; absent where nothing waits for
    /// that.
    [[nodiscard]] std::optional<Clock::time_point> requiredProof(Clock::time_point now) const;
    [[nodiscard]] ScreenMask& mask() { return mask_; }
    [[nodiscard]] const ScreenMask& mask() const { return mask_; }
    /// Finds out what of the screen is not to be in a frame, which is the mask of frames that are copied from it, when
    /// the compositing manager has got that far. `marks` is where the proof itself may be on the screen. To be called
    /// before a frame is drawn and after a round trip behind that.
    void updateMask(const WindowList& windows, const PixelRegion& marks, Clock::time_point now,
                    const HeldPlaces::Progress& progress);
    /// What windows of the frame show of others that are left out.
    [[nodiscard]] const UnpaintedMemory& unpainted() const { return unpainted_; }
    [[nodiscard]] bool showsPointer() const { return pointer_ == PointerVisibility::shown; }

    void addAll() { dirty_ = PixelRegion(source_); }
    void add(const PixelRegion& region);
    /// `damage` is what changed in one window of the list.
    void addDamage(const WindowList& windows, const CapturedWindow& window, const PixelRegion& damage,
                   Compositing compositing);
    /// `damage` is what was drawn on the root itself, where it is bare.
    void addRootDamage(const WindowList& windows, const PixelRegion& damage);
    /// The background behind all windows is another one.
    void addBackground();
    /// `window` came, went or changed its place or shape: everything where it is now. Of one that nobody has looked at
    /// yet only its memory counts, and where it was when it has vanished: it may have been to be left out.
    void addWindow(const CapturedWindow& window, WindowChange change, Clock::time_point now);
    /// The screen was drawn on there, for a stream that is copied from it.
    void addScreenDamage(const PixelRegion& damage);
    [[nodiscard]] const PixelRect& source() const { return source_; }
    /// Whether a pointer that covers `coverage` is in the stream's frames.
    [[nodiscard]] bool containsPointer(const PixelRect& coverage) const
    {
        return showsPointer() && coverage.intersects(source_);
    }
    /// By how many pixels along an axis it has to move to be in them; absent where the pointer is not shown.
    [[nodiscard]] std::optional<int> pointerDistance(const PixelRect& coverage) const;
    /// Whether it may be in them within a moment, so fast as a hand can move it.
    [[nodiscard]] bool isPointerNear(const PixelRect& coverage) const;
    /// The pointer covers `coverage` from now on.
    void movePointer(const PixelRect& coverage);
    [[nodiscard]] const PixelRect& pointerCoverage() const { return pointerCoverage_; }

    /// Whether damage of the window can be seen in the source. Damage that cannot is best left with the server, which
    /// then reports no more of it; what uncovers the window later has its place drawn anew.
    [[nodiscard]] bool isVisible(const WindowList& windows, const CapturedWindow& window,
                                 Compositing compositing) const;

    /// The server tells of damage in `area` of a window, and there may be more by now.
    void expectDamage(const WindowList& windows, const CapturedWindow& window, const PixelRegion& area,
                      Compositing compositing);
    /// The server tells of damage in `area` of the screen, for a stream that is copied from it, and will tell of any in
    /// another.
    void expectScreenDamage(const PixelRegion& area);
    /// Something happened that may show in the source.
    void expectChange();
    /// The server has answered all that it was to be asked.
    void clearExpectation() { expectation_ = ChangeExpectation::none; }
    [[nodiscard]] ChangeExpectation expectation() const
    {
        return isEmpty() ? expectation_ : ChangeExpectation::certain;
    }

    [[nodiscard]] bool isEmpty() const { return dirty_.isEmpty(); }
    /// What is to be drawn, in `maximumRectangles` at the most, and nothing is from then on.
    [[nodiscard]] PixelRegion take();

    /// Past this many rectangles their bounding box is cheaper than the requests for each.
    static constexpr int maximumRectangles = 24;

private:
    [[nodiscard]] bool isIncluded(const CapturedWindow& window) const
    {
        return contents_ == FrameContents::windows && isIncluded_(window);
    }
    /// The part of the region, which lies in the window, that can be seen in the source.
    [[nodiscard]] PixelRegion visiblePart(PixelRegion region, const WindowList& windows, const CapturedWindow& window,
                                          Compositing compositing) const;

    void updateLeftOut(const WindowList& windows);
    void holdMarks(const PixelRegion& current, const PixelRegion& marks, Clock::time_point now);
    void followMemory(const CapturedWindow& window, WindowChange change, Clock::time_point now);
    void followLeftOut(const CapturedWindow& window, WindowChange change, Clock::time_point now);
    /// What frames have shown in the region so far is not to be shown any more.
    void leaveOut(const PixelRegion& region);
    void noteWindowChange(const PixelRegion& region);
    /// The mask was there before.
    void followGrowth(const PixelRegion& before);
    /// The part of the region that windows tell of, and not the screen.
    [[nodiscard]] PixelRegion toldByWindows(PixelRegion region) const;

    std::function<bool(const CapturedWindow&)> isIncluded_;
    PixelRect source_;
    PointerVisibility pointer_ = PointerVisibility::shown;
    FrameContents contents_ = FrameContents::windows;
    bool isMasked_ = false;
    ScreenMask mask_;
    /// Where the screen may have shown windows that are left out since the mask was updated last, masked or not.
    PixelRegion leftOut_;
    UnpaintedMemory unpainted_;
    /// What windows have drawn beside the mask, and the screen has not told of yet.
    PixelRegion awaited_;
    /// What is left out but covered, once the screen shows the cover.
    PixelRegion covered_;
    /// The proof's marks beside all that is left out for another reason.
    PixelRegion bareMarks_;
    /// Of no place: that of the picture is all.
    HeldPlaces freeze_;
    PixelRegion dirty_;
    ChangeExpectation expectation_ = ChangeExpectation::none;
    /// Where the pointer was drawn last.
    PixelRect pointerCoverage_;
};

/// What of the damage lies on the root itself: all drawing in windows is damage of the root as well.
[[nodiscard]] PixelRegion bareRootDamage(const WindowList& windows, PixelRegion damage);

} // namespace nimbrale::x11
