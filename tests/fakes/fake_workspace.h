#pragma once

#include "platform/workspace.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale {

/// Questions wait until the test answers the oldest one.
class FakeWorkspace final : public Workspace {
public:
    struct Activation {
        std::uintptr_t window = 0;
        std::optional<EventTime> cause;

        bool operator==(const Activation&) const = default;
    };

    void activate(std::uintptr_t nativeWindow, std::optional<EventTime> cause) override
    {
        activations.push_back({nativeWindow, cause});
    }
    bool openLocation(const std::string& location) override
    {
        locations.push_back(location);
        return opensLocations;
    }
    [[nodiscard]] std::unique_ptr<OpenQuestion> showAlert(const Alert& alert,
                                                          std::function<void(int button)> onAnswer) override
    {
        alerts.push_back(alert);
        return ask(openAlerts, std::move(onAnswer));
    }
    void notify(const Notification& notification, std::function<void()> onNotShown) override
    {
        if (showsNotifications)
            notifications.push_back(notification);
        else
            unshown.push_back(std::move(onNotShown));
    }
    void keepAlertsOffDisplay(const std::string& name) override { displayWithoutAlerts = name; }
    void revealFile(const std::filesystem::path& file) override { revealed.push_back(file); }
    [[nodiscard]] std::unique_ptr<OpenQuestion>
    chooseFolder(const FolderQuestion& question,
                 std::function<void(const std::optional<std::filesystem::path>& folder)> onChosen) override
    {
        folderQuestions.push_back(question);
        return ask(openFolderQuestions, std::move(onChosen));
    }
    [[nodiscard]] Subscription describeControls(const std::string& title,
                                                std::function<std::vector<AccessibleControl>()> controls) override
    {
        (*described_)[title] = std::move(controls);
        return {nullptr, [described = described_, title](void*) { described->erase(title); }};
    }
    /// By the title of their panel, as long as they are described.
    [[nodiscard]] const std::map<std::string, std::function<std::vector<AccessibleControl>()>>& described() const
    {
        return *described_;
    }
    [[nodiscard]] std::string folderName(const std::filesystem::path& folder) const override
    {
        return folder.filename().string();
    }
    void dropKeyboardFocus() override { ++focusDrops; }
    void terminate() override
    {
        ++terminationRequests;
        termination_.ask([this](bool isGranted) {
            if (isGranted)
                ++terminations;
        });
    }
    [[nodiscard]] bool isTerminating() const override { return terminations > 0 || termination_.isWaiting(); }
    [[nodiscard]] Termination& termination() override { return termination_; }

    void answerAlert(int button) { answer(openAlerts, button); }
    void answerFolderQuestion(const std::optional<std::filesystem::path>& folder)
    {
        answer(openFolderQuestions, folder);
    }

    bool opensLocations = true;
    std::vector<Activation> activations;
    int focusDrops = 0;
    int terminationRequests = 0;
    /// Requests that were granted.
    int terminations = 0;
    std::vector<std::string> locations;
    std::vector<std::filesystem::path> revealed;
    std::string displayWithoutAlerts;
    /// All that were shown, answered ones included.
    std::vector<Alert> alerts;
    std::vector<FolderQuestion> folderQuestions;
    bool showsNotifications = true;
    std::vector<Notification> notifications;
    /// Of those that nobody showed, for the test to call.
    std::vector<std::function<void()>> unshown;
    /// Those that are neither answered nor closed, oldest first.
    std::deque<std::shared_ptr<std::function<void(int)>>> openAlerts;
    std::deque<std::shared_ptr<std::function<void(const std::optional<std::filesystem::path>&)>>> openFolderQuestions;

private:
    template <typename Answer>
    using Answers = std::deque<std::shared_ptr<Answer>>;

    template <typename Answer>
    class Open final : public OpenQuestion {
    public:
        Open(Answers<Answer>& answers, std::weak_ptr<Answer> own) : answers_(answers), own_(std::move(own)) {}
        ~Open() override { std::erase(answers_, own_.lock()); }
        Open(const Open&) = delete;
        Open& operator=(const Open&) = delete;

    private:
        Answers<Answer>& answers_;
        std::weak_ptr<Answer> own_;
    };

    template <typename Answer>
    [[nodiscard]] static std::unique_ptr<OpenQuestion> ask(Answers<Answer>& answers, Answer answer)
    {
        answers.push_back(std::make_shared<Answer>(std::move(answer)));
        return std::make_unique<Open<Answer>>(answers, answers.back());
    }
    template <typename Answer, typename Value>
    static void answer(Answers<Answer>& answers, const Value& value)
    {
        const std::shared_ptr<Answer> oldest = answers.at(0);
        answers.pop_front();
        (*oldest)(value);
    }

    using Descriptions = std::map<std::string, std::function<std::vector<AccessibleControl>()>>;

    Termination termination_;
    std::shared_ptr<Descriptions> described_ = std::make_shared<Descriptions>();
};

} // namespace nimbrale
