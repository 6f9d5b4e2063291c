// The kernels that the host supplies by name: each module is one kernel source file per back end,
// with its texture slots in argument order.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "host/gpu.h"

namespace host {

struct SKernelModule {
  std::string_view name;   ///< the module, which is also the kernel source file's name
  std::string_view entry;  ///< the kernel entry that callers load
  std::array<std::string_view, GPUTextureBindings::kMaxTextures> textures{};
  uint32_t textureCount = 0;
};

/// Every module the host knows.
std::span<const SKernelModule> KernelModules();
/// The module called `name`, or null.
const SKernelModule* FindKernelModule(std::string_view name);
/// The argument slot of `texture` in `module`, or -1.
int FindTextureSlot(const SKernelModule& module, std::string_view texture);

/// The host tests' own module: a 2-D and a 3-D texture read at exact texel positions.
inline constexpr std::string_view kTestSampleModule = "CRANDLE_TEST_SAMPLE";
inline constexpr std::string_view kTestSampleEntry = "ShaderKernel_CRANDLE_TEST_SAMPLE";

}  // namespace host
