#include "band_stream.h"

#include <algorithm>
#include <chrono>
#include <mutex>

#include "frame_pipeline.h"
#include "process_clock.h"

namespace crandle_tool {
namespace {

using Clock = std::chrono::steady_clock;

struct SBand {
  std::vector<uint8_t> samples;
  int first = 0;
  int rows = 0;
};

// Band buffers handed back for the next band: two are in use at a time, and a fresh buffer of a
// band's size would be paged in anew.
class CSpareBuffers {
 public:
  std::vector<uint8_t> Take(size_t bytes) {
    std::vector<uint8_t> buffer;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (!spare_.empty()) {
        buffer = std::move(spare_.back());
        spare_.pop_back();
      }
    }
    buffer.resize(bytes);
    return buffer;
  }
  void Give(std::vector<uint8_t>&& buffer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    spare_.push_back(std::move(buffer));
  }

 private:
  std::mutex mutex_;
  std::vector<std::vector<uint8_t>> spare_;
};

}  // namespace

void StreamBands(SOpenedImage& opened, std::vector<uint8_t> firstBand, CPendingImage& output,
                 const std::function<void(const SSampleRows&)>& grade, const std::string& inputPath,
                 const std::string& outputPath, SBandTimes& times) {
  const OIIO::ImageSpec& spec = opened.image.spec;
  const int height = spec.height;
  const size_t rowBytes = opened.RowBytes();
  const size_t bands = size_t((height + kImageBandRows - 1) / kImageBandRows);
  CSpareBuffers spare;
  const std::function<SBand(size_t)> load = [&](size_t index) {
    SBand band;
    band.first = int(index) * kImageBandRows;
    band.rows = std::min(kImageBandRows, height - band.first);
    if (index == 0) {
      band.samples = std::move(firstBand);
      return band;
    }
    band.samples = spare.Take(size_t(band.rows) * rowBytes);
    std::string error;
    if (!ReadImageRows(opened, band.first, band.rows, band.samples.data(), error))
      throw CImageError("cannot read " + inputPath + ": " + error);
    return band;
  };
  const std::function<void(size_t, SBand&)> process = [&](size_t, SBand& band) {
    const Clock::time_point gradeStart = Clock::now();
    grade(SSampleRows{band.samples.data(), opened.image.sampleType, uint32_t(spec.width),
                      uint32_t(band.rows), spec.nchannels});
    times.gradeMs += MillisecondsSince(gradeStart);
    const Clock::time_point writeStart = Clock::now();
    std::string error;
    if (!output.WriteRows(band.first, band.rows, opened.image.sampleType, band.samples.data(),
                          error)) {
      throw CImageError("cannot write " + outputPath + ": " + error);
    }
    times.writeMs += MillisecondsSince(writeStart);
    spare.Give(std::move(band.samples));
  };
  SPipelineTimes pipeline;
  RunPipelined(bands, load, process, pipeline);
  times.readMs += pipeline.loadMs;
  times.waitedMs += pipeline.waitedMs;
}

}  // namespace crandle_tool
