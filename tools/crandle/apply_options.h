// What `crandle apply` was asked to do: filled by its command line in the tool, run by the image
// commands module.
#pragma once

#include <algorithm>
#include <string>
#include <thread>

namespace crandle_tool {

struct SApplyOptions {
  std::string lutPath;
  std::string payload;
  std::string correctionId;
  std::string input;
  std::string output;
  unsigned threads = std::clamp(std::thread::hardware_concurrency(), 1u, 256u);
  std::string preview;
  std::string depth;
  std::string frames;
  std::string interpolation = "trilinear";
  std::string device = "cpu";
  bool verbose = false;
  bool premultiplied = false;
};

/// Runs one `crandle apply`, saying on stderr why it failed; returns the exit status.
int RunApply(const SApplyOptions& options);

}  // namespace crandle_tool
