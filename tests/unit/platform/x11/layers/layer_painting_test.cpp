// What this process paints of layers: quickly where pixels need only be copied, and always what painting each thing by
// itself gives.

#include "platform/x11/layers/layer_painting.h"

#include "platform/buffer_surface.h"
#include "platform/x11/layers/corner_masks.h"

#include <QPainter>

#include <gtest/gtest.h>
#include <random>

namespace nimbrale::x11 {
namespace {

constexpr Color black{0, 0, 0, 1};

std::shared_ptr<const BufferSurface> noise(int width, int height, SurfaceAlpha alpha = SurfaceAlpha::opaque)
{
    const auto pixels = std::make_shared<PixelBuffer>(width, height);
    std::mt19937 random(6); // NOLINT(bugprone-random-generator-seed): the same noise each time.
    for (int y = 0; y < height; ++y) {
        auto* const row = reinterpret_cast<QRgb*>(pixels->row(y));
        for (int x = 0; x < width; ++x) {
            const auto color = static_cast<QRgb>(random());
            // The alpha of an opaque surface is not looked at.
            row[x] = alpha == SurfaceAlpha::opaque ? color : qPremultiply(color);
        }
    }
    return std::make_shared<BufferSurface>(pixels, alpha);
}

QImage imageOf(const BufferSurface& surface)
{
    const PixelBuffer& pixels = surface.pixels();
    const QImage image(reinterpret_cast<const uchar*>(pixels.row(0)), pixels.width(), pixels.height(),
                       surface.alpha() == SurfaceAlpha::opaque ? QImage::Format_RGB32
                                                               : QImage::Format_ARGB32_Premultiplied);
    return image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

QImage transparentImage(QSize size)
{
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    return image;
}

/// A webcam in a panel: a rounded layer that is black behind its picture.
class LayerPaintingTest : public testing::Test {
protected:
    LayerPaintingTest()
    {
        root.setFrame({0, 0, 200, 120});
        webcam->setFrame({8, 6, 160, 90});
        webcam->setMasksToBounds(true);
        webcam->setBackgroundColor(black);
        root.addSublayer(webcam);
        picture->setFrame({0, 0, 160, 90});
        picture->setContentsGravity(ContentsGravity::resizeAspectFill);
        webcam->addSublayer(picture);
    }

    [[nodiscard]] QImage painted(const QRect& part = {0, 0, 200, 120})
    {
        QImage image = transparentImage(part.size());
        painter.paint(image, part.x(), part.y(), flattenLayers(root, 1), 1);
        return image;
    }
    /// What the whole window shows, `content` being all of the webcam's square and rounded by a mask of all of it.
    [[nodiscard]] static QImage expected(QImage content, double radius)
    {
        QImage mask(content.size(), QImage::Format_Alpha8);
        paintCornerMask(mask, radius, 1);
        QPainter rounder(&content);
        rounder.setCompositionMode(QPainter::CompositionMode_DestinationIn);
        rounder.drawImage(0, 0, mask);
        rounder.end();
        QImage whole = transparentImage({200, 120});
        QPainter(&whole).drawImage(8, 6, content);
        return whole;
    }

    Layer root;
    std::shared_ptr<Layer> webcam = std::make_shared<Layer>();
    std::shared_ptr<Layer> picture = std::make_shared<Layer>();
    LayerPainter painter;
};

TEST_F(LayerPaintingTest, APictureOfTheSameSizeIsThereToTheBitInEveryShape)
{
    const auto surface = noise(160, 90);
    picture->setContents(surface);
    for (const bool isMirrored : {false, true}) {
        picture->setMirrored(isMirrored);
        for (const double radius : {0.0, 10.8, 45.0}) {
            webcam->setCornerRadius(radius);
            const QImage content = imageOf(*surface).mirrored(isMirrored, false);
            EXPECT_EQ(painted(), expected(content, radius)) << isMirrored << ", " << radius;
        }
    }
}

TEST_F(LayerPaintingTest, APartIsThatPartOfTheWhole)
{
    picture->setContents(noise(160, 90));
    picture->setMirrored(true);
    webcam->setCornerRadius(20);
    const QImage whole = painted();
    for (const QRect& part : {QRect(0, 0, 30, 30), QRect(20, 15, 50, 40), QRect(150, 80, 50, 40), QRect(8, 6, 160, 90)})
        EXPECT_EQ(painted(part), whole.copy(part)) << part.x() << ", " << part.y();
}

TEST_F(LayerPaintingTest, APictureThatSticksOutIsCutToTheLayer)
{
    const auto surface = noise(160, 120);
    picture->setContents(surface);
    picture->setMirrored(true);
    webcam->setCornerRadius(20);
    EXPECT_EQ(painted(), expected(imageOf(*surface).mirrored(true, false).copy(0, 15, 160, 90), 20));
    const auto wide = noise(200, 90);
    picture->setContents(wide);
    EXPECT_EQ(painted(), expected(imageOf(*wide).mirrored(true, false).copy(20, 0, 160, 90), 20));
}

TEST_F(LayerPaintingTest, ATranslucentPictureIsBlendedOverWhatIsBehind)
{
    const auto surface = noise(160, 90, SurfaceAlpha::premultiplied);
    picture->setContents(surface);
    picture->setMirrored(true);
    webcam->setCornerRadius(20);
    QImage content = transparentImage({160, 90});
    content.fill(Qt::black);
    QPainter(&content).drawImage(0, 0, imageOf(*surface).mirrored(true, false));
    EXPECT_EQ(painted(), expected(content, 20));

    webcam->setBackgroundColor(std::nullopt);
    EXPECT_EQ(painted(), expected(imageOf(*surface).mirrored(true, false), 20));
}

TEST_F(LayerPaintingTest, AnOpaquePictureHidesOnlyWhatItCovers)
{
    picture->setFrame({40, 0, 80, 90});
    const auto surface = noise(80, 90);
    picture->setContents(surface);
    QImage content = transparentImage({160, 90});
    content.fill(Qt::black);
    QPainter(&content).drawImage(40, 0, imageOf(*surface));
    EXPECT_EQ(painted(), expected(content, 0));
}

TEST_F(LayerPaintingTest, AFadedPictureLetsSeeWhatIsBehind)
{
    picture->setContents(noise(160, 90));
    const auto behind = std::make_shared<Layer>();
    behind->setFrame({0, 0, 200, 120});
    behind->setBackgroundColor(Color{1, 1, 1, 1});
    behind->setZPosition(-1);
    root.addSublayer(behind);
    webcam->setOpacity(0.5);
    const QImage whole = painted();
    EXPECT_EQ(whole.pixelColor(0, 0), QColor(Qt::white));
    EXPECT_GE(qRed(whole.pixel(50, 50)), 127) << "half of the white";
}

TEST_F(LayerPaintingTest, OneMaskAfterTheOtherIsRight)
{
    const auto surface = noise(160, 90);
    picture->setContents(surface);
    for (const double radius : {20.0, 30.0, 20.0}) {
        webcam->setCornerRadius(radius);
        EXPECT_EQ(painted(), expected(imageOf(*surface), radius));
    }
    webcam->setFrame({8, 6, 90, 90});
    webcam->setCornerRadius(45);
    picture->setFrame({0, 0, 90, 90});
    QImage square = expected(imageOf(*surface).copy(35, 0, 90, 90), 45);
    EXPECT_EQ(painted(), square);
}

} // namespace
} // namespace nimbrale::x11
