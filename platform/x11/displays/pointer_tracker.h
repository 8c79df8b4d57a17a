#pragma once

#include "platform/observers.h"
#include "platform/pixel_rect.h"

#include <QObject>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace nimbrale::x11 {

/// Knows the pointer's position, and asks the server for it no more often than it must. Main thread only, but for
/// `didMove`.
class PointerTracker {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    /// The server's answer, in root pixels; absent when there is none.
    using Ask = std::function<std::optional<PixelPoint>()>;

    explicit PointerTracker(Ask ask, std::function<TimePoint()> now = std::chrono::steady_clock::now)
        : askServer_(std::move(ask)), now_(std::move(now))
    {}

    /// In root pixels. While an event's position is held, that one; else as the server says. Where moves are told, it
    /// is asked only after one, or when the last answer is a fifth of a second old: programs can set the position
    /// without anybody being told. Without an answer, the last one stays.
    [[nodiscard]] PixelPoint position();

    /// Tells that the pointer may have moved, and where it is (root pixels) if that is known. From the first call on,
    /// it is taken to rest between calls. Any thread.
    void didMove(std::optional<PixelPoint> position = std::nullopt);
    /// An event came that tells nobody's moves but belongs to one: where moves are told, the last answer counts no
    /// more.
    void mayHaveMoved();
    /// `observer` is called once the pointer moves, after a `position`, into the root pixels that `place` answers,
    /// within them or out of them; other moves may be told or not. Null while nobody tells of moves.
    [[nodiscard]] Subscription observeMoves(std::function<PixelRect()> place, std::function<void()> observer);
    /// The places of those who observe moves are other ones now.
    void placesMoved();

    /// While the answer is kept, `position` is `pixel`: what an event brings about is decided by where it happened,
    /// though the pointer may have gone on. This object must outlive the answer.
    [[nodiscard]] std::shared_ptr<void> hold(PixelPoint pixel);

private:
    struct Answer {
        std::uint64_t moves = 0;
        TimePoint time;
        PixelPoint position;
    };

    /// Where moves concern an observer.
    struct Watch {
        std::function<PixelRect()> place;
        PixelRect pixels;
        /// By what was told last, or because that is not known.
        bool mayHoldPointer = true;
    };

    void ask();
    void takeWhatWasTold();
    [[nodiscard]] bool concernsAnybody(std::optional<PixelPoint> position);

    Ask askServer_;
    std::function<TimePoint()> now_;
    /// Takes what other threads tell to the main thread.
    QObject mainThread_;
    Observers observers_;
    /// 0 while nobody tells of moves.
    std::atomic<std::uint64_t> moves_ = 0;
    /// Whether the next move is to be told to the observers.
    std::atomic<bool> isMoveAwaited_ = false;
    Answer answer_;
    std::mutex toldMutex_;
    /// The last position that came with a move.
    Answer told_;
    std::vector<std::weak_ptr<Watch>> watches_;
    std::optional<PixelPoint> held_;
};

} // namespace nimbrale::x11
