#include "platform/ffmpeg/hardware_preparation.h"

#include "platform/log.h"

#include <utility>

namespace nimbrale::ffmpeg {

/// One preparation. The encoder is the worker's until it is posted to the main thread; all else is the main thread's.
struct HardwarePreparation::Round {
    MovieVideo video;
    std::function<void()> completion;
    std::unique_ptr<WatchedEncoder> encoder;
    bool isOpened = false;
};

HardwarePreparation::HardwarePreparation(MainQueue& mainQueue, HardwareSearch::Means means)
    : mainQueue_(mainQueue), encoderPatience_(means.encoderPatience),
      search_(std::make_shared<HardwareSearch>(std::move(means)))
{
    if (search_->hasCandidates())
        worker_.emplace("Nimbrale.encoders");
}

HardwarePreparation::~HardwarePreparation()
{
    search_->stop();
    drop(endRound());
}

std::shared_ptr<HardwarePreparation::Round> HardwarePreparation::endRound()
{
    // The worker may be the last to let go of the round, but what the completion owns goes on this thread.
    if (round_)
        round_->completion = nullptr;
    return std::exchange(round_, nullptr);
}

void HardwarePreparation::drop(std::shared_ptr<Round> round)
{
    // To close an encoder that nobody took may take its time, too.
    if (round)
        worker_->post([round = std::move(round)]() mutable { round.reset(); });
}

void HardwarePreparation::prepare(const MovieVideo& video, std::function<void()> completion)
{
    if (!worker_) {
        completion();
        return;
    }
    drop(endRound());
    round_ = std::make_shared<Round>(Round{video, std::move(completion), nullptr, false});
    worker_->post([this, round = round_] { open(round); });
    // A search that takes longer goes on: the next movie has its result.
    mainQueue_.postAfter(patience, [this, weak = std::weak_ptr(round_)] {
        if (const auto round = weak.lock())
            complete(round);
    });
}

void HardwarePreparation::open(const std::shared_ptr<Round>& round)
{
    if (const auto found = search_->find(round->video)) {
        auto opened = WatchedEncoder::create(round->video, *found, encoderPatience_);
        if (opened)
            round->encoder = *std::move(opened);
        else
            notOpened(*found, opened.error());
    }
    mainQueue_.post([this, weak = std::weak_ptr(round)] {
        const auto opened = weak.lock();
        if (!opened)
            return;
        opened->isOpened = true;
        complete(opened);
    });
}

void HardwarePreparation::notOpened(const HardwareEncoder& hardware, const Error& error)
{
    qCWarning(recordingLog, "The processor encodes instead of %s: %s", hardware.name().c_str(), error.message.c_str());
    if (error.code == ErrorCode::permanent)
        search_->distrust();
}

void HardwarePreparation::complete(const std::shared_ptr<Round>& round)
{
    if (round != round_)
        return;
    if (const auto completion = std::exchange(round->completion, nullptr))
        completion();
}

HardwareVideo HardwarePreparation::take(const MovieVideo& video)
{
    std::shared_ptr<Round> round = endRound();
    if (!round || !round->isOpened || round->video != video) {
        drop(std::move(round));
        return {};
    }
    return {std::move(round->encoder), [search = search_] { search->distrust(); }};
}

} // namespace nimbrale::ffmpeg
