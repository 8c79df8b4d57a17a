#pragma once

#include <chrono>

namespace nimbrale::x11 {

/// Decides when to ask where the pointer is. A fast pointer is a thousand events a second, and each would wake the
/// thread: so after the first one moves are no longer heard, and the position is asked for until it rests. A program
/// can set the position without anybody being told: so it is asked for now and then while it rests, too. Pure: the time
/// is handed in.
class PointerFollower {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::nanoseconds;

    enum class Answer { samePosition, otherPosition };

    /// Whether the server is to tell of moves.
    [[nodiscard]] bool isHearing() const { return state_ != State::following; }
    /// Whether the pointer is taken to be somewhere else than the last answer said.
    [[nodiscard]] bool isMoving() const { return state_ == State::following; }

    /// The server told of a move.
    void heardMove() { state_ = State::following; }
    /// The server was asked at `now`, and answered.
    void gotAnswer(TimePoint now, Answer answer);

    /// When the position is to be asked for at the latest; zero or less when it is time.
    [[nodiscard]] Duration timeToAsk(TimePoint now) const;

    /// Others go by the pointer's moves: this is how late they hear of one at the most.
    static constexpr std::chrono::milliseconds movingInterval{50};
    static constexpr std::chrono::milliseconds restingInterval{200};

private:
    enum class State {
        resting,
        following, ///< not heard, but asked for
        settling   ///< heard again, but it may have moved between the last answer and that
    };

    State state_ = State::resting;
    TimePoint lastAsked_;
};

} // namespace nimbrale::x11
