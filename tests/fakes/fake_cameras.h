#pragma once

#include "platform/cameras.h"
#include "tests/fakes/halved_picture.h"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale {

/// What a test sees of an opened camera and does to it; outlives the camera.
class FakeOpenCamera {
public:
    std::string id;
    bool isOpen = true;

    /// Hands out a picture, halved as often as is wanted, on the test's own thread, which stands for the camera's. A
    /// closed camera has none to give.
    void show(const std::shared_ptr<const BufferSurface>& picture) const
    {
        const auto onPicture = handlers.onPicture; // The call may end with the camera closed.
        if (isOpen && onPicture)
            onPicture(halvedAsWanted(picture));
    }
    /// An opaque picture of one color.
    void show(int width, int height, std::byte value = std::byte{0x80}) const
    {
        const auto pixels = std::make_shared<PixelBuffer>(width, height);
        std::fill_n(pixels->row(0), pixels->stride() * static_cast<std::size_t>(height), value);
        show(std::make_shared<BufferSurface>(pixels, SurfaceAlpha::opaque));
    }
    /// The camera is gone, busy or broken; told once, and no picture comes after it.
    void lose(const Error& error = {ErrorCode::temporary, "The camera was unplugged."})
    {
        const auto onLost = std::exchange(handlers, {}).onLost; // The call may destroy the camera.
        if (isOpen && onLost)
            onLost(error);
    }

    Cameras::Handlers handlers;

private:
    [[nodiscard]] std::shared_ptr<const BufferSurface>
    halvedAsWanted(const std::shared_ptr<const BufferSurface>& picture) const
    {
        const int halvings = handlers.wantedHalvings ? handlers.wantedHalvings(picture->width(), picture->height()) : 0;
        return halvings == 0 ? picture : halved(*picture, halvings);
    }
};

/// Cameras that the test plugs in, unplugs and shows pictures with.
class FakeCameras final : public Cameras {
public:
    [[nodiscard]] std::vector<CameraDevice> devices() const override { return list; }
    [[nodiscard]] std::optional<std::string> preferredDevice() const override { return preferred; }
    [[nodiscard]] Subscription observeDevices(std::function<void()> observer) override
    {
        return observers_.add(std::move(observer));
    }
    void requestAccess(std::function<void(bool isGranted)> onAnswer) override
    {
        questions.push_back(std::move(onAnswer));
    }
    [[nodiscard]] std::unique_ptr<OpenCamera> open(const std::string& id, Handlers handlers) override
    {
        auto state = std::make_shared<FakeOpenCamera>();
        state->id = id;
        state->handlers = std::move(handlers);
        opened.push_back(state);
        return std::make_unique<Handle>(std::move(state));
    }

    /// Tells the observers; for a change of `list` or `preferred` that the test made itself.
    void notify() { observers_.notify(); }
    void plugIn(CameraDevice device)
    {
        list.push_back(std::move(device));
        notify();
    }
    /// The camera goes, and then whoever has it open hears of it.
    void unplug(const std::string& id)
    {
        std::erase_if(list, [&id](const CameraDevice& device) { return device.id == id; });
        notify();
        const auto current = opened; // The calls may open cameras.
        for (const auto& camera : current) {
            if (camera->isOpen && camera->id == id)
                camera->lose();
        }
    }
    /// Answers the oldest question for access; there must be one.
    void answerAccess(bool isGranted)
    {
        const auto onAnswer = std::move(questions.front());
        questions.pop_front();
        onAnswer(isGranted);
    }
    [[nodiscard]] std::size_t openCount() const
    {
        std::size_t count = 0;
        for (const auto& camera : opened)
            count += camera->isOpen ? 1 : 0;
        return count;
    }

    std::vector<CameraDevice> list;
    std::optional<std::string> preferred;
    /// Questions for access that wait for their answer.
    std::deque<std::function<void(bool isGranted)>> questions;
    /// Every camera that was ever opened, in order.
    std::vector<std::shared_ptr<FakeOpenCamera>> opened;

private:
    class Handle final : public OpenCamera {
    public:
        explicit Handle(std::shared_ptr<FakeOpenCamera> state) : state_(std::move(state)) {}
        ~Handle() override
        {
            state_->isOpen = false;
            state_->handlers = {};
        }
        Handle(const Handle&) = delete;
        Handle& operator=(const Handle&) = delete;

    private:
        std::shared_ptr<FakeOpenCamera> state_;
    };

    Observers observers_;
};

} // namespace nimbrale
