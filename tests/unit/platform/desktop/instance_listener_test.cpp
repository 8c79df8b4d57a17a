// What the running instance hears, from programs of any kind.

#include "platform/desktop/instance_listener.h"
#include "tests/unit/platform/desktop/instance_claim_fixture.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <gmock/gmock.h>
#include <iterator>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
namespace fs = std::filesystem;

class InstanceConversationTest : public InstanceClaimTest {
protected:
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
};

TEST_F(InstanceConversationTest, AnotherUsersProgramGetsNoAnswer)
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

class InstanceListenerTest : public InstanceConversationTest {
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
    EXPECT_LT(timer.elapsed(), 15000);
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
