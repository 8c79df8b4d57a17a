// What layers cost: each picture is brought to the server once, what drawing took is given back, and a change of
// several layers is one step.

#include "platform/x11/surfaces/image_uploader.h"
#include "platform/x11/surfaces/surface_pictures.h"
#include "tests/desktop/layer_shapes_test.h"

#include <array>

namespace nimbrale::test {
namespace {

using X11LayerCostTest = X11LayerShapesTest;

TEST_F(X11LayerCostTest, anOpaquePictureIsCopiedAndNothingElse)
{
    startDesktop({});
    const auto panel = showOpaque();
    panel->rootLayer().setBackgroundColor(Color{0, 0, 0, 1});
    const auto layer = addLayer(panel->rootLayer(), {0, 0, 64, 48});
    const auto storage = host->makePixmap(noise({64, 48}, 1));
    SurfaceChanges changes;
    changes.advance({});
    layer->setContents(std::make_shared<x11::X11Surface>(storage, changes));
    host->pump();
    const auto requestsFor = [&](const PixelRect& changed) {
        changes.advance({changed});
        const unsigned before = xcb_no_operation(host->connection->get()).sequence;
        {
            const LayerTransaction transaction(*layer);
            layer->setContents(std::make_shared<x11::X11Surface>(storage, changes));
        }
        return xcb_no_operation(host->connection->get()).sequence - before - 1;
    };
    EXPECT_EQ(requestsFor({0, 0, 64, 48}), 2) << "the copy, and a mark for exposures";
    EXPECT_EQ(requestsFor({10, 10, 5, 5}), 2);
    layer->setCornerRadius(3);
    host->pump();
    EXPECT_GT(requestsFor({10, 10, 5, 5}), 2);
}

TEST_F(X11LayerCostTest, aPictureIsBroughtOnceForAsLongAsItIsShown)
{
    startDesktop({});
    x11::ImageUploader uploader(*host->connection);
    x11::SurfacePictures pictures(*host->connection, uploader);
    const auto requestsFor = [&](const Surface& surface) {
        const unsigned before = xcb_no_operation(host->connection->get()).sequence;
        EXPECT_NE(pictures.pixmap(surface).id, XCB_NONE);
        return xcb_no_operation(host->connection->get()).sequence - before - 1;
    };
    const auto surface = bufferSurfaceOf(noise({64, 48}, 1));
    const int user = 0;
    const int otherUser = 0;
    pictures.setShown(&user, {surface->storage()});
    pictures.setShown(&otherUser, {surface->storage()});
    EXPECT_GT(requestsFor(*surface), 0);
    EXPECT_EQ(requestsFor(*surface), 0);
    pictures.setShown(&user, {});
    EXPECT_EQ(requestsFor(*surface), 0) << "the other one still shows it";
    const auto another = bufferSurfaceOf(noise({64, 48}, 2));
    EXPECT_GT(requestsFor(*another), 0) << "no other surface is taken for it";
}

TEST_F(X11LayerCostTest, twoPanelsShowAPictureThatIsBroughtOnce)
{
    startDesktop({});
    const auto first = host->makePanel({0, 0, 64, 48}, PanelStyle::fullScreen);
    const auto second = host->makePanel({100, 0, 64, 48}, PanelStyle::fullScreen);
    std::array layers{addLayer(first->rootLayer(), {0, 0, 64, 48}), addLayer(second->rootLayer(), {0, 0, 64, 48})};
    first->orderFront();
    second->orderFront();
    host->pump();
    const std::uint32_t before = countOf("PIXMAP");

    BufferSurfacePool pool;
    for (int frame = 0; frame < 6; ++frame) {
        const QImage picture = noise({64, 48}, frame);
        auto canvas = pool.take(64, 48);
        for (int y = 0; y < 48; ++y)
            std::memcpy(canvas.pixels().row(y), picture.constScanLine(y), canvas.pixels().stride());
        const auto surface = BufferSurfacePool::finish(std::move(canvas), SurfaceAlpha::opaque);
        for (const auto& layer : layers)
            layer->setContents(surface);
        EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), picture));
        EXPECT_TRUE(imagesMatch(pictureOf({100, 0, 64, 48}), picture));
        EXPECT_LE(countOf("PIXMAP"), before + 2) << "the one that is shown, and the one for the next picture";
        EXPECT_GE(countOf("PIXMAP"), before + 1);
    }
    for (const auto& layer : layers)
        layer->setContents(nullptr);
    EXPECT_TRUE(host->pumpUntil([&] { return countOf("PIXMAP") == before; }, Milliseconds{8000}));
}

TEST_F(X11LayerCostTest, whatDrawingTookIsGivenBackAWhileAfter)
{
    startDesktop({});
    const auto panel = showOpaque();
    host->pump();
    const std::uint32_t pixmaps = countOf("PIXMAP");
    const std::uint32_t pictures = countOf("PICTURE");
    const auto layer = addLayer(panel->rootLayer(), {0, 0, 64, 48});
    layer->setBackgroundColor(Color{1, 0, 0, 1});
    const auto inner = addLayer(*layer, {0, 0, 30, 30});
    inner->setBackgroundColor(Color{0, 1, 0, 1});
    inner->setCornerRadius(4);
    for (int step = 0; step < 40; ++step) {
        layer->setOpacity(0.2 + step * 0.01);
        layer->setCornerRadius(step / 4.0);
        layer->setMasksToBounds(true);
        host->pump();
    }
    EXPECT_GT(countOf("PIXMAP"), pixmaps);
    EXPECT_LE(countOf("PIXMAP"), pixmaps + 12) << "masks and scratch pixmaps pile up";
    EXPECT_TRUE(host->pumpUntil([&] { return countOf("PIXMAP") == pixmaps; }, Milliseconds{8000}));
    EXPECT_EQ(countOf("PICTURE"), pictures);
}

/// The application's queue, with a count of what is posted.
class CountingQueue final : public MainQueue {
public:
    [[nodiscard]] std::chrono::nanoseconds now() const override { return queue_.now(); }
    void post(std::function<void()> work) override
    {
        ++posts;
        queue_.post(std::move(work));
    }
    void postAfter(std::chrono::nanoseconds delay, std::function<void()> work) override
    {
        queue_.postAfter(delay, std::move(work));
    }
    [[nodiscard]] std::unique_ptr<Timer> schedule(std::chrono::nanoseconds delay, std::function<void()> work) override
    {
        return queue_.schedule(delay, std::move(work));
    }
    [[nodiscard]] std::unique_ptr<Timer> scheduleRepeating(std::chrono::nanoseconds interval,
                                                           std::function<void()> work) override
    {
        return queue_.scheduleRepeating(interval, std::move(work));
    }

    int posts = 0;

private:
    QtMainQueue queue_;
};

TEST_F(X11LayerCostTest, aTransactionPostsNothing)
{
    startDesktop({});
    CountingQueue queue;
    x11::X11Panels panels(*host->connection, *host->events, *host->screens, queue,
                          std::make_shared<x11::PaintedRegions>());
    PanelOptions options;
    options.style = PanelStyle::fullScreen;
    options.frame = host->onScreen({0, 0, 64, 48});
    const auto panel = panels.create(options);
    panel->orderFront();
    host->pump();
    const auto layer = addLayer(panel->rootLayer(), {0, 0, 64, 48});
    int layouts = 0;
    layer->onLayout = [&] {
        ++layouts;
        layer->setBackgroundColor(Color{0, 1, 0, 1});
    };
    host->pump();
    queue.posts = 0;
    layouts = 0;

    for (int frame = 0; frame < 10; ++frame) {
        const LayerTransaction transaction(*layer);
        layer->setContents(bufferSurfaceOf(noise({64, 48}, frame)));
        layer->setNeedsLayout();
    }
    EXPECT_EQ(queue.posts, 0);
    EXPECT_EQ(layouts, 10);
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), noise({64, 48}, 9)));

    // Outside of one, several changes share a post.
    layer->setContents(nullptr);
    layer->setNeedsLayout();
    EXPECT_EQ(queue.posts, 1);
    EXPECT_TRUE(imagesMatch(pictureOf({0, 0, 64, 48}), filled({64, 48}, Qt::green)));
    EXPECT_EQ(queue.posts, 1) << "the layout in the commit needs no further one";
}

} // namespace
} // namespace nimbrale::test
