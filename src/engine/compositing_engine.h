// The interface that both compositing engines implement: tables go into texture units, and a
// rendering runs a chain of named operators from a source frame buffer into a destination.
#pragma once

#include <cstdint>

namespace Tincta {

class COvComplexFrameBuffer;
class COvScriptParser;
/// Parameters of a colour-space conversion, belonging to the grading document's model.
struct SColorConvertParameters;

class IOvCompositingEngine {
 public:
  virtual ~IOvCompositingEngine() = default;

  /// Uploads a table into texture unit `unit`: `width` × `height` × `depth` texels of `channels`
  /// floats, of kind `target` (0x0DE0 1-D, 0x0DE1 2-D, 0x806F 3-D, 0x84F5 rectangle); `flip`
  /// addresses a rectangle bottom up. False, unit unchanged, when the engine refuses it.
  virtual bool bUploadTexture(uint32_t unit, uint32_t width, uint32_t height, uint32_t depth,
                              uint32_t target, uint32_t channels, const void* data, bool flip) = 0;

  /// Renders `layerCount` layers, each named by an operator name, from `source` into
  /// `destination`. `parameters` are the scripts' named numbers; `opacity` weighs the "*fade"
  /// operator. The render rectangle (`x`, `y`, `width`, `height`) defaults to the whole
  /// destination when `width` or `height` is 0. `colorSpaceAware` asks for a conversion
  /// described by `colorConvert`. False when the rendering fails.
  virtual bool bRender(COvComplexFrameBuffer* destination, COvComplexFrameBuffer* source,
                       const char* const* layers, uint32_t layerCount,
                       const COvScriptParser* parameters, bool colorSpaceAware, float opacity,
                       uint32_t x, uint32_t y, uint32_t width, uint32_t height,
                       const SColorConvertParameters* colorConvert) = 0;
};

}  // namespace Tincta
