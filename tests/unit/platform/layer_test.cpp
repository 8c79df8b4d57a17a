#include "platform/layer.h"

#include "platform/surface_changes.h"
#include "tests/fakes/fake_surface.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class RecordingHost final : public LayerHost {
public:
    void invalidate(const Rect& area) override { invalidated.push_back(area); }
    void scheduleCommit() override { ++scheduledCommits; }
    void commit() override { ++commits; }

    std::vector<Rect> invalidated;
    int scheduledCommits = 0;
    int commits = 0;
};

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

class LayerTest : public testing::Test {
protected:
    LayerTest()
    {
        root.setHost(&host);
        root.setFrame({0, 0, 200, 100});
        host.invalidated.clear();
    }

    std::shared_ptr<Layer> addChild(const Rect& frame)
    {
        auto child = std::make_shared<Layer>();
        child->setFrame(frame);
        root.addSublayer(child);
        host.invalidated.clear();
        return child;
    }

    RecordingHost host;
    Layer root;
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

TEST_F(LayerTest, LayoutRunsOnceAfterAnyNumberOfWishes)
{
    const auto child = addChild({10, 20, 40, 20});
    int layouts = 0;
    child->onLayout = [&] { ++layouts; };
    host.scheduledCommits = 0;
    child->setNeedsLayout();
    child->setNeedsLayout();
    EXPECT_GT(host.scheduledCommits, 0);
    EXPECT_EQ(layouts, 0);
    root.layoutIfNeeded();
    root.layoutIfNeeded();
    EXPECT_EQ(layouts, 1);
}

TEST_F(LayerTest, AnotherSizeAsksForLayoutAndAnotherPlaceDoesNot)
{
    const auto child = addChild({10, 20, 40, 20});
    root.layoutIfNeeded();
    int layouts = 0;
    child->onLayout = [&] { ++layouts; };
    child->setFrame({0, 0, 40, 20});
    root.layoutIfNeeded();
    EXPECT_EQ(layouts, 0);
    child->setFrame({0, 0, 41, 20});
    root.layoutIfNeeded();
    EXPECT_EQ(layouts, 1);
}

TEST_F(LayerTest, SuperlayersAreLaidOutBeforeTheSublayersThatTheyResize)
{
    const auto child = addChild({10, 20, 40, 20});
    const auto grandchild = std::make_shared<Layer>();
    child->addSublayer(grandchild);
    root.layoutIfNeeded();
    std::vector<std::string> order;
    child->onLayout = [&] {
        order.emplace_back("child");
        grandchild->setFrame(child->bounds());
        child->setNeedsLayout();
    };
    grandchild->onLayout = [&] { order.emplace_back("grandchild"); };
    child->setNeedsLayout();
    root.layoutIfNeeded();
    root.layoutIfNeeded();
    EXPECT_THAT(order, ElementsAre("child", "grandchild"));
}

TEST_F(LayerTest, LayoutAskedForOutsideOfATreeIsDoneInTheNextOne)
{
    const auto child = std::make_shared<Layer>();
    int layouts = 0;
    child->onLayout = [&] { ++layouts; };
    child->setNeedsLayout();
    host.scheduledCommits = 0;
    root.addSublayer(child);
    EXPECT_GT(host.scheduledCommits, 0);
    root.layoutIfNeeded();
    EXPECT_EQ(layouts, 1);
}

TEST_F(LayerTest, RemovingInvalidatesAndLeavesTheTree)
{
    const auto child = addChild({10, 20, 30, 40});
    EXPECT_EQ(child->superlayer(), &root);
    EXPECT_EQ(child->host(), &host);
    child->removeFromSuperlayer();
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{10, 20, 30, 40}));
    EXPECT_EQ(child->superlayer(), nullptr);
    EXPECT_EQ(child->host(), nullptr);
    EXPECT_THAT(root.sublayersInOrder(), IsEmpty());
}

TEST_F(LayerTest, AddingInvalidatesWhatTheLayerAndItsSublayersShow)
{
    const auto child = std::make_shared<Layer>();
    child->setFrame({10, 20, 30, 40});
    const auto grandchild = std::make_shared<Layer>();
    grandchild->setFrame({0, 0, 50, 5});
    child->addSublayer(grandchild);
    const auto hidden = std::make_shared<Layer>();
    hidden->setFrame({0, 0, 150, 50});
    hidden->setHidden(true);
    child->addSublayer(hidden);
    root.addSublayer(child);
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{10, 20, 50, 40}));
}

TEST_F(LayerTest, AddingElsewhereMovesTheLayer)
{
    const auto first = addChild({0, 0, 50, 50});
    const auto second = addChild({50, 0, 50, 50});
    const auto child = std::make_shared<Layer>();
    first->addSublayer(child);
    second->addSublayer(child);
    EXPECT_THAT(first->sublayersInOrder(), IsEmpty());
    EXPECT_THAT(second->sublayersInOrder(), ElementsAre(child.get()));
    EXPECT_EQ(child->superlayer(), second.get());
}

TEST_F(LayerTest, SiblingsAreOrderedByPositionAndThenByAddition)
{
    const auto first = addChild({});
    const auto second = addChild({});
    const auto third = addChild({});
    first->setZPosition(2);
    EXPECT_THAT(root.sublayersInOrder(), ElementsAre(second.get(), third.get(), first.get()));
}

TEST_F(LayerTest, ManySiblingsOfOnePositionKeepTheOrderOfTheirAddition)
{
    std::vector<Layer*> added;
    for (int count = 0; count < 100; ++count)
        added.push_back(addChild({}).get());
    EXPECT_EQ(root.sublayersInOrder(), added);
}

TEST_F(LayerTest, SublayersOutliveTheirSuperlayer)
{
    const auto child = std::make_shared<Layer>();
    {
        Layer parent;
        parent.addSublayer(child);
    }
    EXPECT_EQ(child->superlayer(), nullptr);
    child->setNeedsDisplay({0, 0, 1, 1});
}

TEST_F(LayerTest, CoverageDrawsNothingByItself)
{
    root.setCoverage({{1, 2, 3, 4}});
    EXPECT_THAT(host.invalidated, IsEmpty());
    EXPECT_THAT(root.coverage(), ElementsAre(Rect{1, 2, 3, 4}));
}

TEST_F(LayerTest, TransactionCommitsOnceWhenItEnds)
{
    {
        const LayerTransaction transaction(root);
        root.setNeedsDisplay({0, 0, 1, 1});
        EXPECT_EQ(host.commits, 0);
    }
    EXPECT_EQ(host.commits, 1);
}

TEST_F(LayerTest, TransactionWithinAnotherCommitsWithIt)
{
    {
        const LayerTransaction outer(root);
        {
            const LayerTransaction inner(root);
            EXPECT_TRUE(host.isInTransaction());
        }
        EXPECT_EQ(host.commits, 0);
        EXPECT_TRUE(host.isInTransaction());
    }
    EXPECT_EQ(host.commits, 1);
    EXPECT_FALSE(host.isInTransaction());
}

TEST_F(LayerTest, TransactionOnALayerWithoutHostDoesNothing)
{
    const Layer lonely;
    const LayerTransaction transaction(lonely);
    EXPECT_EQ(lonely.host(), nullptr);
}

} // namespace
} // namespace nimbrale
