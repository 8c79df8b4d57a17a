#pragma once

#include "tests/fakes/fake_cameras.h"
#include "tests/fakes/fake_main_queue.h"
#include "webcam/webcam_camera.h"
#include "webcam/webcam_picture_layer.h"

#include <QLoggingCategory>
#include <QStringList>

#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

namespace nimbrale {

/// A camera's object on fake cameras, with an effect that a test chooses, and the layers that show its pictures.
class WebcamCameraTest : public testing::Test {
public:
    WebcamCameraTest(const WebcamCameraTest&) = delete;
    WebcamCameraTest& operator=(const WebcamCameraTest&) = delete;

protected:
    using Background = WebcamCamera::Background;

    WebcamCameraTest()
    {
        loggedErrors().clear();
        handlerBefore_ = qInstallMessageHandler(noteErrors);
        cameras.list = {{"front", "Front camera"}, {"desk", "Desk camera"}};
    }
    ~WebcamCameraTest() override { qInstallMessageHandler(handlerBefore_); }

    /// What the camera logged as an error since the test began.
    [[nodiscard]] static QStringList& loggedErrors()
    {
        static QStringList errors;
        return errors;
    }
    [[nodiscard]] FakeOpenCamera& opened() { return *cameras.opened.back(); }
    [[nodiscard]] WebcamPictures& pictures() { return *camera.pictures(); }
    [[nodiscard]] const Layer& preview() { return *layer.layer()->sublayersInOrder().at(0); }
    [[nodiscard]] const Layer& processed() { return *layer.layer()->sublayersInOrder().at(1); }
    void showPicture(int width = 64)
    {
        opened().show(width, 36);
        queue.runPosted();
    }
    /// Waits, while the main queue stands still.
    [[nodiscard]] static bool eventually(const std::function<bool()>& condition)
    {
        for (int i = 0; i < 500 && !condition(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds{2});
        return condition();
    }
    /// Runs the main queue until the effects' thread has brought a picture. False when none comes.
    [[nodiscard]] bool waitForProcessed()
    {
        for (int i = 0; i < 500 && !processed().contents(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds{2});
            queue.runPosted();
        }
        return processed().contents() != nullptr;
    }

    FakeCameras cameras;
    FakeMainQueue queue;
    std::function<std::shared_ptr<const BufferSurface>(const std::shared_ptr<const BufferSurface>&, Background)>
        effect = [](const std::shared_ptr<const BufferSurface>& picture, Background) { return picture; };
    WebcamCamera camera{
        cameras, queue,
        [this](const std::shared_ptr<const BufferSurface>& picture, Background background, int halvings) {
            const auto made = effect(picture, background);
            return made && halvings > 0 ? halved(*made, halvings) : made;
        }};
    WebcamPictureLayer layer{camera.pictures()};

private:
    static void noteErrors(QtMsgType type, const QMessageLogContext& context, const QString& text)
    {
        if (type == QtCriticalMsg && QByteArray(context.category) == "Nimbrale.webcam")
            loggedErrors() << text;
    }

    QtMessageHandler handlerBefore_;
};

} // namespace nimbrale
