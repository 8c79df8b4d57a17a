#include "platform/x11/surfaces/image_uploader.h"

#include "platform/x11/server/handles.h"
#include "platform/x11/surfaces/shared_memory.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <vector>

namespace nimbrale::x11 {

namespace {

constexpr std::size_t bytesPerPixel = 4;
constexpr std::size_t smallestBuffer = std::size_t{256} * 1024;

} // namespace

class ImageUploader::Buffer {
public:
    Buffer(Connection& connection, std::size_t size, bool sharesMemory) : connection_(connection), size_(size)
    {
        if (sharesMemory)
            shared_ = SharedMemory::create(connection, size);
        if (!shared_)
            own_.resize(size);
    }
    ~Buffer()
    {
        if (lastRead_)
            xcb_discard_reply(connection_.get(), lastRead_->sequence);
    }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] bool isShared() const { return shared_ != nullptr; }
    [[nodiscard]] xcb_shm_seg_t segment() const { return shared_->segment(); }
    [[nodiscard]] uchar* data() { return shared_ ? reinterpret_cast<uchar*>(shared_->address()) : own_.data(); }

    /// The answer to this request says that the server has read all that was put before.
    void markRead()
    {
        if (shared_)
            lastRead_ = xcb_get_input_focus(connection_.get());
    }
    void waitUntilRead()
    {
        if (!lastRead_)
            return;
        const Reply<xcb_get_input_focus_reply_t> done(
            xcb_get_input_focus_reply(connection_.get(), *lastRead_, nullptr));
        lastRead_.reset();
    }

private:
    Connection& connection_;
    std::size_t size_;
    std::unique_ptr<SharedMemory> shared_;
    std::vector<uchar> own_;
    std::optional<xcb_get_input_focus_cookie_t> lastRead_;
};

ImageUploader::ImageUploader(Connection& connection)
    : connection_(connection), sharesMemory_(connection.extensions().sharedMemory.isPresent)
{}

ImageUploader::~ImageUploader() = default;

void ImageUploader::begin(std::size_t pixelCount)
{
    current_ = 1 - current_;
    used_ = 0;
    const std::size_t needed = pixelCount * bytesPerPixel;
    std::unique_ptr<Buffer>& buffer = buffers_[current_];
    if (buffer)
        buffer->waitUntilRead();
    if (buffer && buffer->size() >= needed)
        return;
    buffer.reset();
    buffer = std::make_unique<Buffer>(connection_, std::bit_ceil(std::max(needed, smallestBuffer)), sharesMemory_);
    sharesMemory_ = buffer->isShared();
}

QImage ImageUploader::image(int width, int height, QImage::Format format)
{
    QImage image = unclearedImage(width, height, format);
    std::memset(image.bits(), 0, static_cast<std::size_t>(image.sizeInBytes()));
    return image;
}

QImage ImageUploader::unclearedImage(int width, int height, QImage::Format format)
{
    // The server takes rows of whole 32-bit words, as the toolkit makes them.
    const int bitsPerRow = width * QImage::toPixelFormat(format).bitsPerPixel();
    const std::size_t rowBytes = static_cast<std::size_t>((bitsPerRow + 31) / 32) * 4;
    uchar* const pixels = buffers_[current_]->data() + used_;
    used_ += rowBytes * static_cast<std::size_t>(height);
    return {pixels, width, height, static_cast<qsizetype>(rowBytes), format};
}

void ImageUploader::put(const QImage& image, xcb_drawable_t target, std::uint8_t depth, xcb_gcontext_t context, int x,
                        int y)
{
    Buffer& buffer = *buffers_[current_];
    const auto width = static_cast<std::uint16_t>(image.width());
    if (buffer.isShared()) {
        const auto offset = static_cast<std::uint32_t>(image.constBits() - buffer.data());
        const auto height = static_cast<std::uint16_t>(image.height());
        xcb_shm_put_image(connection_.get(), target, context, width, height, 0, 0, width, height,
                          static_cast<std::int16_t>(x), static_cast<std::int16_t>(y), depth, XCB_IMAGE_FORMAT_Z_PIXMAP,
                          0, buffer.segment(), offset);
        return;
    }
    constexpr std::uint32_t headerBytes = 64;
    const std::uint32_t most = xcb_get_maximum_request_length(connection_.get()) * 4 - headerBytes;
    const auto rowBytes = static_cast<std::uint32_t>(image.bytesPerLine());
    const int rowsAtOnce = std::max(1, static_cast<int>(most / rowBytes));
    for (int row = 0; row < image.height(); row += rowsAtOnce) {
        const int rows = std::min(rowsAtOnce, image.height() - row);
        xcb_put_image(connection_.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, target, context, width,
                      static_cast<std::uint16_t>(rows), static_cast<std::int16_t>(x),
                      static_cast<std::int16_t>(y + row), 0, depth, static_cast<std::uint32_t>(rows) * rowBytes,
                      image.constScanLine(row));
    }
}

void ImageUploader::end()
{
    buffers_[current_]->markRead();
}

void ImageUploader::trim()
{
    // The server reads in the order of the requests: what it has not read yet, it reads before it hears of the end.
    for (auto& buffer : buffers_)
        buffer.reset();
}

} // namespace nimbrale::x11
