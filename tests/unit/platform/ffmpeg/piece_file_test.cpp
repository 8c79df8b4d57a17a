#include "platform/ffmpeg/piece_file.h"

#include "tests/support/child_process.h"
#include "tests/unit/platform/ffmpeg/file_calls.h"

#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <vector>

namespace nimbrale::ffmpeg {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// An empty file without a name.
class PieceFileTest : public testing::Test {
protected:
    std::FILE* stream = std::tmpfile();
    int descriptor = fileno(stream);
    PieceFile file{descriptor};

    void TearDown() override { std::fclose(stream); }

    [[nodiscard]] off_t size() const
    {
        struct stat status {};
        return fstat(descriptor, &status) == 0 ? status.st_size : -1;
    }
    /// Appends pieces of 1000 bytes until there is no room beyond `limit`. Returns the file's size then, in hundreds of
    /// bytes, or a negative number where something else went wrong.
    int sizeAfterFailure(rlim_t limit, std::size_t indexSize)
    {
        return runInChild([&] {
            const rlimit files{limit, RLIM_INFINITY};
            if (std::signal(SIGXFSZ, SIG_IGN) == SIG_ERR || setrlimit(RLIMIT_FSIZE, &files) != 0)
                return couldNotPrepare;
            const Bytes piece(1000, 1);
            for (rlim_t position = 0; position + piece.size() <= limit; position += piece.size()) {
                if (!file.append(piece, indexSize))
                    return 201;
            }
            const Result<void> failed = file.append(piece, indexSize);
            if (failed || failed.error().message != "The recording couldn't be written: File too large.")
                return 202;
            return static_cast<int>(size() / 100);
        });
    }
};

TEST_F(PieceFileTest, PiecesFollowEachOther)
{
    ASSERT_TRUE(file.append(Bytes{1, 2, 3}, 0));
    ASSERT_TRUE(file.append(Bytes{4, 5}, 0));
    Bytes content(10);
    ASSERT_EQ(::pread(descriptor, content.data(), content.size(), 0), 5);
    EXPECT_EQ(content, (Bytes{1, 2, 3, 4, 5, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(file.synchronize());
}

TEST_F(PieceFileTest, FailureLeavesWholePiecesAndRoomForTheIndex)
{
    EXPECT_EQ(sizeAfterFailure(15400, 0), 150);
    EXPECT_EQ(sizeAfterFailure(15400, 400), 150);
    EXPECT_EQ(sizeAfterFailure(15400, 500), 140);
    EXPECT_EQ(sizeAfterFailure(15400, 5000), 100);
}

TEST_F(PieceFileTest, FailureLeavesTheHeaderAndTheFirstPiece)
{
    EXPECT_EQ(sizeAfterFailure(5400, 50000), 20);
    EXPECT_EQ(sizeAfterFailure(400, 50000), 0);
}

TEST_F(PieceFileTest, FullDiskIsCalledThat)
{
    FileCalls calls;
    calls.failures["pwrite"] = ENOSPC;
    const Result<void> failed = file.append(Bytes(10), 0);
    ASSERT_FALSE(failed);
    EXPECT_EQ(failed.error().message, "The recording ended because the disk is full.");
}

TEST_F(PieceFileTest, FileSystemThatKnowsNoWaitForTheDiskIsNoFailure)
{
    for (const int error : {EINVAL, ENOSYS, EOPNOTSUPP}) {
        FileCalls calls;
        calls.failures["fsync"] = error;
        EXPECT_TRUE(file.synchronize()) << error;
    }
}

TEST_F(PieceFileTest, DiskThatFailsLaterIsToldOf)
{
    FileCalls calls;
    calls.failures["fsync"] = EIO;
    ASSERT_TRUE(file.append(Bytes(10), 0));
    const Result<void> failed = file.synchronize();
    ASSERT_FALSE(failed);
    EXPECT_EQ(failed.error().message, "The recording couldn't be written: Input/output error.");
}

} // namespace
} // namespace nimbrale::ffmpeg
