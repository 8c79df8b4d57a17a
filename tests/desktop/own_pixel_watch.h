#pragma once

#include "tests/desktop/captured_desktop.h"
#include "tests/desktop/own_pixels.h"
#include "tests/support/image_compare.h"

#include <QImage>

#include <gtest/gtest.h>

namespace nimbrale::test {

/// Looks through the pictures of a capture for own pixels, and keeps the one with the most.
class OwnPixelWatch {
public:
    /// Every picture from now on is looked through. Must outlive the capture, or its `onFrame` must be taken away.
    void watch(CapturedDesktop& captured)
    {
        captured.onFrame = [this, &captured] {
            ++pictures_;
            const QImage image = captured.image();
            const int found = ownPixels(image);
            if (found <= worst_)
                return;
            worst_ = found;
            leak_ = image;
        };
    }
    [[nodiscard]] int pictures() const { return pictures_; }
    void expectNoneFound(int atLeastPictures) const
    {
        EXPECT_GE(pictures_, atLeastPictures);
        EXPECT_EQ(worst_, 0) << "kept as " << keepImage(leak_, "leak");
    }

private:
    int pictures_ = 0;
    int worst_ = 0;
    QImage leak_;
};

} // namespace nimbrale::test
