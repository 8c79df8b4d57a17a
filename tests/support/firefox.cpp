#include "tests/support/firefox.h"

#include <fstream>

namespace nimbrale::test {

namespace {

/// Whatever is for another computer goes to a port of this one where nobody listens.
const char* const preferences = R"(
user_pref("network.proxy.type", 1);
user_pref("network.proxy.http", "127.0.0.1");
user_pref("network.proxy.http_port", 9);
user_pref("network.proxy.ssl", "127.0.0.1");
user_pref("network.proxy.ssl_port", 9);
user_pref("network.captive-portal-service.enabled", false);
user_pref("network.connectivity-service.enabled", false);
user_pref("app.update.enabled", false);
user_pref("datareporting.policy.dataSubmissionEnabled", false);
user_pref("browser.aboutwelcome.enabled", false);
user_pref("browser.shell.checkDefaultBrowser", false);
user_pref("browser.tabs.inTitlebar", 0);
user_pref("trailhead.firstrun.didSeeAboutWelcome", true);
user_pref("termsofuse.bypassNotification", true);
user_pref("marionette.port", 0);
user_pref("security.notification_enable_delay", 0);
user_pref("media.peerconnection.ice.loopback", true);
user_pref("media.peerconnection.ice.obfuscate_host_addresses", false);
)";

const char* const place = R"(
const browser = Services.wm.getMostRecentWindow("navigator:browser");
browser.resizeTo(arguments[2], arguments[3]);
browser.moveTo(arguments[0], arguments[1]);
)";

/// Done when the picker is open and lists the source; says what it lists otherwise.
const char* const choose = R"(
const browser = Services.wm.getMostRecentWindow("navigator:browser");
const question = browser.PopupNotifications.getNotification("webRTC-shareDevices", browser.gBrowser.selectedBrowser);
const list = browser.document.getElementById("webRTC-selectWindow-menulist");
if (!question || !list) return "the browser does not ask";
const items = [...list.menupopup.children].filter(item => item.localName == "menuitem");
const chosen = items.find(item => item.label == arguments[0]);
if (!chosen) return "the browser lists " + items.map(item => item.label).join(", ");
list.selectedItem = chosen;
chosen.doCommand();
browser.document.getElementById("webRTC-shareDevices-notification").button.click();
return "";
)";

} // namespace

std::vector<std::string> firefoxArguments(const QRect& window, const std::filesystem::path& profile,
                                          const std::string& address)
{
    std::filesystem::create_directories(profile);
    std::ofstream(profile / "user.js") << preferences;
    return {"--profile",    profile.string(),
            "--no-remote",  "--new-instance",
            "--marionette", "--remote-allow-system-access",
            "--width",      std::to_string(window.width()),
            "--height",     std::to_string(window.height()),
            address};
}

bool placeFirefox(Marionette& browser, const QRect& window)
{
    return browser.run(place, {window.x(), window.y(), window.width(), window.height()}).has_value();
}

std::string chooseInFirefox(Marionette& browser, const std::string& source, Milliseconds timeout)
{
    std::string problem;
    const bool isChosen = waitUntil(
        [&] {
            const auto answer = browser.run(choose, {QString::fromStdString(source)});
            problem = answer ? answer->toString().toStdString() : browser.failure();
            return problem.empty();
        },
        timeout, Milliseconds{100});
    return isChosen ? std::string() : problem;
}

} // namespace nimbrale::test
