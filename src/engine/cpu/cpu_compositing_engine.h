// The CPU compositing engine: renders a chain of named operators into frame buffers without a
// GPU, sampling the tables of its eight texture units with the kernels of cpu_kernels.h.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/compositing_engine.h"
#include "engine/cpu/cpu_texture.h"
#include "engine/cpu/operator_names.h"
#include "engine/cpu/readout_worker.h"
#include "engine/cpu/script_parser.h"
#include "host/pixel_format.h"

namespace Tincta {

class COv3DLUT;
class COvComplexFrameBuffer;

/// Renders on the calling thread; the per-pixel work is not split over threads. One engine
/// serves one thread at a time; several engines may render at once, also from one shared table.
///
/// Frame buffers rendered from and into hold RGBA float pixels (type RGBA, "32 bit float",
/// channel order RGB(A), little endian) and have the same size. Operators: the LUT kinds
/// "ORVANE.LUT.1D", "ORVANE.LUT.3D" and "ORVANE.LUT.1D3D" and "*lut" run the native LUT programs
/// (lut_programs.h); "*noop" passes the picture on; "*fade" mixes the picture back towards the
/// source by the opacity; "*readout" hands the finished picture to the read-out workers;
/// "__GroupBegin" and "__GroupEnd" draw nothing. The other operator names are recognised but
/// have no CPU program, and a rendering that names one fails. Names compare without case; a
/// trailing "!" makes the operator read a copy of its input instead of working in its buffer.
///
/// Every check comes before the first pixel is written, so a failed rendering leaves the
/// destination as it was.
class COvCPUCompositingEngine final : public IOvCompositingEngine {
 public:
  /// Read-out workers the engine can hold.
  static constexpr uint32_t kReadoutWorkerCount = 5;

  /// An input of an operator: a frame buffer, or the table of a texture unit.
  class COperand {
   public:
    static COperand FrameBuffer(COvComplexFrameBuffer* frameBuffer);
    static COperand TextureUnit(uint32_t unit);
    /// The frame buffer, or null for a texture operand.
    COvComplexFrameBuffer* Buffer() const { return frameBuffer_; }
    /// The texture unit, or -1 for a frame-buffer operand.
    int Unit() const { return unit_; }

   private:
    COvComplexFrameBuffer* frameBuffer_ = nullptr;
    int unit_ = -1;
  };

  /// An operand's use in one rendering, with the operators that wait until it is complete.
  class COperandInstance {
   public:
    /// An operator held back until its operand is complete ("*readout" waits for the finished
    /// picture).
    class CDeferredOperator {
     public:
      CDeferredOperator(std::string name, SOvOperatorName parsed)
          : name_(std::move(name)), parsed_(parsed) {}
      const std::string& Name() const { return name_; }
      const SOvOperatorName& Parsed() const { return parsed_; }

     private:
      std::string name_;
      SOvOperatorName parsed_;
    };

    explicit COperandInstance(COperand operand) : operand_(operand) {}
    const COperand& Operand() const { return operand_; }
    void SetOperand(COperand operand) { operand_ = operand; }
    void Defer(CDeferredOperator op) { deferred_.push_back(std::move(op)); }
    const std::vector<CDeferredOperator>& Deferred() const { return deferred_; }

   private:
    COperand operand_;
    std::vector<CDeferredOperator> deferred_;
  };

  /// One operator of the composition: its layers, in order.
  class COperator {
   public:
    /// One layer: the operator name it was given and what that name means.
    class CLayer {
     public:
      CLayer(std::string name, SOvOperatorName parsed) : name_(std::move(name)), parsed_(parsed) {}
      const std::string& Name() const { return name_; }
      const SOvOperatorName& Parsed() const { return parsed_; }

     private:
      std::string name_;
      SOvOperatorName parsed_;
    };

    void AddLayer(CLayer layer) { layers_.push_back(std::move(layer)); }
    const std::vector<CLayer>& Layers() const { return layers_; }

   private:
    std::vector<CLayer> layers_;
  };

  /// A calibration LUT kept by the engine, by name.
  struct SCalibrationLUT {
    std::string name;
    std::shared_ptr<const COv3DLUT> lut;
  };

  /// Colour identifiers of vector colours.
  struct SVecColorID {
    std::vector<uint32_t> ids;
  };

  /// The mask buffers of the "*mask" operator, by index.
  class CMaskBuffer {
   public:
    void Set(uint32_t index, std::shared_ptr<COvComplexFrameBuffer> mask);
    /// The mask at `index`, or null.
    std::shared_ptr<COvComplexFrameBuffer> Get(uint32_t index) const;
    size_t Count() const { return masks_.size(); }

   private:
    std::map<uint32_t, std::shared_ptr<COvComplexFrameBuffer>> masks_;
  };

  COvCPUCompositingEngine();
  ~COvCPUCompositingEngine() override;
  COvCPUCompositingEngine(const COvCPUCompositingEngine&) = delete;
  COvCPUCompositingEngine& operator=(const COvCPUCompositingEngine&) = delete;

  /// See `COvCPUTextureUnits::bUpload` for what is refused.
  bool bUploadTexture(uint32_t unit, uint32_t width, uint32_t height, uint32_t depth,
                      uint32_t target, uint32_t channels, const void* data, bool flip) override;

  /// See `IOvCompositingEngine::bRender` and the class comment. A colour-space aware rendering
  /// without conversion parameters is logged and rendered without conversion; with them it
  /// fails, since the CPU path has no colour-space conversion. On failure `LastError()` says why.
  bool bRender(COvComplexFrameBuffer* destination, COvComplexFrameBuffer* source,
               const char* const* layers, uint32_t layerCount, const COvScriptParser* parameters,
               bool colorSpaceAware, float opacity, uint32_t x, uint32_t y, uint32_t width,
               uint32_t height, const SColorConvertParameters* colorConvert) override;

  const COvCPUTextureUnits& TextureUnits() const { return units_; }

  /// The colour space of the frame buffers rendered next, for the log ("Color space of frame
  /// buffer for CPU rendering is ..."), written before the first rendering and again whenever
  /// the colour space has changed; Unknown by default.
  void SetFrameBufferColorSpace(host::ColorSpace space) { colorSpace_ = space; }

  /// For frames held blue first: when set, each rendering exchanges red and blue of the source's
  /// render rectangle in place before it reads it (the source keeps the exchange) and of the
  /// destination's after it has drawn, so that the operators see red first. A rendering of one
  /// LUT program that reads the source where it lies does all three in one pass over the pixels.
  /// A rendering that fails exchanges nothing. Off by default.
  void SetRedBlueExchange(bool exchange) { exchangeRedBlue_ = exchange; }

  /// When set, nothing reads the source after a rendering (it is a converted copy), so the
  /// exchange need not be kept in it: a rendering that does the exchanges in one pass leaves the
  /// source as it was, saving a write of every pixel. Off by default.
  void SetSourceDiscarded(bool discarded) { sourceDiscarded_ = discarded; }

  /// Installs `worker` in `slot` (0..4; null empties the slot, waiting for its last run). False
  /// for a slot above 4.
  bool bSetReadoutWorker(uint32_t slot, std::unique_ptr<COvReadoutWorker> worker);
  /// The worker in `slot`, or null.
  COvReadoutWorker* ReadoutWorker(uint32_t slot) const;

  std::vector<SCalibrationLUT>& CalibrationLUTs() { return calibrationLUTs_; }
  SVecColorID& VecColorIDs() { return vecColorIDs_; }
  CMaskBuffer& MaskBuffers() { return maskBuffers_; }

  /// Why the last rendering failed; empty after a success.
  const std::string& LastError() const { return lastError_; }
  /// Inputs copied in the last rendering so that an operator would not work in its input's
  /// buffer ("!" operators, and inputs that overlap the destination without being it).
  uint32_t LastInputCopies() const { return lastInputCopies_; }

 private:
  struct SRenderJob;
  struct SPreparedOperator;

  bool bFail(std::string message);
  bool bCheckFrames(SRenderJob& job);
  bool bBuildOperator(SRenderJob& job, const char* const* layers, uint32_t layerCount);
  bool bRunLayers(SRenderJob& job);

  COvCPUTextureUnits units_;
  host::ColorSpace colorSpace_ = host::ColorSpace::Unknown;
  bool exchangeRedBlue_ = false;
  bool sourceDiscarded_ = false;
  std::optional<host::ColorSpace> loggedColorSpace_;
  std::array<std::unique_ptr<COvReadoutWorker>, kReadoutWorkerCount> readoutWorkers_;
  std::vector<SCalibrationLUT> calibrationLUTs_;
  SVecColorID vecColorIDs_;
  CMaskBuffer maskBuffers_;
  std::string lastError_;
  uint32_t lastInputCopies_ = 0;
  std::unique_ptr<SPreparedOperator> prepared_;
};

}  // namespace Tincta
