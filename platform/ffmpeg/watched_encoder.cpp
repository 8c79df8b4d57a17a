#include "platform/ffmpeg/watched_encoder.h"

#include "platform/log.h"

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace nimbrale::ffmpeg {

namespace {

using std::chrono::milliseconds;

/// A process that stood still, stopped or asleep with the computer, has waited for one step and no more.
constexpr milliseconds waitStep{20};

/// Threads that are not known to be out of a driver.
std::atomic<int> threadsInDrivers = 0;

/// The libraries' own clean-up comes after this: whoever registers last is called first.
void endDespiteDrivers(int status, void*)
{
    if (threadsInDrivers > 0)
        ::_exit(status);
}

} // namespace

/// Shared by the thread that calls the driver and the one that waits for it.
class WatchedEncoder::Driver {
public:
    using Work = std::function<void(std::unique_ptr<VideoEncoder>& encoder)>;

    explicit Driver(milliseconds patience) : patience_(patience) {}

    static void start(const std::shared_ptr<Driver>& driver)
    {
        ++threadsInDrivers;
        std::thread([driver] {
            pthread_setname_np(pthread_self(), "Nimbrale.card");
            driver->run();
        }).detach();
    }
    /// Whether the work was done in time. Where not, the driver is left behind, and may be asked for nothing more.
    [[nodiscard]] bool perform(Work work)
    {
        std::unique_lock lock(mutex_);
        work_ = std::move(work);
        changed_.notify_all();
        return waitFor(lock, [this] { return !work_; });
    }
    /// Closes the encoder.
    void end()
    {
        std::unique_lock lock(mutex_);
        isEnding_ = true;
        changed_.notify_all();
        if (!isLeftBehind_ && !waitFor(lock, [this] { return hasEnded_; }))
            qCWarning(recordingLog, "The graphics card's encoder cannot be closed: it doesn't answer.");
    }
    /// While the driver does nothing.
    [[nodiscard]] const VideoEncoder& encoder() const { return *encoder_; }

private:
    void run()
    {
        std::unique_lock lock(mutex_);
        while (true) {
            changed_.wait(lock, [this] { return isEnding_ || work_; });
            if (!work_)
                break;
            lock.unlock();
            work_(encoder_);
            lock.lock();
            work_ = nullptr;
            changed_.notify_all();
        }
        lock.unlock();
        encoder_.reset();
        --threadsInDrivers;
        lock.lock();
        hasEnded_ = true;
        changed_.notify_all();
    }
    template <typename Condition>
    bool waitFor(std::unique_lock<std::mutex>& lock, Condition condition)
    {
        for (milliseconds waited{0}; waited < patience_; waited += waitStep) {
            if (changed_.wait_for(lock, waitStep, condition))
                return true;
        }
        isLeftBehind_ = true;
        if (::on_exit(endDespiteDrivers, nullptr) != 0)
            qCWarning(recordingLog, "The application's end may have to wait for the graphics card.");
        return false;
    }

    milliseconds patience_;
    std::mutex mutex_;
    std::condition_variable changed_;
    /// Stays while it is being done.
    Work work_;
    bool isEnding_ = false;
    bool hasEnded_ = false;
    bool isLeftBehind_ = false;
    /// The driver's thread alone, while there is work.
    std::unique_ptr<VideoEncoder> encoder_;
};

Result<std::unique_ptr<WatchedEncoder>> WatchedEncoder::create(const MovieVideo& video, const HardwareEncoder& hardware,
                                                               milliseconds patience)
{
    std::unique_ptr<WatchedEncoder> watched(new WatchedEncoder(std::make_shared<Driver>(patience)));
    Driver::start(watched->driver_);
    const auto error = std::make_shared<std::optional<Error>>();
    const bool isDone = watched->driver_->perform([=](std::unique_ptr<VideoEncoder>& encoder) {
        auto opened = VideoEncoder::createOnHardware(video, hardware);
        if (opened)
            encoder = *std::move(opened);
        else
            *error = opened.error();
    });
    if (!isDone)
        return fail(ErrorCode::permanent, "It doesn't answer.");
    if (*error)
        return tl::make_unexpected(**error);
    return watched;
}

WatchedEncoder::~WatchedEncoder()
{
    driver_->end();
}

const AVCodecContext& WatchedEncoder::context() const
{
    return driver_->encoder().context();
}

Result<PacketHandle> WatchedEncoder::encode(std::shared_ptr<const AVFrame> picture, std::int64_t tick, PictureKind kind)
{
    const auto packet = std::make_shared<Result<PacketHandle>>();
    const bool isDone =
        driver_->perform([packet, picture = std::move(picture), tick, kind](std::unique_ptr<VideoEncoder>& encoder) {
            *packet = encoder->encode(*picture, tick, kind);
        });
    if (!isDone) {
        return fail(ErrorCode::permanent,
                    "The recording ended because the graphics card's encoder doesn't answer any more.");
    }
    return std::move(*packet);
}

} // namespace nimbrale::ffmpeg
