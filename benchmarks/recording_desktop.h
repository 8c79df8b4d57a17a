#pragma once

#include "benchmarks/cost.h"
#include "tests/support/application.h"
#include "tests/support/movie_file.h"
#include "tests/support/private_pipewire.h"
#include "tests/support/scene.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace nimbrale::benchmarks {

/// Nothing on it moves, or all of it is in motion: a page of text that is scrolled, and beside it a small video.
enum class RecordedContent { still, busy };
/// Both the microphone and what the computer plays.
enum class RecordedSound { none, both };

/// A display that is recorded as a whole, by the real application, which shares it too, or by ffmpeg.
class RecordingDesktop {
public:
    struct Options {
        QSize display = fullHd;
        RecordedContent content = RecordedContent::busy;
        RecordedSound sound = RecordedSound::none;
        int framesPerSecond = 30;
    };

    /// Throws Failure where something is missing or does not start. So does everything else here.
    explicit RecordingDesktop(const Options& options);

    [[nodiscard]] test::PrivateDesktop& desktop() { return *desktop_; }

    /// Starts the application and returns when it shares the display.
    void startApplication();
    /// The application, which is running, and the window in which it shares.
    [[nodiscard]] Shower shower() const;
    /// Where it shares, in root pixels.
    [[nodiscard]] QPoint sharedAt() const { return target_.topLeft(); }
    /// The application begins a recording; returns when that is under way.
    void startRecording();
    /// Ends the recording and returns it.
    [[nodiscard]] test::MovieFile endRecording();
    /// What the application said since it was started.
    [[nodiscard]] std::string applicationOutput() const { return application_->process().output(); }
    /// Ends it, and the screen has its former size again.
    void endApplication();

    /// Starts ffmpeg, which grabs the display and encodes as the application does, on as many threads; its sound is a
    /// tone of its own. Returns when the recording is under way.
    void startGrab();
    [[nodiscard]] Shower grabber() const { return {grab_->pid(), 0}; }
    /// Ends it and returns its recording.
    [[nodiscard]] test::MovieFile endGrab();

private:
    void startSound();
    void startMotion();
    void toggle();
    [[nodiscard]] std::vector<std::string> grabArguments() const;
    [[nodiscard]] std::filesystem::path grabFile() const { return desktop_->folder() / "grab.mov"; }

    Options options_;
    std::unique_ptr<test::PrivatePipewire> pipewire_;
    std::vector<std::unique_ptr<test::VirtualSound>> sounds_;
    std::unique_ptr<test::PrivateDesktop> desktop_;
    std::filesystem::path videos_;
    std::unique_ptr<test::Scene> scene_;
    std::vector<std::unique_ptr<test::Process>> motion_;
    std::unique_ptr<test::Application> application_;
    std::unique_ptr<test::Process> grab_;
    QRect target_;
};

} // namespace nimbrale::benchmarks
