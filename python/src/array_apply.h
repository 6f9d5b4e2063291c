// Applying a LUT to pixels laid out as numpy lays them out (rows of red, green, blue and maybe
// alpha, any strides, four sample types), through the module's exported ApplyLUT on host frames.
// Nothing here knows Python, so it runs with the interpreter's lock released.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace crandle_python {

enum class ESampleType { kUInt8, kUInt16, kHalf, kFloat };

/// Bytes of one sample.
size_t SampleBytes(ESampleType type);

/// An (height, width, channels) array of RGB or RGBA pixels; strides in bytes, any sign.
struct SPixelArray {
  uint8_t* base = nullptr;
  uint32_t height = 0;
  uint32_t width = 0;
  int channels = 0;  // 3 or 4
  ESampleType type = ESampleType::kFloat;
  ptrdiff_t rowStride = 0;
  ptrdiff_t pixelStride = 0;
  ptrdiff_t channelStride = 0;
};

/// What `ApplyToArray` did besides its result.
struct SApplyReport {
  /// The destination's own memory was the host frame (no working copy of the pixels).
  bool viewedDestination = false;
  /// ApplyLUT calls made (one per strip of rows).
  uint32_t calls = 0;
};

/// Why `source` and `destination` cannot go together (different shapes or types, or memory
/// that overlaps without being the same array); empty when they can.
std::string CheckArrays(const SPixelArray& source, const SPixelArray& destination);

/// Applies `lut` (a handle from CRANDLE::ParseLUT) to `source`, writing `destination`, which may
/// be the same array. Strips of rows go through one CRANDLE::ApplyLUT call each, on host frames
/// that view the destination itself when its rows are packed RGBA of a host sample type (red
/// and blue exchanged there before and after), else a small working strip. Alpha passes
/// through; three-channel sources are given an opaque alpha. Returns 0 or the first failing
/// call's result code (the destination then holds some strips done and others not).
int ApplyToArray(const std::shared_ptr<void>& lut, const SPixelArray& source,
                 const SPixelArray& destination, SApplyReport* report = nullptr);

/// The LUT's output for `count` RGB float triples (packed), written to `out` (packed triples;
/// may be `rgb`). Returns 0 or ApplyLUT's result code.
int EvaluateColours(const std::shared_ptr<void>& lut, const float* rgb, size_t count, float* out);

}  // namespace crandle_python
