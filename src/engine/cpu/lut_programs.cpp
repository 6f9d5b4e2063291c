#include "engine/cpu/lut_programs.h"

#include <optional>

namespace Tincta {
namespace {

bool bIsCube(const SCPUTextureUnit& unit) {
  return unit.IsLoaded() && unit.target.Value() == kTexture3D;
}

bool bCheckTable(const COvCPUTextureUnits& units, uint32_t index, bool needsCube,
                 std::string_view program, std::string& error) {
  const SCPUTextureUnit& unit = units.Unit(index);
  const std::string where = "texture unit " + std::to_string(index) + " of " + std::string(program);
  if (!unit.IsLoaded()) {
    error = where + " holds no table";
    return false;
  }
  if (unit.channels != 4) {
    error = where + " holds a table of " + std::to_string(unit.channels) +
            " channels; LUT tables have 4";
    return false;
  }
  if (needsCube && unit.target.Value() != kTexture3D) {
    error = where + " holds no 3-D table";
    return false;
  }
  return true;
}

bool bReadMapping(const COvScriptParser* parameters, SLUTDomainMapping& mapping,
                  std::string& error) {
  static constexpr const char* kScale[3] = {"__scale1.x", "__scale1.y", "__scale1.z"};
  static constexpr const char* kOffset[3] = {"__offset1.x", "__offset1.y", "__offset1.z"};
  for (int c = 0; c < 3; ++c) {
    const std::optional<double> scale =
        parameters ? parameters->Parameter(kScale[c]) : std::nullopt;
    const std::optional<double> offset =
        parameters ? parameters->Parameter(kOffset[c]) : std::nullopt;
    if (!scale || !offset) {
      error = std::string("the LUT parameter ") + (scale ? kOffset[c] : kScale[c]) + " is not set";
      return false;
    }
    mapping.scale[c] = static_cast<float>(*scale);
    mapping.offset[c] = static_cast<float>(*offset);
  }
  // Alpha is carried through; its mapping is never applied.
  mapping.scale[3] = 1.0f;
  mapping.offset[3] = 0.0f;
  return true;
}

}  // namespace

void SOvLUTProgram::Run(const SCPUKernelTable& kernels, const float* source, float* destination,
                        size_t pixels) const {
  switch (kind) {
    case EOvOperator::LUTProgram1D:
      kernels.applyLUT1D(*table, mapping, source, destination, pixels);
      break;
    case EOvOperator::LUTProgram3D:
      kernels.applyLUT3D(*table, mapping, source, destination, pixels);
      break;
    case EOvOperator::LUTProgram1D3D:
      kernels.applyLUT1D3D(*shaper, *table, mapping, source, destination, pixels);
      break;
    default:
      break;
  }
}

void SOvLUTProgram::RunExchanging(const SCPUKernelTable& kernels, float* source, float* destination,
                                  size_t pixels) const {
  switch (kind) {
    case EOvOperator::LUTProgram1D:
      kernels.applyLUT1DExchanging(*table, mapping, source, destination, pixels);
      break;
    case EOvOperator::LUTProgram3D:
      kernels.applyLUT3DExchanging(*table, mapping, source, destination, pixels);
      break;
    case EOvOperator::LUTProgram1D3D:
      kernels.applyLUT1D3DExchanging(*shaper, *table, mapping, source, destination, pixels);
      break;
    default:
      break;
  }
}

bool bPrepareLUTProgram(EOvOperator op, const COvCPUTextureUnits& units,
                        const COvScriptParser* parameters, SOvLUTProgram& program,
                        std::string& error) {
  if (op == EOvOperator::Lut) {
    if (units.Unit(1).IsLoaded() && bIsCube(units.Unit(2))) {
      op = EOvOperator::LUTProgram1D3D;
    } else if (bIsCube(units.Unit(1))) {
      op = EOvOperator::LUTProgram3D;
    } else {
      op = EOvOperator::LUTProgram1D;
    }
  }
  SOvLUTProgram bound;
  bound.kind = op;
  switch (op) {
    case EOvOperator::LUTProgram1D:
      if (!bCheckTable(units, 1, false, kLUTKind1D, error)) return false;
      bound.table = &units.Unit(1);
      break;
    case EOvOperator::LUTProgram3D:
      if (!bCheckTable(units, 1, true, kLUTKind3D, error)) return false;
      bound.table = &units.Unit(1);
      break;
    case EOvOperator::LUTProgram1D3D:
      if (!bCheckTable(units, 1, false, kLUTKind1D3D, error)) return false;
      if (!bCheckTable(units, 2, true, kLUTKind1D3D, error)) return false;
      bound.shaper = &units.Unit(1);
      bound.table = &units.Unit(2);
      break;
    default:
      error = "not a LUT program";
      return false;
  }
  if (!bReadMapping(parameters, bound.mapping, error)) return false;
  program = bound;
  return true;
}

}  // namespace Tincta
