// Grading an image where it was read: the samples stay in the file's own type and layout, and
// only a strip of working pixels per thread exists beside them, so a frame costs its own size.
#pragma once

#include <memory>
#include <vector>

#include "alpha.h"
#include "crandle/crandle.h"
#include "image_file.h"

namespace crandle_tool {

/// True when `GradeInPlace` takes an image of this description and these samples: red, green,
/// blue and an optional alpha, in that order, all of 8-bit, 16-bit, half or float samples.
/// Integer samples are taken unless `plan` multiplies the result for the writer, or a chain of
/// several LUTs would run on integer pixels without the plan's division by alpha (an integer
/// picture between LUTs rounds, as it does on the whole-picture path, which keeps those).
bool GradesInPlace(const OIIO::ImageSpec& spec, OIIO::TypeDesc sampleType, const SAlphaPlan& plan,
                   size_t lutCount);

/// Rows of interleaved samples as read: the whole image or a band of it.
struct SSampleRows {
  uint8_t* samples = nullptr;
  OIIO::TypeDesc sampleType;
  uint32_t width = 0;
  uint32_t rows = 0;
  int channels = 0;
};

/// Applies `luts` in order to the colour of `image` (rows of an image that `GradesInPlace`
/// takes), in place, strip by strip on `threads` threads, with the alpha steps of `plan`. Alpha
/// and everything else keep their stored values. The result is the one the whole-picture path
/// gives, bit for bit; a writer of associated colour is then given an image description without
/// "oiio:UnassociatedAlpha". Returns 0 or the first failing strip's result code; throws
/// std::bad_alloc when the strips' memory is not there.
int GradeInPlace(const SSampleRows& image, const SAlphaPlan& plan,
                 const std::vector<std::shared_ptr<void>>& luts,
                 host::LUTInterpolationMethod method, unsigned threads);

}  // namespace crandle_tool
