// Applying a LUT to a picture through the exported interface, in horizontal strips on threads.
#pragma once

#include <memory>

#include "crandle/crandle.h"
#include "picture.h"

namespace crandle_tool {

/// Applies `lut` from `source` into `destination` (same size and format) with one
/// `CRANDLE::ApplyLUT` call per strip, `threads` strips running at once. Returns 0 or the first
/// failing call's result code (a host frame that could not be made gives 0xa00f000e).
int ApplyInStrips(const std::shared_ptr<void>& lut, host::LUTInterpolationMethod method,
                  const CPicture& source, const CPicture& destination, unsigned threads);

}  // namespace crandle_tool
