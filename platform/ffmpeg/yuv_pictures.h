#pragma once

#include "platform/ffmpeg/av_handles.h"
#include "platform/surface_reader.h"

#include <memory>
#include <mutex>
#include <vector>

namespace nimbrale::ffmpeg {

/// Turns the pictures of a screen into YUV 4:2:0. Pictures that nobody holds any more are written into again, and only
/// what has changed since they were written last is converted.
///
/// One thread; the pictures may be held and released on any, and outlive this.
class YuvPictures {
public:
    /// Both even, at least 2.
    YuvPictures(int width, int height);

    /// The next picture differs from the one before in these places.
    void noteChanges(const std::vector<PixelRect>& changed);
    /// What `pixels` looks like, which have this object's size and differ from those before in the changes noted alone.
    [[nodiscard]] std::shared_ptr<const AVFrame> convert(const PixelBuffer& pixels);

private:
    struct Picture {
        FrameHandle frame;
        /// Where it differs from the newest pixels. May overlap.
        std::vector<PixelRect> stale;
    };
    struct FreePictures {
        std::mutex mutex;
        std::vector<std::shared_ptr<Picture>> pictures;
    };

    [[nodiscard]] std::shared_ptr<Picture> take();

    int width_;
    int height_;
    std::vector<std::shared_ptr<Picture>> pictures_;
    std::shared_ptr<FreePictures> free_;
};

} // namespace nimbrale::ffmpeg
