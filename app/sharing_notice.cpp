#include "app/sharing_notice.h"

#include "app/alerts.h"

#include <algorithm>
#include <iterator>

namespace nimbrale {

std::shared_ptr<SharingNotice> SharingNotice::create(Workspace& workspace)
{
    return std::shared_ptr<SharingNotice>(new SharingNotice(workspace));
}

void SharingNotice::tell(const std::vector<std::string>& limitations, const std::optional<std::string>& windowTitle)
{
    const bool isWindowNews = windowTitle && !wasWindowTold_;
    wasWindowTold_ = wasWindowTold_ || isWindowNews;
    std::vector<std::string> sentences;
    std::copy_if(limitations.begin(), limitations.end(), std::back_inserter(sentences),
                 [this](const std::string& limitation) { return toldLimitations_.insert(limitation).second; });
    if (sentences.empty()) {
        if (isWindowNews)
            tellWindow(*windowTitle);
        return;
    }
    // One alert is enough for both.
    if (isWindowNews)
        sentences.push_back(alerts::windowToShare(*windowTitle).text);
    show(alerts::captureIsLimited(sentences));
}

void SharingNotice::tellWindowReturned()
{
    if (wasReturnTold_)
        return;
    wasReturnTold_ = true;
    workspace_.notify(alerts::windowWasReturned(), [] {});
}

void SharingNotice::tellWindow(const std::string& title)
{
    const Notification notification = alerts::windowToShare(title);
    workspace_.notify(notification, [weak = weak_from_this(), notification] {
        if (const auto self = weak.lock())
            self->show(alerts::insteadOf(notification));
    });
}

void SharingNotice::show(const Alert& alert)
{
    alerts_.push_back(workspace_.showAlert(alert, [](int) {}));
}

} // namespace nimbrale
