#pragma once

#include "platform/pixel_buffer.h"
#include "platform/result.h"

#include <cstdint>
#include <span>

namespace nimbrale {

/// How surely each part of a picture belongs to a person: 0 not at all, 255 surely. It covers the whole picture, at a
/// resolution of its own.
struct PersonMask {
    int width = 0;
    int height = 0;
    /// Rows from the top down, one byte each, with nothing between them.
    std::span<const std::uint8_t> values;
};

/// Finds people in pictures. Not thread-safe: one thread at a time.
class PersonSegmentation {
public:
    virtual ~PersonSegmentation() = default;

    /// `picture` is BGRA of any size, at least 1 × 1; its alpha is not looked at. The mask has the same size whatever
    /// the picture's, and its values are valid until the next call. After an error the next picture may be tried.
    [[nodiscard]] virtual Result<PersonMask> findPerson(const PixelBuffer& picture) = 0;
};

} // namespace nimbrale
