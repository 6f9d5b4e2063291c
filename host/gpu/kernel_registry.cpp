#include "kernel_registry.h"

#include <algorithm>

namespace host {
namespace {

// The LUT modules take the source frame first, then their tables; their kernels live beside
// this library's back ends because the host, not the module, supplies compiled code.
constexpr SKernelModule kModules[] = {
    {"COMPOP_LUT1D", "ShaderKernel_COMPOP_LUT1D", {"texture0_RECT", "texture1_2D"}, 2},
    {"COMPOP_LUT3D", "ShaderKernel_COMPOP_LUT3D", {"texture0_RECT", "texture1_3D"}, 2},
    {"COMPOP_LUT3D_TetrahedralInterpolation",
     "ShaderKernel_COMPOP_LUT3D_TetrahedralInterpolation",
     {"texture0_RECT", "texture1_3D"},
     2},
    {"COMPOP_LUT1D3D",
     "ShaderKernel_COMPOP_LUT1D3D",
     {"texture0_RECT", "texture1_2D", "texture2_3D"},
     3},
    {"COMPOP_LUT1D3D_TetrahedralInterpolation",
     "ShaderKernel_COMPOP_LUT1D3D_TetrahedralInterpolation",
     {"texture0_RECT", "texture1_2D", "texture2_3D"},
     3},
    {kTestSampleModule, kTestSampleEntry, {"sample2D", "sample3D"}, 2},
};

}  // namespace

std::span<const SKernelModule> KernelModules() {
  return kModules;
}

const SKernelModule* FindKernelModule(std::string_view name) {
  for (const SKernelModule& module : kModules)
    if (module.name == name) return &module;
  return nullptr;
}

int FindTextureSlot(const SKernelModule& module, std::string_view texture) {
  for (uint32_t slot = 0; slot < module.textureCount; ++slot)
    if (module.textures[slot] == texture) return static_cast<int>(slot);
  return -1;
}

}  // namespace host
