#include "tests/support/browser_call.h"

#include "tests/support/firefox.h"

#include <gtest/gtest.h>
#include <optional>
#include <unistd.h>
#include <utility>

namespace nimbrale::test {

namespace {

constexpr Milliseconds answerPatience{5000};
constexpr Milliseconds startPatience{30000};
constexpr Milliseconds pointerPatience{10000};
const char* const pageTitle = "Meeting call";
/// The phase of a page that does not answer.
const char* const pageSilent = "silent";

const char* programOf(BrowserCall::Browser browser)
{
    return browser == BrowserCall::Browser::firefox ? firefoxProgram : "chromium";
}

std::vector<std::string> chromiumArguments(const BrowserCall::Options& options, const std::filesystem::path& profile,
                                           const std::string& address)
{
    const QRect& window = options.window;
    std::vector<std::string> arguments{
        "--user-data-dir=" + profile.string(),
        "--auto-select-desktop-capture-source=" + options.source,
        "--window-position=" + std::to_string(window.x()) + "," + std::to_string(window.y()),
        "--window-size=" + std::to_string(window.width()) + "," + std::to_string(window.height()),
        "--ozone-platform=x11",
        "--disable-gpu",
        "--force-device-scale-factor=1",
        // No bar that warns of the flags: it would cover part of the page.
        "--test-type",
        "--no-first-run",
        "--no-default-browser-check",
        "--password-store=basic",
        "--disable-extensions",
        "--disable-dev-shm-usage",
        // The page takes clicks before it has been painted for the first time.
        "--allow-pre-commit-input",
        // The page goes on at full speed wherever its window is.
        "--disable-backgrounding-occluded-windows",
        "--disable-renderer-backgrounding",
        "--disable-background-timer-throttling",
        // The call goes over loopback, and nothing else goes anywhere.
        "--allow-loopback-in-peer-connection",
        "--disable-features=WebRtcHideLocalIpsWithMdns,MediaRouter,OptimizationHints,Translate",
        "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1",
        "--no-proxy-server",
        "--disable-background-networking",
        "--disable-component-update",
        "--disable-domain-reliability",
        "--disable-sync",
        "--no-pings",
        "--enable-logging=stderr",
        "--vmodule=*desktop_capture*=1",
    };
    // The browser's sandbox refuses to run for root; the page that it opens is this test's own.
    if (geteuid() == 0)
        arguments.push_back("--no-sandbox");
    arguments.push_back("--app=" + address);
    return arguments;
}

QJsonObject partToRead(const QRect& part)
{
    return {{"x", part.x()}, {"y", part.y()}, {"width", part.width()}, {"height", part.height()}};
}

BrowserCall::Side sideFrom(const QJsonObject& object)
{
    return {{object["width"].toInt(), object["height"].toInt()}, object["frames"].toInt(), object["changes"].toInt()};
}

BrowserCall::MarkerCount countFrom(const QJsonObject& object)
{
    return {object["looked"].toInt(), object["found"].toInt(), object["unreadable"].toInt()};
}

} // namespace

BrowserCall::BrowserCall(PrivateDesktop& desktop, Options options)
    : desktop_(desktop), options_(std::move(options)), server_(NIMBRALE_CALL_PAGE)
{}

BrowserCall::~BrowserCall() = default;

std::string BrowserCall::missing(Browser browser)
{
    const std::string program = programOf(browser);
    return findProgram(program).empty() ? program + " is not installed" : std::string();
}

std::unique_ptr<BrowserCall> BrowserCall::start(PrivateDesktop& desktop, const Options& options, std::string& reason)
{
    reason = missing(options.browser);
    if (!reason.empty())
        return nullptr;
    std::unique_ptr<BrowserCall> call(new BrowserCall(desktop, options));
    if (call->server_.address().empty()) {
        reason = "the call's page cannot be served";
        ADD_FAILURE() << reason;
        return nullptr;
    }
    const std::filesystem::path profile = desktop.folder() / ("browser-" + std::to_string(getpid()));
    std::filesystem::remove_all(profile);
    const std::string& address = call->server_.address();
    call->browser_ = desktop.spawn(programOf(options.browser), options.browser == Browser::firefox
                                                                   ? firefoxArguments(options.window, profile, address)
                                                                   : chromiumArguments(options, profile, address));
    if (!call->browser_) {
        reason = "the browser does not start";
        ADD_FAILURE() << reason;
        return nullptr;
    }
    if (options.browser == Browser::firefox) {
        call->control_ = Marionette::connect(profile, startPatience);
        if (!call->control_ || !placeFirefox(*call->control_, options.window)) {
            reason = "the browser cannot be controlled: " + call->browserOutput();
            ADD_FAILURE() << reason;
            return nullptr;
        }
    }
    // A page that does not come is for `share` to report.
    static_cast<void>(waitUntil(
        [&] {
            return !call->browser_->isRunning() || (call->state().phase == "idle" && desktop.windowTitled(pageTitle));
        },
        startPatience));
    return call;
}

bool BrowserCall::share(Milliseconds timeout)
{
    if (!bringPointerOverButton())
        return false;
    desktop_.pressButton();
    desktop_.releaseButton();
    if (control_) {
        failure_ = chooseInFirefox(*control_, options_.source, timeout);
        if (!failure_.empty())
            return false;
    }
    State last;
    const bool isShared = waitUntil(
        [&] {
            last = state();
            return last.phase == "failed" || (last.phase == "sharing" && last.received.frames > 0);
        },
        timeout);
    failure_ = "phase " + last.phase + " " + last.failure;
    return isShared && last.phase == "sharing";
}

// Once the page has noticed the pointer, what the pointer does reaches it: a click that is lost from then on is lost to
// something that covers the page, which is for the test to find.
bool BrowserCall::bringPointerOverButton()
{
    std::optional<QRect> window;
    const bool isOver = waitUntil(
        [&] {
            const std::optional<QRect> before = std::exchange(window, desktop_.windowTitled(pageTitle));
            // A window manager may still be moving the window.
            if (!window || window != before)
                return false;
            if (desktop_.pointerPosition() != window->center())
                desktop_.movePointer(window->center());
            return state().isPointerOverButton;
        },
        pointerPatience, Milliseconds{50});
    if (!window)
        failure_ = "the browser shows no window with the call's page: " + browserOutput();
    else if (!isOver)
        failure_ = "the pointer does not reach the page";
    return isOver;
}

BrowserCall::State BrowserCall::state()
{
    const std::optional<QJsonObject> answer = server_.ask("state", {}, answerPatience);
    if (!answer)
        return {.phase = pageSilent};
    const QJsonObject& object = *answer;
    return {.phase = object["phase"].toString().toStdString(),
            .failure = object["failure"].toString().toStdString(),
            .isPointerOverButton = object["isPointerOverButton"].toBool(),
            .surface = object["surface"].toString().toStdString(),
            .isLive = object["isLive"].toBool(),
            .settingsSize = {object["settingsWidth"].toInt(), object["settingsHeight"].toInt()},
            .shared = sideFrom(object["shared"].toObject()),
            .received = sideFrom(object["received"].toObject())};
}

void BrowserCall::stopSharing()
{
    static_cast<void>(server_.ask("stopSharing", {}, answerPatience));
}

QImage BrowserCall::trackImage(const QRect& part)
{
    return server_.askForPicture("sharedPicture", partToRead(part), answerPatience);
}

QImage BrowserCall::receivedImage(const QRect& part)
{
    return server_.askForPicture("receivedPicture", partToRead(part), answerPatience);
}

bool BrowserCall::waitForTrackSize(QSize size, Milliseconds timeout)
{
    return waitUntil([&] { return trackSize() == size; }, timeout);
}

bool BrowserCall::waitForFramesReceived(int more, Milliseconds timeout)
{
    const State before = state();
    if (before.phase == pageSilent)
        return false;
    return waitUntil([&] { return state().received.frames >= before.received.frames + more; }, timeout);
}

bool BrowserCall::waitForChangesReceived(int more, Milliseconds timeout)
{
    const State before = state();
    if (before.phase == pageSilent)
        return false;
    return waitUntil([&] { return state().received.changes >= before.received.changes + more; }, timeout);
}

void BrowserCall::watchForMarker()
{
    static_cast<void>(server_.ask("watchForMarker", {}, answerPatience));
}

BrowserCall::MarkerReport BrowserCall::markerReport()
{
    const QJsonObject answer = server_.ask("markerReport", {}, answerPatience).value_or(QJsonObject());
    return {countFrom(answer["shared"].toObject()), countFrom(answer["received"].toObject())};
}

QImage BrowserCall::markerImage()
{
    return server_.askForPicture("markerPicture", {}, answerPatience);
}

} // namespace nimbrale::test
