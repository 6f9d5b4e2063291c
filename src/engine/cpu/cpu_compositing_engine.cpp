#include "engine/cpu/cpu_compositing_engine.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "engine/cpu/cpu_kernels.h"
#include "engine/cpu/lut_programs.h"
#include "engine/frame_buffer/complex_frame_buffer.h"
#include "foundation/log.h"

namespace Tincta {
namespace {

constexpr uint32_t kPixelBytes = 16;
// A destination at least this large is written around the caches when one LUT program is all
// that writes it: keeping it there would evict what the pass still needs, and each of its lines
// would be read from memory only to be overwritten (a quarter to a third of the traffic). Strips
// the apply path converts afterwards are far smaller and stay cached for the conversion.
constexpr size_t kStreamedDestinationBytes = 2 * 1024 * 1024;

bool bIsWorkingLayout(const FrameBufferFormat& format) {
  return format.type == kFrameBufferTypeRGBA && format.precision == kPrecision32BitFloat &&
         format.channelOrder == kChannelOrderRGB && !format.bigEndian;
}

// The rows of a render rectangle inside a frame buffer whose rectangle starts at (x, y).
struct SRows {
  const COvComplexFrameBuffer* buffer = nullptr;
  uint32_t x = 0;
  uint32_t y = 0;
  float* Row(uint32_t row) const {
    return reinterpret_cast<float*>(buffer->Line(y + row) + size_t(x) * kPixelBytes);
  }
};

// The bytes a frame buffer's lines cover, lowest line first.
struct SSpan {
  const uint8_t* begin;
  const uint8_t* end;
};

SSpan SpanOf(const COvComplexFrameBuffer& buffer) {
  const uint8_t* lowest = buffer.FirstLineInMemory();
  const size_t bytes =
      size_t(buffer.LineStride()) * (buffer.Height() - 1) + size_t(buffer.Width()) * kPixelBytes;
  return {lowest, lowest + bytes};
}

bool bOverlap(const COvComplexFrameBuffer& a, const COvComplexFrameBuffer& b) {
  const SSpan sa = SpanOf(a), sb = SpanOf(b);
  return sa.begin < sb.end && sb.begin < sa.end;
}

// Each row of one is the same memory as the same row of the other, so a pixel kernel may read
// one and write the other.
bool bSameRows(const COvComplexFrameBuffer& a, const COvComplexFrameBuffer& b) {
  return a.Line(0) == b.Line(0) && (a.Height() < 2 || a.Line(1) == b.Line(1));
}

bool bIsDrawing(EOvOperator op) {
  return op != EOvOperator::GroupBegin && op != EOvOperator::GroupEnd && op != EOvOperator::Readout;
}

bool bIsLUTProgram(EOvOperator op) {
  return op == EOvOperator::Lut || op == EOvOperator::LUTProgram1D ||
         op == EOvOperator::LUTProgram3D || op == EOvOperator::LUTProgram1D3D;
}

}  // namespace

// The layers of a rendering bound to the texture units and parameters, kept for the next
// rendering of the same layers while neither has changed: the apply path renders a frame strip
// by strip, and binding again for every strip cost more than a strip's conversions.
struct COvCPUCompositingEngine::SPreparedOperator {
  std::vector<std::string> layerNames;
  const COvScriptParser* parameters = nullptr;
  uint64_t parametersRevision = 0;
  uint64_t unitsRevision = 0;
  COperator composition;
  /// The bound program of each LUT layer, by layer index.
  std::vector<SOvLUTProgram> programs;

  bool bFits(const char* const* layers, uint32_t layerCount, const COvScriptParser* with,
             uint64_t unitsNow) const {
    if (layerCount != layerNames.size() || with != parameters || unitsNow != unitsRevision ||
        (with != nullptr && with->Revision() != parametersRevision)) {
      return false;
    }
    for (uint32_t i = 0; i < layerCount; ++i) {
      if (layers[i] == nullptr || layerNames[i] != layers[i]) return false;
    }
    return true;
  }
};

struct COvCPUCompositingEngine::SRenderJob {
  COvComplexFrameBuffer* destination = nullptr;
  COvComplexFrameBuffer* source = nullptr;
  const COvScriptParser* parameters = nullptr;
  float opacity = 1.0f;
  uint32_t x = 0, y = 0, width = 0, height = 0;
  const SPreparedOperator* prepared = nullptr;
  const SCPUKernelTable* kernels = nullptr;
};

COvCPUCompositingEngine::COperand COvCPUCompositingEngine::COperand::FrameBuffer(
    COvComplexFrameBuffer* frameBuffer) {
  COperand operand;
  operand.frameBuffer_ = frameBuffer;
  return operand;
}

COvCPUCompositingEngine::COperand COvCPUCompositingEngine::COperand::TextureUnit(uint32_t unit) {
  COperand operand;
  operand.unit_ = static_cast<int>(unit);
  return operand;
}

void COvCPUCompositingEngine::CMaskBuffer::Set(uint32_t index,
                                               std::shared_ptr<COvComplexFrameBuffer> mask) {
  if (mask) {
    masks_[index] = std::move(mask);
  } else {
    masks_.erase(index);
  }
}

std::shared_ptr<COvComplexFrameBuffer> COvCPUCompositingEngine::CMaskBuffer::Get(
    uint32_t index) const {
  const auto found = masks_.find(index);
  return found == masks_.end() ? nullptr : found->second;
}

COvCPUCompositingEngine::COvCPUCompositingEngine() = default;
COvCPUCompositingEngine::~COvCPUCompositingEngine() = default;

bool COvCPUCompositingEngine::bUploadTexture(uint32_t unit, uint32_t width, uint32_t height,
                                             uint32_t depth, uint32_t target, uint32_t channels,
                                             const void* data, bool flip) {
  return units_.bUpload(unit, width, height, depth, target, channels, data, flip);
}

bool COvCPUCompositingEngine::bSetReadoutWorker(uint32_t slot,
                                                std::unique_ptr<COvReadoutWorker> worker) {
  if (slot >= kReadoutWorkerCount) return false;
  readoutWorkers_[slot] = std::move(worker);
  return true;
}

COvReadoutWorker* COvCPUCompositingEngine::ReadoutWorker(uint32_t slot) const {
  return slot < kReadoutWorkerCount ? readoutWorkers_[slot].get() : nullptr;
}

// Not logged: the apply path reports a failed rendering by its result code alone, and other
// callers read LastError().
bool COvCPUCompositingEngine::bFail(std::string message) {
  lastError_ = std::move(message);
  return false;
}

bool COvCPUCompositingEngine::bRender(COvComplexFrameBuffer* destination,
                                      COvComplexFrameBuffer* source, const char* const* layers,
                                      uint32_t layerCount, const COvScriptParser* parameters,
                                      bool colorSpaceAware, float opacity, uint32_t x, uint32_t y,
                                      uint32_t width, uint32_t height,
                                      const SColorConvertParameters* colorConvert) {
  lastError_.clear();
  lastInputCopies_ = 0;
  // Once per engine and colour space: a frame rendered in strips is one rendering to the log.
  if (loggedColorSpace_ != colorSpace_) {
    const char* spaceName = host::ColorSpaceName(colorSpace_);
    OvLog(host::LogLevel::Trace,
          spaceName ? std::string("Color space of frame buffer for CPU rendering is ") + spaceName
                    : std::string("Color space of frame buffer for CPU rendering is Invalid"));
    loggedColorSpace_ = colorSpace_;
  }
  if (colorSpaceAware) {
    if (colorConvert == nullptr) {
      OvLog(host::LogLevel::Warning,
            "Color convert parameters for CPU rendering path are NULL for color space aware path");
    } else {
      return bFail("colour-space conversion is not available on the CPU path");
    }
  }

  SRenderJob job;
  job.destination = destination;
  job.source = source;
  job.parameters = parameters;
  job.opacity = opacity;
  job.x = x;
  job.y = y;
  job.width = width;
  job.height = height;
  job.kernels = &ActiveCPUKernels();
  if (!bCheckFrames(job) || !bBuildOperator(job, layers, layerCount)) return false;
  return bRunLayers(job);
}

bool COvCPUCompositingEngine::bCheckFrames(SRenderJob& job) {
  if (job.destination == nullptr || job.source == nullptr) {
    return bFail("a rendering needs a source and a destination frame buffer");
  }
  if (!job.destination->HasPixels() || !job.source->HasPixels()) {
    return bFail("a frame buffer of the rendering has no pixels");
  }
  for (const COvComplexFrameBuffer* buffer : {job.source, job.destination}) {
    if (!bIsWorkingLayout(buffer->Format())) {
      return bFail("frame buffers for CPU rendering hold RGBA 32-bit float pixels, not " +
                   DescribeFrameBufferFormat(buffer->Format()));
    }
  }
  const uint32_t frameWidth = job.destination->Width();
  const uint32_t frameHeight = job.destination->Height();
  if (job.source->Width() != frameWidth || job.source->Height() != frameHeight) {
    return bFail("source " + std::to_string(job.source->Width()) + " x " +
                 std::to_string(job.source->Height()) + " and destination " +
                 std::to_string(frameWidth) + " x " + std::to_string(frameHeight) +
                 " differ in size");
  }
  if (job.width == 0 || job.height == 0) {
    job.x = job.y = 0;
    job.width = frameWidth;
    job.height = frameHeight;
  } else {
    if (job.x >= frameWidth || job.y >= frameHeight) {
      return bFail("the render rectangle lies outside the frame");
    }
    job.width = std::min(job.width, frameWidth - job.x);
    job.height = std::min(job.height, frameHeight - job.y);
  }
  return true;
}

bool COvCPUCompositingEngine::bBuildOperator(SRenderJob& job, const char* const* layers,
                                             uint32_t layerCount) {
  if (layerCount != 0 && layers == nullptr) return bFail("the layer names are missing");
  if (prepared_ && prepared_->bFits(layers, layerCount, job.parameters, units_.Revision())) {
    job.prepared = prepared_.get();
    return true;
  }
  prepared_.reset();
  auto prepared = std::make_unique<SPreparedOperator>();
  prepared->parameters = job.parameters;
  prepared->parametersRevision = job.parameters ? job.parameters->Revision() : 0;
  prepared->unitsRevision = units_.Revision();
  prepared->programs.resize(layerCount);
  int groupDepth = 0;
  for (uint32_t i = 0; i < layerCount; ++i) {
    if (layers[i] == nullptr) return bFail("layer " + std::to_string(i) + " has no operator");
    const std::string name = layers[i];
    const SOvOperatorName parsed = ParseOperatorName(name);
    switch (parsed.op) {
      case EOvOperator::Unknown:
        return bFail("unknown operator \"" + name + "\"");
      case EOvOperator::Noop:
      case EOvOperator::Fade:
      case EOvOperator::Readout:
        break;
      case EOvOperator::GroupBegin:
        ++groupDepth;
        break;
      case EOvOperator::GroupEnd:
        if (--groupDepth < 0) return bFail("\"" + name + "\" closes a group that was not opened");
        break;
      case EOvOperator::Lut:
      case EOvOperator::LUTProgram1D:
      case EOvOperator::LUTProgram3D:
      case EOvOperator::LUTProgram1D3D: {
        std::string error;
        if (!bPrepareLUTProgram(parsed.op, units_, job.parameters, prepared->programs[i], error)) {
          return bFail("operator \"" + name + "\": " + error);
        }
        break;
      }
      default:
        return bFail("operator \"" + name + "\" has no CPU program");
    }
    prepared->composition.AddLayer(COperator::CLayer(name, parsed));
    prepared->layerNames.push_back(name);
  }
  if (groupDepth != 0) return bFail("a group is not closed");
  prepared_ = std::move(prepared);
  job.prepared = prepared_.get();
  return true;
}

bool COvCPUCompositingEngine::bRunLayers(SRenderJob& job) {
  if (job.width == 0 || job.height == 0) return true;
  const SCPUKernelTable& kernels = *job.kernels;
  const std::vector<COperator::CLayer>& layers = job.prepared->composition.Layers();
  const size_t rowBytes = size_t(job.width) * kPixelBytes;

  // Decide every copy before the first pixel is written, so that nothing can fail half way.
  // The input of the first drawing layer is the source, of every later one the destination.
  bool inputCopy = false, keepSource = false, readout = false, lutProgramsOnly = true;
  uint32_t drawingLayers = 0;
  const bool sourceOverlaps = bOverlap(*job.source, *job.destination);
  const bool sourceSameRows = bSameRows(*job.source, *job.destination);
  for (const COperator::CLayer& layer : layers) {
    const EOvOperator op = layer.Parsed().op;
    readout |= op == EOvOperator::Readout;
    if (!bIsDrawing(op)) continue;
    lutProgramsOnly &= bIsLUTProgram(op);
    if (drawingLayers++ == 0) {
      inputCopy |= sourceOverlaps && (!sourceSameRows || layer.Parsed().keepsInput);
    } else {
      inputCopy |= layer.Parsed().keepsInput;
      keepSource |= op == EOvOperator::Fade && sourceOverlaps;
    }
  }
  // The fused LUT kernels exchange, run the program and exchange back in one pass; they need the
  // program to read the source in place and to be all there is to draw (a read-out would see
  // the picture before the exchange back).
  const bool fusedExchange =
      exchangeRedBlue_ && drawingLayers == 1 && lutProgramsOnly && !readout && !inputCopy;
  const bool exchangeApart = exchangeRedBlue_ && !fusedExchange;
  const bool oneFinalPass = drawingLayers == 1 && lutProgramsOnly && !readout && !exchangeApart;
  const EDestinationWrites writes =
      oneFinalPass && size_t(job.height) * rowBytes >= kStreamedDestinationBytes
          ? EDestinationWrites::kStreamed
          : EDestinationWrites::kCached;
  auto newCopy = [&](std::unique_ptr<COvComplexFrameBuffer>& copy) {
    FrameBufferFormat format = job.destination->Format();
    format.topToBottom = true;
    format.lineStride = 0;
    format.bufferSize = 0;
    copy = std::make_unique<COvComplexFrameBuffer>();
    return copy->bAllocateNewBuffer(format, job.width, job.height);
  };
  std::unique_ptr<COvComplexFrameBuffer> scratch, original;
  if (inputCopy && !newCopy(scratch)) return bFail("no memory for a copy of an operator's input");
  if (keepSource && !newCopy(original)) return bFail("no memory for a copy of the source");

  const SRows sourceRows{job.source, job.x, job.y};
  const SRows destinationRows{job.destination, job.x, job.y};
  auto exchangeRows = [&](const SRows& rows) {
    for (uint32_t row = 0; row < job.height; ++row)
      kernels.swapRedBlue(rows.Row(row), job.width);
  };
  if (exchangeApart) exchangeRows(sourceRows);
  SRows originalRows = sourceRows;
  if (original) {
    originalRows = SRows{original.get(), 0, 0};
    for (uint32_t row = 0; row < job.height; ++row) {
      kernels.copyBlock(originalRows.Row(row), sourceRows.Row(row), rowBytes);
    }
  }

  COperandInstance picture(COperand::FrameBuffer(job.source));
  for (size_t i = 0; i < layers.size(); ++i) {
    const COperator::CLayer& layer = layers[i];
    const EOvOperator op = layer.Parsed().op;
    if (op == EOvOperator::Readout) {
      picture.Defer(COperandInstance::CDeferredOperator(layer.Name(), layer.Parsed()));
      continue;
    }
    if (!bIsDrawing(op)) continue;

    SRows input{picture.Operand().Buffer(), job.x, job.y};
    const bool fromSource = input.buffer == job.source;
    const bool overlaps = fromSource ? sourceOverlaps : true;
    const bool sameRows = fromSource ? sourceSameRows : true;
    if (overlaps && (!sameRows || layer.Parsed().keepsInput)) {
      const SRows copy{scratch.get(), 0, 0};
      for (uint32_t row = 0; row < job.height; ++row) {
        kernels.copyBlock(copy.Row(row), input.Row(row), rowBytes);
      }
      input = copy;
      ++lastInputCopies_;
    }

    for (uint32_t row = 0; row < job.height; ++row) {
      const float* in = input.Row(row);
      float* out = destinationRows.Row(row);
      if (bIsLUTProgram(op)) {
        if (fusedExchange) {
          float* kept = sourceDiscarded_ ? nullptr : input.Row(row);
          job.prepared->programs[i].RunExchanging(kernels, input.Row(row), kept, out, job.width,
                                                  writes);
        } else {
          job.prepared->programs[i].Run(kernels, in, out, job.width, writes);
        }
        continue;
      }
      if (in != out) kernels.copyBlock(out, in, rowBytes);
      if (op == EOvOperator::Fade) kernels.mix(out, originalRows.Row(row), job.opacity, job.width);
    }
    picture.SetOperand(COperand::FrameBuffer(job.destination));
  }

  // The read-outs waited for the finished picture.
  for (size_t i = 0; i < picture.Deferred().size(); ++i) {
    for (const std::unique_ptr<COvReadoutWorker>& worker : readoutWorkers_) {
      if (worker) worker->bHandOver(*picture.Operand().Buffer());
    }
  }
  if (exchangeApart) exchangeRows(destinationRows);
  return true;
}

}  // namespace Tincta
