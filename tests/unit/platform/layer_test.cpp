// What a layer has drawn anew when something about it changes.

#include "platform/surface_changes.h"
#include "tests/fakes/fake_surface.h"
#include "tests/unit/platform/layer_fixture.h"

#include <gmock/gmock.h>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A picture of 80 × 40 pixels that differs there from any other.
std::shared_ptr<const Surface> pictureWith(std::vector<PixelRect> changed)
{
    return std::make_shared<FakeSurface>(80, 40, 7, std::move(changed));
}

/// A picture of 80 × 40 pixels that remembers.
class SurfaceWithHistory final : public Surface {
public:
    explicit SurfaceWithHistory(SurfaceChanges changes) : changes_(std::move(changes)) {}

    [[nodiscard]] int width() const override { return 80; }
    [[nodiscard]] int height() const override { return 40; }
    [[nodiscard]] PixelFormat pixelFormat() const override { return PixelFormat::bgra; }
    [[nodiscard]] SurfaceAlpha alpha() const override { return SurfaceAlpha::opaque; }
    [[nodiscard]] std::uint64_t storage() const override { return 1; }
    [[nodiscard]] std::uint64_t identifier() const override { return changes_.identifier(); }
    [[nodiscard]] std::vector<PixelRect> changedSince(std::uint64_t identifier) const override
    {
        return changes_.since(identifier).value_or(std::vector<PixelRect>{{0, 0, 80, 40}});
    }

private:
    SurfaceChanges changes_;
};

TEST_F(LayerTest, MovingInvalidatesWhereItWasAndWhereItIs)
{
    const auto child = addChild({10, 20, 30, 40});
    child->setFrame({50, 20, 30, 40});
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{10, 20, 30, 40}, Rect{50, 20, 30, 40}));
}

TEST_F(LayerTest, SameValuesInvalidateNothing)
{
    const auto child = addChild({10, 20, 30, 40});
    child->setFrame({10, 20, 30, 40});
    child->setOpacity(1);
    child->setHidden(false);
    child->setZPosition(0);
    EXPECT_THAT(host.invalidated, IsEmpty());
}

TEST_F(LayerTest, NestedAreasReachTheHostInRootCoordinates)
{
    const auto child = addChild({10, 20, 100, 60});
    auto grandchild = std::make_shared<Layer>();
    grandchild->setFrame({5, 6, 20, 20});
    child->addSublayer(grandchild);
    host.invalidated.clear();
    grandchild->setNeedsDisplay({1, 2, 3, 4});
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{16, 28, 3, 4}));
}

TEST_F(LayerTest, OriginOfTheRootDoesNotCount)
{
    root.setFrame({70, 80, 200, 100});
    host.invalidated.clear();
    root.setNeedsDisplay({1, 2, 3, 4});
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{1, 2, 3, 4}));
}

TEST_F(LayerTest, HidingAndShowingBothInvalidateTheFrame)
{
    const auto child = addChild({10, 20, 30, 40});
    child->setHidden(true);
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{10, 20, 30, 40}));
    host.invalidated.clear();
    child->setBackgroundColor(Color{1, 0, 0, 1});
    EXPECT_THAT(host.invalidated, IsEmpty()) << "a hidden layer shows nothing that could change";
    child->setHidden(false);
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{10, 20, 30, 40}));
}

TEST_F(LayerTest, FirstContentsInvalidateTheWholeFrame)
{
    const auto child = addChild({10, 20, 40, 20});
    child->setContents(std::make_shared<FakeSurface>(80, 40, 7));
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{10, 20, 40, 20}));
}

TEST_F(LayerTest, NextContentsInvalidateOnlyWhatTheyChanged)
{
    const auto child = addChild({10, 20, 40, 20});
    child->setContents(pictureWith({}));
    host.invalidated.clear();
    child->setContents(pictureWith({{8, 4, 20, 10}, {0, 0, 2, 2}}));
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{14, 22, 10, 5}, Rect{10, 20, 1, 1}));
}

TEST_F(LayerTest, ContentsAreComparedWithThePictureShownBefore)
{
    const auto child = addChild({0, 0, 80, 40});
    SurfaceChanges changes;
    const auto next = [&changes](PixelRect changed) {
        changes.advance({changed});
        return std::make_shared<SurfaceWithHistory>(changes);
    };
    child->setContents(next({0, 0, 80, 40}));
    const auto missed = next({1, 1, 1, 1});
    host.invalidated.clear();
    child->setContents(next({2, 2, 2, 2}));
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{1, 1, 1, 1}, Rect{2, 2, 2, 2}));
}

TEST_F(LayerTest, ContentsOfAnotherSizeInvalidateTheWholeFrame)
{
    const auto child = addChild({10, 20, 40, 20});
    child->setContents(std::make_shared<FakeSurface>(80, 40, 7));
    host.invalidated.clear();
    child->setContents(std::make_shared<FakeSurface>(80, 41, 7, std::vector<PixelRect>{{8, 4, 20, 10}}));
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{10, 20, 40, 20}));
    host.invalidated.clear();
    child->setContents(std::make_shared<FakeSurface>(81, 41, 7, std::vector<PixelRect>{{8, 4, 20, 10}}));
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{10, 20, 40, 20}));
}

TEST_F(LayerTest, ContentsTakenAwayInvalidateTheWholeFrameOnce)
{
    const auto child = addChild({10, 20, 40, 20});
    child->setContents(pictureWith({}));
    host.invalidated.clear();
    child->setContents(nullptr);
    child->setContents(nullptr);
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{10, 20, 40, 20}));
}

TEST_F(LayerTest, ChangesOfAMirroredPictureAreOnTheOtherSide)
{
    const auto child = addChild({10, 20, 40, 20});
    child->setContents(pictureWith({}));
    child->setMirrored(true);
    EXPECT_THAT(host.invalidated, testing::Contains(Rect{10, 20, 40, 20}));
    host.invalidated.clear();
    child->setContents(pictureWith({{0, 0, 8, 4}}));
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{46, 20, 4, 2}));
}

TEST_F(LayerTest, ContentsFillTheBoundsOrReachOutEvenly)
{
    const auto child = addChild({10, 20, 40, 40});
    EXPECT_TRUE(child->contentsRect().isEmpty());
    child->setContents(pictureWith({}));
    EXPECT_EQ(child->contentsRect(), (Rect{0, 0, 40, 40}));
    host.invalidated.clear();
    child->setContentsGravity(ContentsGravity::resizeAspectFill);
    EXPECT_EQ(child->contentsRect(), (Rect{-20, 0, 80, 40}));
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{10, 20, 40, 40}));
    child->setFrame({10, 20, 160, 40});
    EXPECT_EQ(child->contentsRect(), (Rect{0, -20, 160, 80}));
}

TEST_F(LayerTest, ChangesThatAspectFillingCutsOffInvalidateNothing)
{
    const auto child = addChild({10, 20, 40, 40});
    child->setContentsGravity(ContentsGravity::resizeAspectFill);
    child->setContents(pictureWith({}));
    host.invalidated.clear();
    child->setContents(pictureWith({{0, 0, 20, 40}}));
    EXPECT_THAT(host.invalidated, IsEmpty());
    child->setContents(pictureWith({{10, 0, 20, 10}}));
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{10, 20, 10, 10}));
}

TEST_F(LayerTest, ShapeInvalidatesTheFrameOnceForEachChange)
{
    const auto child = addChild({10, 20, 40, 20});
    child->setCornerRadius(5);
    child->setCornerRadius(5);
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{10, 20, 40, 20}));
    EXPECT_EQ(child->cornerRadius(), 5);
}

TEST_F(LayerTest, SublayersThatReachOutAreInvalidatedWithTheirSuperlayer)
{
    const auto child = addChild({10, 20, 40, 20});
    const auto grandchild = std::make_shared<Layer>();
    grandchild->setFrame({30, 10, 50, 5});
    child->addSublayer(grandchild);
    const Rect both{10, 20, 80, 20};
    const auto invalidates = [&](const auto& change) {
        host.invalidated.clear();
        change();
        EXPECT_THAT(host.invalidated, ElementsAre(both));
    };
    invalidates([&] { child->setOpacity(0.5); });
    invalidates([&] { child->setZPosition(3); });
    invalidates([&] { child->setHidden(true); });
    invalidates([&] { child->setHidden(false); });
    invalidates([&] { child->setMasksToBounds(true); });
    invalidates([&] { child->setMasksToBounds(false); });
    host.invalidated.clear();
    child->setFrame({0, 0, 40, 20});
    EXPECT_THAT(host.invalidated, ElementsAre(both, Rect{0, 0, 80, 20}));
}

TEST_F(LayerTest, WhatIsClippedInvalidatesNothingOutsideOfTheBounds)
{
    const auto child = addChild({10, 20, 40, 20});
    const auto grandchild = std::make_shared<Layer>();
    grandchild->setFrame({30, 10, 50, 50});
    child->addSublayer(grandchild);
    child->setMasksToBounds(true);
    host.invalidated.clear();
    grandchild->setNeedsDisplay({0, 0, 50, 50});
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{40, 30, 10, 10}));
    grandchild->setNeedsDisplay({20, 0, 5, 5});
    child->setNeedsDisplay({50, 0, 5, 5});
    child->setOpacity(0.5);
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{40, 30, 10, 10}, Rect{10, 20, 40, 20}));
}

} // namespace
} // namespace nimbrale
