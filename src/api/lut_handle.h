// The module's LUT handles: a shared pointer to an untyped object that always owns one COv3DLUT.
#pragma once

#include <memory>

#include "lut/lut3d.h"

namespace CRANDLE::detail {

/// The LUT behind a handle made by this module (no check of its kind is possible or made).
inline const Tincta::COv3DLUT* LUTOf(const std::shared_ptr<void>& handle) {
  return static_cast<const Tincta::COv3DLUT*>(handle.get());
}

}  // namespace CRANDLE::detail
