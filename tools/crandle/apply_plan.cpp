#include "apply_plan.h"

#include <unistd.h>

#include <filesystem>

#include "command_line.h"
#include "image_formats.h"
#include "sequence.h"

namespace crandle_tool {
namespace {

namespace fs = std::filesystem;

bool IsReadableFile(const std::string& path) {
  std::error_code error;
  return fs::is_regular_file(path, error) && ::access(path.c_str(), R_OK) == 0;
}

int PlanSequence(const std::string& input, const std::string& output, const std::string& frames,
                 std::vector<SApplyJob>& jobs, std::string& error) {
  if (!IsSequencePattern(output)) {
    error = "the input is a sequence, so the output needs a frame-number field too (%04d, ####)";
    return kExitUsage;
  }
  if (frames.empty()) {
    error = "a sequence needs --frames A-B (for example --frames 1001-1048)";
    return kExitUsage;
  }
  const auto range = ParseFrameRange(frames, &error);
  if (!range) return kExitUsage;
  std::vector<long> missing;
  for (long frame : FramesOf(*range)) {
    jobs.push_back({FramePath(input, frame), FramePath(output, frame)});
    if (!IsReadableFile(jobs.back().input)) missing.push_back(frame);
  }
  if (missing.empty()) return 0;
  error = "frame " + std::to_string(missing.front()) + " is missing or cannot be read (" +
          FramePath(input, missing.front()) + ")";
  if (missing.size() > 1) {
    error += ", and " + std::to_string(missing.size() - 1) + " more frame" +
             (missing.size() > 2 ? "s" : "") + " of " + frames;
  }
  error += "; nothing was written";
  jobs.clear();
  return kExitFailure;
}

int PlanFolder(const std::string& input, const std::string& output, std::vector<SApplyJob>& jobs,
               std::string& error) {
  std::error_code fsError;
  if (fs::exists(output, fsError) && !fs::is_directory(output, fsError)) {
    error = "the input is a folder, so the output must be a folder too; " + output + " is not";
    return kExitUsage;
  }
  if (fs::exists(output, fsError) && fs::equivalent(input, output, fsError)) {
    error = "the output folder is the input folder; the results would replace the originals";
    return kExitUsage;
  }
  for (const std::string& name : FilesInFolder(input)) {
    if (!IsImageFileName(name)) continue;
    jobs.push_back({(fs::path(input) / name).string(), (fs::path(output) / name).string()});
  }
  if (jobs.empty()) {
    error = "no image files in the folder " + input;
    return kExitFailure;
  }
  fs::create_directories(output, fsError);
  if (fsError) {
    error = "cannot make the folder " + output + ": " + fsError.message();
    jobs.clear();
    return kExitFailure;
  }
  return 0;
}

}  // namespace

int PlanApply(const std::string& input, const std::string& output, const std::string& frames,
              std::vector<SApplyJob>& jobs, std::string& error) {
  jobs.clear();
  std::error_code fsError;
  const bool file = fs::exists(input, fsError) && !fs::is_directory(input, fsError);
  if (!file && IsSequencePattern(input)) return PlanSequence(input, output, frames, jobs, error);
  if (!frames.empty()) {
    error = "--frames needs an input with a frame-number field such as %04d or ####";
    return kExitUsage;
  }
  if (fs::is_directory(input, fsError)) return PlanFolder(input, output, jobs, error);
  jobs.push_back({input, output});
  return 0;
}

}  // namespace crandle_tool
