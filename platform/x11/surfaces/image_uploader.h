#pragma once

#include "platform/x11/server/connection.h"

#include <QImage>

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <xcb/shm.h>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Brings painted pictures into the server: through shared memory where the server shares ours, else in the requests
/// themselves. Pictures come in batches; a batch is painted while the server may still read the one before. Main thread
/// only.
class ImageUploader {
public:
    /// `connection` must outlive it.
    explicit ImageUploader(Connection& connection);
    ~ImageUploader();
    ImageUploader(const ImageUploader&) = delete;
    ImageUploader& operator=(const ImageUploader&) = delete;

    /// Begins a batch whose pictures have so many pixels together.
    void begin(std::size_t pixelCount);
    /// The batch's next picture, cleared to zero. It points into memory that lasts until the next batch but one. A
    /// pixel has 8 bits (Alpha8, for drawables of depth 8) or 32 (for depth 24 or 32).
    [[nodiscard]] QImage image(int width, int height, QImage::Format format = QImage::Format_ARGB32_Premultiplied);
    /// The same, with whatever is there.
    [[nodiscard]] QImage unclearedImage(int width, int height, QImage::Format format);
    /// Copies a picture of this batch to a position in a drawable.
    void put(const QImage& image, xcb_drawable_t target, std::uint8_t depth, xcb_gcontext_t context, int x, int y);
    /// Nothing more is put from this batch.
    void end();
    /// Gives the memory back, between batches.
    void trim();

private:
    class Buffer;

    Connection& connection_;
    bool sharesMemory_;
    std::array<std::unique_ptr<Buffer>, 2> buffers_;
    std::size_t current_ = 0;
    std::size_t used_ = 0;
};

} // namespace nimbrale::x11
