#pragma once

#include "geometry/display_geometry.h"
#include "platform/panel.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale {

class FakePanels;

/// A panel that remembers what was done to it. Lives as long as the code under test keeps it.
class FakePanel final : public Panel, private LayerHost {
public:
    enum class Order { none, front, back, out };

    FakePanel(FakePanels& panels, const PanelOptions& initial);
    ~FakePanel() override;
    FakePanel(const FakePanel&) = delete;
    FakePanel& operator=(const FakePanel&) = delete;

    [[nodiscard]] Layer& rootLayer() override { return root_; }
    [[nodiscard]] Rect frame() const override { return frame_; }
    void setFrame(const Rect& frame) override
    {
        frame_ = frame;
        frames.push_back(frame);
        coverageAtLastFrame = root_.coverage();
        root_.setFrame({0, 0, frame.width, frame.height});
    }
    [[nodiscard]] double backingScaleFactor() const override { return scale; }
    void setMouseRegion(const std::vector<Rect>& region) override { mouseRegion = region; }
    void setCursor(CursorShape shape) override { cursor = shape; }
    void setTitle(const std::string& newTitle) override { title = newTitle; }
    void orderFront() override { setOrder(Order::front); }
    void orderBack() override { setOrder(Order::back); }
    void orderOut() override;

    /// Mouse events as the desktop would report them; `location` in screen coordinates.
    void press(Point location, bool isCommandHeld = false) { report(onMouseDown, location, isCommandHeld); }
    void dragTo(Point location, bool isCommandHeld = false) { report(onMouseDragged, location, isCommandHeld); }
    void release(Point location, bool isCommandHeld = false) { report(onMouseUp, location, isCommandHeld); }

    /// Whether a click at `location`, in screen coordinates, is this panel's.
    [[nodiscard]] bool takesClickAt(Point location) const
    {
        return std::ranges::any_of(mouseRegion, [&](const Rect& rect) {
            return pointerIsIn(rect, {location.x - frame_.x, location.y - frame_.y});
        });
    }

    /// What it was created with.
    PanelOptions options;
    /// Frames given after creation, oldest first.
    std::vector<Rect> frames;
    /// The root layer's when the last of these frames was given.
    std::vector<Rect> coverageAtLastFrame;
    double scale = 1;
    std::vector<Rect> mouseRegion;
    CursorShape cursor = CursorShape::arrow;
    std::string title;
    Order order = Order::none;
    std::vector<Order> orders;
    /// In root layer coordinates, since the test last cleared it.
    std::vector<Rect> invalidated;
    int commits = 0;

private:
    void invalidate(const Rect& area) override { invalidated.push_back(area); }
    void scheduleCommit() override {}
    void commit() override
    {
        root_.layoutIfNeeded();
        ++commits;
    }
    void setOrder(Order newOrder)
    {
        order = newOrder;
        orders.push_back(newOrder);
    }
    void report(const std::function<void(const MouseEvent&)>& handler, Point location, bool isCommandHeld) const
    {
        const std::function<void(const MouseEvent&)> current = handler; // The call may replace it.
        if (current)
            current({{location.x - frame_.x, location.y - frame_.y}, location, isCommandHeld});
    }

    FakePanels& panels_;
    Rect frame_;
    Layer root_;
};

class FakePanels final : public Panels {
public:
    [[nodiscard]] std::unique_ptr<Panel> create(const PanelOptions& options) override
    {
        return std::make_unique<FakePanel>(*this, options);
    }
    [[nodiscard]] Subscription keepBelow(std::uintptr_t nativeWindow) override
    {
        windowsAbove_->push_back(nativeWindow);
        return {nullptr, [windows = windowsAbove_, nativeWindow](void*) {
                    windows->erase(std::find(windows->begin(), windows->end(), nativeWindow));
                }};
    }
    void setInput(PanelInput newInput) override { input = newInput; }
    [[nodiscard]] std::optional<EventTime> timeOfLastClick() const override { return lastClick; }
    /// In the order in which they came; one that was asked for twice is there twice.
    [[nodiscard]] const std::vector<std::uintptr_t>& windowsAbove() const { return *windowsAbove_; }
    /// The living panel created last; there must be one.
    [[nodiscard]] FakePanel& last() const { return *living.at(living.size() - 1); }

    PanelInput input = PanelInput::enabled;
    std::optional<EventTime> lastClick;
    /// In the order in which they were created.
    std::vector<FakePanel*> living;
    /// All that were ever created.
    std::vector<PanelOptions> created;
    /// Titles at creation of the panels that were ordered out, in that order.
    std::vector<std::string> orderedOut;

private:
    std::shared_ptr<std::vector<std::uintptr_t>> windowsAbove_ = std::make_shared<std::vector<std::uintptr_t>>();
};

inline FakePanel::FakePanel(FakePanels& panels, const PanelOptions& initial)
    : options(initial), title(initial.title), panels_(panels), frame_(initial.frame)
{
    root_.setFrame({0, 0, frame_.width, frame_.height});
    root_.setHost(this);
    panels_.living.push_back(this);
    panels_.created.push_back(initial);
}

inline FakePanel::~FakePanel()
{
    root_.setHost(nullptr);
    std::erase(panels_.living, this);
}

inline void FakePanel::orderOut()
{
    setOrder(Order::out);
    panels_.orderedOut.push_back(options.title);
}

} // namespace nimbrale
