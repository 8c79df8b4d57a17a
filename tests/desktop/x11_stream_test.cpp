// What a stream on X11 delivers: times, how many at once, and how it ends.

#include "tests/desktop/stream_fixture.h"
#include "tests/support/request_counter.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale::test {
namespace {

using Clock = std::chrono::steady_clock;

TEST_F(X11StreamTest, aSizeThatTheServerHasNoPicturesOfFailsTheStart)
{
    begin();
    EXPECT_FALSE(stream->start(filter(), configuration(0, 300)));
    EXPECT_EQ(stream->error.code, ErrorCode::captureFailedToStart);
    EXPECT_FALSE(makeStream()->start(filter(), configuration(400, 40000)));
    EXPECT_FALSE(makeStream()->start(filter(), configuration(-5, 300)));
    EXPECT_TRUE(makeStream()->start(filter(), configuration(400, 300))) << "the control";
}

TEST_F(X11StreamTest, presentationTimesRiseAndAreThoseOfTheComposition)
{
    begin();
    scene->add("pattern", {.geometry = {60, 40, 700, 500}, .seed = 5});
    std::vector<std::pair<std::chrono::nanoseconds, Clock::time_point>> arrivals;
    std::mutex mutex;
    const auto end = endStreamWithScope();
    stream->onSample = [&](const CaptureSample& sample) {
        const std::lock_guard lock(mutex);
        arrivals.emplace_back(sample.presentationTime, Clock::now());
    };
    ASSERT_TRUE(stream->start(filter(), configuration()));
    ASSERT_TRUE(pumpUntil([&] { return stream->frames() > 0; }));
    std::vector<Clock::time_point> changes;
    for (int step = 0; step < 40; ++step) {
        const int frames = stream->frames();
        changes.push_back(Clock::now());
        scene->fill("pattern", {100, 100, 50, 50}, step % 2 == 0 ? Qt::red : Qt::green);
        ASSERT_TRUE(pumpUntil([&] { return stream->frames() > frames; }));
        EXPECT_TRUE(isQuiet(Milliseconds{15}));
    }
    ASSERT_EQ(arrivals.size(), changes.size() + 1);
    std::vector<double> delays;
    for (std::size_t index = 1; index < arrivals.size(); ++index) {
        const auto [presentation, arrival] = arrivals[index];
        EXPECT_GT(presentation, arrivals[index - 1].first);
        EXPECT_GE(presentation, changes[index - 1].time_since_epoch()) << "not before what it shows was drawn";
        EXPECT_LE(presentation, arrival.time_since_epoch());
        delays.push_back(std::chrono::duration<double, std::milli>(arrival.time_since_epoch() - presentation).count());
    }
    std::sort(delays.begin(), delays.end());
    // What was composed is delivered at once, so that the arrival tells when that was.
    EXPECT_LT(delays[delays.size() * 9 / 10], 5);
    RecordProperty("p50_microseconds", static_cast<int>(1000 * delays[delays.size() / 2]));
}

// Any connection may draw from it at once.
TEST_F(X11StreamTest, whatIsDeliveredTheServerHasFinished)
{
    startDesktop({});
    captured.reset();
    const auto slowRoad = RequestCounter::start(desktop->displayName());
    ASSERT_TRUE(slowRoad);
    captured = std::make_unique<CapturedDesktop>(*desktop, slowRoad->displayName());
    scene->add("pattern", {.geometry = {60, 40, 700, 500}, .seed = 5});
    stream = makeStream();
    std::vector<QRgb> asDelivered;
    std::mutex mutex;
    const auto end = endStreamWithScope();
    stream->onSample = [&](const CaptureSample& sample) {
        const std::lock_guard lock(mutex);
        asDelivered.push_back(stream->imageOf(*sample.surface).pixel(50, 50));
    };
    ASSERT_TRUE(stream->start(filter(), configuration()));
    ASSERT_TRUE(pumpUntil([&] { return stream->frames() > 0; }));
    slowRoad->delayRequests(Milliseconds{20});
    for (const QColor color : {Qt::red, Qt::green, Qt::blue, Qt::red}) {
        const int frames = stream->frames();
        scene->fill("pattern", {0, 0, 700, 500}, color);
        ASSERT_TRUE(pumpUntil([&] { return stream->frames() > frames; }));
        const std::lock_guard lock(mutex);
        EXPECT_EQ(asDelivered.back(), color.rgb());
    }
    stream.reset();
    captured.reset();
}

TEST_F(X11StreamTest, noMoreFramesAreMadeThanTheQueueIsDeep)
{
    begin();
    scene->add("pattern", {.geometry = {60, 40, 700, 500}, .seed = 5});
    for (const int depth : {1, 2, 6}) {
        stream = makeStream();
        stream->holdsAll = true;
        StreamConfiguration deep = configuration();
        deep.queueDepth = depth;
        ASSERT_TRUE(stream->start(filter(), deep));
        ASSERT_TRUE(pumpUntil([&] { return stream->frames() > 0; }));
        std::vector<QImage> asDelivered{stream->image()};
        for (int step = 0; step < depth + 4; ++step) {
            const int frames = stream->frames();
            scene->fill("pattern", {100 + 7 * step, 100 + 5 * step, 50, 50}, QColor(40 * step % 256, 99, 255 - step));
            const bool isDelivered = pumpUntil([&] { return stream->frames() > frames; }, Milliseconds{200});
            EXPECT_EQ(isDelivered, static_cast<int>(asDelivered.size()) < depth) << depth << ", step " << step;
            if (isDelivered)
                asDelivered.push_back(stream->image());
        }
        ASSERT_EQ(stream->held.size(), static_cast<std::size_t>(depth));
        for (std::size_t index = 0; index < stream->held.size(); ++index)
            EXPECT_TRUE(imagesMatch(stream->imageOf(*stream->held[index].surface), asDelivered[index]))
                << "nobody draws into a frame that is held";
        // One is let go of, and what changed meanwhile comes in one.
        stream->held.erase(stream->held.begin());
        if (depth == 1)
            stream->forget();
        EXPECT_TRUE(becomes(desktop->screenshot(area)));
        EXPECT_TRUE(isQuiet());
        stream->destroy();
    }
}

TEST_F(X11StreamTest, aFrameMayOutliveTheCapture)
{
    begin();
    scene->add("pattern", {.geometry = {60, 40, 700, 500}, .seed = 5});
    StreamConfiguration shallow = configuration();
    shallow.queueDepth = 1;
    ASSERT_TRUE(stream->start(filter(), shallow));
    ASSERT_TRUE(pumpUntil([&] { return stream->frames() > 0; }));
    scene->fill("pattern", {100, 100, 50, 50}, Qt::red);
    EXPECT_TRUE(isQuiet(Milliseconds{100})) << "the capture waits for the frame";
    const std::shared_ptr<const Surface> frame = stream->last().surface;
    const QImage image = stream->imageOf(*frame);
    stream->destroy();
    EXPECT_TRUE(imagesMatch(stream->imageOf(*frame), image));
}

TEST_F(X11StreamTest, aStreamWhoseDisplayGoesSaysSoOnce)
{
    begin();
    captured.reset();
    ASSERT_TRUE(desktop->arrangeOutputs({{0, 0, 1280, 720}, {1280, 0, 800, 600}}));
    captured = std::make_unique<CapturedDesktop>(*desktop);
    const auto& displays = captured->screens().all();
    ASSERT_EQ(displays.size(), 2u);
    const DisplayID second = displays[displays[0].pixels.x == 1280 ? 0 : 1].screen.displayID;
    const auto onMain = makeStream();
    const auto onSecond = makeStream();
    const auto stopped = makeStream();
    ContentFilter secondFilter = filter();
    secondFilter.displayID = second;
    ASSERT_TRUE(onMain->start(filter(), configuration()));
    ASSERT_TRUE(onSecond->start(secondFilter, configuration()));
    ASSERT_TRUE(stopped->start(secondFilter, configuration()));
    ASSERT_TRUE(pumpUntil([&] { return onMain->frames() > 0 && onSecond->frames() > 0; }));
    ASSERT_TRUE(stopped->stop());
    EXPECT_TRUE(onSecond->ends.empty());

    desktop->unplug(desktop->outputName(1));
    ASSERT_TRUE(pumpUntil([&] { return !onSecond->ends.empty(); }));
    EXPECT_EQ(onSecond->ends[0].code, ErrorCode::captureFailedToStart);
    EXPECT_NE(onSecond->ends[0].message.find("display"), std::string::npos);
    const int frames = onSecond->frames();
    desktop->plug(desktop->outputName(1), {1280, 0, 800, 600});
    scene->add("news", {.geometry = {1280, 0, 800, 600}, .seed = 3});
    scene->add("mainNews", {.geometry = {0, 0, 800, 600}, .seed = 3});
    EXPECT_TRUE(pumpUntil([&] { return onMain->image() == desktop->screenshot(area); })) << "the other one goes on";
    EXPECT_FALSE(pumpUntil([&] { return onSecond->frames() != frames; }, Milliseconds{300}));
    EXPECT_EQ(onSecond->ends.size(), 1u);
    EXPECT_TRUE(onMain->ends.empty());
    EXPECT_TRUE(stopped->ends.empty());
    EXPECT_TRUE(onSecond->stop()) << "still answers";
    EXPECT_EQ(onSecond->ends.size(), 1u);
}

TEST_F(X11StreamTest, theServersEndEndsEveryRunningStreamOnce)
{
    begin();
    const auto stopped = makeStream();
    const auto second = makeStream();
    ASSERT_TRUE(stream->start(filter(), configuration()));
    ASSERT_TRUE(second->start(filter(), configuration(100, 100)));
    ASSERT_TRUE(stopped->start(filter(), configuration()));
    ASSERT_TRUE(stopped->stop());
    EXPECT_TRUE(stream->ends.empty());
    scene.reset();
    desktop->server().terminate();
    EXPECT_TRUE(pumpUntil([&] { return !stream->ends.empty() && !second->ends.empty(); }));
    EXPECT_EQ(stream->ends[0].code, ErrorCode::permanent);
    (void)pumpUntil([] { return false; }, Milliseconds{100});
    EXPECT_EQ(stream->ends.size(), 1u);
    EXPECT_EQ(second->ends.size(), 1u);
    EXPECT_TRUE(stopped->ends.empty());
}

TEST_F(X11StreamTest, soundIsRefusedWithAReason)
{
    begin();
    ASSERT_TRUE(stream->start(filter(), configuration()));
    SerialQueue queue("sound");
    const Result<void> added = stream->stream().addOutput(OutputType::audio, queue, [](const CaptureSample&) {});
    ASSERT_FALSE(added);
    EXPECT_EQ(added.error().code, ErrorCode::unsupported);
    EXPECT_NE(added.error().message.find("no sound"), std::string::npos);
    scene->add("news", {.geometry = {0, 0, 800, 600}, .seed = 3});
    EXPECT_TRUE(becomes(desktop->screenshot(area))) << "pictures go on";
}

TEST_F(X11StreamTest, noOlderPictureComesAfterTheCompletionOfAnUpdate)
{
    begin();
    const auto video = desktop->spawn("nimbrale_animation", {"video", "0", "0", "800", "600", "60", "0"});
    ASSERT_TRUE(video);
    // The width tells under which configuration a picture was composed.
    constexpr int firstWidth = 300;
    std::atomic<int> completedWidth = 0;
    std::atomic<int> older = 0;
    std::atomic<int> samples = 0;
    const auto end = endStreamWithScope();
    stream->onSample = [&](const CaptureSample& sample) {
        ++samples;
        older += sample.surface->width() < completedWidth;
    };
    StreamConfiguration next = configuration();
    const auto setWidth = [&next](int width) {
        next.sourceRect = Rect{10, 10, static_cast<double>(width), 200};
        next.width = width;
        next.height = 200;
    };
    setWidth(firstWidth);
    ASSERT_TRUE(stream->start(filter(), next));
    ASSERT_TRUE(pumpUntil([&] { return stream->frames() > 3; }));
    int pending = 0;
    for (int update = 1; update <= 200; ++update) {
        setWidth(firstWidth + update);
        ++pending;
        stream->stream().updateConfiguration(next, [&, width = firstWidth + update](const Result<void>& result) {
            EXPECT_TRUE(result);
            --pending;
            completedWidth = width;
        });
        const int before = samples;
        // Some follow each other at once, some have pictures in between.
        if (update % 3 != 0) {
            ASSERT_TRUE(pumpUntil([&] { return pending == 0 && samples > before; }));
        }
    }
    EXPECT_GT(samples, 130);
    EXPECT_EQ(older, 0);
}

TEST_F(X11StreamTest, aHandlerMayReadThePictureAndUpdateAndStopItsStream)
{
    begin();
    scene->add("pattern", {.geometry = {60, 40, 700, 500}, .seed = 5});
    auto reader = std::move(*captured->capture().makeSurfaceReader());
    constexpr int updatedWidth = 200;
    std::atomic<int> reads = 0;
    std::vector<std::string> log;
    // The main thread, which only pumps meanwhile, is told of the completions.
    const auto logs = [&log](const std::string& name) {
        return [&log, name](const Result<void>& result) { log.push_back(result ? name : "failed"); };
    };
    bool isUpdated = false;
    bool isStopped = false;
    const auto end = endStreamWithScope();
    stream->onSample = [&](const CaptureSample& sample) {
        reads += reader->read(*sample.surface).has_value() ? 1 : 0;
        if (!std::exchange(isUpdated, true))
            stream->stream().updateConfiguration(configuration(updatedWidth, 150), logs("updated"));
        if (sample.surface->width() == updatedWidth && !std::exchange(isStopped, true))
            stream->stream().stop(logs("stopped"));
    };
    ASSERT_TRUE(stream->start(filter(), configuration()));
    int shade = 0;
    const auto draw = [&] { scene->fill("pattern", {100, 100, 50, 50}, QColor(++shade % 256, 99, 0)); };
    EXPECT_TRUE(pumpUntil([&] {
        draw();
        return log.size() == 2;
    }));
    EXPECT_EQ(log, (std::vector<std::string>{"updated", "stopped"}));
    const int frames = stream->frames();
    EXPECT_EQ(stream->last().surface->width(), updatedWidth);
    EXPECT_FALSE(pumpUntil(
        [&] {
            draw();
            return stream->frames() != frames;
        },
        Milliseconds{200}))
        << "nothing comes after the completion of a stop";
    EXPECT_EQ(reads, frames);
}

TEST_F(X11StreamTest, framesKeepTheirIntervalAndFollowAChangedRate)
{
    begin();
    const auto video = desktop->spawn("nimbrale_animation", {"video", "0", "0", "800", "600", "120", "0"});
    ASSERT_TRUE(video);
    std::vector<std::chrono::nanoseconds> times;
    std::mutex mutex;
    const auto end = endStreamWithScope();
    stream->onSample = [&](const CaptureSample& sample) {
        const std::lock_guard lock(mutex);
        times.push_back(sample.presentationTime);
    };
    StreamConfiguration paced = configuration();
    paced.minimumFrameInterval = {1, 20};
    ASSERT_TRUE(stream->start(filter(), paced));
    ASSERT_TRUE(pumpUntil([&] { return stream->frames() > 3; }));
    for (const int rate : {20, 50, 10}) {
        paced.minimumFrameInterval = {1, rate};
        ASSERT_TRUE(stream->update(paced));
        const int settled = stream->frames() + 1;
        ASSERT_TRUE(pumpUntil([&] { return stream->frames() > settled; }));
        {
            const std::lock_guard lock(mutex);
            times.clear();
        }
        (void)pumpUntil([] { return false; }, Milliseconds{1000});
        const std::lock_guard lock(mutex);
        ASSERT_GT(times.size(), 2u);
        const double interval = 1000.0 / rate;
        // Each frame has a tick of its own, though one that comes late may be close to the next.
        const auto milliseconds = [](std::chrono::nanoseconds time) {
            return 1e-6 * static_cast<double>(time.count());
        };
        for (std::size_t first = 0; first < times.size(); ++first) {
            for (std::size_t last = first + 2; last < times.size(); ++last)
                ASSERT_GE(milliseconds(times[last] - times[first]),
                          interval * static_cast<double>(last - first - 1) - 1)
                    << "at " << rate << " a second";
        }
        const double average = std::chrono::duration<double>(times.back() - times.front()).count() * 1000 /
                               static_cast<double>(times.size() - 1);
        EXPECT_LE(average, interval * 1.25) << "at " << rate << " a second";
    }
}

TEST_F(X11StreamTest, twoStreamsAtOnceEachShowTheirOwn)
{
    begin();
    scene->add("pattern", {.geometry = {0, 0, 1280, 720}, .seed = 5});
    const auto second = makeStream();
    StreamConfiguration other = configuration(300, 200);
    other.sourceRect = Rect{300, 200, 300, 200};
    other.minimumFrameInterval = {1, 30};
    ASSERT_TRUE(stream->start(filter(), configuration()));
    ASSERT_TRUE(second->start(filter(), other));
    for (int step = 0; step < 30; ++step) {
        scene->fill("pattern", {250 + 3 * step, 150 + 2 * step, 120, 90}, QColor(8 * step, 200, 255 - 8 * step));
        if (step % 10 != 9)
            continue;
        EXPECT_TRUE(becomes(desktop->screenshot(area)));
        EXPECT_TRUE(pumpUntil([&] { return second->image() == desktop->screenshot({300, 200, 300, 200}); }));
    }
    // One ends, the other goes on.
    ASSERT_TRUE(second->stop());
    const int frames = second->frames();
    scene->fill("pattern", {300, 200, 50, 50}, Qt::black);
    EXPECT_TRUE(becomes(desktop->screenshot(area)));
    EXPECT_EQ(second->frames(), frames);
}

} // namespace
} // namespace nimbrale::test
