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
  std::string problem;
  if (!unit.IsLoaded()) {
    problem = " holds no table";
  } else if (unit.channels != 4) {
    problem = " holds a table of " + std::to_string(unit.channels) + " channels; LUT tables have 4";
  } else if (needsCube && unit.target.Value() != kTexture3D) {
    problem = " holds no 3-D table";
  } else {
    return true;
  }
  error = "texture unit " + std::to_string(index) + " of " + std::string(program) + problem;
  return false;
}

bool bReadMapping(const COvScriptParser* parameters, SLUTDomainMapping& mapping,
                  std::string& error) {
  const auto& kScale = kDomainScaleParameters;
  const auto& kOffset = kDomainOffsetParameters;
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
                        size_t pixels, EDestinationWrites writes) const {
  switch (kind) {
    case EOvOperator::LUTProgram1D:
      kernels.applyLUT1D(*table, mapping, source, destination, pixels, writes);
      break;
    case EOvOperator::LUTProgram3D:
      kernels.applyLUT3D(*table, mapping, source, destination, pixels, writes);
      break;
    case EOvOperator::LUTProgram1D3D:
      kernels.applyLUT1D3D(*shaper, *table, mapping, source, destination, pixels, writes);
      break;
    default:
      break;
  }
}

void SOvLUTProgram::RunExchanging(const SCPUKernelTable& kernels, const float* source,
                                  float* exchangedSource, float* destination, size_t pixels,
                                  EDestinationWrites writes) const {
  switch (kind) {
    case EOvOperator::LUTProgram1D:
      kernels.applyLUT1DExchanging(*table, mapping, source, exchangedSource, destination, pixels,
                                   writes);
      break;
    case EOvOperator::LUTProgram3D:
      kernels.applyLUT3DExchanging(*table, mapping, source, exchangedSource, destination, pixels,
                                   writes);
      break;
    case EOvOperator::LUTProgram1D3D:
      kernels.applyLUT1D3DExchanging(*shaper, *table, mapping, source, exchangedSource, destination,
                                     pixels, writes);
      break;
    default:
      break;
  }
}

bool bPrepareLUTProgram(EOvOperator op, const COvCPUTextureUnits& units,
                        const COvScriptParser* parameters, SOvLUTProgram& program,
                        std::string& error) {
  if (op == EOvOperator::Lut) {
    const SLUTTextureUnits shaped = LUTTextureUnits(ELUTKind::k1D3D);
    if (units.Unit(shaped.shaper).IsLoaded() && bIsCube(units.Unit(shaped.table))) {
      op = EOvOperator::LUTProgram1D3D;
    } else if (bIsCube(units.Unit(LUTTextureUnits(ELUTKind::k3D).table))) {
      op = EOvOperator::LUTProgram3D;
    } else {
      op = EOvOperator::LUTProgram1D;
    }
  }
  ELUTKind kind = ELUTKind::k1D;
  switch (op) {
    case EOvOperator::LUTProgram1D:
      kind = ELUTKind::k1D;
      break;
    case EOvOperator::LUTProgram3D:
      kind = ELUTKind::k3D;
      break;
    case EOvOperator::LUTProgram1D3D:
      kind = ELUTKind::k1D3D;
      break;
    default:
      error = "not a LUT program";
      return false;
  }
  const SLUTTextureUnits where = LUTTextureUnits(kind);
  const std::string_view name = LUTKindName(kind);
  SOvLUTProgram bound;
  bound.kind = op;
  if (kind == ELUTKind::k1D3D) {
    if (!bCheckTable(units, where.shaper, false, name, error)) return false;
    bound.shaper = &units.Unit(where.shaper);
  }
  if (!bCheckTable(units, where.table, kind != ELUTKind::k1D, name, error)) return false;
  bound.table = &units.Unit(where.table);
  if (!bReadMapping(parameters, bound.mapping, error)) return false;
  program = bound;
  return true;
}

}  // namespace Tincta
