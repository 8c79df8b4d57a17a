#include "app/sharing_notice.h"

#include "app/alerts.h"

#include <algorithm>
#include <iterator>

namespace nimbrale {

void SharingNotice::tell(const std::vector<std::string>& limitations, const std::optional<std::string>& windowTitle)
{
    const bool isWindowNews = windowTitle && !wasWindowTold_;
    wasWindowTold_ = wasWindowTold_ || isWindowNews;
    std::vector<std::string> sentences;
    std::copy_if(limitations.begin(), limitations.end(), std::back_inserter(sentences),
                 [this](const std::string& limitation) { return toldLimitations_.insert(limitation).second; });
    if (sentences.empty()) {
        if (isWindowNews)
            notices_->tell(alerts::windowToShare(*windowTitle));
        return;
    }
    // One alert is enough for both.
    if (isWindowNews)
        sentences.push_back(alerts::windowToShare(*windowTitle).text);
    notices_->show(alerts::captureIsLimited(sentences));
}

void SharingNotice::tellWindowReturned()
{
    if (wasReturnTold_)
        return;
    wasReturnTold_ = true;
    workspace_.notify(alerts::windowWasReturned(), [] {});
}

} // namespace nimbrale
