#pragma once

#include <functional>
#include <vector>

namespace nimbrale {

/// What the application answers to the question whether it may quit.
enum class TerminateReply {
    now,
    cancel, ///< it goes on
    later   ///< it is at work on something that must be finished first, and says when it is
};

/// The one way to quit: whoever wants the application to end asks here, and the application is asked once, however
/// many want it. Plain rules, without any system. Main thread only.
class Termination {
public:
    using Answer = std::function<void(bool isGranted)>;

    /// Asked when somebody wants the application to quit; while unset, it may. The answer `later` is followed by a call
    /// of `reply`, which may even come before the answer.
    std::function<TerminateReply()> onShouldTerminate;

    /// Asks whether the application may quit; `then` gets the answer, within this call or after a `reply`. Who asks
    /// while an answer is awaited gets that one too, and the application is not asked again.
    void ask(Answer then);
    /// The answer that was promised with `later`. Without effect when none is awaited.
    void reply(bool isGranted);

    /// Whether an answer is awaited.
    [[nodiscard]] bool isWaiting() const { return !waiting_.empty(); }

private:
    void answerAll(bool isGranted);

    std::vector<Answer> waiting_;
};

} // namespace nimbrale
