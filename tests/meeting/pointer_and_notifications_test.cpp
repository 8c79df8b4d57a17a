// The pointer is in the shared picture once, at its place; notifications are in it as the setting says.

#include "tests/support/meeting.h"

#include <gtest/gtest.h>

namespace nimbrale::test {

namespace {

const QRect region(300, 200, 500, 350);

/// The rectangle around everything that is clearly not the quiet wall, the moving window left out.
std::vector<QRect> strangers(const Meeting& meeting, const QImage& picture)
{
    const QRgb wall = Meeting::quietColor().rgb();
    const QRect moving = meeting.movementArea().adjusted(-2, -2, 2, 2).translated(-region.topLeft());
    QImage seen(picture.size(), QImage::Format_Grayscale8);
    seen.fill(0);
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x) {
            const QRgb there = picture.pixel(x, y);
            const int difference = std::abs(qRed(there) - qRed(wall)) + std::abs(qGreen(there) - qGreen(wall)) +
                                   std::abs(qBlue(there) - qBlue(wall));
            if (difference > 60 && !moving.contains(x, y))
                seen.setPixel(x, y, qRgb(255, 255, 255));
        }
    }
    std::vector<QRect> found;
    for (int y = 0; y < seen.height(); ++y) {
        for (int x = 0; x < seen.width(); ++x) {
            if (qRed(seen.pixel(x, y)) == 0)
                continue;
            // Whatever is within a few pixels belongs together.
            auto near = std::find_if(found.begin(), found.end(), [&](const QRect& rectangle) {
                return rectangle.adjusted(-6, -6, 6, 6).contains(x, y);
            });
            if (near == found.end())
                found.emplace_back(x, y, 1, 1);
            else
                *near |= QRect(x, y, 1, 1);
        }
    }
    return found;
}

Meeting::Options quietMeeting(bool sharesNotifications)
{
    return {.application = {.region = region, .sharesNotifications = sharesNotifications},
            .call = {.window = {1200, 600, 320, 240}},
            .isPatterned = false};
}

TEST(SharedPointer, IsSeenOnceAtItsPlace)
{
    const auto meeting = requireMeeting(quietMeeting(true));
    for (const QPoint place : {QPoint(60, 50), QPoint(400, 290), QPoint(99, 301)}) {
        meeting->desktop().movePointer(region.topLeft() + place);
        std::vector<QRect> seen;
        const bool isThere = waitUntil(
            [&] {
                seen = strangers(*meeting, meeting->call().trackImage());
                return seen.size() == 1 && seen[0].adjusted(-3, -3, 3, 3).contains(place);
            },
            Milliseconds{2000});
        EXPECT_TRUE(isThere) << seen.size() << " things are seen, kept as "
                             << keepImage(meeting->call().trackImage(), "track");
    }
    meeting->desktop().movePointer({20, 20});
    EXPECT_TRUE(waitUntil(
        [&] {
            const QImage picture = meeting->call().trackImage();
            return picture.size() == region.size() && strangers(*meeting, picture).empty();
        },
        Milliseconds{2000}));
}

class SharedNotifications : public testing::TestWithParam<bool> {};

TEST_P(SharedNotifications, AreInThePictureAsTheSettingSays)
{
    const auto meeting = requireMeeting(quietMeeting(GetParam()));
    meeting->desktop().movePointer({20, 20});
    // An ordinary window shows that the picture is up to date where the notification is not in it.
    meeting->scene().add(
        "ordinary", {.geometry = {region.x() + 20, region.y() + 260, 60, 60}, .seed = 0, .color = QColor(30, 60, 220)});
    meeting->scene().add("notification", {.geometry = {region.x() + 340, region.y() + 20, 120, 60},
                                          .seed = 0,
                                          .color = QColor(240, 240, 240),
                                          .type = Scene::Type::notification});
    const auto sees = [&](QPoint place) {
        const QImage picture = meeting->call().trackImage();
        EXPECT_EQ(picture.size(), region.size());
        const std::vector<QRect> seen = strangers(*meeting, picture);
        return std::any_of(seen.begin(), seen.end(), [&](const QRect& each) { return each.contains(place); });
    };
    EXPECT_TRUE(waitUntil([&] { return sees({50, 290}); }, Milliseconds{2000}));
    sleepFor(Milliseconds{300});
    EXPECT_EQ(sees({400, 50}), GetParam());
    // It is on the screen itself either way.
    EXPECT_EQ(meeting->desktop().pixel(region.x() + 400, region.y() + 50).rgb(), QColor(240, 240, 240).rgb());
}

INSTANTIATE_TEST_SUITE_P(Setting, SharedNotifications, testing::Bool(), [](const testing::TestParamInfo<bool>& shared) {
    return shared.param ? "Shared" : "LeftOut";
});

} // namespace

} // namespace nimbrale::test
