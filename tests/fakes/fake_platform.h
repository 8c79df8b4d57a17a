#pragma once

#include "platform/platform.h"
#include "tests/fakes/fake_cameras.h"
#include "tests/fakes/fake_main_queue.h"
#include "tests/fakes/fake_microphones.h"
#include "tests/fakes/fake_movies.h"
#include "tests/fakes/fake_panels.h"
#include "tests/fakes/fake_screen_capture.h"
#include "tests/fakes/fake_screens.h"
#include "tests/fakes/fake_virtual_displays.h"
#include "tests/fakes/fake_workspace.h"

namespace nimbrale {

/// A whole desktop of fakes.
class FakePlatform final : public Platform {
public:
    [[nodiscard]] FakeMainQueue& mainQueue() override { return mainQueue_; }
    [[nodiscard]] FakeScreens& screens() override { return screens_; }
    [[nodiscard]] FakeScreenCapture& screenCapture() override { return screenCapture_; }
    [[nodiscard]] FakeVirtualDisplays& virtualDisplays() override { return virtualDisplays_; }
    [[nodiscard]] FakePanels& panels() override { return panels_; }
    [[nodiscard]] FakeWorkspace& workspace() override { return workspace_; }
    [[nodiscard]] LockReports& sessionLock() override { return sessionLock_; }
    [[nodiscard]] FakeCameras& cameras() override { return cameras_; }
    [[nodiscard]] FakeMicrophones& microphones() override { return microphones_; }
    [[nodiscard]] FakeMovies& movies() override { return movies_; }

private:
    FakeMainQueue mainQueue_;
    FakeScreens screens_;
    FakeScreenCapture screenCapture_;
    FakeVirtualDisplays virtualDisplays_;
    FakePanels panels_;
    FakeWorkspace workspace_;
    /// Locked while a test reports it so.
    LockReports sessionLock_;
    FakeCameras cameras_;
    FakeMicrophones microphones_;
    FakeMovies movies_;
};

} // namespace nimbrale
