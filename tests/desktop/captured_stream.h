#pragma once

#include "platform/main_queue.h"
#include "platform/screen_capture.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/handles.h"
#include "platform/x11/surfaces/x11_surface.h"
#include "tests/support/event_loop.h"
#include "tests/support/process.h"

#include <QCoreApplication>
#include <QImage>

#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::test {

/// Handles events until the condition holds; false when it does not in time.
template <typename Condition>
[[nodiscard]] bool pumpUntil(Condition condition, Milliseconds timeout = Milliseconds{3000})
{
    return runUntil(condition, timeout);
}

/// A stream of any capture with what it delivered last. Pictures are read through a connection of the test's own.
class CapturedStream {
public:
    /// All three must outlive it.
    CapturedStream(ScreenCapture& capture, MainQueue& mainQueue, x11::Connection& reader)
        : capture_(capture), mainQueue_(mainQueue), reader_(reader)
    {}

    /// False when the start fails; `error` then says why.
    [[nodiscard]] bool start(const ContentFilter& filter, const StreamConfiguration& configuration)
    {
        stream_ = capture_.makeStream(filter, configuration, [this](const Error& reason) { ends.push_back(reason); });
        const Result<void> added = stream_->addOutput(OutputType::screen, queue_, [this](const CaptureSample& sample) {
            if (onSample)
                onSample(sample);
            mainQueue_.post([this, weak = std::weak_ptr(alive_), sample] {
                if (weak.expired())
                    return;
                if (holdsAll)
                    held.push_back(sample);
                last_ = sample;
                ++frames_;
            });
        });
        if (!added || (onSound && !stream_->addOutput(OutputType::audio, queue_, onSound)))
            return false;
        return restart();
    }

    /// Starts it anew after it was stopped or did not start.
    [[nodiscard]] bool restart()
    {
        // Completions may come after a wait for them has been given up.
        const auto outcome = std::make_shared<std::optional<Result<void>>>();
        stream_->start([outcome](const Result<void>& result) { *outcome = result; });
        const bool isOver = pumpUntil([&] { return outcome->has_value(); });
        error = isOver && !**outcome ? (*outcome)->error() : Error{};
        return isOver && **outcome;
    }

    /// Waits for the update's completion.
    [[nodiscard]] bool update(const StreamConfiguration& configuration)
    {
        const auto isDone = std::make_shared<bool>(false);
        stream_->updateConfiguration(configuration, [isDone](const Result<void>& result) { *isDone = bool(result); });
        return pumpUntil([&] { return *isDone; });
    }
    [[nodiscard]] bool stop()
    {
        const auto isDone = std::make_shared<bool>(false);
        stream_->stop([isDone](const Result<void>& result) { *isDone = bool(result); });
        return pumpUntil([&] { return *isDone; });
    }
    void destroy() { stream_.reset(); }
    /// Lets go of the picture delivered last.
    void forget() { last_ = {}; }

    [[nodiscard]] CaptureStream& stream() { return *stream_; }
    [[nodiscard]] int frames() const { return frames_; }
    [[nodiscard]] const CaptureSample& last() const { return last_; }
    /// The picture delivered last; null before the first.
    [[nodiscard]] QImage image() const { return last_.surface ? imageOf(*last_.surface) : QImage(); }

    [[nodiscard]] QImage imageOf(const Surface& picture) const
    {
        const auto& surface = dynamic_cast<const x11::X11Surface&>(picture);
        xcb_connection_t* const raw = reader_.get();
        const x11::Reply<xcb_get_image_reply_t> reply(
            xcb_get_image_reply(raw,
                                xcb_get_image(raw, XCB_IMAGE_FORMAT_Z_PIXMAP, surface.pixmap(), 0, 0,
                                              static_cast<std::uint16_t>(surface.width()),
                                              static_cast<std::uint16_t>(surface.height()), ~0u),
                                nullptr));
        QImage image(surface.width(), surface.height(), QImage::Format_RGB32);
        if (!reply || static_cast<qsizetype>(xcb_get_image_data_length(reply.get())) != image.sizeInBytes())
            return {};
        std::memcpy(image.bits(), xcb_get_image_data(reply.get()), static_cast<std::size_t>(image.sizeInBytes()));
        return image;
    }

    /// Called on the stream's queue before the sample reaches the main thread. Set before the start.
    std::function<void(const CaptureSample&)> onSample;
    /// Called on the stream's queue with each piece of sound. Set before the start.
    CaptureStream::SampleHandler onSound;
    bool holdsAll = false;
    std::vector<CaptureSample> held;
    std::vector<Error> ends;
    Error error;

private:
    ScreenCapture& capture_;
    MainQueue& mainQueue_;
    x11::Connection& reader_;
    SerialQueue queue_{"Nimbrale.frames"};
    std::unique_ptr<CaptureStream> stream_;
    CaptureSample last_;
    int frames_ = 0;
    /// What is posted by then finds this object or nothing.
    std::shared_ptr<void> alive_ = std::make_shared<int>();
};

} // namespace nimbrale::test
