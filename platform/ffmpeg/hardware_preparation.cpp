#include "platform/ffmpeg/hardware_preparation.h"

#include "platform/log.h"

#include <utility>

namespace nimbrale::ffmpeg {

/// One preparation. The encoder is the worker's until it is posted to the main thread; all else is the main thread's.
struct HardwarePreparation::Round {
    MovieVideo video;
    std::function<void()> completion;
    std::unique_ptr<VideoEncoder> encoder;
    bool isOpened = false;
};

HardwarePreparation::HardwarePreparation(MainQueue& mainQueue, HardwareSearch::Means means)
    : mainQueue_(mainQueue), search_(std::make_shared<HardwareSearch>(std::move(means)))
{
    if (search_->hasCandidates())
        worker_.emplace("Nimbrale.encoders");
}

HardwarePreparation::~HardwarePreparation()
{
    search_->stop();
    endRound();
}

std::shared_ptr<HardwarePreparation::Round> HardwarePreparation::endRound()
{
    // The worker may be the last to let go of the round, but what the completion owns goes on this thread.
    if (round_)
        round_->completion = nullptr;
    return std::exchange(round_, nullptr);
}

void HardwarePreparation::prepare(const MovieVideo& video, std::function<void()> completion)
{
    if (!worker_) {
        completion();
        return;
    }
    endRound();
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
        auto opened = VideoEncoder::createOnHardware(round->video, *found);
        if (opened)
            round->encoder = *std::move(opened);
        else
            qCWarning(recordingLog, "The processor encodes instead of %s: %s", found->name().c_str(),
                      opened.error().message.c_str());
    }
    mainQueue_.post([this, weak = std::weak_ptr(round)] {
        const auto opened = weak.lock();
        if (!opened)
            return;
        opened->isOpened = true;
        complete(opened);
    });
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
    const std::shared_ptr<Round> round = endRound();
    if (!round || !round->isOpened || round->video != video)
        return {};
    return {std::move(round->encoder), [search = search_] { search->distrust(); }};
}

} // namespace nimbrale::ffmpeg
