#pragma once

#include "platform/ffmpeg/hardware_search.h"
#include "platform/ffmpeg/movie_encoding.h"
#include "platform/main_queue.h"
#include "platform/serial_queue.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace nimbrale::ffmpeg {

/// Opens an encoder on a graphics card for the next movie, on a thread of its own: drivers take their time. Main thread
/// only. The destructor ends what is under way.
class HardwarePreparation {
public:
    /// The longest that a start of a recording waits.
    static constexpr std::chrono::milliseconds patience{1500};

    HardwarePreparation(MainQueue& mainQueue, HardwareSearch::Means means);
    ~HardwarePreparation();
    HardwarePreparation(const HardwarePreparation&) = delete;
    HardwarePreparation& operator=(const HardwarePreparation&) = delete;

    /// See `Movies::prepare`. What was opened stays open until it is taken or something else is prepared.
    void prepare(const MovieVideo& video, std::function<void()> completion);
    /// What was prepared for such a movie, once; without an encoder where nothing was found.
    [[nodiscard]] HardwareVideo take(const MovieVideo& video);

private:
    struct Round;

    std::shared_ptr<Round> endRound();
    void drop(std::shared_ptr<Round> round);
    void open(const std::shared_ptr<Round>& round);
    void notOpened(const HardwareEncoder& hardware, const Error& error);
    void complete(const std::shared_ptr<Round>& round);

    MainQueue& mainQueue_;
    std::chrono::milliseconds encoderPatience_;
    /// Shared with the movies that are being written, which may fail later.
    std::shared_ptr<HardwareSearch> search_;
    /// The preparation that counts; null before the first and when it was taken.
    std::shared_ptr<Round> round_;
    /// Last, so that it ends first. Only where there is something to look for.
    std::optional<SerialQueue> worker_;
};

} // namespace nimbrale::ffmpeg
