// The names of the CPU engine's operators: which operator a layer names, and whether it may work
// in its input's buffer.
#pragma once

#include <string_view>

#include "engine/lut_binding.h"

namespace Tincta {

enum class EOvOperator {
  Unknown,
  Noop,
  Over,
  OverPremultiplied,
  Fade,
  Lut,
  Readout,
  Mask,
  Push,
  Pop,
  Flip,
  OpXform,
  Stretch,
  Rgb,
  FWindow,
  GroupBegin,
  GroupEnd,
  /// The native LUT programs, named by LUT kind.
  LUTProgram1D,
  LUTProgram3D,
  LUTProgram1D3D,
};

struct SOvOperatorName {
  EOvOperator op = EOvOperator::Unknown;
  /// The name ended in "!": the operator never takes over its input's buffer in place.
  bool keepsInput = false;
};

/// Recognises an operator name, without regard to case. A trailing "!" is taken off first and
/// noted; "*opxform|" followed by anything names the "*opxform" operator.
SOvOperatorName ParseOperatorName(std::string_view name);

}  // namespace Tincta
