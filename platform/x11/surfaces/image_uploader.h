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
    /// The batch's next picture, transparent, premultiplied. It points into memory that lasts until the next batch but
    /// one.
    [[nodiscard]] QImage image(int width, int height);
    /// Copies a picture of this batch to a place in a drawable of depth 32.
    void put(const QImage& image, xcb_drawable_t target, xcb_gcontext_t context, int x, int y);
    /// Nothing more is put from this batch.
    void end();

private:
    class Buffer;

    Connection& connection_;
    bool sharesMemory_;
    std::array<std::unique_ptr<Buffer>, 2> buffers_;
    std::size_t current_ = 0;
    std::size_t used_ = 0;
};

} // namespace nimbrale::x11
