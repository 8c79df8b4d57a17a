#pragma once

#include "benchmarks/cost.h"
#include "tests/support/application.h"
#include "tests/support/private_pipewire.h"
#include "tests/support/scene.h"

#include <QColor>

#include <map>
#include <memory>
#include <string>

namespace nimbrale::benchmarks {

/// The real application on a still screen of 1080p, all of which it shares, with a camera of 1280 × 720 pixels and 30
/// pictures a second.
class WebcamDesktop {
public:
    /// The webcam in the shared region, in its pixels.
    static constexpr QRect box{1584, 884, 320, 180};

    /// The camera shows stripes that move. Throws Failure where something is missing or does not start.
    explicit WebcamDesktop(const std::map<std::string, std::string>& settings);

    /// Opens Settings on its tab for the webcam, where that is the stored one. Throws Failure when it does not open.
    void openSettings();
    /// Switches the webcam on or off in Settings, by the pointer.
    void toggle();
    [[nodiscard]] test::PrivateDesktop& desktop() { return *desktop_; }
    [[nodiscard]] test::VirtualCamera& camera() { return *camera_; }
    [[nodiscard]] Shower shower();
    /// In the middle of the webcam's place, as others see it.
    [[nodiscard]] QColor sharedColor() const;
    /// Waits until others see the webcam. Throws Failure when they do not.
    void waitForWebcam() const;

private:
    std::unique_ptr<test::PrivatePipewire> pipewire_;
    std::unique_ptr<test::VirtualCamera> camera_;
    std::unique_ptr<test::PrivateDesktop> desktop_;
    std::unique_ptr<test::Scene> scene_;
    std::unique_ptr<test::Application> application_;
    QRect target_;
};

} // namespace nimbrale::benchmarks
