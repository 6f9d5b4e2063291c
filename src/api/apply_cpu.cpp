// The CPU way of applying a LUT: both frames into the working layout (BGRA float), wrapped as
// frame buffers without a copy, red and blue exchanged in place for the renderer, the tables
// uploaded into the CPU engine's texture units, rendered, red and blue exchanged back in the
// destination, and brought back.
//
// The steps run strip by strip (a few rows at a time, every step in order on each strip), so
// that the rows a step has just written are still in the cache when the next step reads them:
// a frame then crosses the memory bus about once each way instead of once per step. A frame in
// another format is converted through a working frame of one strip, used again for every strip,
// so that the converted pixels never leave the cache. The two
// exchanges are the renderer's own (SetRedBlueExchange), which folds them into the LUT program's
// pass over the pixels. What ends up in the frames is the same as running each step over the
// whole frame in turn, failures included.
#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>

#include "api/apply_paths.h"
#include "api/lut_handle.h"
#include "crandle/crandle.h"
#include "engine/cpu/cpu_compositing_engine.h"
#include "engine/cpu/cpu_kernels.h"
#include "engine/cpu/script_parser.h"
#include "engine/frame_buffer/complex_frame_buffer.h"
#include "engine/lut_binding.h"
#include "foundation/heap_buffer.h"
#include "host/pixel_convert.h"

namespace CRANDLE::detail {
namespace {

using host::IVideoFrame2DPixelMemoryAccess;
using host::IVideoFrameMemoryAccess;
using host::kPixelFormat_BGRA_4444_32f;
using Tincta::COv3DLUT;
using Tincta::COvComplexFrameBuffer;
using Tincta::COvSharedBuffer;

constexpr size_t kWorkingPixelBytes = 16;
// Bytes of working-layout pixels per strip where a side is converted: the source's and the
// destination's strips and much of a mid-sized cube together stay within a core's second-level
// cache. Frames in the working layout take one pass whatever the strip, so theirs are larger:
// fewer renderings to set up, each still within the last-level cache.
constexpr size_t kConvertedStripBytes = 128 * 1024;
constexpr size_t kWorkingStripBytes = 4 * 1024 * 1024;

// A frame's pixels as this path reads them.
struct SPixels {
  uint8_t* base = nullptr;
  size_t rowBytes = 0;
};

// Row bytes from the 2-D interface when the frame has it, else from the memory interface; a
// frame with neither (or without the memory interface) raises the host's null-pointer exception.
SPixels PixelsOf(const FrameRef& frame) {
  const auto memory = frame.Query<IVideoFrameMemoryAccess>();
  const auto layout = frame.Query<IVideoFrame2DPixelMemoryAccess>();
  SPixels pixels;
  pixels.rowBytes = layout.IsEmpty() ? memory->GetRowBytes() : layout->GetRowBytes();
  pixels.base = static_cast<uint8_t*>(memory->GetBaseAddress());
  return pixels;
}

// A working-layout frame is wrapped in place, so its rows must hold the width; the least line
// stride of the frame buffer carries its row bytes, so that padded rows are read where they are.
bool bWrappable(const SPixels& pixels, uint32_t width) {
  return pixels.rowBytes >= size_t(width) * kWorkingPixelBytes &&
         pixels.rowBytes <= std::numeric_limits<uint32_t>::max();
}

// Exchanges red and blue of every pixel of rows [first, end).
void SwapRedBlue(const SPixels& pixels, uint32_t width, uint32_t first, uint32_t end) {
  const Tincta::SCPUKernelTable& kernels = Tincta::ActiveCPUKernels();
  for (uint32_t row = first; row < end; ++row) {
    kernels.swapRedBlue(reinterpret_cast<float*>(pixels.base + row * pixels.rowBytes), width);
  }
}

// The pixels from row `first` on.
SPixels RowsFrom(const SPixels& pixels, uint32_t first) {
  return SPixels{pixels.base + size_t(first) * pixels.rowBytes, pixels.rowBytes};
}

int Convert(const SPixels& from, int fromCode, const SPixels& to, int toCode, uint32_t width,
            uint32_t rows) {
  return host::IR_Convert(from.base, from.rowBytes, fromCode, to.base, to.rowBytes, toCode, width,
                          rows, 4);
}

using SharedBlock = std::shared_ptr<COvSharedBuffer>;

SharedBlock WrapBlock(const SPixels& pixels, uint32_t height) {
  SharedBlock block(new COvSharedBuffer, Tincta::CustomDeleter<COvSharedBuffer>());
  block->Wrap(pixels.base, pixels.rowBytes * height);
  return block;
}

std::shared_ptr<COvComplexFrameBuffer> WrapFrame(const SharedBlock& block, const SPixels& pixels,
                                                 uint32_t width, uint32_t height) {
  Tincta::FrameBufferFormat format;
  format.type = Tincta::kFrameBufferTypeRGBA;
  format.precision = Tincta::kPrecision32BitFloat;
  format.channelOrder = Tincta::kChannelOrderRGB;
  format.bigEndian = false;
  format.topToBottom = true;
  format.bufferSize = 0;
  format.lineStride = static_cast<uint32_t>(pixels.rowBytes);
  return std::make_shared<COvComplexFrameBuffer>(block.get(), width, height, format, 0);
}

// One side's strip as a frame buffer. A converted side's strips all lie in the one working frame,
// so its wrapping is made again only when the strip's height changes (the last may be shorter);
// wrapping for every strip of an 8-bit 4K frame cost a few percent of the whole call.
class CStripFrame {
 public:
  COvComplexFrameBuffer* Wrap(const SPixels& pixels, uint32_t width, uint32_t rows) {
    if (!frame_ || pixels.base != base_ || rows != rows_) {
      block_ = WrapBlock(pixels, rows);
      frame_ = WrapFrame(block_, pixels, width, rows);
      base_ = pixels.base;
      rows_ = rows;
    }
    return frame_.get();
  }

 private:
  SharedBlock block_;
  std::shared_ptr<COvComplexFrameBuffer> frame_;
  const uint8_t* base_ = nullptr;
  uint32_t rows_ = 0;
};

// A frame in the working layout with `like`'s aspect ratio and colour space.
int CreateWorkingFrame(const FrameRef& like, uint32_t width, uint32_t height, FrameRef& frame) {
  return host::CreateVideoFrame(frame, kPixelFormat_BGRA_4444_32f, width, height,
                                like->GetPixelAspectRatio(), like->GetColorSpace(), false, false);
}

}  // namespace

int ApplyLUTOnCPU(const FrameRef& source, const std::shared_ptr<void>& lut, FrameRef& destination) {
  const COv3DLUT* table = LUTOf(lut);
  if (table == nullptr) return kResultEmptyArgument;

  const host::FrameBounds bounds = source->GetBounds();
  const uint32_t width = bounds.width;
  const uint32_t height = bounds.height;
  const SPixels sourcePixels = PixelsOf(source);
  const SPixels destinationPixels = PixelsOf(destination);
  const host::PixelFormat sourceFormat = source->GetPixelFormat();
  const host::PixelFormat destinationFormat = destination->GetPixelFormat();
  const bool convertIn = sourceFormat != kPixelFormat_BGRA_4444_32f;
  const bool convertOut = destinationFormat != kPixelFormat_BGRA_4444_32f;
  if ((!convertIn && !bWrappable(sourcePixels, width)) ||
      (!convertOut && !bWrappable(destinationPixels, width))) {
    return kResultUnsupported;
  }

  const int sourceCode = host::IR_FormatCodeFromPixelFormat(sourceFormat);
  const int destinationCode = host::IR_FormatCodeFromPixelFormat(destinationFormat);
  const uint32_t stripRows =
      width == 0 ? std::max<uint32_t>(height, 1)
                 : static_cast<uint32_t>(std::clamp<size_t>(
                       (convertIn || convertOut ? kConvertedStripBytes : kWorkingStripBytes) /
                           (size_t(width) * kWorkingPixelBytes),
                       1, height ? height : 1));

  // The working frames of converted sides hold one strip; a frame the host cannot make fails
  // the call with its own result, as a whole working frame would.
  const uint32_t workingRows = std::min(stripRows, height);
  int hostResult = 0;
  FrameRef workingSource;
  SPixels in = sourcePixels;
  if (convertIn) {
    hostResult = CreateWorkingFrame(source, width, workingRows, workingSource);
    if (hostResult < 0) return hostResult;
    in = PixelsOf(workingSource);
    // The first strip converts before anything else happens: a conversion fails on formats and
    // row bytes alone, so this is where a failure shows, with nothing else done yet.
    if (height != 0 &&
        Convert(sourcePixels, sourceCode, in, host::kIRFormat_BGRA_32f, width, workingRows) != 0) {
      return kResultConversionFailed;
    }
  }
  FrameRef workingDestination;
  SPixels out = destinationPixels;
  if (convertOut) {
    const int created = CreateWorkingFrame(destination, width, workingRows, workingDestination);
    if (created < 0) return created;
    hostResult = created;
    out = PixelsOf(workingDestination);
  }
  // A failure part way leaves the caller's source exchanged in full, as if the exchange had run
  // over the whole frame before the rendering.
  auto finishExchange = [&](uint32_t first) {
    if (!convertIn) SwapRedBlue(sourcePixels, width, first, height);
  };

  const Tincta::ELUTKind kind = Tincta::LUTKindOf(*table);
  const char* kindName = Tincta::LUTKindName(kind).data();
  const auto parameters = std::make_shared<Tincta::COvScriptParser>();
  for (const Tincta::SDomainParameter& parameter :
       Tincta::DomainParameters(Tincta::DomainMappingOf(*table))) {
    parameters->bSetParameter(parameter.name, parameter.value);
  }

  Tincta::COvCPUCompositingEngine engine;
  engine.SetFrameBufferColorSpace(source->GetColorSpace());
  // The renderer reads red first; a source already in the working layout keeps the exchange.
  engine.SetRedBlueExchange(true);
  engine.SetSourceDiscarded(convertIn);
  const Tincta::SLUTTextureUnits units = Tincta::LUTTextureUnits(kind);
  const uint32_t size = table->Size();
  // Upload results are not checked: a refused table leaves its unit empty, and the rendering
  // then fails.
  engine.bUploadTexture(units.table, size, size, size,
                        table->Is3D() ? Tincta::kTexture3D : Tincta::kTexture1D, 4, table->Table(),
                        false);
  if (kind == Tincta::ELUTKind::k1D3D) {
    const COv3DLUT& shaper = *table->InputShaper();
    // Described as a cube of its size; the program reads it 1-D over its width.
    engine.bUploadTexture(units.shaper, shaper.Size(), shaper.Size(), shaper.Size(),
                          Tincta::kTexture3D, 4, shaper.Table(), false);
  }

  CStripFrame inFrame, outFrame;
  for (uint32_t first = 0; first < height; first += stripRows) {
    const uint32_t rows = std::min(stripRows, height - first);
    if (convertIn && first != 0 &&
        Convert(RowsFrom(sourcePixels, first), sourceCode, in, host::kIRFormat_BGRA_32f, width,
                rows) != 0) {
      return kResultConversionFailed;
    }
    if (!engine.bRender(outFrame.Wrap(convertOut ? out : RowsFrom(out, first), width, rows),
                        inFrame.Wrap(convertIn ? in : RowsFrom(in, first), width, rows), &kindName,
                        1, parameters.get(), false, 1.0f, 0, 0, width, rows, nullptr)) {
      // A failed rendering exchanged nothing.
      finishExchange(first);
      return kResultLUTFailed;
    }
    if (convertOut && Convert(out, host::kIRFormat_BGRA_32f, RowsFrom(destinationPixels, first),
                              destinationCode, width, rows) != 0) {
      finishExchange(first + rows);
      return kResultConversionFailed;
    }
  }
  return hostResult;
}

}  // namespace CRANDLE::detail
