// The GPU compositing engine's LUT operators: which kernel applies a LUT, the parameters it
// receives, and the constant block that carries them to the device.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>

#include "engine/cpu/script_parser.h"
#include "engine/gpu/hw_texture.h"
#include "host/gpu.h"
#include "host/interpolation.h"

namespace Tincta {

/// Operator codes of the LUT kernels.
inline constexpr uint32_t kHwOperatorLUT1D3D = 512;
inline constexpr uint32_t kHwOperatorLUT3D = 1024;
inline constexpr uint32_t kHwOperatorLUT1D = 2048;

/// What an operator reports when its kernel cannot be loaded (the module's 0xa00f0001).
inline constexpr int kHwResultKernelMissing = static_cast<int>(0xa00f0001u);

/// A LUT kernel: its module name, its entry name ("ShaderKernel_" + module) and operator code.
struct SHwLUTOperator {
  std::string_view module;
  std::string_view entry;
  uint32_t code = 0;
  bool tetrahedral = false;
};

/// The constant block of a LUT kernel: row 0 the domain scale, row 1 the domain offset (blue,
/// green, red, alpha), row 2, for a tetrahedral 3-D apply only, the LUT's edge length four times.
struct SHwLUTConstants {
  std::array<float, 12> values{};
  size_t bytes = 32;  ///< 32, or 48 with row 2
};

class COvHwCompositingEngine {
 public:
  explicit COvHwCompositingEngine(std::shared_ptr<host::IGPUDevice> device);

  /// The kernel for a texture of `kind` (3-D: 0x806F) with or without a shaper: 1D3D (512) for
  /// a 3-D texture with a shaper, 3D (1024) for a 3-D texture, else 1D (2048), whatever the
  /// method. Tetrahedral kernels for method 1.
  static SHwLUTOperator ChooseLUTOperator(uint32_t kind, bool hasShaper,
                                          host::LUTInterpolationMethod method);

  /// The constant block for `lut` applied with `method`.
  static SHwLUTConstants LUTConstants(const COv3DLUT& lut, host::LUTInterpolationMethod method);

  /// Chooses the operator for `texture`, sets its parameters by name ("__scale1.x" ...
  /// "__offset1.w", and "__textureSize.x" ... "__textureSize.w" for a tetrahedral 3-D kernel),
  /// and loads its kernel through the process-wide kernel cache. 0, or 0xa00f0001 when the
  /// device cannot load the kernel.
  int PrepareLUTOperator(const COvHwTexture& texture, host::LUTInterpolationMethod method,
                         SHwLUTOperator& chosen, const host::GPUKernel*& kernel);

  /// The parameters set by the last PrepareLUTOperator.
  const COvScriptParser& Parameters() const { return *parameters_; }

 private:
  std::shared_ptr<host::IGPUDevice> device_;
  std::unique_ptr<COvScriptParser> parameters_;
};

}  // namespace Tincta
