// The module's LUT handles: a shared pointer to an untyped object that always owns one COv3DLUT.
// The one place that reaches the LUT inside a handle, for the module and for the tool, which
// carries the module's code.
#pragma once

#include <memory>

#include "lut/lut3d.h"

namespace CRANDLE::detail {

/// The LUT behind a handle made by this module (no check of its kind is possible or made); null
/// for an empty handle.
inline const Tincta::COv3DLUT* LUTOf(const std::shared_ptr<void>& handle) {
  return static_cast<const Tincta::COv3DLUT*>(handle.get());
}

}  // namespace CRANDLE::detail
