#pragma once

#include "tests/support/application.h"
#include "tests/support/image_compare.h"
#include "tests/support/private_pipewire.h"
#include "tests/support/requirements.h"
#include "tests/support/scene.h"

#include <QColor>
#include <QImage>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <ostream>
#include <string>

namespace nimbrale::test {

struct WebcamSurroundings {
    std::string name;
    PrivateDesktop::WindowManager manager = PrivateDesktop::WindowManager::openbox;
    PrivateDesktop::Compositor compositor = PrivateDesktop::Compositor::none;
    int scale = 1;

    friend std::ostream& operator<<(std::ostream& stream, const WebcamSurroundings& surroundings)
    {
        return stream << surroundings.name;
    }
};

/// The real application with a camera on a PipeWire of its own, on a desktop of one color. Places are in points.
class WebcamJourney : public testing::Test {
protected:
    static inline const QColor wall{22, 110, 40};
    static constexpr QRect region{200, 100, 600, 400};
    static constexpr QPoint farAway{1200, 680};

    /// The camera shows `picture`, without loss and in its size.
    void prepare(const WebcamSurroundings& surroundings, const QImage& picture)
    {
        if (const std::string missing = PrivatePipewire::missing(); !missing.empty())
            skipTest(missing);
        surroundings_ = surroundings;
        std::string reason;
        pipewire = PrivatePipewire::start(reason);
        if (!pipewire)
            failTest(reason);
        ASSERT_TRUE(picture.save(folder_.filePath("picture.png")));
        VirtualCamera::Options options;
        options.formats = {"BGRx:" + std::to_string(picture.width()) + "x" + std::to_string(picture.height()) + "@30"};
        options.picture = folder_.filePath("picture.png").toStdString();
        camera = VirtualCamera::start(*pipewire, options, reason);
        if (!camera)
            failTest(reason);
        desktop = requireDesktop({.width = 1280 * scale(),
                                  .height = 720 * scale(),
                                  .dotsPerInch = 96 * scale(),
                                  .windowManager = surroundings.manager,
                                  .compositor = surroundings.compositor});
        scene = requireScene(*desktop);
        scene->add("wall", {.geometry = {0, 0, 1280 * scale(), 720 * scale()},
                            .seed = 0,
                            .color = wall,
                            .type = Scene::Type::desktop,
                            .overrideRedirect = false});
        desktop->movePointer(pixels(farAway));
    }

    void start(const std::map<std::string, std::string>& settings = {})
    {
        std::map<std::string, std::string> all{{"webcamEnabled", "true"}};
        all.insert(settings.begin(), settings.end());
        application = requireApplication(*desktop, {.region = region, .others = all},
                                         {{"PIPEWIRE_RUNTIME_DIR", pipewire->runtimeFolder()}});
        ASSERT_TRUE(application->waitForVirtualDisplay(region.size() * scale())) << application->process().output();
    }

    [[nodiscard]] int scale() const { return surroundings_.scale; }
    [[nodiscard]] QPoint pixels(QPoint points) const { return points * scale(); }
    /// Of the user's screen, at a place from the region's corner.
    [[nodiscard]] QColor onScreen(QPoint place) const
    {
        const QPoint at = pixels(region.topLeft() + place);
        return desktop->pixel(at.x(), at.y());
    }
    /// Of what others get, at such a place.
    [[nodiscard]] QColor shared(QPoint place) const
    {
        const QPoint at = desktop->monitorNamed("Nimbrale")->geometry.topLeft() + pixels(place);
        return desktop->pixel(at.x(), at.y());
    }
    [[nodiscard]] bool bothShow(QPoint place, const QColor& color, Milliseconds patience = Milliseconds{8000}) const
    {
        return waitUntil([&] { return onScreen(place) == color && shared(place) == color; }, patience);
    }
    /// For messages.
    [[nodiscard]] std::string picture() const { return keepImage(desktop->screenshot(), "desktop"); }

    std::unique_ptr<PrivatePipewire> pipewire;
    std::unique_ptr<VirtualCamera> camera;
    std::unique_ptr<PrivateDesktop> desktop;
    std::unique_ptr<Scene> scene;
    std::unique_ptr<Application> application;

private:
    WebcamSurroundings surroundings_;
    QTemporaryDir folder_;
};

} // namespace nimbrale::test
