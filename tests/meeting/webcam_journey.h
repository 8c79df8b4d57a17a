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
    double scale = 1;
    PrivateDesktop::Server server = PrivateDesktop::Server::xvnc;

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
    static constexpr QSize displaySize{1280, 720};

    /// The camera shows `picture`, and `sliding` in front of it, as of `plugIn`.
    void prepare(const WebcamSurroundings& surroundings, const QImage& picture, const QImage& sliding = {})
    {
        if (const std::string missing = PrivatePipewire::missing(); !missing.empty())
            skipTest(missing);
        std::string reason;
        pipewire = PrivatePipewire::start(reason);
        if (!pipewire)
            failTest(reason);
        camera = plugIn("test-camera", "Test camera", picture, sliding);
        prepareDesktop(surroundings);
    }
    void prepareDesktop(const WebcamSurroundings& surroundings)
    {
        surroundings_ = surroundings;
        const QRect display({}, displaySize * scale());
        desktop = requireDesktop({.server = surroundings.server,
                                  .width = display.width(),
                                  .height = display.height(),
                                  .dotsPerInch = static_cast<int>(96 * scale()),
                                  .windowManager = surroundings.manager,
                                  .compositor = surroundings.compositor});
        scene = requireScene(*desktop);
        addWall("wall", display);
        desktop->movePointer(pixels(farAway));
    }
    /// Another camera that shows `picture`, without loss and in its size, and, where there is one, a picture that
    /// slides in front of it; never null.
    [[nodiscard]] std::unique_ptr<VirtualCamera> plugIn(const std::string& id, const std::string& name,
                                                        const QImage& picture, const QImage& sliding = {})
    {
        const QString file = folder_.filePath(QString::fromStdString(id + ".png"));
        VirtualCamera::Options options;
        options.id = id;
        options.name = name;
        options.formats = {"BGRx:" + std::to_string(picture.width()) + "x" + std::to_string(picture.height()) + "@30"};
        options.picture = file.toStdString();
        const QString slidingFile = folder_.filePath(QString::fromStdString(id + "-sliding.png"));
        bool isKept = picture.save(file);
        if (!sliding.isNull()) {
            isKept = isKept && sliding.save(slidingFile);
            options.more = {"--sliding", slidingFile.toStdString()};
        }
        std::string reason = "the camera's picture cannot be kept";
        auto plugged = isKept ? VirtualCamera::start(*pipewire, options, reason) : nullptr;
        if (!plugged)
            failTest(reason);
        return plugged;
    }
    /// Lies below everything; in pixels.
    void addWall(const std::string& name, const QRect& pixels)
    {
        scene->add(
            name,
            {.geometry = pixels, .seed = 0, .color = wall, .type = Scene::Type::desktop, .overrideRedirect = false});
    }

    void start(const std::map<std::string, std::string>& settings = {})
    {
        startWith(settings, {{"PIPEWIRE_RUNTIME_DIR", pipewire->runtimeFolder()}});
    }
    void startWith(const std::map<std::string, std::string>& settings, const Environment& changes)
    {
        std::map<std::string, std::string> all{{"webcamEnabled", "true"}};
        all.insert(settings.begin(), settings.end());
        application = requireApplication(*desktop, {.region = region, .others = all}, changes);
        ASSERT_TRUE(application->waitForVirtualDisplay(region.size() * scale())) << application->process().output();
    }

    /// Moves the pointer onto the picture and then to a control, as far from the box's corner as said.
    void pointAt(const QRect& box, QPoint place)
    {
        desktop->movePointer(pixels(frame + box.center()));
        desktop->movePointer(pixels(frame + box.topLeft() + place));
    }

    [[nodiscard]] double scale() const { return surroundings_.scale; }
    [[nodiscard]] QPoint pixels(QPoint points) const { return points * scale(); }
    /// Of the user's screen, at a place from the framed area's corner.
    [[nodiscard]] QColor onScreen(QPoint place) const
    {
        const QPoint at = pixels(frame + place);
        return desktop->pixel(at.x(), at.y());
    }
    /// Of what others get, at such a place; no color while there is no virtual display.
    [[nodiscard]] QColor shared(QPoint place) const
    {
        const auto monitor = desktop->monitorNamed("Nimbrale");
        if (!monitor)
            return {};
        const QPoint at = monitor->geometry.topLeft() + pixels(place);
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
    /// The framed area's corner; a test that moves the frame moves it along.
    QPoint frame = region.topLeft();

private:
    WebcamSurroundings surroundings_;
    QTemporaryDir folder_;
};

} // namespace nimbrale::test
