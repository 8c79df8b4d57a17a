#include "app/capture_failure.h"

#include "app/alerts.h"
#include "platform/log.h"
#include "share/virtual_display.h"

#include <algorithm>

namespace nimbrale {

namespace {

constexpr const char* screenCapturePrivacyLocation =
    "x-apple.systempreferences:com.apple.preference.security?Privacy_ScreenCapture";

} // namespace

CaptureFailure::CaptureFailure(Platform& platform) : platform_(platform) {}

CaptureFailure::~CaptureFailure() = default;

void CaptureFailure::tell(const Error& error)
{
    isOpen_ = true;
    knownDisplays_ = usersDisplays();
    if (knownDisplays_.empty())
        return;
    if (error.code == ErrorCode::captureDeclined)
        alert_ = platform_.workspace().showAlert(alerts::capturePermissionNeeded(),
                                                 [this](int button) { answerPermissionAlert(button); });
    else
        alert_ = platform_.workspace().showAlert(alerts::captureCouldNotStart(error),
                                                 [this](int button) { answerStartAlert(button); });
}

void CaptureFailure::displaysDidChange()
{
    if (!isOpen_)
        return;
    const std::vector<DisplayID> displays = usersDisplays();
    const auto isKnown = [this](DisplayID display) { return std::ranges::count(knownDisplays_, display) != 0; };
    if (!std::ranges::all_of(displays, isKnown)) {
        retry();
        return;
    }
    knownDisplays_ = displays;
}

void CaptureFailure::applicationWasReopened()
{
    if (isPermissionAwaited_)
        retry();
}

std::vector<DisplayID> CaptureFailure::usersDisplays() const
{
    std::vector<DisplayID> displays;
    for (const Screen& screen : platform_.screens().screens()) {
        if (screen.displayID != VirtualDisplay::currentDisplayID())
            displays.push_back(screen.displayID);
    }
    return displays;
}

// Where nothing opens the location, the alert's words say what there is to do, and asking again would change nothing.
void CaptureFailure::answerPermissionAlert(int button)
{
    close();
    if (button != alerts::openSystemSettingsButton) {
        platform_.workspace().terminate();
        return;
    }
    isPermissionAwaited_ = true;
    if (!platform_.workspace().openLocation(screenCapturePrivacyLocation))
        qCInfo(captureLog, "Nothing on this desktop opens the settings for screen capture");
}

void CaptureFailure::answerStartAlert(int button)
{
    if (button == alerts::tryAgainButton) {
        retry();
        return;
    }
    close();
    platform_.workspace().terminate();
}

void CaptureFailure::retry()
{
    close();
    if (onRetry)
        onRetry();
}

void CaptureFailure::close()
{
    isOpen_ = false;
    isPermissionAwaited_ = false;
    alert_.reset();
}

} // namespace nimbrale
