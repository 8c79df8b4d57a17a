#pragma once

#include <chrono>
#include <optional>

namespace nimbrale::x11 {

/// Decides when to ask where the pointer is. A fast pointer is a thousand events a second, and each would wake the
/// thread: so after the first one moves are no longer heard, and the position is asked for until it rests. A program
/// can set the position, which no event tells: so it is asked for now and then while it rests, too, unless the server
/// tells when anything at all happens to the pointer (`PointerRestAlarm`). Pure: the time is handed in.
class PointerFollower {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::nanoseconds;

    enum class Answer { samePosition, otherPosition };

    /// Whether the server will tell that the position is not what it answered any more, whoever changes it.
    enum class NextChange { mayBeUntold, isTold };

    /// Whether the server is to tell of moves.
    [[nodiscard]] bool isHearing() const { return state_ != State::following; }
    /// Whether the pointer is taken to be somewhere else than the last answer said.
    [[nodiscard]] bool isMoving() const { return state_ == State::following; }

    /// How far the pointer is, in pixels, from the nearest place that shows it.
    void setDistance(int pixels);
    /// The server told of a move.
    void heardMove() { state_ = State::following; }
    /// The server told that something happened to the pointer, which says nothing of further moves.
    void heardChange();
    /// The server was asked at `now`, and answered.
    void gotAnswer(TimePoint now, Answer answer, NextChange nextChange);

    /// When the position is to be asked for at the latest; zero or less when it is time, absent while it rests and its
    /// next change is told.
    [[nodiscard]] std::optional<Duration> timeToAsk(TimePoint now) const;
    [[nodiscard]] bool isDue(TimePoint now) const;
    /// Whether the last answer still counts, so that nobody need ask again.
    [[nodiscard]] bool isAnswerFresh(TimePoint now) const { return now - lastAsked_ < freshTime; }

    /// Nearer than that, in pixels, it may come to where it is shown at any moment.
    static constexpr int nearDistance = 64;
    static constexpr std::chrono::milliseconds nearInterval{50};
    /// How long a quick hand takes for 160 pixels. From farther away it is asked for that much later, so that what a
    /// hand brings is noticed as soon as what was near.
    static constexpr std::chrono::milliseconds handTime{50};
    static constexpr int handDistance = 160;
    /// A program or a tablet brings it there from anywhere: this is how late that is noticed at the most.
    static constexpr std::chrono::milliseconds farInterval{150};
    static constexpr std::chrono::milliseconds restingInterval{200};
    /// A mouse tells of its place 60 times a second or more often: who found another place cannot tell any sooner
    /// whether the pointer rests there.
    static constexpr std::chrono::milliseconds shortestRest{20};
    static constexpr std::chrono::milliseconds freshTime{5};

private:
    enum class State {
        resting,
        following, ///< not heard, but asked for
        settling   ///< heard again, but it may have moved between the last answer and that
    };

    State state_ = State::resting;
    NextChange nextChange_ = NextChange::mayBeUntold;
    /// Long ago where the next question is due at once.
    TimePoint lastAsked_;
    TimePoint lastMoved_;
    Duration movingInterval_ = nearInterval;
};

} // namespace nimbrale::x11
