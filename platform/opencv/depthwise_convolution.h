#pragma once

namespace nimbrale::opencv {

/// While one lives, the networks that OpenCV reads get a depthwise convolution of our own wherever the kernel is 5 × 5.
/// The library has a fast one for 3 × 3 only; for 5 × 5 it takes four times as long as ours. A network keeps what it
/// got. The library's list of layers is the whole process's, so only one thread may read networks meanwhile.
class OwnDepthwiseConvolutions {
public:
    OwnDepthwiseConvolutions();
    ~OwnDepthwiseConvolutions();
    OwnDepthwiseConvolutions(const OwnDepthwiseConvolutions&) = delete;
    OwnDepthwiseConvolutions& operator=(const OwnDepthwiseConvolutions&) = delete;
};

} // namespace nimbrale::opencv
