// crandle apply: apply a LUT to images (or an image sequence) through the exported interface.
// Runs in the image commands module; its command line is in apply_command.cpp.
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "alpha.h"
#include "apply_options.h"
#include "apply_plan.h"
#include "band_stream.h"
#include "crandle/crandle.h"
#include "frame_pipeline.h"
#include "gpu_device.h"
#include "image_file.h"
#include "in_place_apply.h"
#include "look_apply.h"
#include "lut_report.h"
#include "lut_source.h"
#include "output_checks.h"
#include "process_clock.h"
#include "progress.h"
#include "strip_apply.h"

namespace crandle_tool {
namespace {

using Clock = std::chrono::steady_clock;

using CApplyError = CImageError;

OIIO::TypeDesc FileTypeFor(const std::string& depth, const OIIO::TypeDesc& inputType) {
  if (depth == "8") return OIIO::TypeDesc::UINT8;
  if (depth == "16") return OIIO::TypeDesc::UINT16;
  if (depth == "half") return OIIO::TypeDesc::HALF;
  if (depth == "float") return OIIO::TypeDesc::FLOAT;
  return inputType;
}

CPendingImage WritePreview(const std::string& path, const CPicture& before, const CPicture& after) {
  // Each half at most 960 pixels wide, same aspect ratio.
  const uint32_t width = std::min<uint32_t>(before.Width(), 960);
  const uint32_t height =
      std::max<uint32_t>(1, uint32_t(uint64_t(before.Height()) * width / before.Width()));
  const std::vector<uint8_t> left = PreviewRGB8(before, width, height);
  const std::vector<uint8_t> right = PreviewRGB8(after, width, height);
  SImage preview;
  preview.spec = OIIO::ImageSpec(int(2 * width), int(height), 3, OIIO::TypeDesc::UINT8);
  preview.sampleType = OIIO::TypeDesc::UINT8;
  preview.samples.resize(size_t(2) * width * height * 3);
  for (uint32_t y = 0; y < height; ++y) {
    uint8_t* row = preview.samples.data() + size_t(y) * 2 * width * 3;
    std::copy_n(left.data() + size_t(y) * width * 3, width * 3, row);
    std::copy_n(right.data() + size_t(y) * width * 3, width * 3, row + width * 3);
  }
  std::string error;
  CPendingImage pending;
  if (!pending.Write(path, preview, OIIO::TypeDesc::UINT8, error)) {
    throw CApplyError("cannot write the preview " + path + ": " + error);
  }
  return pending;
}

struct SFrameSize {
  int width = 0;
  int height = 0;
};

// Applies the LUTs in order, one ApplyLUT each, through float working pictures between them.
int ApplyChain(const std::vector<std::shared_ptr<void>>& luts, const SApplyOptions& options,
               const SDeviceChoice& device, host::LUTInterpolationMethod method,
               const CPicture& source, CPicture& destination, SDeviceTimings& timings,
               std::string& deviceError) {
  std::array<CPicture, 2> working;
  for (size_t i = 0; i < luts.size(); ++i) {
    const CPicture& from = i == 0 ? source : working[(i - 1) % 2];
    CPicture& into = i + 1 == luts.size() ? destination : working[i % 2];
    if (&into != &destination && into.Bytes() == 0 &&
        !into.Allocate(source.Width(), source.Height(), host::kPixelFormat_BGRA_4444_32f)) {
      throw CApplyError("not enough memory for a working picture");
    }
    SDeviceTimings step;
    const int result =
        device.device ? ApplyOnGPU(device.device, luts[i], method, from, into, step, deviceError)
                      : ApplyInStrips(luts[i], method, from, into, options.threads);
    timings.uploadMs += step.uploadMs;
    timings.applyMs += step.applyMs;
    timings.downloadMs += step.downloadMs;
    if (result != CRANDLE::kResultOK || !deviceError.empty()) return result;
  }
  return CRANDLE::kResultOK;
}

// A frame as read, and whether it is graded where it lies (see in_place_apply.h). A frame graded
// as it is read holds only its first band in `image.samples`, and the open file in `stream`.
struct SLoadedFrame {
  SImage image;
  std::optional<SOpenedImage> stream;
  bool inPlace = false;
  double readMs = 0;
};

// Where a run's time went, in milliseconds, for --verbose.
struct SApplyTimes {
  double applyMs = 0;
  double writeMs = 0;
  double bandReadMs = 0;    // reading the bands of streamed frames after their first
  double bandWaitedMs = 0;  // of which the grade waited for
};

// Checks the outputs and reads the input; safe to run beside the grading of an earlier frame.
SLoadedFrame LoadFrame(const SApplyOptions& options, const SDeviceChoice& device, size_t lutCount,
                       const std::string& inputPath, const std::string& outputPath,
                       bool writePreview) {
  std::string error;
  // Nothing is read or applied for an output that could not be put in place.
  if (!CheckWritable(outputPath, error))
    throw CApplyError("cannot write " + outputPath + ": " + error);
  if (writePreview && !CheckWritable(options.preview, error))
    throw CApplyError("cannot write the preview " + options.preview + ": " + error);
  const Clock::time_point readStart = Clock::now();
  SLoadedFrame frame;
  // Frames graded where they lie keep the file's own samples; a preview, a GPU device or an
  // output of another depth goes through whole pictures.
  const auto inPlace = [&](const OIIO::ImageSpec& spec) {
    if (device.device || writePreview) return false;
    if (!options.depth.empty() && FileTypeFor(options.depth, spec.format) != spec.format)
      return false;
    SImage header;
    header.spec = spec;
    SChannelLayout layout;
    frame.inPlace =
        FindChannels(spec, layout) &&
        GradesInPlace(spec, spec.format,
                      PlanAlpha(header, layout, outputPath, options.premultiplied), lutCount);
    return frame.inPlace;
  };
  SOpenedImage opened;
  if (!OpenImage(inputPath, opened, error, inPlace))
    throw CApplyError("cannot read " + inputPath + ": " + error);
  if (frame.inPlace && opened.ReadsInRows()) {
    // Graded as it is read: only the first band is read ahead.
    const int rows = std::min(opened.image.spec.height, kImageBandRows);
    frame.image.spec = opened.image.spec;
    frame.image.sampleType = opened.image.sampleType;
    frame.image.samples.resize(size_t(rows) * opened.RowBytes());
    if (!ReadImageRows(opened, 0, rows, frame.image.samples.data(), error))
      throw CApplyError("cannot read " + inputPath + ": " + error);
    frame.stream.emplace(std::move(opened));
  } else if (!ReadOpenedImage(opened, frame.image, error)) {
    throw CApplyError("cannot read " + inputPath + ": " + error);
  }
  frame.readMs = MillisecondsSince(readStart);
  return frame;
}

// Grades a frame that is read as it is graded, band by band into its output.
void StreamFrame(const SApplyOptions& options, const std::vector<std::shared_ptr<void>>& luts,
                 host::LUTInterpolationMethod method, SLoadedFrame& frame, const SAlphaPlan& alpha,
                 OIIO::TypeDesc fileType, const std::string& inputPath,
                 const std::string& outputPath, SApplyTimes& times) {
  OIIO::ImageSpec spec = frame.image.spec;
  if (alpha.associateForWriter) spec.erase_attribute("oiio:UnassociatedAlpha");
  if (!options.depth.empty()) spec.erase_attribute("oiio:BitsPerSample");
  std::string error;
  Clock::time_point writeStart = Clock::now();
  CPendingImage pending;
  if (!pending.Open(outputPath, spec, fileType, error))
    throw CApplyError("cannot write " + outputPath + ": " + error);
  double writeMs = MillisecondsSince(writeStart);
  const auto grade = [&](const SSampleRows& rows) {
    const int result = GradeInPlace(rows, alpha, luts, method, options.threads);
    if (result != CRANDLE::kResultOK) {
      throw CApplyError("applying the LUT to " + inputPath + " failed: " + ResultCodeText(result));
    }
  };
  SBandTimes bands;
  StreamBands(*frame.stream, std::move(frame.image.samples), pending, grade, inputPath, outputPath,
              bands);
  writeStart = Clock::now();
  if (!pending.Close(error) || !pending.Commit(error))
    throw CApplyError("cannot write " + outputPath + ": " + error);
  writeMs += bands.writeMs + MillisecondsSince(writeStart);
  times.applyMs += bands.gradeMs;
  times.writeMs += writeMs;
  times.bandReadMs += bands.readMs;
  times.bandWaitedMs += bands.waitedMs;
  if (options.verbose) {
    std::fprintf(stderr, "%s: read %.1f ms, apply %.1f ms (%u strips), write %.1f ms\n",
                 inputPath.c_str(), frame.readMs + bands.readMs, bands.gradeMs, options.threads,
                 writeMs);
  }
}

void ApplyToFrame(const SApplyOptions& options, const SDeviceChoice& device,
                  const std::vector<std::shared_ptr<void>>& luts,
                  host::LUTInterpolationMethod method, SLoadedFrame& frame,
                  const std::string& inputPath, const std::string& outputPath, bool writePreview,
                  std::optional<SFrameSize>& firstSize, SApplyTimes& times) {
  SImage& image = frame.image;
  std::string error;
  if (firstSize &&
      (firstSize->width != image.spec.width || firstSize->height != image.spec.height)) {
    throw CApplyError(inputPath + " is " + std::to_string(image.spec.width) + "x" +
                      std::to_string(image.spec.height) + " but the sequence began at " +
                      std::to_string(firstSize->width) + "x" + std::to_string(firstSize->height));
  }
  firstSize = SFrameSize{image.spec.width, image.spec.height};
  SChannelLayout layout;
  if (!FindChannels(image.spec, layout)) throw CApplyError(inputPath + " has no colour channel");

  // The result is rendered straight into the output's depth, so a deeper output is not limited
  // by the input's quantisation.
  const OIIO::TypeDesc fileType = FileTypeFor(options.depth, image.spec.format);
  if (!CheckFormatHolds(outputPath, fileType, !options.depth.empty(), layout.alpha >= 0, error))
    throw CApplyError("cannot write " + error);
  // Associated colour is graded unassociated; unassociated colour is multiplied for a writer that
  // takes associated colour.
  const SAlphaPlan alpha = PlanAlpha(image, layout, outputPath, options.premultiplied);
  static bool toldAsStored = false;
  if (options.premultiplied && !ColourIsAssociated(image, layout) && !toldAsStored) {
    toldAsStored = true;
    std::fprintf(stderr,
                 "crandle apply: warning: --premultiplied changes nothing for %s, whose colour "
                 "is not associated with alpha\n",
                 inputPath.c_str());
  }
  if (frame.stream) {
    StreamFrame(options, luts, method, frame, alpha, fileType, inputPath, outputPath, times);
    return;
  }
  const Clock::time_point applyStart = Clock::now();
  std::optional<CPicture> before;
  CPicture destination;
  SImage unpacked;
  SDeviceTimings deviceTimings;
  int result = CRANDLE::kResultOK;
  std::string deviceError;
  if (frame.inPlace) {
    result =
        GradeInPlace(SSampleRows{image.samples.data(), image.sampleType, uint32_t(image.spec.width),
                                 uint32_t(image.spec.height), image.spec.nchannels},
                     alpha, luts, method, options.threads);
    if (alpha.associateForWriter) image.spec.erase_attribute("oiio:UnassociatedAlpha");
  } else {
    const host::PixelFormat resultFormat = alpha.FloatResult() ? host::kPixelFormat_BGRA_4444_32f
                                           : options.depth.empty()
                                               ? PictureFormatFor(image.sampleType)
                                               : PictureFormatFor(fileType);
    CPicture source;
    if (!PackForGrade(image, layout, alpha, source) ||
        !destination.Allocate(source.Width(), source.Height(), resultFormat)) {
      throw CApplyError("not enough memory for " + inputPath);
    }
    // The apply path may reorder a float source in place, so the preview's left half is made
    // first.
    if (writePreview) {
      before.emplace();
      if (!PackImage(image, layout, *before))
        throw CApplyError("not enough memory for the preview");
    }
    result =
        ApplyChain(luts, options, device, method, source, destination, deviceTimings, deviceError);
  }
  const double applyMs = MillisecondsSince(applyStart);
  times.applyMs += applyMs;
  if (!deviceError.empty()) {
    throw CApplyError(inputPath + " on " + device.label + ": " + deviceError + " (" +
                      std::to_string(result) + ")");
  }
  if (result != CRANDLE::kResultOK) {
    throw CApplyError("applying the LUT to " + inputPath + " failed: " + ResultCodeText(result));
  }
  const Clock::time_point writeStart = Clock::now();
  SImage& output = frame.inPlace ? image : unpacked;
  if (!frame.inPlace) unpacked = UnpackGraded(destination, image, layout, alpha);
  if (!options.depth.empty()) output.spec.erase_attribute("oiio:BitsPerSample");
  // Both files are complete before either replaces anything: a preview that cannot be written
  // leaves the output as it was.
  CPendingImage pendingOutput;
  if (!pendingOutput.Write(outputPath, output, fileType, error)) {
    throw CApplyError("cannot write " + outputPath + ": " + error);
  }
  std::optional<CPendingImage> pendingPreview;
  if (writePreview) pendingPreview.emplace(WritePreview(options.preview, *before, destination));
  if (!pendingOutput.Commit(error)) throw CApplyError("cannot write " + outputPath + ": " + error);
  if (pendingPreview && !pendingPreview->Commit(error)) {
    throw CApplyError("cannot write the preview " + options.preview + ": " + error);
  }
  const double writeMs = MillisecondsSince(writeStart);
  times.writeMs += writeMs;
  if (options.verbose && device.device) {
    std::fprintf(stderr,
                 "%s: read %.1f ms, on %s: upload %.2f ms, apply %.2f ms, download %.2f ms; "
                 "write %.1f ms\n",
                 inputPath.c_str(), frame.readMs, device.label.c_str(), deviceTimings.uploadMs,
                 deviceTimings.applyMs, deviceTimings.downloadMs, writeMs);
  } else if (options.verbose) {
    std::fprintf(stderr, "%s: read %.1f ms, apply %.1f ms (%u strips), write %.1f ms\n",
                 inputPath.c_str(), frame.readMs, applyMs, options.threads, writeMs);
  }
}

bool LoadLUTs(const SApplyOptions& options, std::vector<std::shared_ptr<void>>& luts) {
  if (IsLookDocumentFile(options.lutPath)) {
    std::string error;
    if (LoadLookDocumentLUTs(options.lutPath, options.payload, luts, error)) return true;
    std::fprintf(stderr, "crandle apply: %s\n", error.c_str());
    return false;
  }
  if (!options.payload.empty()) {
    std::fprintf(stderr, "crandle apply: --payload goes with a look document, and %s is not one\n",
                 options.lutPath.c_str());
    return false;
  }
  std::shared_ptr<void> lut;
  const int parsed = ParseLUTFile(options.lutPath, options.correctionId, lut);
  if (parsed != CRANDLE::kResultOK) {
    std::fprintf(stderr, "crandle apply: %s: %s: %s\n", options.lutPath.c_str(),
                 ResultCodeText(parsed).c_str(),
                 ParseFailureReason(options.lutPath, parsed, options.correctionId).c_str());
    return false;
  }
  luts.assign(1, std::move(lut));
  return true;
}

// The most memory the process has held at once (resident), in megabytes.
double PeakResidentMegabytes() {
  rusage usage{};
  return ::getrusage(RUSAGE_SELF, &usage) == 0 ? double(usage.ru_maxrss) / 1024.0 : 0.0;
}

// The last --verbose line: the whole run from the process's start, in parts that add up to it,
// and the memory it took.
void ReportWholeTime(size_t images, double startupMs, Clock::time_point runStart, double lutMs,
                     const SPipelineTimes& pipeline, const SApplyTimes& times) {
  const double wallMs = startupMs + MillisecondsSince(runStart);
  const double readMs = pipeline.waitedMs + times.bandWaitedMs;
  const double otherMs = wallMs - startupMs - lutMs - readMs - times.applyMs - times.writeMs;
  std::fprintf(stderr,
               "%zu image%s in %.1f ms = start-up %.1f + LUT parse %.1f + read %.1f + apply %.1f "
               "+ write %.1f + other %.1f ms; reading took %.1f ms, %.1f ms of it beside "
               "applying and writing; peak memory %.1f MB\n",
               images, images == 1 ? "" : "s", wallMs, startupMs, lutMs, readMs, times.applyMs,
               times.writeMs, otherMs, pipeline.loadMs + times.bandReadMs,
               std::max(0.0, pipeline.loadMs + times.bandReadMs - readMs), PeakResidentMegabytes());
}

}  // namespace

int RunApply(const SApplyOptions& options) {
  // Loading the program and parsing the command line come first in the account; where the
  // system keeps no record of the start, the account starts here.
  const double startupMs = std::max(0.0, MillisecondsSinceProcessStart());
  const Clock::time_point runStart = Clock::now();
  std::vector<std::shared_ptr<void>> luts;
  if (!LoadLUTs(options, luts)) return 1;
  const double lutMs = MillisecondsSince(runStart);
  const auto method = options.interpolation == "tetrahedral"
                          ? host::LUTInterpolationMethod::Tetrahedral
                          : host::LUTInterpolationMethod::Trilinear;
  SDeviceChoice device;
  std::string deviceError;
  if (!ChooseDevice(options.device, device, deviceError)) {
    std::fprintf(stderr, "crandle apply: %s\n", deviceError.c_str());
    return 1;
  }
  if (!device.device && method == host::LUTInterpolationMethod::Tetrahedral) {
    std::fprintf(stderr, "crandle apply: %s\n", TetrahedralOnCPUMessage().c_str());
    return 1;
  }
  std::vector<SApplyJob> jobs;
  std::string planError;
  if (const int status = PlanApply(options.input, options.output, options.frames, jobs, planError);
      status != 0) {
    std::fprintf(stderr, "crandle apply: %s\n", planError.c_str());
    return status;
  }
  try {
    std::optional<SFrameSize> firstSize;
    std::optional<CProgress> progress;
    if (jobs.size() > 1) progress.emplace("applying", long(jobs.size()));
    SApplyTimes times;
    SPipelineTimes pipeline;
    // The codecs decode and encode on threads of their own as well, as many as the grade uses.
    OIIO::attribute("threads", int(options.threads));
    OIIO::attribute("exr_threads", int(options.threads));
    const auto previewOf = [&](size_t index) { return index == 0 && !options.preview.empty(); };
    const std::function<SLoadedFrame(size_t)> load = [&](size_t index) {
      return LoadFrame(options, device, luts.size(), jobs[index].input, jobs[index].output,
                       previewOf(index));
    };
    const std::function<void(size_t, SLoadedFrame&)> process = [&](size_t index,
                                                                   SLoadedFrame& frame) {
      ApplyToFrame(options, device, luts, method, frame, jobs[index].input, jobs[index].output,
                   previewOf(index), firstSize, times);
      if (progress) progress->Step();
    };
    // The next frame is read while this one is applied and written; at most two are held.
    RunPipelined(jobs.size(), load, process, pipeline);
    if (options.verbose) ReportWholeTime(jobs.size(), startupMs, runStart, lutMs, pipeline, times);
    return 0;
  } catch (const CApplyError& error) {
    std::fprintf(stderr, "crandle apply: %s\n", error.what());
    return 1;
  }
}

}  // namespace crandle_tool
