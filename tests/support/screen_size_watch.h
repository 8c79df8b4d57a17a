#pragma once

#include "tests/support/private_desktop.h"

#include <QSize>

#include <vector>

struct xcb_connection_t;

namespace nimbrale::test {

/// Keeps every size that a desktop's X screen takes on, however short, from its creation on.
class ScreenSizeWatch {
public:
    explicit ScreenSizeWatch(const PrivateDesktop& desktop);
    ~ScreenSizeWatch();
    ScreenSizeWatch(const ScreenSizeWatch&) = delete;
    ScreenSizeWatch& operator=(const ScreenSizeWatch&) = delete;

    /// In the order in which they came, the one at the start left out.
    [[nodiscard]] const std::vector<QSize>& sizes();
    /// Whether the screen has had that size.
    [[nodiscard]] bool hasSeen(QSize size);

private:
    xcb_connection_t* connection_;
    std::uint32_t root_;
    std::vector<QSize> sizes_;
};

} // namespace nimbrale::test
