#include "in_place_apply.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <new>
#include <thread>
#include <type_traits>

#include "picture.h"

namespace crandle_tool {
namespace {

// Working pixels per strip: enough that a strip's one ApplyLUT call is cheap beside its pixels,
// little enough that the strip is still in the cache when it is stored back.
constexpr size_t kStripBytes = 2 * 1024 * 1024;

template <class T>
constexpr T Opaque() {
  if constexpr (std::is_same_v<T, float>) {
    return 1.0f;
  } else {
    return std::numeric_limits<T>::max();
  }
}

template <class T>
void LoadRow(const T* in, int channels, uint32_t width, T* bgra) {
  for (uint32_t x = 0; x < width; ++x, in += channels, bgra += 4) {
    bgra[0] = in[2];
    bgra[1] = in[1];
    bgra[2] = in[0];
    bgra[3] = channels == 4 ? in[3] : Opaque<T>();
  }
}

// Alpha and any other channel keep what the file stored, as the whole-picture path's unpacking
// keeps them.
template <class T>
void StoreRow(T* bgra, int channels, uint32_t width, const SAlphaPlan& plan, T* out) {
  for (uint32_t x = 0; x < width; ++x, out += channels, bgra += 4) {
    if constexpr (std::is_same_v<T, float>) {
      if (plan.unassociate) {
        const float alpha = bgra[3];
        // No coverage: the stored colour stays, as it was before the grade.
        if (!(alpha > 0.0f)) continue;
        bgra[0] *= alpha;
        bgra[1] *= alpha;
        bgra[2] *= alpha;
      }
    }
    out[0] = bgra[2];
    out[1] = bgra[1];
    out[2] = bgra[0];
    if constexpr (std::is_same_v<T, float>) {
      if (plan.associateForWriter) {
        const float alpha = out[3] > 0.0f ? out[3] : 0.0f;
        out[0] *= alpha;
        out[1] *= alpha;
        out[2] *= alpha;
      }
    }
  }
}

struct SGrade {
  const SSampleRows& image;
  const SAlphaPlan& plan;
  const std::vector<std::shared_ptr<void>>& luts;
  host::LUTInterpolationMethod method;
};

// True when the samples pass through float working pixels: half samples, and integer samples
// whose colour is divided by alpha for the grade.
bool Widens(OIIO::TypeDesc sampleType, const SAlphaPlan& plan) {
  return sampleType == OIIO::TypeDesc::HALF ||
         (sampleType != OIIO::TypeDesc::FLOAT && plan.FloatResult());
}

// Grades rows [first, first + rows) through `working` (a picture of at least `rows` rows).
// Samples that are widened pass through `floats` on the way: in as the whole-picture path packs
// them (half as OpenImageIO converts it, integers as `UnitSample` reads them), and out as
// OpenImageIO converts floats when it writes them.
template <class T>
int GradeStrip(const SGrade& grade, uint32_t first, uint32_t rows, CPicture& working,
               std::vector<float>& floats) {
  const SSampleRows& image = grade.image;
  const int channels = image.channels;
  const uint32_t width = working.Width();
  const size_t rowSamples = size_t(width) * size_t(channels);
  const size_t offset = size_t(first) * rowSamples;
  const size_t count = rows * rowSamples;
  const bool widened = Widens(image.sampleType, grade.plan);
  uint8_t* stored = image.samples + offset * image.sampleType.size();
  T* samples = reinterpret_cast<T*>(stored);
  if constexpr (std::is_same_v<T, float>) {
    if (image.sampleType == OIIO::TypeDesc::HALF) {
      OIIO::convert_pixel_values(OIIO::TypeDesc::HALF, stored, OIIO::TypeDesc::FLOAT, floats.data(),
                                 int(count));
    } else if (image.sampleType == OIIO::TypeDesc::UINT8) {
      for (size_t i = 0; i < count; ++i)
        floats[i] = stored[i] / 255.0f;
    } else if (image.sampleType == OIIO::TypeDesc::UINT16) {
      const auto* words = reinterpret_cast<const uint16_t*>(stored);
      for (size_t i = 0; i < count; ++i)
        floats[i] = words[i] / 65535.0f;
    }
    if (widened) samples = floats.data();
  }
  for (uint32_t y = 0; y < rows; ++y)
    LoadRow(samples + y * rowSamples, channels, width, reinterpret_cast<T*>(working.Row(y)));
  if constexpr (std::is_same_v<T, float>) {
    if (grade.plan.unassociate) DivideByAlpha(working, rows);
  }
  auto view = working.View(0, rows);
  if (view.IsEmpty()) return CRANDLE::kResultEmptyArgument;
  for (const std::shared_ptr<void>& lut : grade.luts) {
    const int result = CRANDLE::ApplyLUT(view, lut, grade.method, view);
    if (result != CRANDLE::kResultOK) return result;
  }
  for (uint32_t y = 0; y < rows; ++y) {
    StoreRow(reinterpret_cast<T*>(working.Row(y)), channels, width, grade.plan,
             samples + y * rowSamples);
  }
  if (widened) {
    OIIO::convert_pixel_values(OIIO::TypeDesc::FLOAT, floats.data(), image.sampleType, stored,
                               int(count));
  }
  return CRANDLE::kResultOK;
}

}  // namespace

bool GradesInPlace(const OIIO::ImageSpec& spec, OIIO::TypeDesc sampleType, const SAlphaPlan& plan,
                   size_t lutCount) {
  SChannelLayout layout;
  if (!FindChannels(spec, layout) || layout.grey || layout.red != 0 || layout.green != 1 ||
      layout.blue != 2) {
    return false;
  }
  if (!(spec.nchannels == 3 && layout.alpha < 0) && !(spec.nchannels == 4 && layout.alpha == 3))
    return false;
  const bool floats = sampleType == OIIO::TypeDesc::FLOAT || sampleType == OIIO::TypeDesc::HALF;
  if (floats) return true;
  // Integer colour divided by alpha is graded in float; a chain of LUTs on integer pixels rounds
  // between them, as the whole-picture path does, only without alpha steps. Multiplying for the
  // writer is left to the whole-picture path.
  return (sampleType == OIIO::TypeDesc::UINT8 || sampleType == OIIO::TypeDesc::UINT16) &&
         !plan.associateForWriter && (plan.unassociate || lutCount == 1);
}

int GradeInPlace(const SSampleRows& image, const SAlphaPlan& plan,
                 const std::vector<std::shared_ptr<void>>& luts,
                 host::LUTInterpolationMethod method, unsigned threads) {
  const uint32_t width = image.width;
  const uint32_t height = image.rows;
  const bool widened = Widens(image.sampleType, plan);
  const host::PixelFormat format =
      PictureFormatFor(widened ? OIIO::TypeDesc::FLOAT : image.sampleType);
  const size_t pixelBytes = 4 * SampleTypeOf(format).size();
  const uint32_t stripRows =
      uint32_t(std::clamp<size_t>(kStripBytes / (size_t(width) * pixelBytes), 1, height));
  const uint32_t strips = (height + stripRows - 1) / stripRows;
  const unsigned workers = std::clamp<unsigned>(threads, 1, strips);
  const SGrade grade{image, plan, luts, method};
  std::vector<int> results(strips, CRANDLE::kResultOK);
  std::atomic<uint32_t> next{0};
  std::atomic<bool> stop{false};
  std::atomic<bool> outOfMemory{false};
  const auto work = [&] {
    CPicture working;
    std::vector<float> floats;
    try {
      if (widened) floats.resize(size_t(stripRows) * width * size_t(image.channels));
    } catch (const std::bad_alloc&) {
      outOfMemory = true;
    }
    if (outOfMemory || !working.Allocate(width, stripRows, format)) {
      outOfMemory = stop = true;
      return;
    }
    for (uint32_t strip; !stop && (strip = next++) < strips;) {
      const uint32_t first = strip * stripRows;
      const uint32_t rows = std::min(stripRows, height - first);
      int& result = results[strip];
      if (format == host::kPixelFormat_BGRA_4444_8u) {
        result = GradeStrip<uint8_t>(grade, first, rows, working, floats);
      } else if (format == host::kPixelFormat_BGRA_4444_16u) {
        result = GradeStrip<uint16_t>(grade, first, rows, working, floats);
      } else {
        result = GradeStrip<float>(grade, first, rows, working, floats);
      }
      if (result != CRANDLE::kResultOK) stop = true;
    }
  };
  std::vector<std::thread> helpers;
  for (unsigned i = 1; i < workers; ++i)
    helpers.emplace_back(work);
  work();
  for (std::thread& helper : helpers)
    helper.join();
  if (outOfMemory) throw std::bad_alloc();
  for (int result : results)
    if (result != CRANDLE::kResultOK) return result;
  return CRANDLE::kResultOK;
}

}  // namespace crandle_tool
