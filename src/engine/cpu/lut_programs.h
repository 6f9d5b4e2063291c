// The native LUT programs: what the LUT scripts do, for the LUT kinds "ORVANE.LUT.1D",
// "ORVANE.LUT.3D" and "ORVANE.LUT.1D3D". Each maps a pixel's red, green and blue through
// "__scale1"/"__offset1" and samples the tables of the texture units; alpha passes through.
#pragma once

#include <cstddef>
#include <string>

#include "engine/cpu/cpu_kernels.h"
#include "engine/cpu/cpu_texture.h"
#include "engine/cpu/operator_names.h"
#include "engine/cpu/script_parser.h"

namespace Tincta {

/// A LUT program bound to its tables and its domain mapping for one rendering.
struct SOvLUTProgram {
  /// LUTProgram1D, LUTProgram3D or LUTProgram1D3D.
  EOvOperator kind = EOvOperator::Unknown;
  /// Unit 1 for the 1-D and 3-D programs; the cube in unit 2 for the 1-D + 3-D program.
  const SCPUTextureUnit* table = nullptr;
  /// The shaper in unit 1 (1-D + 3-D program only), read 1-D over its width whatever its kind.
  const SCPUTextureUnit* shaper = nullptr;
  SLUTDomainMapping mapping;

  /// Applies the program to `pixels` RGBA float pixels (`source` and `destination` may be the
  /// same memory), writing the destination as `writes` says.
  void Run(const SCPUKernelTable& kernels, const float* source, float* destination, size_t pixels,
           EDestinationWrites writes) const;
  /// The same for pixels held blue first, with the red-blue exchanges fused in (see
  /// `SCPUKernelTable::applyLUT1DExchanging`): the source keeps its pixels exchanged where
  /// `exchangedSource` is the source, and is left as it was where it is null.
  void RunExchanging(const SCPUKernelTable& kernels, const float* source, float* exchangedSource,
                     float* destination, size_t pixels, EDestinationWrites writes) const;
};

/// Binds the program named by `op` to `units` and `parameters`, at the units and under the
/// parameter names of engine/lut_binding.h. "*lut" (`EOvOperator::Lut`) takes the program from
/// the units: a cube in unit 2 behind a table in unit 1 is 1-D + 3-D, a
/// cube in unit 1 is 3-D, any other table in unit 1 is 1-D. False, with `error` saying why, when a
/// unit the program reads is empty, holds a table of other than 4 channels or (for a cube) no
/// 3-D table, or "__scale1" or "__offset1" lacks its x, y or z.
bool bPrepareLUTProgram(EOvOperator op, const COvCPUTextureUnits& units,
                        const COvScriptParser* parameters, SOvLUTProgram& program,
                        std::string& error);

}  // namespace Tincta
