// How the application answers the signals that ask it to end.

#include "app/nimbrale_app.h"
#include "app/termination_signals.h"
#include "tests/fakes/offscreen_toolkit.h"
#include "tests/fakes/plain_camera.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QTemporaryDir>
#include <QTimer>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <sys/resource.h>
#include <unistd.h>

namespace nimbrale {
namespace {

/// For what comes at once, however busy the machine is.
constexpr std::chrono::seconds patience{30};

/// The statements run in a process of their own, which a signal may end.
class EndingSignalTest : public testing::TestWithParam<int> {};

void endUnless(bool isFine, const char* expectation)
{
    if (isFine)
        return;
    std::fprintf(stderr, "not so: %s\n", expectation);
    std::_Exit(EXIT_FAILURE);
}

/// Starts the application's capture, so that there is a virtual display, and leaves the event loop after `signal`.
void runUntil(int signal, NimbraleApp& app, FakePlatform& platform)
{
    QTimer::singleShot(0, [signal, &platform] {
        ShareableContent content;
        content.displays = {{1, 1920, 1080}};
        content.applications = {{getpid(), "nimbrale"}};
        content.windows = {{getpid(), true}};
        platform.screenCapture().answerContent(content);
        platform.screenCapture().stream().completeStart();
        std::raise(signal);
    });
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&platform] {
        if (platform.workspace().terminations > 0)
            QApplication::exit(0);
    });
    poll.start(1);
    endUnless(app.run() == 0, "it ends in order");
}

void endWithMoreSignalsWhileTheDisplayIsRemoved(int first)
{
    const OffscreenToolkit toolkit;
    const QTemporaryDir directory;
    AppSettings settings(directory.filePath("Nimbrale.conf").toStdString());
    FakePlatform platform;
    platform.screens().list = {makeScreen(1, {0, 0, 1920, 1080})};
    platform.screens().main = 1;
    bool wasHalfWay = false;
    {
        NimbraleApp app(platform, settings, makePlainCamera(platform));
        runUntil(first, app, platform);
        platform.virtualDisplays().device().onRemoval = [&wasHalfWay] {
            for (const int signal : {SIGTERM, SIGINT, SIGHUP})
                std::raise(signal);
            wasHalfWay = true;
        };
    }
    endUnless(wasHalfWay, "the virtual display is removed with the application");
    endUnless(!platform.virtualDisplays().device().isAlive, "the virtual display is gone");
    std::_Exit(EXIT_SUCCESS);
}

TEST_P(EndingSignalTest, MoreSignalsDuringTheTeardownLeaveNoVirtualDisplayBehind)
{
    EXPECT_EXIT(endWithMoreSignalsWhileTheDisplayIsRemoved(GetParam()), testing::ExitedWithCode(EXIT_SUCCESS), "");
}

void countTwoInARow(int signal)
{
    const OffscreenToolkit toolkit;
    int calls = 0;
    {
        const TerminationSignals signals([&calls] { ++calls; });
        std::raise(signal);
        std::raise(signal);
        endUnless(calls == 0, "nothing is done in the handler itself");
        const QDeadlineTimer end(patience);
        while (calls == 0 && !end.hasExpired())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        // Whatever else the two have left behind would be there by now.
        for (int round = 0; round < 5; ++round)
            QCoreApplication::processEvents();
    }
    endUnless(calls == 1, "signals that come together count once");
    std::raise(signal);
}

TEST_P(EndingSignalTest, IsHeardOnTheEventLoopAndEndsTheProcessAsUsualAfterwards)
{
    EXPECT_EXIT(countTwoInARow(GetParam()), testing::KilledBySignal(GetParam()), "");
}

void endWithMoreSignalsWhileItDecides(int signal)
{
    const OffscreenToolkit toolkit;
    const QTemporaryDir directory;
    AppSettings settings(directory.filePath("Nimbrale.conf").toStdString());
    FakePlatform platform;
    FakeWorkspace& workspace = platform.workspace();
    NimbraleApp app(platform, settings, makePlainCamera(platform));
    int questions = 0;
    QTimer::singleShot(0, [&] {
        workspace.termination().onShouldTerminate = [&questions] {
            ++questions;
            return TerminateReply::later;
        };
        std::raise(signal);
    });
    int raised = 1;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        if (workspace.terminationRequests < raised)
            return;
        endUnless(questions == 1, "the first signal asks, and the others change nothing");
        endUnless(app.isEnding(), "it says that it is about to end");
        endUnless(workspace.terminations == 0, "it does not end before the answer");
        if (raised < 5) {
            ++raised;
            std::raise(signal);
            return;
        }
        poll.stop();
        workspace.termination().reply(true);
        endUnless(workspace.terminations > 0, "the answer ends it");
        QApplication::exit(0);
    });
    poll.start(1);
    QTimer::singleShot(patience, [] { endUnless(false, "every signal is heard"); });
    endUnless(app.run() == 0, "it ends in order");
    endUnless(questions == 1, "it was asked once");
    std::_Exit(EXIT_SUCCESS);
}

TEST_P(EndingSignalTest, MoreSignalsWhileItDecidesChangeNothing)
{
    EXPECT_EXIT(endWithMoreSignalsWhileItDecides(GetParam()), testing::ExitedWithCode(EXIT_SUCCESS), "");
}

void raiseMoreThanAPipeHolds(int signal)
{
    const OffscreenToolkit toolkit;
    const TerminationSignals signals([] {});
    constexpr int moreThanAPipeHolds = 70000;
    for (int count = 0; count < moreThanAPipeHolds; ++count) {
        errno = ENOENT;
        std::raise(signal);
        endUnless(errno == ENOENT, "whatever was interrupted finds its error as it left it");
    }
    std::_Exit(EXIT_SUCCESS);
}

TEST_P(EndingSignalTest, LeavesTheErrorOfWhatItInterruptsAlone)
{
    EXPECT_EXIT(raiseMoreThanAPipeHolds(GetParam()), testing::ExitedWithCode(EXIT_SUCCESS), "");
}

/// The flags of each open descriptor.
std::map<int, int> openDescriptors()
{
    constexpr int end = 256;
    std::map<int, int> open;
    for (int descriptor = 0; descriptor < end; ++descriptor) {
        if (const int flags = fcntl(descriptor, F_GETFD); flags >= 0)
            open[descriptor] = flags;
    }
    return open;
}

void countDescriptors()
{
    const OffscreenToolkit toolkit;
    const std::map<int, int> before = openDescriptors();
    {
        const TerminationSignals signals([] {});
        int added = 0;
        for (const auto& [descriptor, flags] : openDescriptors()) {
            if (before.contains(descriptor))
                continue;
            ++added;
            endUnless(flags == FD_CLOEXEC, "a program that is started does not get it");
        }
        endUnless(added == 2, "there are both ends of a pipe");
    }
    endUnless(openDescriptors() == before, "all are given back");
    std::_Exit(EXIT_SUCCESS);
}

TEST(TerminationSignalsTest, DescriptorsAreItsOwnAndGivenBack)
{
    EXPECT_EXIT(countDescriptors(), testing::ExitedWithCode(EXIT_SUCCESS), "");
}

void listenWithoutADescriptorLeft(int signal)
{
    const OffscreenToolkit toolkit;
    rlimit limit{};
    endUnless(getrlimit(RLIMIT_NOFILE, &limit) == 0, "there is a limit");
    limit.rlim_cur = 0;
    endUnless(setrlimit(RLIMIT_NOFILE, &limit) == 0, "the limit is set");
    const TerminationSignals signals([] {});
    std::raise(signal);
    std::_Exit(EXIT_SUCCESS);
}

TEST_P(EndingSignalTest, EndsTheProcessAsUsualWhereItCannotBeReceived)
{
    EXPECT_EXIT(listenWithoutADescriptorLeft(GetParam()), testing::KilledBySignal(GetParam()),
                "Signals cannot be received");
}

INSTANTIATE_TEST_SUITE_P(Signals, EndingSignalTest, testing::Values(SIGTERM, SIGINT, SIGHUP),
                         [](const auto& signal) { return std::string("Number") + std::to_string(signal.param); });

} // namespace
} // namespace nimbrale
