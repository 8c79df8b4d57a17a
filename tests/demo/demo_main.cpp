// nimbrale_demo: Nimbrale at work where there is no display. A private desktop with windows that move, the application
// on it, and a browser in a call with itself that shares the virtual display; pictures of the desktop and of what the
// far side receives are kept until Ctrl-C.

#include "tests/support/application.h"
#include "tests/support/browser_call.h"
#include "tests/support/private_desktop.h"
#include "tests/support/scene.h"

#include <atomic>
#include <csignal>
#include <iostream>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace nimbrale::test {

namespace {

std::atomic<bool> isAskedToStop = false;

constexpr Milliseconds betweenPictures{3000};
constexpr QRect framedRegion(120, 120, 800, 520);
constexpr int steps = 40;

/// A port on loopback that nobody has now.
int freePort()
{
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof local;
    int port = -1;
    if (bind(listener, reinterpret_cast<sockaddr*>(&local), sizeof local) == 0 &&
        getsockname(listener, reinterpret_cast<sockaddr*>(&local), &length) == 0)
        port = ntohs(local.sin_port);
    close(listener);
    return port;
}

bool wait(Milliseconds duration)
{
    return !waitUntil([] { return isAskedToStop.load(); }, duration, Milliseconds{50});
}

void keep(const QImage& picture, const std::filesystem::path& file)
{
    // Under another name first, so that a viewer never meets half a picture.
    const std::filesystem::path unfinished = file.string() + ".part";
    if (picture.save(QString::fromStdString(unfinished.string()), "PNG"))
        std::filesystem::rename(unfinished, file);
}

class Demonstration {
public:
    int run()
    {
        std::string reason;
        const int port = freePort();
        desktop_ = PrivateDesktop::start(
            {.width = 1600, .height = 900, .windowManager = PrivateDesktop::WindowManager::openbox, .vncPort = port},
            reason);
        if (!desktop_ || !furnish(reason))
            return failed(reason);
        if (!startSharing(reason))
            return failed(reason);
        pictures_ = buildFolder() / "demonstration";
        std::filesystem::create_directories(pictures_);
        std::cout << "Nimbrale is sharing part of a private desktop.\n"
                     "  Look live:  a VNC viewer at 127.0.0.1:"
                  << port << " (port " << port
                  << ", no password, this computer only)\n  Pictures:   " << (pictures_ / "desktop.png").string()
                  << "\n              " << (pictures_ / "far-side.png").string()
                  << ", what the far side of the call receives\n"
                  << "Ctrl-C ends it." << std::endl;
        return showUntilStopped();
    }

private:
    static int failed(const std::string& reason)
    {
        std::cerr << "The demonstration cannot run: " << reason << '\n';
        return 1;
    }

    bool furnish(std::string& reason)
    {
        scene_ = Scene::start(*desktop_);
        if (!scene_) {
            reason = "the windows to share do not start";
            return false;
        }
        Scene::Window wall{.geometry = {0, 0, 1600, 900}, .seed = 0, .color = QColor(45, 62, 80)};
        wall.type = Scene::Type::desktop;
        wall.overrideRedirect = false;
        scene_->add("wall", wall);
        scene_->add("Notes", {.geometry = {180, 190, 330, 260}, .seed = 3, .overrideRedirect = false});
        moving_.push_back(
            desktop_->spawn("nimbrale_animation", {"scroll", "560", "200", "300", "220", "20", "0", "managed"}));
        moving_.push_back(
            desktop_->spawn("nimbrale_animation", {"blink", "560", "480", "120", "100", "4", "0", "managed"}));
        return true;
    }

    bool startSharing(std::string& reason)
    {
        application_ = Application::start(*desktop_, {.region = framedRegion, .framesPerSecond = 30}, reason);
        if (!application_)
            return false;
        if (!application_->waitForVirtualDisplay(framedRegion.size())) {
            reason = "there is no virtual display; the application says: " + application_->process().output();
            return false;
        }
        call_ = BrowserCall::start(*desktop_, {.window = {1010, 300, 560, 400}}, reason);
        if (!call_)
            return false;
        if (!call_->share()) {
            reason = "the browser does not share: " + call_->failure();
            return false;
        }
        return true;
    }

    /// Moves the frame to and fro, as a user would, and keeps pictures.
    int showUntilStopped()
    {
        QRect place = framedRegion;
        for (int round = 0;; ++round) {
            if (!wait(betweenPictures))
                return 0;
            keep(desktop_->screenshot(), pictures_ / "desktop.png");
            keep(call_->receivedImage(), pictures_ / "far-side.png");
            if (!application_->process().isRunning())
                return failed("the application has ended: " + application_->process().output());
            if (round % 3 != 2)
                continue;
            const QRect next = place == framedRegion ? framedRegion.translated(60, 90) : framedRegion;
            const QPoint handle = Application::handleOf(place);
            desktop_->drag(handle, handle + next.topLeft() - place.topLeft(), steps);
            place = next;
        }
    }

    std::unique_ptr<PrivateDesktop> desktop_;
    std::unique_ptr<Scene> scene_;
    std::vector<std::unique_ptr<Process>> moving_;
    std::unique_ptr<Application> application_;
    std::unique_ptr<BrowserCall> call_;
    std::filesystem::path pictures_;
};

} // namespace

} // namespace nimbrale::test

int main()
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        std::signal(number, [](int) { nimbrale::test::isAskedToStop = true; });
    return nimbrale::test::Demonstration().run();
}
