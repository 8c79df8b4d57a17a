#pragma once

#include "platform/workspace.h"

#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale {

/// Alerts wait until the test answers the oldest one.
class FakeWorkspace final : public Workspace {
public:
    void activate() override { ++activations; }
    bool openLocation(const std::string& location) override
    {
        locations.push_back(location);
        return opensLocations;
    }
    void showAlert(const Alert& alert, std::function<void(int button)> onAnswer) override
    {
        alerts.push_back(alert);
        pendingAnswers.push_back(std::move(onAnswer));
    }
    void dropKeyboardFocus() override { ++focusDrops; }
    void terminate() override
    {
        termination_.ask([this](bool isGranted) {
            if (isGranted)
                ++terminations;
        });
    }
    [[nodiscard]] bool isTerminating() const override { return terminations > 0 || termination_.isWaiting(); }
    [[nodiscard]] Termination& termination() override { return termination_; }

    void answerAlert(int button)
    {
        const std::function<void(int)> onAnswer = std::move(pendingAnswers.at(0));
        pendingAnswers.pop_front();
        onAnswer(button);
    }

    bool opensLocations = true;
    int activations = 0;
    int focusDrops = 0;
    /// Requests that were granted.
    int terminations = 0;
    std::vector<std::string> locations;
    /// All that were shown, answered ones included.
    std::vector<Alert> alerts;
    std::deque<std::function<void(int)>> pendingAnswers;

private:
    Termination termination_;
};

} // namespace nimbrale
