#pragma once

#include "platform/movie_writer.h"

#include <atomic>
#include <chrono>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace nimbrale {

/// What a test sees of a movie that is written, and does to it; outlives the writer. Look at it only when the thread
/// that writes has nothing to do.
class FakeMovie {
public:
    struct Sound {
        AudioBuffer audio;
        std::chrono::nanoseconds time{};
    };

    MovieSettings settings;
    std::optional<std::chrono::nanoseconds> sessionStart;
    std::vector<std::chrono::nanoseconds> pictures;
    std::vector<std::chrono::nanoseconds> repeats;
    int dropped = 0;
    std::vector<Sound> sounds;
    std::optional<std::chrono::nanoseconds> end;
    bool isCancelled = false;
    bool isReadyForVideo = true;
    /// These may be asked at any time.
    std::atomic<bool> isAlive = true;
    std::atomic<bool> isFinishAwaited = false;
    std::optional<Error> failure;
    std::atomic<bool> isStalled = false;

    /// Ends the finishing, as the writer's own thread does.
    void completeFinish(Result<std::filesystem::path> movie)
    {
        isFinishAwaited = false;
        std::exchange(completion_, nullptr)(std::move(movie));
    }

private:
    friend class FakeMovieWriter;

    MovieWriter::Completion completion_;
};

/// What the code under test owns.
class FakeMovieWriter final : public MovieWriter {
public:
    explicit FakeMovieWriter(std::shared_ptr<FakeMovie> movie) : movie_(std::move(movie)) {}
    ~FakeMovieWriter() override
    {
        // A finish under way comes to its end, where the disk answers.
        if (movie_->isFinishAwaited && !movie_->isStalled)
            movie_->completeFinish(movie_->settings.file);
        movie_->isAlive = false;
    }
    FakeMovieWriter(const FakeMovieWriter&) = delete;
    FakeMovieWriter& operator=(const FakeMovieWriter&) = delete;

    void startSession(std::chrono::nanoseconds time) override { movie_->sessionStart = time; }
    [[nodiscard]] bool isReadyForVideo() const override { return movie_->isReadyForVideo; }
    void appendVideo(const SurfaceReader::Picture&, std::chrono::nanoseconds time) override
    {
        movie_->pictures.push_back(time);
    }
    void dropVideo() override { ++movie_->dropped; }
    void repeatVideo(std::chrono::nanoseconds time) override { movie_->repeats.push_back(time); }
    void appendAudio(const AudioBuffer& audio, std::chrono::nanoseconds time) override
    {
        movie_->sounds.push_back({audio, time});
    }
    void finish(std::chrono::nanoseconds time, Completion completion) override
    {
        movie_->end = time;
        movie_->completion_ = std::move(completion);
        movie_->isFinishAwaited = true;
    }
    void cancel() override { movie_->isCancelled = true; }
    [[nodiscard]] std::optional<Error> failure() const override { return movie_->failure; }
    [[nodiscard]] bool isStalled() override { return movie_->isStalled; }

private:
    std::shared_ptr<FakeMovie> movie_;
};

/// Questions for leftovers wait until the test answers the oldest one.
class FakeMovies final : public Movies {
public:
    struct Recovery {
        std::filesystem::path folder;
        std::function<void(std::vector<RecoveredMovie> movies)> completion;
    };

    struct Beginning {
        MovieSettings settings;
        std::function<void(Result<std::unique_ptr<MovieWriter>> writer)> completion;
    };

    void prepare(const MovieVideo& video, std::function<void()> completion) override
    {
        prepared.push_back(video);
        if (holdsPreparations)
            preparations.push_back(std::move(completion));
        else
            completion();
    }
    [[nodiscard]] Subscription
    create(const MovieSettings& settings,
           std::function<void(Result<std::unique_ptr<MovieWriter>> writer)> completion) override
    {
        const auto beginning = std::make_shared<Beginning>(Beginning{settings, std::move(completion)});
        beginnings.push_back(beginning);
        if (!holdsBeginnings)
            answerBeginning();
        return beginning;
    }
    void recover(const std::filesystem::path& folder,
                 std::function<void(std::vector<RecoveredMovie> found)> completion) override
    {
        recoveries.push_back({folder, std::move(completion)});
    }

    /// The disk answers to the movie that was asked for last, if that was not given up.
    void answerBeginning()
    {
        const auto beginning = beginnings.back().lock();
        if (!beginning)
            return;
        const auto completion = std::exchange(beginning->completion, nullptr);
        if (createError) {
            completion(tl::make_unexpected(*createError));
            return;
        }
        movies.push_back(std::make_shared<FakeMovie>());
        movies.back()->settings = beginning->settings;
        completion(std::make_unique<FakeMovieWriter>(movies.back()));
    }
    void answerRecovery(const std::vector<RecoveredMovie>& found)
    {
        const Recovery recovery = std::move(recoveries.at(0));
        recoveries.pop_front();
        recovery.completion(found);
    }
    /// The movie made last; there must be one.
    [[nodiscard]] FakeMovie& movie() const { return *movies.at(movies.size() - 1); }

    /// What was prepared, the oldest first.
    std::vector<MovieVideo> prepared;
    /// Whether completions of preparations wait for the test.
    bool holdsPreparations = false;
    std::vector<std::function<void()>> preparations;
    /// Whether completions of beginnings wait for the test.
    bool holdsBeginnings = false;
    /// Expired where they were given up.
    std::vector<std::weak_ptr<Beginning>> beginnings;
    std::optional<Error> createError;
    /// In the order in which they were made.
    std::vector<std::shared_ptr<FakeMovie>> movies;
    std::deque<Recovery> recoveries;
};

} // namespace nimbrale
