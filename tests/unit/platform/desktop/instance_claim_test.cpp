// Several claims in one process stand for several instances: the system's locks tell them apart by the open file.

#include "platform/desktop/instance_claim.h"
#include "platform/desktop/instance_listener.h"
#include "platform/desktop/instance_socket.h"
#include "tests/fakes/offscreen_application.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <array>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
namespace fs = std::filesystem;

const InstanceRequest openSettings{"open-settings", "17"};
constexpr InstanceClaim::Patience shortPatience{.forAnswer = 300ms, .forEnd = 300ms, .forSettings = 200ms};

class InstanceClaimTest : public testing::Test {
protected:
    InstanceClaimTest()
    {
        startOffscreenApplication();
        fs::create_directory(runtime_);
        fs::permissions(runtime_, fs::perms::owner_all);
        qputenv("XDG_RUNTIME_DIR", runtime_.c_str());
        qputenv("XDG_CACHE_HOME", (root() / "cache").c_str());
    }
    [[nodiscard]] fs::path root() const { return directory_.path().toStdString(); }
    [[nodiscard]] fs::path folder() const { return runtime_ / "nimbrale"; }

    [[nodiscard]] static Result<std::optional<InstanceClaim>>
    claim(const std::string& display = ":1", const std::string& settings = "/home/settings",
          const InstanceClaim::Patience& patience = shortPatience)
    {
        return InstanceClaim::make({display, settings}, openSettings, patience);
    }
    [[nodiscard]] std::vector<fs::path> filesEnding(const std::string& suffix) const
    {
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(folder())) {
            if (entry.path().extension() == suffix)
                found.push_back(entry.path());
        }
        return found;
    }
    [[nodiscard]] static mode_t modeOf(const fs::path& path)
    {
        struct stat status = {};
        return lstat(path.c_str(), &status) == 0 ? status.st_mode & 0777 : 0;
    }
    /// Runs the event loop until the condition holds.
    [[nodiscard]] static bool runUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout = 5s)
    {
        QElapsedTimer timer;
        timer.start();
        while (!condition()) {
            if (timer.elapsed() > timeout.count())
                return false;
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        }
        return true;
    }
    /// A second start, beside the event loop of the first one.
    [[nodiscard]] static Result<std::optional<InstanceClaim>>
    claimBeside(const InstanceClaim::Patience& patience = shortPatience)
    {
        std::optional<Result<std::optional<InstanceClaim>>> second;
        std::atomic<bool> isOver = false;
        std::thread thread([&] {
            second = claim(":1", "/home/settings", patience);
            isOver = true;
        });
        EXPECT_TRUE(runUntil([&] { return isOver.load(); }));
        thread.join();
        return std::move(*second);
    }
    /// A connection to the one socket in the folder, as a program of any kind can make it.
    [[nodiscard]] FileDescriptor connectToSocket() const
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        const std::string path = filesEnding(".socket").at(0).string();
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        FileDescriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        EXPECT_EQ(connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        return connection;
    }
    static void send(const FileDescriptor& connection, const std::string& text)
    {
        EXPECT_EQ(::send(connection.get(), text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
    }
    /// What came, once the other end has closed.
    [[nodiscard]] static std::optional<std::string> readAll(const FileDescriptor& connection)
    {
        std::string text;
        bool isClosed = false;
        const bool isOver = runUntil([&] {
            std::array<char, 64> buffer{};
            const ssize_t count = recv(connection.get(), buffer.data(), buffer.size(), 0);
            if (count > 0)
                text.append(buffer.data(), static_cast<std::size_t>(count));
            isClosed = count == 0 || (count < 0 && errno == ECONNRESET);
            return isClosed;
        });
        return isOver ? std::optional(text) : std::nullopt;
    }

    QTemporaryDir directory_;
    fs::path runtime_ = root() / "runtime";
};

TEST_F(InstanceClaimTest, TheFirstGetsTheDisplayAndItsFilesAreForThisUserAlone)
{
    const mode_t before = umask(0);
    auto first = claim();
    umask(before);
    ASSERT_TRUE(first && *first);
    EXPECT_EQ(modeOf(folder()), 0700U);
    ASSERT_THAT(filesEnding(".socket"), SizeIs(1));
    EXPECT_EQ(modeOf(filesEnding(".socket").front()), 0600U);
    ASSERT_THAT(filesEnding(".lock"), SizeIs(2));
    for (const fs::path& lock : filesEnding(".lock"))
        EXPECT_EQ(modeOf(lock), 0600U);
    EXPECT_TRUE((*first)->takeListeningSocket());
    EXPECT_FALSE((*first)->takeListeningSocket()) << "it is given once";
}

TEST_F(InstanceClaimTest, TheSecondHandsItsRequestOverAndHasNothingLeftToDo)
{
    auto first = claim();
    ASSERT_TRUE(first && *first);
    std::vector<InstanceRequest> heard;
    const InstanceListener listener((*first)->takeListeningSocket(), [&](const InstanceRequest& request) {
        heard.push_back(request);
        return InstanceAnswer::done;
    });
    for (int start = 1; start <= 3; ++start) {
        const auto second = claimBeside();
        ASSERT_TRUE(second) << second.error().message;
        EXPECT_FALSE(second->has_value());
        EXPECT_THAT(heard, SizeIs(start));
    }
    EXPECT_EQ(heard.front(), openSettings);
}

TEST_F(InstanceClaimTest, EachDisplayHasAnInstanceOfItsOwnWithItsOwnSettings)
{
    const auto first = claim(":1", "/home/one");
    const auto second = claim(":2", "/home/two");
    EXPECT_TRUE(first && *first);
    EXPECT_TRUE(second && *second);
}

TEST_F(InstanceClaimTest, OneFrameOfSettingsServesOneDisplay)
{
    auto first = claim(":1");
    ASSERT_TRUE(first && *first);
    const auto second = claim(":2");
    ASSERT_FALSE(second);
    EXPECT_THAT(second.error().message, HasSubstr("another display"));
    *first = std::nullopt;
    const auto third = claim(":2");
    EXPECT_TRUE(third && *third);
}

TEST_F(InstanceClaimTest, AnotherNameOfTheDisplayIsTheSameDisplay)
{
    const auto first = claim(":1", "/home/one");
    const auto second = claim(":1.0", "/home/two");
    ASSERT_FALSE(second) << "nobody answers here, but the display is taken";
}

TEST_F(InstanceClaimTest, OneThatIsEndingIsWaitedFor)
{
    auto first = claim();
    ASSERT_TRUE(first && *first);
    int questions = 0;
    std::optional<InstanceListener> listener(std::in_place, (*first)->takeListeningSocket(),
                                             [&](const InstanceRequest&) {
                                                 ++questions;
                                                 return InstanceAnswer::ending;
                                             });
    std::optional<Result<std::optional<InstanceClaim>>> second;
    std::atomic<bool> isOver = false;
    std::thread thread([&] {
        second = claim(":1", "/home/settings", {.forAnswer = 2s, .forEnd = 2s, .forSettings = 2s});
        isOver = true;
    });
    EXPECT_TRUE(runUntil([&] { return questions > 5; }));
    EXPECT_FALSE(isOver) << "it asks again and again";
    listener.reset();
    std::this_thread::sleep_for(100ms);
    EXPECT_FALSE(isOver) << "it waits although nobody listens any more";
    *first = std::nullopt;
    thread.join();
    ASSERT_TRUE(second && *second) << second->error().message;
    EXPECT_TRUE(second->value().has_value());
}

TEST_F(InstanceClaimTest, OneThatIsDecidingIsWaitedForWithoutALimit)
{
    auto first = claim();
    ASSERT_TRUE(first && *first);
    int questions = 0;
    const InstanceListener listener((*first)->takeListeningSocket(), [&](const InstanceRequest&) {
        // Longer than the patience with an instance that gives no sign of life.
        return ++questions * 20ms < shortPatience.forEnd * 2 ? InstanceAnswer::ending : InstanceAnswer::done;
    });
    const auto second = claimBeside();
    ASSERT_TRUE(second) << second.error().message;
    EXPECT_FALSE(second->has_value()) << "it went on, and did what it was asked for";
}

TEST_F(InstanceClaimTest, OneThatDoesNotAnswerIsReported)
{
    auto first = claim();
    ASSERT_TRUE(first && *first);
    // It listens, but its event loop stands still.
    const auto second = claim();
    ASSERT_FALSE(second);
    EXPECT_THAT(second.error().message, HasSubstr("does not answer"));
}

TEST_F(InstanceClaimTest, OneThatNeitherListensNorEndsIsReported)
{
    auto first = claim();
    ASSERT_TRUE(first && *first);
    (*first)->takeListeningSocket().reset();
    const auto second = claim();
    ASSERT_FALSE(second);
    EXPECT_THAT(second.error().message, HasSubstr("still ending"));
}

TEST_F(InstanceClaimTest, OneThatDoesNotKnowTheRequestIsReported)
{
    auto first = claim();
    ASSERT_TRUE(first && *first);
    const InstanceListener listener((*first)->takeListeningSocket(),
                                    [](const InstanceRequest&) { return InstanceAnswer::unknown; });
    const auto second = claimBeside();
    ASSERT_FALSE(second);
    EXPECT_THAT(second.error().message, HasSubstr("does not know"));
}

TEST_F(InstanceClaimTest, WhatAKilledInstanceLeftIsTakenOver)
{
    const pid_t child = fork();
    if (child == 0) {
        const auto killed = claim();
        if (killed && *killed)
            raise(SIGKILL);
        _exit(EXIT_FAILURE);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "it had claimed the display";
    ASSERT_THAT(filesEnding(".socket"), SizeIs(1)) << "it left its socket behind";

    auto next = claim();
    ASSERT_TRUE(next && *next);
    const InstanceListener listener((*next)->takeListeningSocket(),
                                    [](const InstanceRequest&) { return InstanceAnswer::done; });
    const auto second = claimBeside();
    EXPECT_TRUE(second && !*second) << "the new socket is the one that others find";
}

TEST_F(InstanceClaimTest, OfManyStartsAtOnceExactlyOneGetsTheDisplay)
{
    constexpr int starts = 12;
    std::vector<pid_t> children;
    for (int start = 0; start < starts; ++start) {
        const pid_t child = fork();
        if (child == 0) {
            // Whoever gets it neither listens nor ends before the others have given up.
            auto claimed = claim();
            if (claimed && *claimed) {
                (*claimed)->takeListeningSocket().reset();
                std::this_thread::sleep_for(2s);
            }
            _exit(claimed && *claimed ? 1 : 0);
        }
        children.push_back(child);
    }
    int claimed = 0;
    for (const pid_t child : children) {
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status));
        claimed += WEXITSTATUS(status);
    }
    EXPECT_EQ(claimed, 1);
}

TEST_F(InstanceClaimTest, WithoutASafeFolderItStartsAllTheSame)
{
    fs::permissions(runtime_, fs::perms::owner_all | fs::perms::group_all | fs::perms::others_all);
    // The cache folder cannot be made below a file.
    std::ofstream(root() / "cache") << "a file";
    auto first = claim();
    ASSERT_TRUE(first && *first);
    EXPECT_FALSE((*first)->takeListeningSocket());
    EXPECT_FALSE(fs::exists(folder())) << "nothing is put where others can get at it";
}

TEST_F(InstanceClaimTest, AnUnsafeRuntimeFolderGivesWayToTheCacheFolder)
{
    fs::permissions(runtime_, fs::perms::owner_all | fs::perms::others_exec);
    const auto first = claim();
    ASSERT_TRUE(first && *first);
    EXPECT_FALSE(fs::exists(folder()));
    EXPECT_EQ(modeOf(root() / "cache" / "nimbrale"), 0700U);
    EXPECT_FALSE(claim()) << "it is found there again";
}

TEST_F(InstanceClaimTest, ARelativeRuntimeFolderIsNone)
{
    qputenv("XDG_RUNTIME_DIR", "runtime");
    const auto first = claim();
    ASSERT_TRUE(first && *first);
    EXPECT_TRUE(fs::exists(root() / "cache" / "nimbrale"));
}

TEST_F(InstanceClaimTest, ALinkInTheFoldersPlaceIsNotFollowed)
{
    fs::create_directory(root() / "elsewhere");
    fs::create_directory_symlink(root() / "elsewhere", folder());
    const auto first = claim();
    ASSERT_TRUE(first && *first);
    EXPECT_TRUE(fs::is_empty(root() / "elsewhere"));
    EXPECT_TRUE(fs::exists(root() / "cache" / "nimbrale"));
}

TEST_F(InstanceClaimTest, AnOwnFolderThatOthersCanEnterIsClosedToThem)
{
    fs::create_directory(folder());
    fs::permissions(folder(), fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec);
    const auto first = claim();
    ASSERT_TRUE(first && *first);
    EXPECT_EQ(modeOf(folder()), 0700U);
}

TEST_F(InstanceClaimTest, AnotherUsersFoldersAreNotTaken)
{
    // Seen from the next user, all folders here are another's.
    auto first = InstanceClaim::make({":1", "/home/settings", getuid() + 1}, openSettings, shortPatience);
    ASSERT_TRUE(first && *first);
    EXPECT_FALSE((*first)->takeListeningSocket());
    EXPECT_FALSE(fs::exists(folder()));
    EXPECT_FALSE(fs::exists(root() / "cache" / "nimbrale"));
    const auto own = InstanceClaim::make({":1", "/home/settings", getuid()}, openSettings, shortPatience);
    ASSERT_TRUE(own && *own);
    EXPECT_TRUE(fs::exists(folder())) << "for their owner they serve";
}

TEST_F(InstanceClaimTest, AnotherUsersProgramGetsNoAnswer)
{
    auto first = claim();
    ASSERT_TRUE(first && *first);
    int heard = 0;
    const InstanceListener listener((*first)->takeListeningSocket(),
                                    [&](const InstanceRequest&) {
                                        ++heard;
                                        return InstanceAnswer::done;
                                    },
                                    getuid() + 1);
    const FileDescriptor connection = connectToSocket();
    // What comes from another user is closed unread, which the sender sees as a reset.
    static_cast<void>(::send(connection.get(), "nimbrale/1 open-settings\n", 25, MSG_NOSIGNAL));
    EXPECT_EQ(readAll(connection), "");
    EXPECT_EQ(heard, 0);
}

TEST_F(InstanceClaimTest, AnotherUsersProgramInItsPlaceIsNotAsked)
{
    auto first = claim();
    ASSERT_TRUE(first && *first);
    const FileDescriptor open(::open(folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const std::string name = filesEnding(".socket").at(0).filename().string();
    const auto answer = askInstance(open, name, openSettings, 300ms, getuid() + 1);
    ASSERT_FALSE(answer);
    EXPECT_THAT(answer.error().message, HasSubstr("Another user's"));
}

class InstanceListenerTest : public InstanceClaimTest {
protected:
    InstanceListenerTest()
        : first_(claim()), listener_((*first_)->takeListeningSocket(), [this](const auto& request) {
              heard_.push_back(request);
              return InstanceAnswer::done;
          })
    {}

    Result<std::optional<InstanceClaim>> first_;
    std::vector<InstanceRequest> heard_;
    InstanceListener listener_;
};

TEST_F(InstanceListenerTest, ALineThatComesInPiecesIsOneRequest)
{
    const FileDescriptor connection = connectToSocket();
    for (const char character : formatRequest(openSettings)) {
        EXPECT_THAT(heard_, IsEmpty());
        send(connection, std::string(1, character));
        QCoreApplication::processEvents();
    }
    EXPECT_EQ(readAll(connection), "done\n");
    EXPECT_THAT(heard_, ElementsAre(openSettings));
}

TEST_F(InstanceListenerTest, GarbageIsClosedWithoutAnAnswer)
{
    for (const std::string& text : {std::string("garbage\n"), std::string("\n"), std::string(100000, 'x'),
                                    std::string(10000, '\0'), "nimbrale/1 " + std::string(1000, 'a') + "\n"}) {
        const FileDescriptor connection = connectToSocket();
        send(connection, text);
        EXPECT_EQ(readAll(connection), "");
    }
    EXPECT_THAT(heard_, IsEmpty());
    const FileDescriptor connection = connectToSocket();
    send(connection, formatRequest(openSettings));
    EXPECT_EQ(readAll(connection), "done\n") << "it listens as before";
}

TEST_F(InstanceListenerTest, OneRequestAConnection)
{
    const FileDescriptor connection = connectToSocket();
    send(connection, formatRequest(openSettings) + formatRequest(openSettings));
    EXPECT_EQ(readAll(connection), "done\n");
    EXPECT_THAT(heard_, SizeIs(1));
}

TEST_F(InstanceListenerTest, WhoSaysNothingIsClosedAfterAWhile)
{
    const FileDescriptor silent = connectToSocket();
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(readAll(silent), "");
    EXPECT_GE(timer.elapsed(), 1500);
    EXPECT_LT(timer.elapsed(), 4000);
}

TEST_F(InstanceListenerTest, SilentConnectionsAreBoundedAndKeepNobodyOutForLong)
{
    const auto descriptors = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = descriptors();
    std::vector<FileDescriptor> silent;
    for (int count = 0; count < 100; ++count) {
        silent.push_back(connectToSocket());
        QCoreApplication::processEvents();
    }
    const auto taken = descriptors() - before - static_cast<std::ptrdiff_t>(silent.size());
    EXPECT_GT(taken, 0) << "some are listened to";
    EXPECT_LE(taken, 8 * 3) << "each holds its socket and what the toolkit watches it with";
    EXPECT_TRUE(runUntil([&] {
        const FileDescriptor connection = connectToSocket();
        static_cast<void>(::send(connection.get(), "nimbrale/1 open-settings\n", 25, MSG_NOSIGNAL));
        return readAll(connection) == "done\n";
    }));
    silent.clear();
    EXPECT_TRUE(runUntil([&] { return descriptors() == before; })) << "everything is given back";
}

TEST_F(InstanceListenerTest, WhoLeavesBeforeTheAnswerDoesNoHarm)
{
    for (int count = 0; count < 50; ++count) {
        FileDescriptor connection = connectToSocket();
        send(connection, formatRequest(openSettings));
        connection.reset();
        QCoreApplication::processEvents();
    }
    EXPECT_TRUE(runUntil([&] { return heard_.size() == 50; }));
}

} // namespace
} // namespace nimbrale
