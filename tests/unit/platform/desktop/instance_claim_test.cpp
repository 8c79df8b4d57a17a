#include "platform/desktop/instance_listener.h"
#include "platform/desktop/instance_socket.h"
#include "tests/unit/platform/desktop/instance_claim_fixture.h"

#include <algorithm>
#include <array>
#include <atomic>
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
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::SizeIs;
namespace fs = std::filesystem;

mode_t modeOf(const fs::path& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & 0777 : 0;
}

/// Both ends of a pipe.
struct Pipe {
    Pipe()
    {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        reading = FileDescriptor(ends.front());
        writing = FileDescriptor(ends.back());
    }

    FileDescriptor reading;
    FileDescriptor writing;
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
        second = claim(":1", "/home/settings", {longPatience, longPatience, longPatience});
        isOver = true;
    });
    EXPECT_TRUE(runUntil([&] { return questions > 5; }));
    EXPECT_FALSE(isOver) << "it asks again and again";
    listener.reset();
    EXPECT_FALSE(runUntil([&] { return isOver.load(); }, 100ms)) << "it waits although nobody listens any more";
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
    const auto second = claimBeside(shortPatience.forEnd);
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

/// Starts a process that claims the display, writes to `answers` whether it got it ('y' or 'n') and keeps what it has
/// until the other end of `end` is closed.
pid_t startClaiming(const std::function<Result<std::optional<InstanceClaim>>()>& claim, const Pipe& answers, Pipe& end)
{
    const pid_t child = fork();
    if (child != 0)
        return child;
    end.writing.reset();
    auto claimed = claim();
    const bool isClaimed = claimed && *claimed;
    // Nobody listens, so that the others give up.
    if (isClaimed)
        (*claimed)->takeListeningSocket().reset();
    const char answer = isClaimed ? 'y' : 'n';
    if (write(answers.writing.get(), &answer, 1) != 1)
        _exit(EXIT_FAILURE);
    char nothing = 0;
    _exit(read(end.reading.get(), &nothing, 1) == 0 ? EXIT_SUCCESS : EXIT_FAILURE);
}

TEST_F(InstanceClaimTest, OfManyStartsAtOnceExactlyOneGetsTheDisplay)
{
    constexpr int starts = 12;
    const Pipe answers;
    Pipe end;
    std::vector<pid_t> children;
    for (int start = 0; start < starts; ++start)
        children.push_back(startClaiming([] { return claim(); }, answers, end));
    std::string answered;
    while (answered.size() < starts) {
        pollfd waiting{answers.reading.get(), POLLIN, 0};
        ASSERT_EQ(poll(&waiting, 1, std::chrono::milliseconds(longPatience).count()), 1) << answered;
        char answer = 0;
        ASSERT_EQ(read(answers.reading.get(), &answer, 1), 1);
        answered.push_back(answer);
    }
    EXPECT_EQ(std::ranges::count(answered, 'y'), 1) << answered;
    EXPECT_EQ(std::ranges::count(answered, 'n'), starts - 1) << answered;
    end.writing.reset();
    for (const pid_t child : children) {
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, EXIT_SUCCESS);
    }
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

} // namespace
} // namespace nimbrale
