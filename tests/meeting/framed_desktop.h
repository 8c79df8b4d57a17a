#pragma once

#include "tests/support/application.h"
#include "tests/support/requirements.h"

#include <QColor>
#include <QRect>

#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace nimbrale::test {

inline const QColor frameYellow(255, 214, 10);
inline constexpr QRect region(300, 200, 500, 350);
inline constexpr std::uint32_t altKey = 0xffe9;
inline constexpr std::uint32_t tabKey = 0xff09;

/// The real application without a call: its frame lies around `region`, and the pointer elsewhere.
class FramedDesktop {
protected:
    /// To be called once, in SetUp.
    void start(PrivateDesktop::WindowManager windowManager)
    {
        desktop_ = requireDesktop({.width = 1600, .height = 900, .windowManager = windowManager});
        desktop_->setBackground(QColor(30, 60, 90));
        desktop_->movePointer({1500, 850});
        application_ = requireApplication(*desktop_, {.region = region});
        ASSERT_TRUE(application_->waitForVirtualDisplay(region.size())) << application_->process().output();
    }

    void type(const std::string& text)
    {
        for (const char character : text)
            strike(static_cast<std::uint32_t>(character));
    }

    // Settings must have the keyboard for these.

    void typeWidth(const std::string& width)
    {
        goToField("w");
        type(width);
        strike(tabKey);
    }

    void goToField(const std::string& mnemonic)
    {
        desktop_->pressKey(altKey);
        type(mnemonic);
        desktop_->releaseKey(altKey);
    }

    void strike(std::uint32_t key)
    {
        desktop_->pressKey(key);
        desktop_->releaseKey(key);
    }

    std::unique_ptr<PrivateDesktop> desktop_;
    std::unique_ptr<Application> application_;
};

} // namespace nimbrale::test
