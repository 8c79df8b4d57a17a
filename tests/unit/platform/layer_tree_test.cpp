// Layers as a tree: their layout, their order and their transactions.

#include "tests/unit/platform/layer_fixture.h"

#include <gmock/gmock.h>
#include <string>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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
