// Frames graded as they are read: a scanline image is read, graded and written a band of rows at a
// time, the next band read while one is graded and written, so that a frame of any size costs a
// few bands of memory and its reading overlaps the rest.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "image_file.h"
#include "in_place_apply.h"

namespace crandle_tool {

/// A failure to read, grade or write an image; its message names the file and what went wrong.
class CImageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Where the time of one streamed frame went, in milliseconds.
struct SBandTimes {
  double readMs = 0;    ///< reading bands after the first, on the reading thread
  double waitedMs = 0;  ///< waiting for a band that was still being read
  double gradeMs = 0;
  double writeMs = 0;
};

/// Grades the image `opened` (which `ReadsInRows()`) into `output` (opened for the whole image)
/// band by band: `firstBand` holds its first `kImageBandRows` rows (or all, when fewer), already
/// read; the rest are read here. `grade` grades one band's rows in place. Throws `CImageError`
/// naming `inputPath` or `outputPath` when a band cannot be read or written; an exception from
/// `grade` passes through. `output` is left open for the caller to close.
void StreamBands(SOpenedImage& opened, std::vector<uint8_t> firstBand, CPendingImage& output,
                 const std::function<void(const SSampleRows&)>& grade, const std::string& inputPath,
                 const std::string& outputPath, SBandTimes& times);

}  // namespace crandle_tool
