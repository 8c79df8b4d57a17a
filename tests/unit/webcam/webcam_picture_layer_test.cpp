#include "webcam/webcam_picture_layer.h"

#include "platform/buffer_surface.h"
#include "tests/fakes/fake_surface.h"

#include <gmock/gmock.h>

namespace nimbrale {
namespace {

using Background = WebcamPictureLayer::Background;
using Shape = WebcamPictureLayer::Shape;

class WebcamPictureLayerTest : public testing::Test {
protected:
    [[nodiscard]] Layer& preview() { return *layer.layer()->sublayersInOrder().at(0); }
    [[nodiscard]] Layer& processed() { return *layer.layer()->sublayersInOrder().at(1); }
    [[nodiscard]] double radius(Shape shape, const Rect& frame)
    {
        layer.setShape(shape);
        layer.layer()->setFrame(frame);
        layer.layer()->layoutIfNeeded();
        return layer.layer()->cornerRadius();
    }

    std::shared_ptr<WebcamPictures> pictures = std::make_shared<WebcamPictures>();
    WebcamPictureLayer layer{pictures};
    std::shared_ptr<const Surface> live = std::make_shared<FakeSurface>(64, 36, 1);
    std::shared_ptr<const Surface> effect = std::make_shared<FakeSurface>(64, 36, 2);
};

TEST_F(WebcamPictureLayerTest, BeginsRoundedAndMirroredAndClipsToItsBounds)
{
    EXPECT_EQ(layer.shape(), Shape::rounded);
    EXPECT_TRUE(layer.isMirrored());
    EXPECT_TRUE(layer.layer()->masksToBounds());
    EXPECT_EQ(preview().contentsGravity(), ContentsGravity::resizeAspectFill);
    EXPECT_EQ(processed().contentsGravity(), ContentsGravity::resizeAspectFill);
}

TEST_F(WebcamPictureLayerTest, CornersFollowTheShapeAndTheShorterSide)
{
    EXPECT_DOUBLE_EQ(radius(Shape::rounded, {0, 0, 300, 200}), 24);
    EXPECT_DOUBLE_EQ(radius(Shape::rounded, {0, 0, 100, 200}), 12);
    EXPECT_DOUBLE_EQ(radius(Shape::circle, {0, 0, 200, 200}), 100);
    EXPECT_DOUBLE_EQ(radius(Shape::rectangle, {0, 0, 300, 200}), 0);
}

TEST_F(WebcamPictureLayerTest, PicturesFillTheLayerAndAreMirroredTogether)
{
    layer.layer()->setFrame({10, 20, 300, 200});
    layer.layer()->layoutIfNeeded();
    for (const Layer* const sublayer : {&preview(), &processed()}) {
        EXPECT_EQ(sublayer->frame(), (Rect{0, 0, 300, 200}));
        EXPECT_TRUE(sublayer->isMirrored());
    }
    layer.setMirrored(false);
    EXPECT_TRUE(preview().isMirrored()) << "the next layout applies it";
    layer.layer()->layoutIfNeeded();
    for (const Layer* const sublayer : {&preview(), &processed()})
        EXPECT_FALSE(sublayer->isMirrored());
}

TEST_F(WebcamPictureLayerTest, OriginalBackgroundShowsTheLivePictureAlone)
{
    pictures->showLive(live);
    EXPECT_EQ(preview().contents(), live);
    EXPECT_FALSE(preview().isHidden());
    EXPECT_TRUE(processed().isHidden());
    EXPECT_EQ(layer.layer()->backgroundColor(), (Color{0, 0, 0, 1}));
    pictures->showProcessed(effect, Background::original);
    EXPECT_EQ(processed().contents(), nullptr);
}

TEST_F(WebcamPictureLayerTest, LivePictureStaysUntilTheFirstProcessedOneComes)
{
    pictures->showLive(live);
    pictures->setBackground(Background::blurred);
    EXPECT_FALSE(preview().isHidden());
    EXPECT_FALSE(processed().isHidden());
    EXPECT_EQ(processed().contents(), nullptr);

    pictures->showProcessed(effect, Background::blurred);
    EXPECT_TRUE(preview().isHidden());
    EXPECT_EQ(processed().contents(), effect);
}

TEST_F(WebcamPictureLayerTest, BackToTheOriginalClearsTheProcessedPictureAtOnce)
{
    pictures->showLive(live);
    pictures->setBackground(Background::blurred);
    pictures->showProcessed(effect, Background::blurred);
    pictures->setBackground(Background::original);
    EXPECT_FALSE(preview().isHidden());
    EXPECT_TRUE(processed().isHidden());
    EXPECT_EQ(processed().contents(), nullptr);
}

TEST_F(WebcamPictureLayerTest, ProcessedPictureStaysWhileTheEffectChanges)
{
    pictures->setBackground(Background::blurred);
    pictures->showProcessed(effect, Background::blurred);
    pictures->setBackground(Background::transparent);
    EXPECT_TRUE(preview().isHidden());
    EXPECT_EQ(processed().contents(), effect);
}

TEST_F(WebcamPictureLayerTest, PictureMadeForAnotherBackgroundIsDropped)
{
    pictures->setBackground(Background::transparent);
    pictures->showProcessed(effect, Background::blurred);
    EXPECT_EQ(processed().contents(), nullptr);
    EXPECT_FALSE(preview().isHidden());
}

TEST_F(WebcamPictureLayerTest, BehindATransparentBackgroundIsNothingAndElseBlack)
{
    pictures->setBackground(Background::transparent);
    EXPECT_EQ(layer.layer()->backgroundColor(), std::nullopt);
    pictures->setBackground(Background::blurred);
    EXPECT_EQ(layer.layer()->backgroundColor(), (Color{0, 0, 0, 1}));
}

TEST_F(WebcamPictureLayerTest, APictureThatIsSeenThroughLiesOverNothingUntilTheBlurredOneComes)
{
    const auto cutOut =
        std::make_shared<BufferSurface>(std::make_shared<PixelBuffer>(64, 36), SurfaceAlpha::premultiplied);
    pictures->setBackground(Background::transparent);
    pictures->showProcessed(cutOut, Background::transparent);
    pictures->setBackground(Background::blurred);
    EXPECT_EQ(processed().contents(), cutOut);
    EXPECT_EQ(layer.layer()->backgroundColor(), std::nullopt);
    pictures->showProcessed(effect, Background::blurred);
    EXPECT_EQ(layer.layer()->backgroundColor(), (Color{0, 0, 0, 1}));
    pictures->setBackground(Background::transparent);
    pictures->showProcessed(cutOut, Background::transparent);
    pictures->setBackground(Background::original);
    EXPECT_EQ(layer.layer()->backgroundColor(), (Color{0, 0, 0, 1}));
}

TEST_F(WebcamPictureLayerTest, LaterLayerShowsTheLivePictureAndTheBackgroundAtOnce)
{
    pictures->showLive(live);
    pictures->setBackground(Background::transparent);
    const WebcamPictureLayer later(pictures);
    EXPECT_EQ(later.layer()->sublayersInOrder().at(0)->contents(), live);
    EXPECT_EQ(later.layer()->backgroundColor(), std::nullopt);
}

TEST_F(WebcamPictureLayerTest, BothLayersOfACameraShareEachPicture)
{
    const WebcamPictureLayer other(pictures);
    pictures->showLive(live);
    EXPECT_EQ(preview().contents(), live);
    EXPECT_EQ(other.layer()->sublayersInOrder().at(0)->contents(), live);
}

TEST_F(WebcamPictureLayerTest, LayerThatIsGoneGetsNoMorePictures)
{
    Layer root;
    {
        const WebcamPictureLayer other(pictures);
        root.addSublayer(other.layer());
    }
    EXPECT_TRUE(root.sublayersInOrder().empty());
    pictures->showLive(live);
    pictures->setBackground(Background::blurred);
    pictures->showProcessed(effect, Background::blurred);
    EXPECT_EQ(live.use_count(), 3) << "the pictures, the layer and this test";
}

TEST_F(WebcamPictureLayerTest, CameraThatIsGoneLeavesBlack)
{
    pictures->showLive(live);
    pictures->showLive(nullptr);
    EXPECT_EQ(preview().contents(), nullptr);
    EXPECT_EQ(layer.layer()->backgroundColor(), (Color{0, 0, 0, 1}));
}

} // namespace
} // namespace nimbrale
