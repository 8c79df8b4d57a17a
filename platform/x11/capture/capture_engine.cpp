#include "platform/x11/capture/capture_engine.h"

#include <algorithm>
#include <poll.h>
#include <pthread.h>
#include <utility>

namespace nimbrale::x11 {

Result<std::unique_ptr<CaptureEngine>> CaptureEngine::create(const std::string& displayName, Callbacks callbacks,
                                                             std::shared_ptr<PaintedRegions> painted)
{
    auto connection = Connection::open(displayName);
    if (!connection)
        return tl::make_unexpected(connection.error());
    std::unique_ptr<CaptureEngine> engine(
        new CaptureEngine(std::move(*connection), std::move(callbacks), std::move(painted)));
    engine->thread_ = std::thread([raw = engine.get()] { raw->run(); });
    return engine;
}

CaptureEngine::CaptureEngine(std::unique_ptr<Connection> connection, Callbacks callbacks,
                             std::shared_ptr<PaintedRegions> painted)
    : connection_(std::move(connection)), callbacks_(std::move(callbacks)),
      desktop_(*connection_, callbacks_.onPointerMoved, std::move(painted)), displays_(*connection_, desktop_.events())
{}

CaptureEngine::~CaptureEngine()
{
    // Work like any other, so that the thread cannot miss it between its last test and its next wait.
    post([this] { isEnding_ = true; });
    thread_.join();
    // Work that is not done any more may own a stream, which posts once more as it goes.
    for (std::vector<std::function<void()>> dropped; !(dropped = inbox_->take()).empty();)
        dropped.clear();
    for (const auto& session : sessions_)
        session->stop();
}

void CaptureEngine::addSession(std::shared_ptr<CaptureSession> session)
{
    session->start(*connection_, desktop_, displays_.places(), callbacks_.releasePixmap);
    sessions_.push_back(std::move(session));
}

void CaptureEngine::removeSession(const std::shared_ptr<CaptureSession>& session)
{
    if (std::erase(sessions_, session) != 0)
        session->stop();
}

void CaptureEngine::run()
{
    pthread_setname_np(pthread_self(), "Nimbrale.captur");
    while (true) {
        runPosted();
        if (isEnding_)
            return;
        desktop_.handleEvents();
        if (connection_->isLost()) {
            callbacks_.onLost();
            for (const auto& session : sessions_)
                session->reportLost();
            return;
        }
        takeDueTurns();
        connection_->flush();
        wait();
    }
}

void CaptureEngine::runPosted()
{
    for (const auto& work : inbox_->take())
        work();
}

std::vector<CaptureSession*> CaptureEngine::dueSessions(FramePacer::Clock::time_point now) const
{
    std::vector<CaptureSession*> due;
    for (const auto& session : sessions_) {
        if (session->timing(now).isDue())
            due.push_back(session.get());
    }
    return due;
}

void CaptureEngine::takeDueTurns()
{
    displays_.update();
    desktop_.classifyNewWindows();
    const auto now = FramePacer::Clock::now();
    desktop_.poll(now);
    for (const auto& session : sessions_)
        session->trim(now);
    std::vector<CaptureSession*> due = dueSessions(now);
    // A turn asks for the pointer itself; what is found without one may make a turn due at once.
    if (due.empty()) {
        desktop_.pollPointer(now);
        due = dueSessions(now);
    }
    if (due.empty())
        return;
    desktop_.collect();
    // What changes from here on is found in the next turn.
    std::vector<CaptureSession*> drawn;
    for (CaptureSession* const session : due) {
        if (session->takeTurn(now))
            drawn.push_back(session);
    }
    if (!drawn.empty())
        handOver(drawn);
    desktop_.pollPointer(now);
}

void CaptureEngine::handOver(const std::vector<CaptureSession*>& drawn)
{
    // The reply comes after all that was drawn, and behind the news of every change of the displays before that.
    connection_->synchronize();
    desktop_.handleEvents();
    if (connection_->isLost())
        return;
    for (CaptureSession* const session : drawn)
        session->handOver();
}

std::optional<std::chrono::nanoseconds> CaptureEngine::timeToComeBy(FramePacer::Clock::time_point now) const
{
    std::optional<std::chrono::nanoseconds> soonest = desktop_.timeToPoll(now);
    for (const auto& session : sessions_) {
        if (const auto trim = session->nextTrim())
            soonest = std::min(soonest.value_or(*trim - now), *trim - now);
    }
    return soonest;
}

void CaptureEngine::wait()
{
    if (desktop_.handleQueuedEvent() || displays_.places().areDoubted())
        return;
    const auto now = FramePacer::Clock::now();
    std::vector<StreamTiming> streams;
    streams.reserve(sessions_.size());
    for (const auto& session : sessions_)
        streams.push_back(session->timing(now));
    const ThreadWait wait = threadWait(streams, timeToComeBy(now));

    pollfd descriptors[] = {{inbox_->descriptor(), POLLIN, 0},
                            {xcb_get_file_descriptor(connection_->get()), POLLIN, 0}};
    timespec timeout{};
    if (wait.timeout) {
        timeout.tv_sec = wait.timeout->count() / 1'000'000'000;
        timeout.tv_nsec = wait.timeout->count() % 1'000'000'000;
    }
    ppoll(descriptors, wait.isEndedByServer ? 2 : 1, wait.timeout ? &timeout : nullptr, nullptr);
}

} // namespace nimbrale::x11
