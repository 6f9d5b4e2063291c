// What one `crandle apply` writes: the input and output of every image, settled and checked
// before the first output is written.
#pragma once

#include <string>
#include <vector>

namespace crandle_tool {

struct SApplyJob {
  std::string input;
  std::string output;
};

/// Turns IN, OUT and --frames into jobs, in order:
///  - a file: one job (an existing file is never read as a pattern, so "take#2.exr" is a file);
///  - a pattern with a frame field (%04d, ####, @@@@): one job per frame of `frames`, OUT a
///    pattern too; every input frame must exist;
///  - a folder: one job per image file in it (by extension, sorted by name), written under the
///    same name into the folder OUT, which is made when missing.
/// Returns 0, or an exit status (2 for a command line that does not make sense, 1 for inputs
/// that are missing) with `error` saying why; nothing has been written then.
int PlanApply(const std::string& input, const std::string& output, const std::string& frames,
              std::vector<SApplyJob>& jobs, std::string& error);

}  // namespace crandle_tool
