// A person in motion before the camera, with the background blurred or removed: at every moment what the user and the
// others see is the person of one picture, with the mask of that picture.

#include "tests/meeting/webcam_journey.h"
#include "tests/support/browser_call.h"
#include "tests/support/moving_person.h"
#include "tests/support/photographs.h"

#include <functional>
#include <optional>
#include <set>

namespace nimbrale::test {
namespace {

using Background = MovingPerson::Background;
using Compositor = PrivateDesktop::Compositor;
using Tolerances = MovingPerson::Tolerances;

constexpr QRect box({20, 30}, MovingPerson::webcamSize);
/// The mask's edge is soft, also some way into the person; a blurred background hides that, as it hides a mask that is
/// late, so that it is looked at more closely.
constexpr Tolerances tolerancesFor(Background background)
{
    return {.perChannel = background == Background::removed ? 40 : 12, .ofPerson = 0.02, .ofBackground = 0.015};
}
/// What the codec makes of it, above all of colors at edges.
constexpr Tolerances behindTheCodec{.perChannel = 40, .ofPerson = 0.03, .ofBackground = 0.02};

class WebcamMotion : public WebcamJourney, public testing::WithParamInterface<WebcamSurroundings> {
protected:
    void SetUp() override
    {
        person.emplace(requirePhotograph("messi5.jpg", MovingPerson::pictureSize),
                       requirePhotograph("building.jpg", MovingPerson::pictureSize), wall);
        prepare(GetParam(), person->sliding().behind(), person->sliding().front());
    }
    void startWith(Background background)
    {
        start({{"webcamX", "20"},
               {"webcamY", "30"},
               {"webcamWidth", std::to_string(box.width())},
               {"webcamHeight", std::to_string(box.height())},
               {"webcamMirrored", "false"},
               {"webcamShape", "rectangle"},
               {"webcamBackground", background == Background::removed ? "transparent" : "blurred"}});
    }
    [[nodiscard]] QImage onScreen() const { return desktop->screenshot(box.translated(frame)); }
    [[nodiscard]] QImage shared() const
    {
        const auto monitor = desktop->monitorNamed("Nimbrale");
        return monitor ? desktop->screenshot(box.translated(monitor->geometry.topLeft())) : QImage();
    }
    [[nodiscard]] bool isRight(const QImage& webcam, Background background, const Tolerances& tolerances) const
    {
        return !webcam.isNull() && MovingPerson::isRight(person->look(webcam, background, tolerances), tolerances);
    }
    /// Looks many times, at moments that have nothing to do with the camera's, and expects all to be right there.
    void watch(const std::string& where, const std::function<QImage()>& take, Background background,
               const Tolerances& tolerances)
    {
        ASSERT_TRUE(waitUntil([&] { return isRight(take(), background, tolerances); }, Milliseconds{10000}))
            << where << picture();
        constexpr int looks = 80;
        std::set<int> places;
        int wrong = 0;
        for (int look = 0; look < looks; ++look) {
            const QImage webcam = take();
            ASSERT_EQ(webcam.size(), box.size()) << where;
            const MovingPerson::Seen seen = person->look(webcam, background, tolerances);
            places.insert(seen.place);
            if (!MovingPerson::isRight(seen, tolerances) && wrong++ == 0)
                ADD_FAILURE() << where << ": " << seen << ", " << keepImage(webcam, where);
            sleepFor(Milliseconds{17});
        }
        EXPECT_EQ(wrong, 0) << "of " << looks << " looks " << where;
        EXPECT_GT(places.size(), 15U) << "the person moves " << where;
    }
    void watchOnTheDesktopAndInACall(Background background)
    {
        if (const std::string missing = BrowserCall::missing(BrowserCall::Browser::chromium); !missing.empty())
            skipTest(missing);
        startWith(background);
        const Tolerances tolerances = tolerancesFor(background);
        watch(
            "shared", [&] { return shared(); }, background, tolerances);
        watch(
            "on the screen", [&] { return onScreen(); }, background, tolerances);
        std::string reason;
        const auto call = BrowserCall::start(*desktop, {.window = {900, 300, 320, 240}}, reason);
        ASSERT_TRUE(call) << reason;
        ASSERT_TRUE(call->share()) << call->failure();
        watch(
            "received", [&] { return call->receivedImage(box); }, background, behindTheCodec);
        watch(
            "shared in the call", [&] { return shared(); }, background, tolerances);
        watch(
            "on the screen in the call", [&] { return onScreen(); }, background, tolerances);
    }

    std::optional<MovingPerson> person;
};

INSTANTIATE_TEST_SUITE_P(, WebcamMotion,
                         testing::Values(WebcamSurroundings{.name = "Openbox"},
                                         WebcamSurroundings{.name = "Picom", .compositor = Compositor::picom}),
                         testing::PrintToStringParamName());

TEST_P(WebcamMotion, RemovedTheBackgroundIsGoneAroundThePersonAtEveryMoment)
{
    watchOnTheDesktopAndInACall(Background::removed);
}

TEST_P(WebcamMotion, BlurredTheBackgroundIsSoAroundThePersonAtEveryMoment)
{
    watchOnTheDesktopAndInACall(Background::blurred);
}

// The control: each of these would be seen.
TEST(MovingPersonTest, ABlankPictureNoEffectAndAMaskOfAnotherPictureAreWrong)
{
    const QColor wall(22, 110, 40);
    const MovingPerson person(requirePhotograph("messi5.jpg", MovingPerson::pictureSize),
                              requirePhotograph("building.jpg", MovingPerson::pictureSize), wall);
    for (const Background background : {Background::removed, Background::blurred}) {
        const Tolerances tolerances = tolerancesFor(background);
        const auto isRight = [&](const QImage& webcam) {
            return MovingPerson::isRight(person.look(webcam, background, tolerances), tolerances);
        };
        for (const int place : {4, 15, 22, 33, 40}) {
            EXPECT_TRUE(isRight(person.webcam(background, place, place)));
            constexpr int tooFar = MovingPerson::picturesApart + 1;
            EXPECT_FALSE(isRight(person.webcam(background, place, place - tooFar))) << place;
            EXPECT_FALSE(isRight(person.webcam(background, place, place + tooFar))) << place;
            const QImage camera = person.sliding().withFrontAt(place);
            EXPECT_FALSE(isRight(camera.scaled(box.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation))) << place;
        }
        QImage blank(box.size(), QImage::Format_RGB32);
        for (const QColor& color : {wall, QColor(Qt::black)}) {
            blank.fill(color);
            EXPECT_FALSE(isRight(blank));
        }
    }
}

} // namespace
} // namespace nimbrale::test
