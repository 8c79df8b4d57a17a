#pragma once

#include "platform/screen_capture.h"
#include "tests/fakes/fake_surface.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale {

/// What a test sees of a stream and does to it; outlives the stream. Completions wait until the test runs the oldest
/// one of their kind, on the test's own thread, which stands for the main thread.
class FakeCaptureStream {
public:
    using Completion = CaptureStream::Completion;

    ContentFilter filter;              ///< given last
    StreamConfiguration configuration; ///< given last
    std::vector<ContentFilter> filterUpdates;
    std::vector<StreamConfiguration> configurationUpdates;
    std::vector<OutputType> outputs;
    std::string queueLabel;
    int starts = 0;
    int stops = 0;
    bool isAlive = true;
    std::deque<Completion> pendingStarts;
    std::deque<Completion> pendingStops;
    std::deque<Completion> pendingConfigurationUpdates;
    std::deque<Completion> pendingFilterUpdates;

    void completeStart(Result<void> result = {}) { completeOldest(pendingStarts, std::move(result)); }
    void completeStop(Result<void> result = {}) { completeOldest(pendingStops, std::move(result)); }
    void completeConfigurationUpdate(Result<void> result = {})
    {
        completeOldest(pendingConfigurationUpdates, std::move(result));
    }
    void completeFilterUpdate(Result<void> result = {}) { completeOldest(pendingFilterUpdates, std::move(result)); }

    /// Hands `sample` to the handler of its type on the stream's queue and returns when the handler has. A type without
    /// a handler is dropped.
    void deliver(const CaptureSample& sample)
    {
        const auto handler = handlers_.find(sample.type);
        if (!isAlive || handler == handlers_.end())
            return;
        std::promise<void> done;
        queue_->post([&handler = handler->second, &sample, &done] {
            handler(sample);
            done.set_value();
        });
        done.get_future().wait();
    }
    /// A complete picture of that many pixels.
    void deliverPicture(int width, int height, std::chrono::nanoseconds presentationTime = {})
    {
        deliver({OutputType::screen, FrameStatus::complete, std::make_shared<FakeSurface>(width, height),
                 presentationTime});
    }
    /// A piece of sound that begins at that time.
    void deliverSound(AudioBuffer sound, std::chrono::nanoseconds presentationTime)
    {
        deliver({OutputType::audio, std::nullopt, nullptr, presentationTime,
                 std::make_shared<const AudioBuffer>(std::move(sound))});
    }
    void stopByItself(Error error) { onStopped_(std::move(error)); }

    /// A completion may own the very stream that keeps it for a test that never calls it.
    void dropPending()
    {
        for (std::deque<Completion>* pending :
             {&pendingStarts, &pendingStops, &pendingConfigurationUpdates, &pendingFilterUpdates})
            std::exchange(*pending, {});
    }

private:
    friend class FakeScreenCapture;
    friend class FakeCaptureStreamHandle;

    static void completeOldest(std::deque<Completion>& pending, Result<void> result)
    {
        const Completion completion = std::move(pending.at(0));
        pending.pop_front();
        completion(std::move(result));
    }

    SerialQueue* queue_ = nullptr;
    std::map<OutputType, CaptureStream::SampleHandler> handlers_;
    std::function<void(Error)> onStopped_;
    Result<void> addOutputResult_;
};

/// What the code under test owns.
class FakeCaptureStreamHandle final : public CaptureStream {
public:
    explicit FakeCaptureStreamHandle(std::shared_ptr<FakeCaptureStream> stream) : stream_(std::move(stream)) {}
    ~FakeCaptureStreamHandle() override
    {
        stream_->isAlive = false;
        stream_->handlers_.clear();
    }
    FakeCaptureStreamHandle(const FakeCaptureStreamHandle&) = delete;
    FakeCaptureStreamHandle& operator=(const FakeCaptureStreamHandle&) = delete;

    [[nodiscard]] Result<void> addOutput(OutputType type, SerialQueue& queue, SampleHandler handler) override
    {
        stream_->outputs.push_back(type);
        stream_->queueLabel = queue.label();
        if (!stream_->addOutputResult_)
            return stream_->addOutputResult_;
        stream_->queue_ = &queue;
        stream_->handlers_[type] = std::move(handler);
        return {};
    }
    void start(Completion completion) override
    {
        ++stream_->starts;
        stream_->pendingStarts.push_back(std::move(completion));
    }
    void stop(Completion completion) override
    {
        ++stream_->stops;
        stream_->pendingStops.push_back(std::move(completion));
    }
    void updateConfiguration(const StreamConfiguration& configuration, Completion completion) override
    {
        stream_->configuration = configuration;
        stream_->configurationUpdates.push_back(configuration);
        stream_->pendingConfigurationUpdates.push_back(std::move(completion));
    }
    void updateContentFilter(const ContentFilter& filter, Completion completion) override
    {
        stream_->filter = filter;
        stream_->filterUpdates.push_back(filter);
        stream_->pendingFilterUpdates.push_back(std::move(completion));
    }

private:
    std::shared_ptr<FakeCaptureStream> stream_;
};

/// Hands out black pictures of the surfaces' sizes.
class FakeSurfaceReader final : public SurfaceReader {
public:
    [[nodiscard]] Result<Picture> read(const Surface& surface) override
    {
        pixels_.emplace(surface.width(), surface.height());
        for (int y = 0; y < surface.height(); ++y)
            std::fill_n(pixels_->row(y), pixels_->stride(), std::byte{0});
        return Picture{&*pixels_, surface.changedSince(std::exchange(identifier_, surface.identifier()))};
    }

private:
    std::optional<PixelBuffer> pixels_;
    std::uint64_t identifier_ = 0;
};

/// Questions for content wait until the test answers the oldest one.
class FakeScreenCapture final : public ScreenCapture {
public:
    FakeScreenCapture() = default;
    ~FakeScreenCapture() override
    {
        for (const auto& stream : streams)
            stream->dropPending();
    }
    FakeScreenCapture(const FakeScreenCapture&) = delete;
    FakeScreenCapture& operator=(const FakeScreenCapture&) = delete;

    [[nodiscard]] bool preflightAccess() const override { return isPermitted; }
    void requestAccess() override { ++accessRequests; }
    void shareableContent(ContentCompletion completion) override
    {
        ++contentRequests;
        pendingContent.push_back(std::move(completion));
    }
    [[nodiscard]] std::unique_ptr<CaptureStream> makeStream(const ContentFilter& filter,
                                                            const StreamConfiguration& configuration,
                                                            std::function<void(Error)> onStopped) override
    {
        auto stream = std::make_shared<FakeCaptureStream>();
        stream->filter = filter;
        stream->configuration = configuration;
        stream->onStopped_ = std::move(onStopped);
        stream->addOutputResult_ = addOutputResult;
        streams.push_back(stream);
        return std::make_unique<FakeCaptureStreamHandle>(stream);
    }
    [[nodiscard]] Result<std::unique_ptr<SurfaceReader>> makeSurfaceReader() override
    {
        return std::make_unique<FakeSurfaceReader>();
    }
    [[nodiscard]] std::vector<std::string> limitations(NotificationSharing choice) const override
    {
        std::vector<std::string> all = limits;
        if (choice == NotificationSharing::leftOut)
            all.insert(all.end(), limitsWithoutNotifications.begin(), limitsWithoutNotifications.end());
        return all;
    }

    void answerContent(Result<ShareableContent> content)
    {
        const ContentCompletion completion = std::move(pendingContent.at(0));
        pendingContent.pop_front();
        completion(std::move(content));
    }
    /// The stream made last; there must be one.
    [[nodiscard]] FakeCaptureStream& stream() const { return *streams.at(streams.size() - 1); }

    bool isPermitted = true;
    int accessRequests = 0;
    int contentRequests = 0;
    std::deque<ContentCompletion> pendingContent;
    /// In the order in which they were made, ended ones included.
    std::vector<std::shared_ptr<FakeCaptureStream>> streams;
    /// How streams made from now on answer to an output.
    Result<void> addOutputResult;
    std::vector<std::string> limits;
    /// More where notifications are to be left out.
    std::vector<std::string> limitsWithoutNotifications;
};

} // namespace nimbrale
