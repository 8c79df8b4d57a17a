#include "platform/x11/layers/layer_items.h"

#include "platform/buffer_surface.h"
#include "tests/fakes/fake_surface.h"

#include <gmock/gmock.h>
#include <utility>

namespace nimbrale::x11 {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr Color red{1, 0, 0, 1};
constexpr Color glass{1, 0, 0, 0.5};

class LayerItemsTest : public testing::Test {
protected:
    LayerItemsTest() { root.setFrame({0, 0, 200, 100}); }

    static std::shared_ptr<Layer> add(Layer& parent, const Rect& frame, std::optional<Color> color = red)
    {
        auto layer = std::make_shared<Layer>();
        layer->setFrame(frame);
        layer->setBackgroundColor(color);
        parent.addSublayer(layer);
        return layer;
    }
    [[nodiscard]] std::vector<LayerItem> items(double scale = 1) const { return flattenLayers(root, scale); }
    [[nodiscard]] LayerItem only(double scale = 1) const
    {
        std::vector<LayerItem> all = items(scale);
        EXPECT_THAT(all, SizeIs(1));
        return all.empty() ? LayerItem() : all.front();
    }

    Layer root;
};

TEST_F(LayerItemsTest, BackgroundContentsPaintingAndSublayersFollowEachOther)
{
    const auto layer = add(root, {10, 20, 30, 40});
    layer->setContents(std::make_shared<FakeSurface>(30, 40));
    layer->setPainter([](QPainter&, const Rect&) {});
    layer->setCoverage({{1, 1, 2, 2}});
    add(*layer, {1, 2, 3, 4});
    const auto all = items();
    ASSERT_THAT(all, SizeIs(4));
    EXPECT_EQ(all[0].kind, LayerItemKind::background);
    EXPECT_EQ(all[1].kind, LayerItemKind::contents);
    EXPECT_EQ(all[1].contentsRect, (Rect{10, 20, 30, 40}));
    EXPECT_EQ(all[2].kind, LayerItemKind::painting);
    EXPECT_THAT(all[2].parts, ElementsAre(PixelRect{11, 21, 2, 2}));
    EXPECT_EQ(all[3].kind, LayerItemKind::background);
    EXPECT_EQ(all[3].frame, (PixelRect{11, 22, 3, 4}));
    EXPECT_THAT(all[3].parts, ElementsAre(PixelRect{11, 22, 3, 4}));
}

TEST_F(LayerItemsTest, HiddenAndInvisibleLayersGiveNothingNorDoTheirSublayers)
{
    const auto layer = add(root, {10, 20, 30, 40});
    add(*layer, {0, 0, 5, 5});
    layer->setHidden(true);
    EXPECT_THAT(items(), IsEmpty());
    layer->setHidden(false);
    layer->setOpacity(0);
    EXPECT_THAT(items(), IsEmpty());
}

TEST_F(LayerItemsTest, BackgroundWithoutAlphaGivesNothing)
{
    add(root, {10, 20, 30, 40}, Color{1, 1, 1, 0});
    add(root, {10, 20, 30, 40}, std::nullopt);
    EXPECT_THAT(items(), IsEmpty());
}

TEST_F(LayerItemsTest, EdgesLieOnTheNearestPixelsAtEveryScale)
{
    add(root, {10, 21, 33, 15});
    EXPECT_EQ(only(1).frame, (PixelRect{10, 21, 33, 15}));
    EXPECT_EQ(only(1.25).frame, (PixelRect{13, 26, 41, 19}));
    EXPECT_EQ(only(1.5).frame, (PixelRect{15, 32, 50, 22}));
    EXPECT_EQ(only(2).frame, (PixelRect{20, 42, 66, 30}));
    EXPECT_EQ(only(3).frame, (PixelRect{30, 63, 99, 45}));
}

TEST_F(LayerItemsTest, NeighboursThatTouchInPointsTouchInPixels)
{
    for (const double scale : {1.25, 1.5, 1.75}) {
        Layer tree;
        add(tree, {0, 0, 33.3, 10});
        add(tree, {33.3, 0, 20.2, 10});
        add(tree, {53.5, 0, 7.3, 10});
        add(tree, {60.8, 0, 1, 10});
        const auto all = flattenLayers(tree, scale);
        for (std::size_t index = 0; index < 3; ++index)
            EXPECT_EQ(all.at(index).frame.right(), all.at(index + 1).frame.x) << index << " at " << scale;
    }
}

TEST_F(LayerItemsTest, CoverageIsRoundedOutward)
{
    EXPECT_EQ(outwardPixels({1, 1, 1, 1}, 1.5), (PixelRect{1, 1, 2, 2}));
    EXPECT_EQ(outwardPixels({0.1, 0.1, 0.2, 0.2}, 10), (PixelRect{1, 1, 2, 2}))
        << "not by the arithmetic's inexactness";
    EXPECT_EQ(outwardPixels({0.29, 0.57, 0.01, 0.01}, 100), (PixelRect{29, 57, 1, 1})) << "nor at the other edges";
    EXPECT_EQ(outwardPixels({5, 5, 0, 3}, 2), PixelRect{});
}

TEST_F(LayerItemsTest, OpaqueHidesAndTranslucentDoesNot)
{
    const auto layer = add(root, {10, 20, 30, 40});
    EXPECT_TRUE(only().isOpaque());
    layer->setBackgroundColor(glass);
    EXPECT_FALSE(only().isOpaque());
    layer->setBackgroundColor(std::nullopt);
    layer->setContents(std::make_shared<FakeSurface>(30, 40));
    EXPECT_TRUE(only().isOpaque());
    layer->setOpacity(0.99);
    EXPECT_FALSE(only().isOpaque());
    layer->setOpacity(1);
    layer->setCornerRadius(1);
    EXPECT_FALSE(only().isOpaque());
    layer->setCornerRadius(0);
    layer->setContents(
        std::make_shared<BufferSurface>(std::make_shared<PixelBuffer>(30, 40), SurfaceAlpha::premultiplied));
    EXPECT_FALSE(only().isOpaque());
    layer->setContents(nullptr);
    layer->setPainter([](QPainter&, const Rect&) {});
    layer->setCoverage({{0, 0, 30, 40}});
    EXPECT_FALSE(only().isOpaque());
}

TEST_F(LayerItemsTest, OpacityOfOneItemIsItsOwn)
{
    const auto outer = add(root, {0, 0, 100, 100}, std::nullopt);
    outer->setOpacity(0.5);
    add(*outer, {10, 20, 30, 40})->setOpacity(0.5);
    const LayerItem item = only();
    EXPECT_EQ(item.kind, LayerItemKind::background);
    EXPECT_DOUBLE_EQ(item.opacity, 0.25);
}

TEST_F(LayerItemsTest, OpacityOfSeveralItemsIsOneForAll)
{
    const auto layer = add(root, {10, 20, 30, 40});
    layer->setContents(std::make_shared<FakeSurface>(30, 40));
    layer->setOpacity(0.2);
    const LayerItem group = only();
    EXPECT_EQ(group.kind, LayerItemKind::group);
    EXPECT_EQ(group.opacity, 0.2);
    EXPECT_EQ(group.cornerRadius, 0);
    EXPECT_FALSE(group.isOpaque());
    ASSERT_THAT(group.members, SizeIs(2));
    EXPECT_EQ(group.members[0].opacity, 1);
    EXPECT_EQ(group.members[1].opacity, 1);
    EXPECT_EQ(group.members[1].kind, LayerItemKind::contents);
}

TEST_F(LayerItemsTest, GroupReachesAsFarAsItsMembers)
{
    const auto layer = add(root, {10, 20, 30, 40});
    add(*layer, {20, 0, 50, 10});
    layer->setOpacity(0.2);
    EXPECT_EQ(only().region().bounds(), (PixelRect{10, 20, 70, 40}));
}

TEST_F(LayerItemsTest, CornersAreRoundedInPixelsUpToHalfOfTheShorterSide)
{
    const auto layer = add(root, {10, 20, 30, 40});
    layer->setCornerRadius(8);
    EXPECT_EQ(only(1.5).cornerRadius, 12);
    EXPECT_EQ(only().kind, LayerItemKind::background);
    layer->setCornerRadius(100);
    EXPECT_EQ(only(2).cornerRadius, 30);
    layer->setCornerRadius(-3);
    EXPECT_EQ(only().cornerRadius, 0);
}

TEST_F(LayerItemsTest, OwnItemsAreRoundedAsOneAndSublayersAreNotUnlessTheyAreMasked)
{
    const auto layer = add(root, {10, 20, 30, 40});
    layer->setContents(std::make_shared<FakeSurface>(30, 40));
    layer->setCornerRadius(8);
    add(*layer, {20, 0, 50, 10});
    const auto loose = items();
    ASSERT_THAT(loose, SizeIs(2));
    EXPECT_EQ(loose[0].kind, LayerItemKind::group);
    EXPECT_EQ(loose[0].cornerRadius, 8);
    EXPECT_THAT(loose[0].members, SizeIs(2));
    EXPECT_EQ(loose[1].cornerRadius, 0);
    EXPECT_EQ(loose[1].frame, (PixelRect{30, 20, 50, 10}));

    layer->setMasksToBounds(true);
    const LayerItem masked = only();
    EXPECT_EQ(masked.kind, LayerItemKind::group);
    EXPECT_EQ(masked.cornerRadius, 8);
    EXPECT_EQ(masked.frame, (PixelRect{10, 20, 30, 40}));
    ASSERT_THAT(masked.members, SizeIs(3));
    EXPECT_THAT(masked.members[2].parts, ElementsAre(PixelRect{30, 20, 10, 10}));
    EXPECT_EQ(masked.members[2].frame, (PixelRect{30, 20, 50, 10}));
}

TEST_F(LayerItemsTest, RoundingASublayerOfAnotherPlaceIsDoneByAGroup)
{
    const auto layer = add(root, {10, 20, 30, 40}, std::nullopt);
    add(*layer, {5, 5, 10, 10});
    layer->setMasksToBounds(true);
    layer->setCornerRadius(8);
    const LayerItem group = only();
    EXPECT_EQ(group.kind, LayerItemKind::group);
    EXPECT_EQ(group.frame, (PixelRect{10, 20, 30, 40}));
    EXPECT_EQ(group.members.at(0).cornerRadius, 0);
}

TEST_F(LayerItemsTest, RoundedWithinRoundedKeepsBoth)
{
    const auto layer = add(root, {10, 20, 30, 30}, std::nullopt);
    const auto inner = add(*layer, {0, 0, 30, 30});
    inner->setCornerRadius(15);
    layer->setMasksToBounds(true);
    layer->setCornerRadius(4);
    const LayerItem group = only();
    EXPECT_EQ(group.cornerRadius, 4);
    EXPECT_EQ(group.members.at(0).cornerRadius, 15);
}

TEST_F(LayerItemsTest, RoundedAndFadedIsOneGroup)
{
    const auto layer = add(root, {10, 20, 30, 40});
    layer->setContents(std::make_shared<FakeSurface>(30, 40));
    layer->setCornerRadius(8);
    layer->setOpacity(0.2);
    const LayerItem group = only();
    EXPECT_EQ(group.cornerRadius, 8);
    EXPECT_EQ(group.opacity, 0.2);
    EXPECT_EQ(group.members.at(0).kind, LayerItemKind::background);
}

TEST_F(LayerItemsTest, MaskingCutsPartsAndDropsWhatIsOutside)
{
    const auto layer = add(root, {10, 20, 30, 40}, std::nullopt);
    layer->setMasksToBounds(true);
    const auto half = add(*layer, {20, 30, 50, 50});
    add(*layer, {30, 0, 5, 5});
    add(*half, {-5, -5, 10, 10}, glass);
    const auto all = items();
    ASSERT_THAT(all, SizeIs(2));
    EXPECT_THAT(all[0].parts, ElementsAre(PixelRect{30, 50, 10, 10}));
    EXPECT_EQ(all[0].clip, (PixelRect{10, 20, 30, 40}));
    EXPECT_TRUE(all[0].isOpaque()) << "a straight cut needs no blending";
    EXPECT_THAT(all[1].parts, ElementsAre(PixelRect{25, 45, 10, 10}));
}

TEST_F(LayerItemsTest, ClipsOfSeveralLayersAddUp)
{
    const auto outer = add(root, {0, 0, 50, 50}, std::nullopt);
    outer->setMasksToBounds(true);
    const auto inner = add(*outer, {20, 20, 50, 50}, std::nullopt);
    inner->setMasksToBounds(true);
    add(*inner, {-100, -100, 300, 300});
    EXPECT_EQ(only().clip, (PixelRect{20, 20, 30, 30}));
    EXPECT_THAT(only().parts, ElementsAre(PixelRect{20, 20, 30, 30}));
}

TEST_F(LayerItemsTest, MembersOfAGroupAreClippedToo)
{
    const auto outer = add(root, {0, 0, 50, 50}, std::nullopt);
    outer->setMasksToBounds(true);
    const auto inner = add(*outer, {40, 40, 50, 50});
    inner->setContents(std::make_shared<FakeSurface>(50, 50));
    inner->setOpacity(0.5);
    const LayerItem group = only();
    EXPECT_THAT(group.parts, ElementsAre(PixelRect{40, 40, 10, 10}));
    EXPECT_THAT(group.members.at(1).parts, ElementsAre(PixelRect{40, 40, 10, 10}));
}

TEST_F(LayerItemsTest, ContentsFillTheFrameInPixelsOrReachOut)
{
    const auto layer = add(root, {10, 20, 30, 30}, std::nullopt);
    layer->setContents(std::make_shared<FakeSurface>(80, 40));
    EXPECT_EQ(only(1.5).contentsRect, (Rect{15, 30, 45, 45}));
    layer->setContentsGravity(ContentsGravity::resizeAspectFill);
    EXPECT_EQ(only(1.5).contentsRect, (Rect{-7.5, 30, 90, 45}));
    EXPECT_THAT(only(1.5).parts, ElementsAre(PixelRect{15, 30, 45, 45}));
}

TEST_F(LayerItemsTest, PixelForPixelIsUnscaledUnflippedAndOnWholePixels)
{
    const auto layer = add(root, {10, 20, 30, 30}, std::nullopt);
    layer->setContents(std::make_shared<FakeSurface>(30, 30));
    EXPECT_TRUE(only().isPixelForPixel());
    EXPECT_FALSE(only(2).isPixelForPixel());
    layer->setMirrored(true);
    EXPECT_FALSE(only().isPixelForPixel());
    layer->setMirrored(false);
    layer->setContents(std::make_shared<FakeSurface>(30, 60));
    EXPECT_FALSE(only().isPixelForPixel());
    layer->setContentsGravity(ContentsGravity::resizeAspectFill);
    EXPECT_TRUE(only().isPixelForPixel());
    layer->setContents(std::make_shared<FakeSurface>(30, 61));
    EXPECT_FALSE(only().isPixelForPixel()) << "the halves of what sticks out end within a pixel";
    layer->setContents(std::make_shared<FakeSurface>(61, 30));
    EXPECT_FALSE(only().isPixelForPixel());
}

TEST_F(LayerItemsTest, FilterReachesBeyondTheChangeInsideOfAScaledPictureOnly)
{
    const auto layer = add(root, {10, 20, 60, 60}, std::nullopt);
    layer->setContents(std::make_shared<FakeSurface>(30, 30));
    PixelRegion dirty(30, 30, 20, 10);
    growByFilter(items(), dirty);
    EXPECT_EQ(dirty.bounds(), (PixelRect{27, 27, 26, 16}));

    PixelRegion atTheEdge(10, 20, 5, 5);
    growByFilter(items(), atTheEdge);
    EXPECT_EQ(atTheEdge.bounds(), (PixelRect{10, 20, 8, 8}));

    for (const auto& [width, height] : {std::pair{15, 30}, {30, 15}}) {
        layer->setContents(std::make_shared<FakeSurface>(width, height));
        PixelRegion inUnequal(30, 30, 10, 10);
        growByFilter(items(), inUnequal);
        EXPECT_EQ(inUnequal.bounds(), (PixelRect{25, 25, 20, 20})) << "by the larger of both factors";
    }

    layer->setContents(std::make_shared<FakeSurface>(60, 60));
    PixelRegion exact(30, 30, 10, 10);
    growByFilter(items(), exact);
    EXPECT_EQ(exact.bounds(), (PixelRect{30, 30, 10, 10}));

    layer->setContents(std::make_shared<FakeSurface>(30, 30));
    layer->setBackgroundColor(red);
    layer->setOpacity(0.5);
    PixelRegion inGroup(30, 30, 10, 10);
    growByFilter(items(), inGroup);
    EXPECT_EQ(inGroup.bounds(), (PixelRect{27, 27, 16, 16}));
}

TEST_F(LayerItemsTest, OriginOfTheRootDoesNotCount)
{
    root.setFrame({70, 80, 200, 100});
    root.setBackgroundColor(red);
    EXPECT_EQ(only().frame, (PixelRect{0, 0, 200, 100}));
}

} // namespace
} // namespace nimbrale::x11
