#include "app/termination_signals.h"

#include <QLoggingCategory>
#include <QSocketNotifier>

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace nimbrale {

namespace {

constexpr std::array endingSignals{SIGTERM, SIGINT, SIGHUP};

/// Where the handler writes; the only thing that it may touch.
volatile std::sig_atomic_t writingEnd = -1;

// A pipe rather than blocked signals and a descriptor for them: programs that the application starts would inherit the
// blocking and could not be asked to end.
extern "C" void noteSignal(int)
{
    const int savedError = errno;
    const char mark = 0;
    // A full pipe holds enough marks already.
    [[maybe_unused]] const ssize_t written = write(static_cast<int>(writingEnd), &mark, 1);
    errno = savedError;
}

void handleWith(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (const int signal : endingSignals)
        sigaction(signal, &action, nullptr);
}

void drain(int descriptor)
{
    std::array<char, 64> marks{};
    while (read(descriptor, marks.data(), marks.size()) > 0) {
    }
}

} // namespace

struct TerminationSignals::Impl {
    explicit Impl(const std::array<int, 2>& pipeEnds)
        : ends(pipeEnds), notifier(pipeEnds.front(), QSocketNotifier::Read)
    {}
    ~Impl()
    {
        for (const int end : ends)
            close(end);
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    std::array<int, 2> ends;
    QSocketNotifier notifier;
};

TerminationSignals::TerminationSignals(std::function<void()> onSignal)
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        qCritical("Signals cannot be received: %s", qUtf8Printable(qt_error_string(errno)));
        return;
    }
    impl_ = std::make_unique<Impl>(ends);
    QObject::connect(&impl_->notifier, &QSocketNotifier::activated,
                     [readingEnd = ends.front(), onSignal = std::move(onSignal)] {
                         drain(readingEnd);
                         onSignal();
                     });
    writingEnd = ends.back();
    handleWith(noteSignal);
}

TerminationSignals::~TerminationSignals()
{
    if (impl_)
        handleWith(SIG_DFL);
}

} // namespace nimbrale
