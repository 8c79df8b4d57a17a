// What a stream on X11 delivers where its output has another size than its source.

#include "tests/desktop/stream_fixture.h"

#include <QPainter>

#include <algorithm>
#include <cmath>

namespace nimbrale::test {
namespace {

/// As the server's filter is defined: each pixel from the four around its position in the source.
QImage bilinear(const QImage& source, QSize size)
{
    QImage scaled(size, QImage::Format_RGB32);
    const double stepX = static_cast<double>(source.width()) / size.width();
    const double stepY = static_cast<double>(source.height()) / size.height();
    const auto at = [&source](int x, int y) {
        return source.pixelColor(std::clamp(x, 0, source.width() - 1), std::clamp(y, 0, source.height() - 1));
    };
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            const double sourceX = (x + 0.5) * stepX - 0.5;
            const double sourceY = (y + 0.5) * stepY - 0.5;
            const int left = static_cast<int>(std::floor(sourceX));
            const int top = static_cast<int>(std::floor(sourceY));
            double sums[3] = {};
            for (int corner = 0; corner < 4; ++corner) {
                const int column = left + corner % 2;
                const int row = top + corner / 2;
                const double weight = (1 - std::abs(sourceX - column)) * (1 - std::abs(sourceY - row));
                const QColor color = at(column, row);
                sums[0] += weight * color.red();
                sums[1] += weight * color.green();
                sums[2] += weight * color.blue();
            }
            scaled.setPixel(x, y,
                            qRgb(int(std::lround(sums[0])), int(std::lround(sums[1])), int(std::lround(sums[2]))));
        }
    }
    return scaled;
}

/// The server's weights have seven binary places, in each direction.
constexpr ImageTolerance filterTolerance{.perChannel = 5};

TEST_F(X11StreamTest, anOutputOfAnotherSizeIsScaled)
{
    begin();
    scene->add("pattern", {.geometry = {60, 40, 700, 500}, .seed = 5});
    ASSERT_TRUE(stream->start(filter(), configuration()));
    EXPECT_TRUE(becomes(desktop->screenshot(area))) << "the control: nothing is scaled";
    for (const QSize size : {QSize(200, 150), QSize(400, 150), QSize(800, 600), QSize(283, 211), QSize(531, 299)}) {
        ASSERT_TRUE(stream->update(configuration(size.width(), size.height())));
        EXPECT_TRUE(becomes(bilinear(desktop->screenshot(area), size), filterTolerance))
            << size.width() << "×" << size.height();
    }
    ASSERT_TRUE(stream->update(configuration()));
    EXPECT_TRUE(becomes(desktop->screenshot(area))) << "exact again";
}

TEST_F(X11StreamTest, aScaledPictureOfPartsEqualsOneDrawnWhole)
{
    begin();
    scene->add("pattern", {.geometry = {60, 40, 700, 500}, .seed = 5});
    for (const QSize size : {QSize(283, 211), QSize(531, 299), QSize(200, 150)}) {
        stream = makeStream();
        ASSERT_TRUE(stream->start(filter(), configuration(size.width(), size.height())));
        ASSERT_TRUE(pumpUntil([&] { return stream->frames() > 0; }));
        std::uint32_t state = 7;
        const auto random = [&state](int limit) {
            state = state * 1664525 + 1013904223;
            return static_cast<int>((state >> 8) % static_cast<std::uint32_t>(limit));
        };
        for (int step = 0; step < 25; ++step) {
            const int frames = stream->frames();
            scene->fill("pattern",
                        {40 + random(390), 40 + random(290), 1 + random(step % 2 == 0 ? 4 : 90), 1 + random(40)},
                        QColor::fromRgb(static_cast<QRgb>(random(1 << 24))));
            ASSERT_TRUE(pumpUntil([&] { return stream->frames() > frames; }));
        }
        EXPECT_TRUE(isQuiet());
        const auto whole = makeStream();
        ASSERT_TRUE(whole->start(filter(), configuration(size.width(), size.height())));
        ASSERT_TRUE(pumpUntil([&] { return whole->frames() > 0; }));
        EXPECT_TRUE(imagesMatch(stream->image(), whole->image())) << size.width() << "×" << size.height();
        EXPECT_TRUE(imagesMatch(whole->image(), bilinear(desktop->screenshot(area), size), filterTolerance));
        stream->destroy();
        whole->destroy();
    }
}

TEST_F(X11StreamTest, withoutAnAreaTheWholeDisplayIsCapturedAndAllOfItWhenItsSizeChanges)
{
    begin();
    scene->add("pattern", {.geometry = {0, 0, 1280, 720}, .seed = 5});
    StreamConfiguration whole = configuration(640, 360);
    whole.sourceRect.reset();
    ASSERT_TRUE(stream->start(filter(), whole));
    EXPECT_TRUE(becomes(bilinear(desktop->screenshot({0, 0, 1280, 720}), {640, 360}), filterTolerance));
    ASSERT_TRUE(desktop->arrangeOutputs({{0, 0, 1600, 900}}));
    EXPECT_TRUE(becomes(bilinear(desktop->screenshot({0, 0, 1600, 900}), {640, 360}), filterTolerance));
    ASSERT_TRUE(desktop->arrangeOutputs({{0, 0, 640, 360}}));
    EXPECT_TRUE(becomes(desktop->screenshot({0, 0, 640, 360}))) << "now nothing is scaled";
    EXPECT_TRUE(stream->ends.empty());
}

/// In the middle of a black picture of that size.
QImage betweenBars(const QImage& picture, QSize size)
{
    QImage whole(size, QImage::Format_RGB32);
    whole.fill(Qt::black);
    QPainter painter(&whole);
    painter.drawImage((size.width() - picture.width()) / 2, (size.height() - picture.height()) / 2, picture);
    return whole;
}

TEST_F(X11StreamTest, aPictureThatKeepsItsProportionStandsBetweenBlackBars)
{
    begin();
    scene->add("pattern", {.geometry = {0, 0, 1280, 720}, .seed = 5});
    StreamConfiguration whole = configuration(400, 400);
    whole.sourceRect.reset();
    whole.preservesAspectRatio = true;
    const auto expected = [&](QSize display, QSize inside) {
        scene->settle();
        return betweenBars(bilinear(desktop->screenshot(QRect(QPoint(), display)), inside), {400, 400});
    };
    ASSERT_TRUE(stream->start(filter(), whole));
    EXPECT_TRUE(becomes(expected({1280, 720}, {400, 225}), filterTolerance));
    scene->fill("pattern", {100, 100, 50, 50}, Qt::red);
    EXPECT_TRUE(becomes(expected({1280, 720}, {400, 225}), filterTolerance));
    // The bars go from above and below to the sides, and nothing is left of what was there.
    ASSERT_TRUE(desktop->arrangeOutputs({{0, 0, 400, 800}}));
    EXPECT_TRUE(becomes(expected({400, 800}, {200, 400}), filterTolerance));
    ASSERT_TRUE(desktop->arrangeOutputs({{0, 0, 400, 400}}));
    scene->settle();
    EXPECT_TRUE(becomes(desktop->screenshot({0, 0, 400, 400}))) << "now nothing is scaled";
}

TEST_F(X11StreamTest, anOddLastColumnAndRowOfADisplayAreLeftOutOfAnEvenPicture)
{
    begin();
    scene->add("pattern", {.geometry = {0, 0, 1280, 720}, .seed = 5});
    ASSERT_TRUE(desktop->arrangeOutputs({{0, 0, 641, 361}}));
    StreamConfiguration whole = configuration(640, 360);
    whole.sourceRect.reset();
    whole.preservesAspectRatio = true;
    ASSERT_TRUE(stream->start(filter(), whole));
    EXPECT_TRUE(becomes(desktop->screenshot({0, 0, 640, 360})));
}

} // namespace
} // namespace nimbrale::test
