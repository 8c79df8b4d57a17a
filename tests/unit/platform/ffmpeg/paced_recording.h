#pragma once

#include "platform/ffmpeg/movie_recovery.h"
#include "tests/unit/platform/ffmpeg/movie_writer_fixture.h"

#include <atomic>
#include <csignal>
#include <sys/mman.h>
#include <sys/wait.h>

namespace nimbrale::ffmpeg {

/// A process that records, some times faster than the clock goes, until it is killed.
class PacedRecording {
public:
    struct Content {
        bool isMoving = true;
        bool hasSound = false;
    };
    using Begin = std::function<std::unique_ptr<MovieWriter>()>;
    using nanoseconds = std::chrono::nanoseconds;

    static constexpr nanoseconds picture{std::nano::den / 30};

    /// `begin` is called in the new process. This one must have no other thread.
    PacedRecording(int speed, const Content& content, nanoseconds start, const Begin& begin)
    {
        child_ = fork();
        if (child_ == 0)
            record(speed, content, start, *begin());
    }
    ~PacedRecording()
    {
        kill();
        munmap(shared_, sizeof(Reached));
    }
    PacedRecording(const PacedRecording&) = delete;
    PacedRecording& operator=(const PacedRecording&) = delete;

    /// Up to where the movie would go if it were ended now.
    [[nodiscard]] nanoseconds reached() const { return nanoseconds(shared_->load()); }
    void waitUntil(nanoseconds time) const
    {
        while (reached() < time)
            std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    void freeze() const { ::kill(child_, SIGSTOP); }
    void kill()
    {
        if (child_ <= 0)
            return;
        ::kill(child_, SIGKILL);
        waitpid(std::exchange(child_, 0), nullptr, 0);
    }

    /// How bright the picture of that number is.
    static std::uint8_t gray(std::int64_t number) { return static_cast<std::uint8_t>(20 + number * 37 % 200); }

private:
    using Reached = std::atomic<std::int64_t>;

    [[noreturn]] void record(int speed, const Content& content, nanoseconds start, MovieWriter& writer)
    {
        Screen screen(320, 240);
        AudioBuffer sound;
        sound.samples.assign(3200, 0.25F); // As long as a picture.
        const auto begin = std::chrono::steady_clock::now();
        for (std::int64_t number = 0;; ++number) {
            const nanoseconds time = number * picture;
            std::this_thread::sleep_until(begin + time / speed);
            if (number == 0 || content.isMoving) {
                const std::uint8_t value = gray(number);
                screen.fillAll({value, value, value});
                if (writer.isReadyForVideo())
                    writer.appendVideo(screen.picture(), start + time);
            } else if (number % 15 == 0 && writer.isReadyForVideo()) {
                writer.repeatVideo(start + time);
            }
            // Behind the pictures, as the mixer gives it.
            if (content.hasSound && number >= 9)
                writer.appendAudio(sound, start + time - 9 * picture);
            shared_->store(time.count());
        }
    }

    Reached* shared_ =
        new (mmap(nullptr, sizeof(Reached), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Reached(0);
    pid_t child_ = 0;
};

/// Movies of a `PacedRecording` that was cut off.
class CutOffMovieTest : public MovieWriterTest {
protected:
    std::unique_ptr<PacedRecording> record(int speed, const PacedRecording::Content& content,
                                           const std::filesystem::path& file)
    {
        MovieSettings settings = settingsFor(320, 240);
        settings.file = file;
        if (content.hasSound)
            settings.audio = MovieAudio{};
        return std::make_unique<PacedRecording>(speed, content, start, [&] { return begin(settings); });
    }
    /// Whether the movie is that recording up to at least `least`, every picture and sound of it.
    static void expectPlays(const std::filesystem::path& file, const PacedRecording::Content& content,
                            std::chrono::nanoseconds least)
    {
        const PlayedMovie played(file);
        const std::chrono::duration<double> wanted = least;
        EXPECT_GE(played.videoDuration(), wanted);
        for (const PlayedPicture& picture : played.pictures()) {
            const std::int64_t number = content.isMoving ? std::llround(static_cast<double>(picture.tick) / 3000) : 0;
            const int luma = 16 + PacedRecording::gray(number) * 219 / 255;
            ASSERT_NEAR(picture.lumaAt(160, 120), luma, 6) << picture.tick;
        }
        if (content.isMoving) {
            EXPECT_NEAR(static_cast<double>(played.pictures().size()), played.videoDuration().count() * 30, 1);
        }
        if (content.hasSound) {
            EXPECT_GE(static_cast<double>(played.left().size()) / 48000, wanted.count() - 0.5);
        }
    }
};

} // namespace nimbrale::ffmpeg
