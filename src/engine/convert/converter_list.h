// The process-wide list of frame-buffer converters and the copy conversion that walks it.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "engine/convert/frame_buffer_converter.h"

namespace Tincta {

/// The registered converters in the order they are tried: default, scalar, fallback. Filled
/// once on first use (before any frame is converted) and read-only afterwards; it owns the
/// converters until the process ends.
class COvChannelConverterList {
 public:
  static const COvChannelConverterList& Instance();

  COvChannelConverterList(const COvChannelConverterList&) = delete;
  COvChannelConverterList& operator=(const COvChannelConverterList&) = delete;

  /// The first converter whose `CanConvert` accepts the pair, or null.
  const COvFrameBufferConverter* Find(const FrameBufferFormat& source,
                                      const FrameBufferFormat& target) const;
  size_t Count() const { return converters_.size(); }
  const COvFrameBufferConverter& At(size_t index) const { return *converters_[index]; }

 private:
  COvChannelConverterList();
  std::vector<std::unique_ptr<COvFrameBufferConverter>> converters_;
};

/// A new frame buffer holding `source`'s picture in `format`: a plain copy that shares the
/// pixels when the formats match, else a buffer allocated at the source's size and filled by
/// the first converter that accepts the pair; its path is `source`'s followed by "Copy
/// conversion" and the format. Null when `source` has no pixels, no converter accepts the pair,
/// memory runs out or the conversion fails.
std::unique_ptr<COvComplexFrameBuffer> CopyConvertFrameBuffer(const COvComplexFrameBuffer& source,
                                                              const FrameBufferFormat& format);

}  // namespace Tincta
