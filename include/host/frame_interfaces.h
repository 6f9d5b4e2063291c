// Frame objects with a chosen set of interfaces: test doubles for host and module developers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "host/export.h"
#include "host/interface_ref.h"
#include "host/video_frame.h"

namespace host {

/// Which interfaces a frame made by `CreateFrameWithInterfaces` answers, and what it reports
/// differently from the frame it stands for.
struct FrameInterfaceChoice {
  bool videoFrame = true;           ///< answers `IVideoFrame`
  bool memoryAccess = true;         ///< answers `IVideoFrameMemoryAccess`
  bool pixelMemoryAccess2D = true;  ///< answers `IVideoFrame2DPixelMemoryAccess`
  /// Answers `IGPUVideoFrame` (reporting `deviceIndex`) although its pixels stay in host memory.
  bool gpuVideoFrame = false;
  uint32_t deviceIndex = 0;
  /// The first two words of the bounds; width and height stay those of the frame.
  uint32_t left = 0;
  uint32_t top = 0;
  /// Row bytes reported by `IVideoFrame2DPixelMemoryAccess`; 0 reports the frame's own.
  size_t rowBytes2D = 0;
};

/// A frame object that shares the pixels of `frame` (and holds `frame` alive) but answers only
/// the interfaces that `choice` names, and of those only the ones that `frame` itself has
/// (`IGPUVideoFrame` excepted, which it answers whenever chosen). Null when `frame` is empty or
/// the memory is not there. Query it with `InterfaceRef<...>::FromObject`.
HOST_API std::shared_ptr<IObject> CreateFrameWithInterfaces(const InterfaceRef<IVideoFrame>& frame,
                                                            const FrameInterfaceChoice& choice);

}  // namespace host
