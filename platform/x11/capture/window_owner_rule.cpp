#include "platform/x11/capture/window_owner_rule.h"

namespace nimbrale::x11 {

bool WindowOwnerRule::isOwn(const WindowFacts& facts) const
{
    if (facts.client && ownProcessAtServer_ != 0)
        return *facts.client == ownProcessAtServer_;
    return facts.namedProcess == ownProcess_;
}

void WindowOwnerRule::consider(WindowOwner& owner, const WindowFacts& facts) const
{
    if (facts.depth == 0)
        owner.isDock = facts.isDock;
    if (facts.depth == 0 || !owner.isDock)
        owner.isOwn |= isOwn(facts);
    if (owner.isOwn)
        owner.process = ownProcess_;
    else if (facts.depth == 0)
        owner.process = facts.client.value_or(facts.namedProcess.value_or(0));
    // A notification may stand in a frame, but what lies deeper in a window that is not managed says nothing about it.
    owner.isNotification |= (facts.depth <= 1 || facts.isClient) && facts.isNotification;
}

} // namespace nimbrale::x11
