#include "benchmarks/webcam_desktop.h"

#include "benchmarks/desktop.h"
#include "benchmarks/measure.h"

#include <optional>

namespace nimbrale::benchmarks {

namespace {

const QColor wall(40, 60, 80);
constexpr test::Milliseconds patience{10000};

} // namespace

WebcamDesktop::WebcamDesktop(const std::map<std::string, std::string>& settings)
{
    std::string reason = test::PrivatePipewire::missing();
    if (!reason.empty())
        throw Failure(reason);
    pipewire_ = test::PrivatePipewire::start(reason);
    if (!pipewire_)
        throw Failure(reason);
    camera_ = test::VirtualCamera::start(*pipewire_, {.formats = {"YUY2:1280x720@30"}}, reason);
    if (!camera_)
        throw Failure(reason);
    desktop_ = startDesktop(fullHd);
    scene_ = test::Scene::start(*desktop_);
    if (!scene_)
        throw Failure("the still window does not show");
    scene_->add("wall", {.geometry = QRect(QPoint(), fullHd), .seed = 0, .color = wall});
    desktop_->movePointer({300, 300});
    application_ = test::Application::start(
        *desktop_, {.region = QRect(QPoint(), fullHd), .framesPerSecond = 30, .others = settings}, reason,
        {{"PIPEWIRE_RUNTIME_DIR", pipewire_->runtimeFolder()}});
    if (!application_)
        throw Failure(reason);
    if (!application_->waitForVirtualDisplay(fullHd))
        throw Failure("the region is not shown: " + application_->process().output());
    target_ = desktop_->monitorNamed("Nimbrale")->geometry;
    if (!desktop_->waitForPixel(target_.x() + 10, target_.y() + 10, wall, patience))
        throw Failure("the region is not shown: " + application_->process().output());
}

// A second start shows the window and ends.
void WebcamDesktop::openSettings()
{
    std::string reason;
    const auto second = test::Application::startAgain(*desktop_, reason);
    if (!second || second->process().waitForEnd(patience) != 0)
        throw Failure("Settings cannot be opened: " + reason);
    if (!test::waitUntil([&] { return desktop_->windowTitled("Settings").has_value(); }, patience))
        throw Failure("Settings does not open");
    test::sleepFor(test::Milliseconds{1000});
}

void WebcamDesktop::toggle()
{
    const std::optional<QRect> window = desktop_->windowTitled("Settings");
    if (!window)
        throw Failure("Settings is not open");
    // The first control of the tab.
    desktop_->click(window->topLeft() + QPoint(20, 64));
}

Shower WebcamDesktop::shower()
{
    return {application_->process().pid(), windowAt(*desktop_, target_.center())};
}

QColor WebcamDesktop::sharedColor() const
{
    const QPoint place = target_.topLeft() + box.center();
    return desktop_->pixel(place.x(), place.y());
}

void WebcamDesktop::waitForWebcam() const
{
    const auto isShown = [&] {
        const QColor color = sharedColor();
        return color != wall && color != QColor(Qt::black);
    };
    if (!test::waitUntil(isShown, patience))
        throw Failure("the webcam is not shared: " + application_->process().output());
}

} // namespace nimbrale::benchmarks
