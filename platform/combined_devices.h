#pragma once

#include "platform/observers.h"

#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace nimbrale {

/// What is known of the service at which devices of some kind are looked for first.
struct DeviceService {
    /// Whether it is the one that has such devices here; absent before that is known. It is not asked by this.
    std::function<std::optional<bool>()> isUsed;
    /// The observer is told whenever that may have changed.
    std::function<Subscription(std::function<void()> observer)> observe;
};

/// The devices of the first service where that is the one that has them, and otherwise, for as long as it is not, those
/// of the second, which is not asked before. `Devices` is their interface, of which this does what is the same for all
/// kinds. Access is asked for at the first one. Main thread only.
template <typename Devices>
class CombinedDevices : public Devices {
public:
    CombinedDevices(std::unique_ptr<Devices> first, DeviceService service, std::unique_ptr<Devices> second)
        : first_(std::move(first)), service_(std::move(service)), second_(std::move(second)),
          firstChanges_(first_->observeDevices([this] { notifyIf(!isSecondUsed_); })),
          secondChanges_(second_->observeDevices([this] { notifyIf(isSecondUsed_); })),
          serviceChanges_(service_.observe([this] { chooseAgain(); }))
    {}

    [[nodiscard]] Subscription observeDevices(std::function<void()> observer) final
    {
        return observers_.add(std::move(observer));
    }
    void requestAccess(std::function<void(bool isGranted)> onAnswer) final
    {
        first_->requestAccess([this, weak = std::weak_ptr(alive_), onAnswer = std::move(onAnswer)](bool isGranted) {
            if (weak.expired())
                return;
            // The second's devices are to be known, too, where they are the ones that count.
            Devices& counted = used();
            if (isGranted && &counted == second_.get())
                second_->requestAccess(onAnswer);
            else
                onAnswer(isGranted);
        });
    }

protected:
    /// Before anything is known of the first, that one is asked, which makes it known.
    [[nodiscard]] Devices& used() const
    {
        isSecondUsed_ = service_.isUsed() == false;
        isAsked_ = true;
        return isSecondUsed_ ? *second_ : *first_;
    }

private:
    void chooseAgain()
    {
        if (!isAsked_ || isSecondUsed_ == (service_.isUsed() == false))
            return;
        static_cast<void>(used().devices()); // So that they become known.
        observers_.notify();
    }
    void notifyIf(bool isUsed)
    {
        if (isUsed)
            observers_.notify();
    }

    std::unique_ptr<Devices> first_;
    DeviceService service_;
    std::unique_ptr<Devices> second_;
    Observers observers_;
    mutable bool isAsked_ = false;
    mutable bool isSecondUsed_ = false;
    Subscription firstChanges_;
    Subscription secondChanges_;
    Subscription serviceChanges_;
    /// An answer may come after the end.
    std::shared_ptr<void> alive_ = std::make_shared<int>();
};

} // namespace nimbrale
