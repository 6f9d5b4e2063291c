// The two ways of applying a LUT to frames, and the dispatcher that chooses between them.
#pragma once

#include <memory>

#include "host/interface_ref.h"
#include "host/interpolation.h"
#include "host/video_frame.h"

namespace CRANDLE::detail {

using FrameRef = host::InterfaceRef<host::IVideoFrame>;

/// Both frames on a GPU: the GPU path; both in host memory: the CPU path; one of each: 0xa00f000c.
int ApplyLUTToFrames(const FrameRef& source, const std::shared_ptr<void>& lut,
                     host::LUTInterpolationMethod method, FrameRef& destination);

/// Applies the LUT to frames in host memory through the CPU compositing engine.
int ApplyLUTOnCPU(const FrameRef& source, const std::shared_ptr<void>& lut, FrameRef& destination);

/// Applies the LUT to frames in GPU memory with the device kernels.
int ApplyLUTOnGPU(const FrameRef& source, const std::shared_ptr<void>& lut,
                  host::LUTInterpolationMethod method, FrameRef& destination);

}  // namespace CRANDLE::detail
