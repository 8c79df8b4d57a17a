// The webcam with its background blurred or removed, and in a real call: by a camera that shows a photograph of a
// person.

#include "tests/meeting/webcam_journey.h"
#include "tests/support/browser_call.h"
#include "tests/support/photographs.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace nimbrale::test {
namespace {

using Compositor = PrivateDesktop::Compositor;

constexpr QRect box(20, 30, 480, 270);
const std::map<std::string, std::string> placed{{"webcamX", "20"},           {"webcamY", "30"},
                                                {"webcamWidth", "480"},      {"webcamHeight", "270"},
                                                {"webcamMirrored", "false"}, {"webcamShape", "rectangle"}};
/// Of the photograph, as parts of its size, where the person is and where not.
const std::vector<QPointF> onPerson{{0.43, 0.30}, {0.45, 0.45}, {0.45, 0.52}};
const std::vector<QPointF> besidePerson{{0.1, 0.2}, {0.9, 0.3}, {0.8, 0.75}, {0.15, 0.9}, {0.66, 0.91}};

bool areNear(const QColor& one, const QColor& other, int tolerance)
{
    return std::abs(one.red() - other.red()) <= tolerance && std::abs(one.green() - other.green()) <= tolerance &&
           std::abs(one.blue() - other.blue()) <= tolerance;
}

class WebcamBackgrounds : public WebcamJourney, public testing::WithParamInterface<WebcamSurroundings> {
protected:
    void SetUp() override
    {
        const PixelBuffer photograph = requirePhotograph("messi5.jpg", 1280, 720);
        prepare(GetParam(), QImage(reinterpret_cast<const uchar*>(photograph.row(0)), 1280, 720,
                                   static_cast<qsizetype>(photograph.stride()), QImage::Format_RGB32));
    }

    void startWith(const std::string& background)
    {
        std::map<std::string, std::string> settings = placed;
        settings["webcamBackground"] = background;
        start(settings);
    }
    [[nodiscard]] static QPoint placeOf(QPointF part)
    {
        return box.topLeft() +
               QPoint(static_cast<int>(part.x() * box.width()), static_cast<int>(part.y() * box.height()));
    }
    [[nodiscard]] bool isWall(QPointF part) const
    {
        return shared(placeOf(part)) == wall && onScreen(placeOf(part)) == wall;
    }
    /// What others get of a place and its surroundings.
    [[nodiscard]] QImage around(QPointF part) const
    {
        const QPoint at = desktop->monitorNamed("Nimbrale")->geometry.topLeft() + pixels(placeOf(part));
        return desktop->screenshot({at - QPoint(12, 12), QSize(24, 24)});
    }
    /// How much neighbors differ.
    [[nodiscard]] static double detail(const QImage& image)
    {
        double sum = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 1; x < image.width(); ++x)
                sum += std::abs(qGray(image.pixel(x, y)) - qGray(image.pixel(x - 1, y)));
        }
        return sum / (image.width() * image.height());
    }
};

INSTANTIATE_TEST_SUITE_P(, WebcamBackgrounds,
                         testing::Values(WebcamSurroundings{.name = "Openbox"},
                                         WebcamSurroundings{.name = "Picom", .compositor = Compositor::picom}),
                         testing::PrintToStringParamName());

TEST_P(WebcamBackgrounds, RemovedTheBackgroundShowsWhatLiesBehindOnTheScreenAndInTheShare)
{
    startWith("transparent");
    const auto isRemoved = [&] {
        return std::ranges::all_of(besidePerson, [&](QPointF part) { return isWall(part); }) &&
               std::ranges::none_of(onPerson, [&](QPointF part) { return isWall(part); });
    };
    EXPECT_TRUE(waitUntil(isRemoved, Milliseconds{10000})) << picture();
    // Without a compositing manager the panel, which is cut out there, samples the picture in another way.
    const int tolerance = GetParam().compositor == Compositor::none ? 24 : 0;
    for (const QPointF part : onPerson)
        EXPECT_TRUE(areNear(shared(placeOf(part)), onScreen(placeOf(part)), tolerance)) << picture();
}

TEST_P(WebcamBackgrounds, BlurredTheBackgroundLosesItsDetailAndThePersonDoesNot)
{
    startWith("original");
    ASSERT_TRUE(waitUntil([&] { return shared(placeOf({0.45, 0.45})) != wall; }, Milliseconds{8000})) << picture();
    ASSERT_TRUE(waitUntil([&] { return detail(around({0.1, 0.2})) > 0; }, Milliseconds{8000})) << picture();
    std::vector<double> before;
    for (const QPointF part : besidePerson)
        before.push_back(detail(around(part)));
    const double personBefore = detail(around({0.45, 0.45}));
    ASSERT_EQ(application->quit(), 0);
    startWith("blurred");
    const auto isBlurred = [&] {
        int blurred = 0;
        for (std::size_t i = 0; i < besidePerson.size(); ++i) {
            const double now = detail(around(besidePerson[i]));
            blurred += now > 0 && now < 0.5 * before[i];
        }
        return blurred == static_cast<int>(besidePerson.size());
    };
    EXPECT_TRUE(waitUntil(isBlurred, Milliseconds{10000})) << picture();
    EXPECT_GT(detail(around({0.45, 0.45})), 0.8 * personBefore) << picture();
    for (const QPointF part : besidePerson)
        EXPECT_NE(shared(placeOf(part)), wall) << "it is opaque: " << picture();
}

TEST_P(WebcamBackgrounds, InACallTheFarSideSeesThePersonWithoutTheBackground)
{
    if (const std::string missing = BrowserCall::missing(BrowserCall::Browser::chromium); !missing.empty())
        skipTest(missing);
    startWith("transparent");
    ASSERT_TRUE(waitUntil(
        [&] {
            return isWall({0.1, 0.2}) && !isWall({0.45, 0.45});
        },
        Milliseconds{10000}))
        << picture();
    std::string reason;
    const auto call = BrowserCall::start(*desktop, {.window = {900, 300, 320, 240}}, reason);
    ASSERT_TRUE(call) << reason;
    ASSERT_TRUE(call->share()) << call->failure();
    constexpr int errorOfTheCodec = 24;
    const auto isReceived = [&] {
        const QImage received = call->receivedImage();
        const auto showsWall = [&](QPointF part) {
            return areNear(received.pixelColor(placeOf(part)), wall, errorOfTheCodec);
        };
        return received.size() == region.size() && std::ranges::all_of(besidePerson, showsWall) &&
               std::ranges::none_of(onPerson, showsWall);
    };
    EXPECT_TRUE(waitUntil(isReceived, Milliseconds{15000})) << keepImage(call->receivedImage(), "received");
}

} // namespace
} // namespace nimbrale::test
