#include "share/frame_view.h"

#include "tests/fakes/fake_panels.h"
#include "tests/fakes/fake_surface.h"
#include "tests/fakes/offscreen_application.h"

#include <QImage>
#include <QPainter>

#include <cstdlib>
#include <gmock/gmock.h>

namespace nimbrale {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class FrameViewTest : public testing::Test {
protected:
    [[nodiscard]] Layer& root() { return panel.rootLayer(); }
    [[nodiscard]] static Frame frameOf(const Rect& region, double scale)
    {
        return {std::make_shared<FakeSurface>(static_cast<int>(region.width * scale),
                                              static_cast<int>(region.height * scale)),
                region};
    }

    WebcamAppearance webcam{std::make_shared<WebcamPictures>(), {10, 20, 160, 90}};
    FakePanels panels;
    std::unique_ptr<Panel> owner = panels.create(PanelOptions{});
    FakePanel& panel = panels.last();
};

TEST_F(FrameViewTest, IsBlackBeforeTheFirstPicture)
{
    const FrameView view(root(), {100, 100, 400, 300}, 2);

    EXPECT_EQ(root().backgroundColor(), (Color{0, 0, 0, 1}));
    EXPECT_THAT(root().sublayersInOrder(), ElementsAre(&view.frameLayer()));
    EXPECT_EQ(view.frameLayer().contents(), nullptr);
    EXPECT_TRUE(view.frameLayer().frame().isEmpty());
}

TEST_F(FrameViewTest, PictureOfAnotherAreaStaysWhereItsContentBelongs)
{
    FrameView view(root(), {100, 100, 400, 300}, 2);

    view.show(frameOf({90, 100, 400, 300}, 2));

    EXPECT_EQ(view.frameLayer().frame(), (Rect{-20, 0, 800, 600}));
}

TEST_F(FrameViewTest, PictureFollowsTheRegionUntilTheNextOneComes)
{
    FrameView view(root(), {100, 100, 400, 300}, 1);
    view.show(frameOf({100, 100, 400, 300}, 1));
    EXPECT_EQ(view.frameLayer().frame(), (Rect{0, 0, 400, 300}));

    view.setRegion({130, 90, 400, 300});
    EXPECT_EQ(view.frameLayer().frame(), (Rect{-30, 10, 400, 300}));

    view.show(frameOf({130, 90, 400, 300}, 1));
    EXPECT_EQ(view.frameLayer().frame(), (Rect{0, 0, 400, 300}));
}

TEST_F(FrameViewTest, PictureIsSharedAndNotCopied)
{
    FrameView view(root(), {0, 0, 400, 300}, 1);
    const Frame first = frameOf({0, 0, 400, 300}, 1);
    const Frame second = frameOf({0, 0, 400, 300}, 1);

    view.show(first);
    EXPECT_EQ(view.frameLayer().contents(), first.surface);
    EXPECT_EQ(first.surface.use_count(), 2);

    view.show(second);
    EXPECT_EQ(view.frameLayer().contents(), second.surface);
    EXPECT_EQ(first.surface.use_count(), 1) << "the picture before must be released at once";
}

TEST_F(FrameViewTest, EachPictureAndEachMoveIsDrawnOnce)
{
    FrameView view(root(), {0, 0, 400, 300}, 1);

    view.show(frameOf({0, 0, 400, 300}, 1));
    EXPECT_EQ(panel.commits, 1);

    view.setRegion({10, 0, 400, 300});
    EXPECT_EQ(panel.commits, 2);
}

TEST_F(FrameViewTest, OnlyWhatChangedInThePictureIsDrawnAnew)
{
    FrameView view(root(), {0, 0, 400, 300}, 2);
    view.show(frameOf({0, 0, 400, 300}, 1));
    panel.invalidated.clear();

    const std::vector<PixelRect> changed = {{10, 20, 30, 40}};
    view.show({std::make_shared<FakeSurface>(400, 300, 1, changed), {0, 0, 400, 300}});

    EXPECT_THAT(panel.invalidated, ElementsAre(Rect{20, 40, 60, 80}));
}

TEST_F(FrameViewTest, WebcamLiesAboveThePictureAtItsBoxTimesTheZoom)
{
    FrameView view(root(), {100, 100, 400, 300}, 2);

    view.setWebcam(webcam);
    view.show(frameOf({100, 100, 400, 300}, 2));

    const Layer& layer = *view.webcamLayer()->layer();
    EXPECT_EQ(layer.frame(), (Rect{20, 40, 320, 180}));
    EXPECT_EQ(layer.zPosition(), 1);
    EXPECT_EQ(layer.opacity(), 1);
    EXPECT_THAT(root().sublayersInOrder(), ElementsAre(&view.frameLayer(), &layer));
}

TEST_F(FrameViewTest, WebcamHasTheShapeAndSideOfItsAppearanceWhenItIsDrawn)
{
    FrameView view(root(), {0, 0, 400, 300}, 2);
    view.setWebcam(webcam);
    const Layer& layer = *view.webcamLayer()->layer();
    EXPECT_DOUBLE_EQ(layer.cornerRadius(), 180 * 0.12);
    EXPECT_TRUE(layer.sublayersInOrder().front()->isMirrored());

    webcam.shape = AppSettings::WebcamShape::rectangle;
    webcam.mirrored = false;
    view.setWebcam(webcam);

    EXPECT_EQ(&layer, view.webcamLayer()->layer().get());
    EXPECT_EQ(layer.cornerRadius(), 0);
    EXPECT_FALSE(layer.sublayersInOrder().front()->isMirrored());
}

TEST_F(FrameViewTest, WebcamShowsThePicturesOfItsCamera)
{
    FrameView view(root(), {0, 0, 400, 300}, 1);
    const auto before = std::make_shared<FakeSurface>(64, 36, 5);
    webcam.camera->showLive(before);
    view.setWebcam(webcam);
    const Layer& preview = *view.webcamLayer()->layer()->sublayersInOrder().front();
    EXPECT_EQ(preview.contents(), before);

    panel.commits = 0;
    const auto next = std::make_shared<FakeSurface>(64, 36, 6);
    webcam.camera->showLive(next);
    EXPECT_EQ(preview.contents(), next);
    EXPECT_EQ(panel.commits, 1);
}

TEST_F(FrameViewTest, WebcamStaysInPlaceWhileTheRegionMoves)
{
    FrameView view(root(), {100, 100, 400, 300}, 2);
    view.setWebcam(webcam);

    view.setRegion({300, 50, 400, 300});

    EXPECT_EQ(view.webcamLayer()->layer()->frame(), (Rect{20, 40, 320, 180}));
}

TEST_F(FrameViewTest, FadedWebcamIsDrawnAtAFifthOfItsOpacity)
{
    FrameView view(root(), {0, 0, 400, 300}, 1);

    webcam.isFaded = true;
    view.setWebcam(webcam);
    EXPECT_EQ(view.webcamLayer()->layer()->opacity(), 0.2);

    webcam.isFaded = false;
    view.setWebcam(webcam);
    EXPECT_EQ(view.webcamLayer()->layer()->opacity(), 1.0);
}

TEST_F(FrameViewTest, EachAppearanceIsDrawnOnce)
{
    FrameView view(root(), {0, 0, 400, 300}, 1);
    view.setWebcam(webcam);
    EXPECT_EQ(panel.commits, 1);
    webcam.box = {20, 20, 200, 100};
    view.setWebcam(webcam);
    EXPECT_EQ(panel.commits, 2);
}

TEST_F(FrameViewTest, SwitchingTheCameraOffRemovesItsLayerAtOnce)
{
    FrameView view(root(), {0, 0, 400, 300}, 1);
    view.setWebcam(webcam);
    const std::weak_ptr<Layer> layer = view.webcamLayer()->layer();
    panel.invalidated.clear();
    panel.commits = 0;

    view.setWebcam({});

    EXPECT_EQ(view.webcamLayer(), nullptr);
    EXPECT_TRUE(layer.expired());
    EXPECT_EQ(webcam.camera.use_count(), 1);
    EXPECT_THAT(root().sublayersInOrder(), ElementsAre(&view.frameLayer()));
    EXPECT_THAT(panel.invalidated, Contains(Rect{10, 20, 160, 90}));
    EXPECT_EQ(panel.commits, 1);
    webcam.camera->showLive(std::make_shared<FakeSurface>(64, 36));
}

TEST_F(FrameViewTest, AnotherCameraReplacesTheOneBefore)
{
    FrameView view(root(), {0, 0, 400, 300}, 1);
    view.setWebcam(webcam);
    const auto before = std::exchange(webcam.camera, std::make_shared<WebcamPictures>());

    view.setWebcam(webcam);

    EXPECT_EQ(before.use_count(), 1);
    EXPECT_EQ(view.webcamLayer()->pictures(), webcam.camera);
    EXPECT_THAT(root().sublayersInOrder(), ElementsAre(&view.frameLayer(), view.webcamLayer()->layer().get()));
}

TEST_F(FrameViewTest, WebcamLeavesTheTreeWithTheView)
{
    {
        FrameView view(root(), {0, 0, 400, 300}, 1);
        view.setWebcam(webcam);
        ASSERT_EQ(root().sublayersInOrder().size(), 2);
    }
    EXPECT_EQ(root().sublayersInOrder().size(), 1);
    EXPECT_EQ(webcam.camera.use_count(), 1);
}

TEST_F(FrameViewTest, WithoutAWebcamNothingIsInvalidated)
{
    FrameView view(root(), {0, 0, 400, 300}, 1);
    panel.invalidated.clear();

    view.setWebcam({});

    EXPECT_THAT(panel.invalidated, IsEmpty());
}

TEST_F(FrameViewTest, ACardHidesAllElseAndLetsGoOfThePicture)
{
    FrameView view(root(), {0, 0, 400, 300}, 1);
    panel.setFrame({0, 0, 400, 300});
    const Frame picture = frameOf({0, 0, 400, 300}, 1);
    view.show(picture);
    view.setWebcam(webcam);

    view.showCard("Nothing to see");
    EXPECT_EQ(view.frameLayer().contents(), nullptr);
    EXPECT_EQ(picture.surface.use_count(), 1);
    ASSERT_TRUE(view.cardLayer());
    EXPECT_EQ(root().sublayersInOrder().back(), view.cardLayer()) << "in front of the webcam";
    EXPECT_EQ(view.cardLayer()->frame(), (Rect{0, 0, 400, 300}));
    EXPECT_EQ(view.cardLayer()->backgroundColor(), (Color{0, 0, 0, 1}));

    view.show(picture);
    EXPECT_EQ(view.cardLayer(), nullptr);
    EXPECT_THAT(root().sublayersInOrder(), SizeIs(2));
    EXPECT_EQ(view.frameLayer().contents(), picture.surface);
}

TEST_F(FrameViewTest, ACardFollowsThePanelsSize)
{
    FrameView view(root(), {0, 0, 400, 300}, 1);
    panel.setFrame({0, 0, 400, 300});
    view.showCard("Nothing to see");
    panel.setFrame({0, 0, 640, 480});
    root().layoutIfNeeded();
    EXPECT_EQ(view.cardLayer()->frame(), (Rect{0, 0, 640, 480}));
    EXPECT_THAT(view.cardLayer()->coverage(), ElementsAre(Rect{0, 0, 640, 480}));
}

TEST_F(FrameViewTest, ACardHasItsTextInTheMiddle)
{
    startOffscreenApplication();
    FrameView view(root(), {0, 0, 400, 300}, 1);
    panel.setFrame({0, 0, 400, 300});
    view.showCard("Nothing to see");

    QImage image(400, 300, QImage::Format_RGB32);
    image.fill(Qt::black);
    QPainter painter(&image);
    view.cardLayer()->painter()(painter, {0, 0, 400, 300});
    painter.end();
    QRect drawn;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (image.pixelColor(x, y) != QColor(Qt::black))
                drawn |= QRect(x, y, 1, 1);
        }
    }
    ASSERT_FALSE(drawn.isEmpty());
    EXPECT_LE(std::abs(drawn.left() - (399 - drawn.right())), 2);
    EXPECT_LE(std::abs(drawn.top() - (299 - drawn.bottom())), 2);
}

} // namespace
} // namespace nimbrale
