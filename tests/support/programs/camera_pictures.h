#pragma once

#include "tests/support/programs/camera_encoding.h"
#include "tests/support/sliding_picture.h"

#include <QColor>
#include <QImage>

#include <cstdint>
#include <optional>

namespace nimbrale::test {

/// What a camera shows: stripes that move until something else is said.
class CameraPictures {
public:
    /// That picture, stretched to the camera's size.
    void show(const QImage& picture);
    void show(const QColor& color);
    /// One picture that slides in front of another, stretched as well.
    void show(SlidingPicture sliding);

    /// The picture of that number as the format has it, `gap` bytes after each row; valid until the next call.
    [[nodiscard]] const EncodedPicture& encoded(const CameraFormat& format, std::uint64_t number, int gap);

private:
    /// What the encoded picture is of; the number stays 0 where each looks like the one before.
    struct Subject {
        CameraFormat format;
        std::uint64_t number = 0;
        int gap = 0;

        bool operator==(const Subject&) const = default;
    };
    [[nodiscard]] QImage picture(const CameraFormat& format, std::uint64_t number) const;

    QImage still_;
    std::optional<SlidingPicture> sliding_;
    std::optional<Subject> subject_;
    EncodedPicture encoded_;
};

} // namespace nimbrale::test
