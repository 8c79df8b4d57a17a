#pragma once

#include "platform/platform.h"

#include <functional>
#include <memory>
#include <vector>

namespace nimbrale {

/// What becomes of a capture that could not start: the user is asked, and a display that comes meanwhile answers in the
/// user's place. While there is no display that only the user sees, nobody could read a question, and the next display
/// is waited for. Main thread only.
class CaptureFailure {
public:
    /// `platform` must outlive it.
    explicit CaptureFailure(Platform& platform);
    ~CaptureFailure();
    CaptureFailure(const CaptureFailure&) = delete;
    CaptureFailure& operator=(const CaptureFailure&) = delete;

    /// The capture is to be tried again, with what there is now.
    std::function<void()> onRetry;

    void tell(const Error& error);
    /// Call when the displays have changed and settled.
    void displaysDidChange();
    /// The user started the application once more. A capture that the user was sent away for to permit it is tried
    /// again: there may be no frame yet whose button could quit the application.
    void applicationWasReopened();
    /// Whether an answer is awaited.
    [[nodiscard]] bool isOpen() const { return isOpen_; }

private:
    [[nodiscard]] std::vector<DisplayID> usersDisplays() const;
    void answerPermissionAlert(int button);
    void answerStartAlert(int button);
    void retry();
    void close();

    Platform& platform_;
    bool isOpen_ = false;
    bool isPermissionAwaited_ = false;
    std::unique_ptr<OpenQuestion> alert_;
    /// Those that were there all the time since the failure.
    std::vector<DisplayID> knownDisplays_;
};

} // namespace nimbrale
