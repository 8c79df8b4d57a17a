#include "platform/layer.h"

#include "tests/fakes/fake_surface.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class RecordingHost final : public LayerHost {
public:
    void invalidate(const Rect& area) override { invalidated.push_back(area); }
    void commit() override { ++commits; }

    std::vector<Rect> invalidated;
    int commits = 0;
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

TEST_F(LayerTest, ContentsInNewStorageInvalidateTheWholeFrame)
{
    const auto child = addChild({10, 20, 40, 20});
    child->setContents(std::make_shared<FakeSurface>(80, 40, 7));
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{10, 20, 40, 20}));
}

TEST_F(LayerTest, ContentsInTheSameStorageInvalidateOnlyWhatChanged)
{
    const auto child = addChild({10, 20, 40, 20});
    child->setContents(std::make_shared<FakeSurface>(80, 40, 7));
    host.invalidated.clear();
    child->setContents(std::make_shared<FakeSurface>(80, 40, 7, std::vector<PixelRect>{{8, 4, 20, 10}}));
    EXPECT_THAT(host.invalidated, ElementsAre(Rect{14, 22, 10, 5}));
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

TEST_F(LayerTest, TransactionOnALayerWithoutHostDoesNothing)
{
    const Layer lonely;
    const LayerTransaction transaction(lonely);
    EXPECT_EQ(lonely.host(), nullptr);
}

} // namespace
} // namespace nimbrale
