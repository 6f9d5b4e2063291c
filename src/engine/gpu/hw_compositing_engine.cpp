#include "engine/gpu/hw_compositing_engine.h"

#include "engine/gpu/gpu_handle_cache.h"
#include "engine/lut_binding.h"

namespace Tincta {
namespace {

constexpr SHwLUTOperator kLUT1D{"COMPOP_LUT1D", "ShaderKernel_COMPOP_LUT1D", kHwOperatorLUT1D,
                                false};
constexpr SHwLUTOperator kLUT3D{"COMPOP_LUT3D", "ShaderKernel_COMPOP_LUT3D", kHwOperatorLUT3D,
                                false};
constexpr SHwLUTOperator kLUT3DTetrahedral{"COMPOP_LUT3D_TetrahedralInterpolation",
                                           "ShaderKernel_COMPOP_LUT3D_TetrahedralInterpolation",
                                           kHwOperatorLUT3D, true};
constexpr SHwLUTOperator kLUT1D3D{"COMPOP_LUT1D3D", "ShaderKernel_COMPOP_LUT1D3D",
                                  kHwOperatorLUT1D3D, false};
constexpr SHwLUTOperator kLUT1D3DTetrahedral{"COMPOP_LUT1D3D_TetrahedralInterpolation",
                                             "ShaderKernel_COMPOP_LUT1D3D_TetrahedralInterpolation",
                                             kHwOperatorLUT1D3D, true};

bool bTetrahedral(host::LUTInterpolationMethod method) {
  return method == host::LUTInterpolationMethod::Tetrahedral;
}

}  // namespace

COvHwCompositingEngine::COvHwCompositingEngine(std::shared_ptr<host::IGPUDevice> device)
    : device_(std::move(device)), parameters_(std::make_unique<COvScriptParser>()) {}

SHwLUTOperator COvHwCompositingEngine::ChooseLUTOperator(uint32_t kind, bool hasShaper,
                                                         host::LUTInterpolationMethod method) {
  if (kind == kHwTexture3D && hasShaper) {
    return bTetrahedral(method) ? kLUT1D3DTetrahedral : kLUT1D3D;
  }
  if (kind == kHwTexture3D) return bTetrahedral(method) ? kLUT3DTetrahedral : kLUT3D;
  return kLUT1D;
}

SHwLUTConstants COvHwCompositingEngine::LUTConstants(const COv3DLUT& lut,
                                                     host::LUTInterpolationMethod method) {
  const SDomainMapping mapping = DomainMappingOf(lut);
  SHwLUTConstants constants;
  // Frames on a device are blue first; the rows follow them, so no pixel is reordered.
  constants.values = {mapping.scale[2],
                      mapping.scale[1],
                      mapping.scale[0],
                      mapping.alphaScale,
                      mapping.offset[2],
                      mapping.offset[1],
                      mapping.offset[0],
                      mapping.alphaOffset,
                      0,
                      0,
                      0,
                      0};
  if (bTetrahedral(method) && lut.Is3D()) {
    const float size = static_cast<float>(mapping.size);
    for (int lane = 8; lane < 12; ++lane)
      constants.values[lane] = size;
    constants.bytes = 48;
  }
  return constants;
}

int COvHwCompositingEngine::PrepareLUTOperator(const COvHwTexture& texture,
                                               host::LUTInterpolationMethod method,
                                               SHwLUTOperator& chosen,
                                               const host::GPUKernel*& kernel) {
  chosen = ChooseLUTOperator(texture.Kind(), texture.InputShaper() != nullptr, method);
  const SDomainMapping mapping = DomainMappingOf(texture);
  for (const SDomainParameter& parameter : DomainParameters(mapping))
    parameters_->bSetParameter(parameter.name, parameter.value);
  if (chosen.tetrahedral) {
    const double size = mapping.size;
    parameters_->bSetParameter("__textureSize.x", size);
    parameters_->bSetParameter("__textureSize.y", size);
    parameters_->bSetParameter("__textureSize.z", size);
    parameters_->bSetParameter("__textureSize.w", 0.0);
  }
  kernel = device_ ? LoadKernelCached(device_, chosen.module, chosen.entry) : nullptr;
  return kernel != nullptr ? 0 : kHwResultKernelMissing;
}

}  // namespace Tincta
