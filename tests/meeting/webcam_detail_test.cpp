// A camera's picture that is shown much smaller than it is: every pixel of it counts, on the screen and in the share.

#include "tests/meeting/webcam_journey.h"

#include <cmath>
#include <cstdlib>
#include <random>

namespace nimbrale::test {
namespace {

constexpr QSize cameraSize(1280, 720);
constexpr QRect box(20, 30, 320, 180);
constexpr int factor = 4;

/// Rectangles and noise from pixel to pixel: what is passed over changes the color of a shown pixel by far.
QImage finePicture()
{
    QImage image(cameraSize, QImage::Format_RGB32);
    std::mt19937 random(5);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const int base = (x / 90 + y / 60) % 2 == 0 ? 40 : 150;
            const auto noise = static_cast<int>(random() % 100);
            image.setPixelColor(x, y, QColor(base + noise, base, 250 - base - noise));
        }
    }
    return image;
}

QImage meanOf(const QImage& image)
{
    QImage mean(image.size() / factor, QImage::Format_RGB32);
    for (int y = 0; y < mean.height(); ++y) {
        for (int x = 0; x < mean.width(); ++x) {
            int red = 0;
            int green = 0;
            int blue = 0;
            for (int place = 0; place < factor * factor; ++place) {
                const QRgb pixel = image.pixel(x * factor + place % factor, y * factor + place / factor);
                red += qRed(pixel);
                green += qGreen(pixel);
                blue += qBlue(pixel);
            }
            constexpr int count = factor * factor;
            mean.setPixelColor(x, y, QColor(red / count, green / count, blue / count));
        }
    }
    return mean;
}

class WebcamDetail : public WebcamJourney, public testing::WithParamInterface<WebcamSurroundings> {};

INSTANTIATE_TEST_SUITE_P(, WebcamDetail,
                         testing::Values(WebcamSurroundings{.name = "Openbox"},
                                         WebcamSurroundings{.name = "Picom",
                                                            .compositor = PrivateDesktop::Compositor::picom}),
                         testing::PrintToStringParamName());

TEST_P(WebcamDetail, NoPixelOfTheCameraIsPassedOver)
{
    const QImage fine = finePicture();
    prepare(GetParam(), fine);
    start({{"webcamX", "20"},
           {"webcamY", "30"},
           {"webcamWidth", "320"},
           {"webcamHeight", "180"},
           {"webcamMirrored", "false"},
           {"webcamShape", "rectangle"}});
    ASSERT_TRUE(waitUntil([&] { return shared(box.center()) != wall && shared(box.center()) != QColor(Qt::black); },
                          Milliseconds{8000}))
        << picture();
    const QImage expected = meanOf(fine);
    constexpr ImageTolerance roundings{.perChannel = 2};
    const auto sharedWebcam = [&] {
        return desktop->screenshot({desktop->monitorNamed("Nimbrale")->geometry.topLeft() + box.topLeft(), box.size()});
    };
    const auto webcamOnScreen = [&] { return desktop->screenshot({frame + box.topLeft(), box.size()}); };
    static_cast<void>(waitUntil(
        [&] {
            return imagesAreAlike(sharedWebcam(), expected, roundings) &&
                   imagesAreAlike(webcamOnScreen(), expected, roundings);
        },
        Milliseconds{3000}));
    EXPECT_TRUE(imagesMatch(sharedWebcam(), expected, roundings));
    EXPECT_TRUE(imagesMatch(webcamOnScreen(), expected, roundings));
}

} // namespace
} // namespace nimbrale::test
