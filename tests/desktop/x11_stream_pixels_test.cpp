// What a stream on X11 delivers to a consumer that brings the pixels into the process.

#include "tests/desktop/stream_fixture.h"

#include "platform/x11/surfaces/x11_surface_reader.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <pthread.h>
#include <random>
#include <string>
#include <vector>

namespace nimbrale::test {
namespace {

std::string nameOfThisThread()
{
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    return name;
}

/// How many pieces of memory this process shares with servers.
long sharedPieces()
{
    std::ifstream maps("/proc/self/maps");
    return std::count_if(std::istream_iterator<std::string>(maps), {},
                         [](const std::string& word) { return word.starts_with("/SYSV"); });
}

struct PixelsCase {
    const char* name = "";
    PrivateDesktop::Options options = {};
    /// Whether the server lets pictures lie in the process.
    bool sharesPictures = true;
};

/// A stream whose pictures are read on its queue, each third of them not at all.
class X11StreamPixelsTest : public X11StreamTest {
protected:
    void begin(const Options& options)
    {
        X11StreamTest::begin(options);
        reader = std::move(*x11::X11SurfaceReader::create(desktop->displayName()));
        stream->onSample = [this](const CaptureSample& sample) {
            const std::lock_guard lock(mutex);
            if (++pictures % 3 == 1 && pictures > 1)
                return;
            const auto read = reader->read(*sample.surface);
            if (!read)
                return;
            bring(*read);
        };
    }
    void TearDown() override
    {
        stream.reset();
        reader.reset();
        X11StreamTest::TearDown();
    }
    /// Takes over what changed alone, as an encoder does.
    void bring(const SurfaceReader::Picture& picture)
    {
        const PixelBuffer& pixels = *picture.pixels;
        if (kept.width() != pixels.width() || kept.height() != pixels.height())
            kept = QImage(pixels.width(), pixels.height(), QImage::Format_RGB32);
        for (const PixelRect& rect : picture.changed) {
            for (int y = rect.y; y < rect.y + rect.height; ++y)
                std::memcpy(kept.scanLine(y) + static_cast<std::ptrdiff_t>(rect.x) * 4,
                            pixels.row(y) + static_cast<std::ptrdiff_t>(rect.x) * 4,
                            static_cast<std::size_t>(rect.width) * 4);
        }
    }
    [[nodiscard]] QImage keptPicture()
    {
        const std::lock_guard lock(mutex);
        return kept.copy();
    }
    [[nodiscard]] static StreamConfiguration readConfiguration()
    {
        StreamConfiguration result = configuration();
        result.readsPixels = true;
        return result;
    }

    std::unique_ptr<SurfaceReader> reader;
    std::mutex mutex;
    QImage kept;
    int pictures = 0;
};

class X11StreamPixelsOnServersTest : public X11StreamPixelsTest, public testing::WithParamInterface<PixelsCase> {};

INSTANTIATE_TEST_SUITE_P(
    , X11StreamPixelsOnServersTest,
    testing::Values(PixelsCase{"xvfb", {.server = PrivateDesktop::Server::xvfb}}, PixelsCase{"xvnc", {}},
                    PixelsCase{"withoutSharedMemory",
                               {.server = PrivateDesktop::Server::xvfb, .serverArguments = {"-extension", "MIT-SHM"}},
                               false}),
    [](const auto& parameter) { return std::string(parameter.param.name); });

TEST_P(X11StreamPixelsOnServersTest, whatIsReadIsExactlyWhatTheScreenShows)
{
    begin(GetParam().options);
    scene->add("pattern", {.geometry = {60, 40, 700, 500}, .seed = 5});
    ASSERT_TRUE(stream->start(filter(), readConfiguration()));
    ASSERT_TRUE(pumpUntil([&] { return stream->frames() > 0; }));
    EXPECT_EQ(dynamic_cast<const x11::X11Surface&>(*stream->last().surface).memory() != nullptr,
              GetParam().sharesPictures);
    std::mt19937 random(11);
    const auto below = [&random](int limit) { return std::uniform_int_distribution(0, limit - 1)(random); };
    for (int step = 0; step < 60; ++step) {
        for (int count = 1 + below(4); count > 0; --count)
            scene->fill("pattern",
                        {40 + below(390), 40 + below(290), 1 + below(step % 2 == 0 ? 6 : 300), 1 + below(60)},
                        QColor(below(256), below(256), below(256)));
        const QImage expected = desktop->screenshot(area);
        // The changes of a picture that is not read come with the next one, for which a pixel is drawn anew as it is.
        ASSERT_TRUE(pumpUntil([&] {
            if (keptPicture() == expected)
                return true;
            scene->fill("pattern", {45, 45, 1, 1}, expected.pixelColor(5, 5));
            return false;
        })) << "step "
            << step;
    }
}

TEST_F(X11StreamPixelsTest, aPictureThatIsHeldStaysAsItWas)
{
    begin({});
    stream->onSample = nullptr;
    scene->add("pattern", {.geometry = {60, 40, 700, 500}, .seed = 5});
    ASSERT_TRUE(stream->start(filter(), readConfiguration()));
    ASSERT_TRUE(pumpUntil([&] { return stream->frames() > 0; }));
    const CaptureSample held = stream->last();
    const QImage before = desktop->screenshot(area);
    for (const QColor& color : {QColor(Qt::red), QColor(Qt::green), QColor(Qt::blue)}) {
        scene->fill("pattern", {0, 0, 700, 500}, color);
        ASSERT_TRUE(becomes(desktop->screenshot(area)));
    }
    const auto read = reader->read(*held.surface);
    ASSERT_TRUE(read);
    bring(*read);
    EXPECT_TRUE(imagesMatch(kept, before));
    EXPECT_FALSE(imagesAreAlike(kept, desktop->screenshot(area))) << "the control";
}

TEST_F(X11StreamPixelsTest, aConsumerThatReadsIsNeverCalledOnTheThreadThatCaptures)
{
    begin({});
    scene->add("pattern", {.geometry = {60, 40, 700, 500}, .seed = 5});
    std::vector<std::string> threads;
    stream->onSample = [&](const CaptureSample&) {
        const std::lock_guard lock(mutex);
        threads.push_back(nameOfThisThread());
    };
    const auto threadsOf = [&](const StreamConfiguration& configuration) {
        threads.clear();
        EXPECT_TRUE(stream->start(filter(), configuration));
        EXPECT_TRUE(pumpUntil([&] { return stream->frames() > 0; }));
        for (int step = 0; step < 10; ++step) {
            const int frames = stream->frames();
            scene->fill("pattern", {100, 100, 50, 50}, step % 2 == 0 ? Qt::red : Qt::green);
            EXPECT_TRUE(pumpUntil([&] { return stream->frames() > frames; }));
        }
        EXPECT_TRUE(stream->stop());
        const std::lock_guard lock(mutex);
        return threads;
    };
    EXPECT_THAT(threadsOf(readConfiguration()), testing::Each("Nimbrale.frames"));
    EXPECT_THAT(threadsOf(configuration()), testing::Contains(testing::Not("Nimbrale.frames"))) << "the control";
}

TEST_F(X11StreamPixelsTest, theMemoryOfPicturesGoesWithThem)
{
    begin({});
    scene->add("pattern", {.geometry = {60, 40, 700, 500}, .seed = 5});
    const long before = sharedPieces();
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(stream->start(filter(), readConfiguration()));
        const int frames = stream->frames();
        scene->fill("pattern", {100, 100, 50, 50}, round % 2 == 0 ? Qt::red : Qt::green);
        ASSERT_TRUE(pumpUntil([&] { return stream->frames() > frames; }));
        EXPECT_GT(sharedPieces(), before) << "the control";
        ASSERT_TRUE(stream->stop());
        stream->forget();
    }
    {
        const std::lock_guard lock(mutex);
        reader.reset();
        stream->onSample = nullptr;
    }
    stream.reset();
    EXPECT_TRUE(pumpUntil([&] { return sharedPieces() == before; })) << sharedPieces() << " instead of " << before;
}

} // namespace
} // namespace nimbrale::test
