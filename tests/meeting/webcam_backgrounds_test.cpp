// The webcam with its background blurred or removed, and in a real call: by a camera that shows a photograph of a
// person.

#include "tests/meeting/webcam_journey.h"
#include "tests/support/browser_call.h"
#include "tests/support/photographs.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <vector>

namespace nimbrale::test {
namespace {

using Compositor = PrivateDesktop::Compositor;

constexpr QRect box(20, 30, 480, 270);
constexpr std::uint32_t altKey = 0xffe9;
constexpr std::uint32_t leftKey = 0xff51;
constexpr std::uint32_t rightKey = 0xff53;
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
    /// Whether the screen and the share both show the person there, and the same of the person. Each is drawn by
    /// itself, so that for a moment one of them may show the picture and the other not yet.
    [[nodiscard]] bool isPersonOnBoth(QPointF part) const
    {
        // Without a compositing manager the panel, which is cut out there, samples the picture in another way.
        const int tolerance = GetParam().compositor == Compositor::none ? 24 : 0;
        const QColor toOthers = shared(placeOf(part));
        const QColor toUser = onScreen(placeOf(part));
        return toOthers != wall && toUser != wall && areNear(toOthers, toUser, tolerance);
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
               std::ranges::all_of(onPerson, [&](QPointF part) { return isPersonOnBoth(part); });
    };
    ASSERT_TRUE(waitUntil(isRemoved, Milliseconds{10000})) << picture();
    EXPECT_FALSE(waitUntil([&] { return !isRemoved(); }, Milliseconds{1000})) << "it stays: " << picture();
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

/// What the shared webcam looks like with each background, once that is steady.
class BackgroundLooks {
public:
    enum class Look { original, blurred, transparent, none };
    static constexpr std::array all{Look::original, Look::blurred, Look::transparent};

    void learn(Look look, QImage image) { images_[look] = std::move(image); }
    /// Which one a picture shows; none for anything else, a blank or torn picture above all.
    [[nodiscard]] Look of(const QImage& image) const
    {
        const auto nearest =
            std::ranges::min_element(all, {}, [&](Look look) { return difference(images_.at(look), image); });
        return difference(images_.at(*nearest), image) <= largestDifference ? *nearest : Look::none;
    }
    /// Whether no two can be taken for each other.
    [[nodiscard]] bool areDistinct() const
    {
        return std::ranges::all_of(all, [&](Look one) {
            return std::ranges::all_of(all, [&](Look other) {
                return one == other || difference(images_.at(one), images_.at(other)) > 2 * largestDifference;
            });
        });
    }

private:
    /// Of the brightness of all pixels, in the mean.
    static constexpr double largestDifference = 2.5;

    [[nodiscard]] static double difference(const QImage& one, const QImage& other)
    {
        double sum = 0;
        for (int y = 0; y < one.height(); ++y) {
            const auto* const left = reinterpret_cast<const QRgb*>(one.constScanLine(y));
            const auto* const right = reinterpret_cast<const QRgb*>(other.constScanLine(y));
            for (int x = 0; x < one.width(); ++x)
                sum += std::abs(qGray(left[x]) - qGray(right[x]));
        }
        return sum / (one.width() * one.height());
    }

    std::map<Look, QImage> images_;
};

/// Switches the background in Settings by the keyboard.
class WebcamBackgroundSwitch : public WebcamBackgrounds {
protected:
    using Look = BackgroundLooks::Look;

    /// The webcam as others see it.
    [[nodiscard]] QImage webcam() const
    {
        const QPoint corner = desktop->monitorNamed("Nimbrale")->geometry.topLeft();
        return desktop->screenshot({corner + box.topLeft(), box.size()});
    }
    [[nodiscard]] Look look() const { return looks.of(webcam()); }
    void strike(std::uint32_t key)
    {
        desktop->pressKey(key);
        desktop->releaseKey(key);
    }
    void openSettings()
    {
        const QPoint button(box.width() - 17, 45);
        pointAt(box, button);
        sleepFor(Milliseconds{100});
        desktop->click(frame + box.topLeft() + button);
        ASSERT_TRUE(waitUntil([&] { return desktop->activeWindowTitle() == "Nimbrale Settings"; }, Milliseconds{5000}))
            << picture();
        // The window manager gives the focus when it has placed the window.
        sleepFor(Milliseconds{300});
        desktop->pressKey(altKey);
        strike('b');
        desktop->releaseKey(altKey);
        desktop->movePointer(farAway);
    }
    /// Back and forth, since the arrow keys end at the last choice.
    void goToNext()
    {
        direction = place == 0 ? 1 : (place == 2 ? -1 : direction);
        strike(direction > 0 ? rightKey : leftKey);
        place += direction;
    }
    [[nodiscard]] Look chosen() const { return BackgroundLooks::all.at(static_cast<std::size_t>(place)); }
    void learnLooks()
    {
        QImage before;
        const auto isSteady = [&] { return std::exchange(before, webcam()) == before; };
        for (int round = 0; round < 3; ++round) {
            if (round > 0)
                goToNext();
            sleepFor(Milliseconds{1500});
            ASSERT_TRUE(waitUntil(isSteady, Milliseconds{8000}, Milliseconds{200})) << picture();
            looks.learn(chosen(), before);
        }
        ASSERT_TRUE(looks.areDistinct()) << picture();
    }

    BackgroundLooks looks;
    int place = 0;
    int direction = 1;
};

INSTANTIATE_TEST_SUITE_P(, WebcamBackgroundSwitch,
                         testing::Values(WebcamSurroundings{.name = "Openbox"},
                                         WebcamSurroundings{.name = "Picom", .compositor = Compositor::picom}),
                         testing::PrintToStringParamName());

TEST_P(WebcamBackgroundSwitch, FiftySwitchesInARowShowNeitherABlankNorAStalePicture)
{
    start(placed);
    ASSERT_TRUE(waitUntil([&] { return shared(placeOf({0.45, 0.45})) != wall; }, Milliseconds{8000})) << picture();
    openSettings();
    learnLooks();

    int samples = 0;
    int blanks = 0;
    int stale = 0;
    for (int switches = 0; switches < 50; ++switches) {
        const Look before = chosen();
        goToNext();
        const auto takeSample = [&](bool isSwitched) {
            const QImage image = webcam();
            const Look seen = looks.of(image);
            ++samples;
            if (seen == Look::none && blanks++ == 0)
                keepImage(image, "blank");
            const bool isExpected = seen == chosen() || (!isSwitched && seen == before);
            if (seen != Look::none && !isExpected && stale++ == 0)
                keepImage(image, "stale");
            return seen == chosen();
        };
        ASSERT_TRUE(waitUntil([&] { return takeSample(false); }, Milliseconds{5000}, Milliseconds{2}))
            << "switch " << switches << ": " << picture();
        static_cast<void>(waitUntil([&] { return !takeSample(true); }, Milliseconds{100}, Milliseconds{2}));
    }
    EXPECT_EQ(blanks, 0) << "of " << samples << " samples";
    EXPECT_EQ(stale, 0) << "of " << samples << " samples";

    // The control: both kinds of blank would have been seen.
    camera->tell("unplug");
    EXPECT_TRUE(waitUntil([&] { return look() == Look::none; }, Milliseconds{3000})) << "black";
    camera->tell("plug");
    EXPECT_TRUE(waitUntil([&] { return look() == chosen(); }, Milliseconds{8000})) << picture();
    desktop->pressKey(altKey);
    strike('w');
    desktop->releaseKey(altKey);
    EXPECT_TRUE(waitUntil([&] { return look() == Look::none; }, Milliseconds{3000})) << "switched off";
}

TEST_P(WebcamBackgrounds, InACallTheFarSideSeesThePersonWithoutTheBackground)
{
    if (const std::string missing = BrowserCall::missing(BrowserCall::Browser::chromium); !missing.empty())
        skipTest(missing);
    startWith("transparent");
    ASSERT_TRUE(waitUntil(
        [&] {
            return isWall({0.1, 0.2}) && isPersonOnBoth({0.45, 0.45});
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
