#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

namespace nimbrale {

/// Keeps one observer subscribed; destroying or resetting it ends the subscription, and it may outlive the list.
using Subscription = std::shared_ptr<void>;

/// A list of observers without payload. Of one thread only. Observers may subscribe and unsubscribe while notified; an
/// observer that unsubscribed is not called any more.
class Observers {
public:
    [[nodiscard]] Subscription add(std::function<void()> observer)
    {
        auto entry = std::make_shared<std::function<void()>>(std::move(observer));
        entries_.emplace_back(entry);
        return entry;
    }

    void notify()
    {
        std::erase_if(entries_, [](const auto& entry) { return entry.expired(); });
        const auto current = entries_;
        for (const auto& entry : current) {
            if (const auto observer = entry.lock())
                (*observer)();
        }
    }

private:
    std::vector<std::weak_ptr<std::function<void()>>> entries_;
};

} // namespace nimbrale
