#pragma once

#include "platform/file_descriptor.h"
#include "platform/result.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace nimbrale::ffmpeg {

/// The file that a movie is written to: beside the finished movie's place, under that name and a suffix that keeps
/// players and indexers off. It is locked as long as this object lives, so that nobody takes it for one that a crash
/// has left. The destructor leaves the file as it is. On any thread, but one at a time.
///
/// On a file system without locks it is written without one; there, `claim` takes what was changed within the last two
/// minutes for a movie that is still written.
class MoviePlace {
public:
    static constexpr std::string_view suffix = ".unfinished";

    /// Makes an empty file for the movie that is to be at `movie`, whose folder must exist. A second movie of that name
    /// is written under the next free one. The error tells why there is none and what to do about it, in sentences.
    [[nodiscard]] static Result<MoviePlace> create(const std::filesystem::path& movie);
    /// Takes over the file `pieces`, whose name ends in the suffix, from a writer that is gone. Nothing where somebody
    /// still writes it or it is not a regular file of this user, which is not even opened then. An error when it cannot
    /// be opened.
    [[nodiscard]] static Result<std::optional<MoviePlace>> claim(const std::filesystem::path& pieces);

    /// Where the file is until it is published.
    [[nodiscard]] const std::filesystem::path& pieces() const { return pieces_; }
    /// For reading and writing. Stays this object's; `replaceByCopy` exchanges it.
    [[nodiscard]] int descriptor() const { return file_.get(); }

    /// Gives the file the movie's name, or the next free one ("Name 2.mov"), and brings the folder to the disk. Nothing
    /// is ever overwritten, whoever makes a file of that name at that moment. Once. Returns the movie's path; after an
    /// error the file is where it was.
    [[nodiscard]] Result<std::filesystem::path> publish();
    /// Removes the file, and a copy that a crash has left.
    void remove();

    /// Makes an empty file beside the pieces, locked as they are, for a copy of their contents. One that a crash has
    /// left is replaced. Whoever does not put it in their place removes it.
    [[nodiscard]] Result<FileDescriptor> createCopy() const;
    /// Puts the copy in the pieces' place, at once or not at all.
    [[nodiscard]] Result<void> replaceByCopy(FileDescriptor copy);
    /// Removes the copy, if there is one.
    void removeCopy() const;

    /// "The movie couldn't be saved.", `reason` (a sentence, or nothing), and where the pieces are.
    [[nodiscard]] Error notSaved(ErrorCode code, std::string_view reason = {}) const;

private:
    MoviePlace(std::filesystem::path movie, std::filesystem::path pieces, FileDescriptor file);
    [[nodiscard]] std::filesystem::path copyPath() const;

    std::filesystem::path movie_;
    std::filesystem::path pieces_;
    FileDescriptor file_;
};

} // namespace nimbrale::ffmpeg
