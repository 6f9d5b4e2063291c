// Runs the crandle tool as a user would, captures what it prints, and makes and reads back the
// files it works on.
#pragma once

#include <OpenImageIO/typedesc.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace crandle_test {

namespace fs = std::filesystem;
using OIIO::TypeDesc;
constexpr auto npos = std::string::npos;

struct SToolRun {
  int status = -1;
  std::string out;
  std::string err;
};

/// Runs `crandle <arguments>` through the shell (arguments are passed as written, so quote paths),
/// with `input` on standard input.
SToolRun RunTool(const std::string& arguments, const std::string& input = "");

/// Success when `run` ended with `status` and its standard error holds `part`.
testing::AssertionResult Ended(const SToolRun& run, int status, const std::string& part);

/// A path in single quotes, as one shell word (the tests' paths hold no quote).
inline std::string Quote(const std::filesystem::path& path) {
  return "'" + path.native() + "'";
}

/// Every number in `text`, in order.
std::vector<double> Numbers(const std::string& text);

/// The names of the entries of `folder`.
std::set<std::string> FileNames(const std::filesystem::path& folder);

/// An image file's samples as the file stores them (no conversion between alpha conventions).
struct SImageFile {
  int width = 0, height = 0, channels = 0;
  OIIO::TypeDesc format;
  bool unassociated = false;  // the file marks its colour as unassociated from alpha
  std::string description;
  std::vector<float> samples;
  float At(int x, int y, int c) const { return samples[(size_t(y) * width + x) * channels + c]; }
};

/// Writes interleaved `samples` as a `width` x `height` image of `channels` channels stored as
/// `type`, described as made by the tests; fails the test when it cannot.
void WriteImageFile(const std::filesystem::path& path, OIIO::TypeDesc type, int width, int height,
                    int channels, const std::vector<float>& samples, bool unassociated = false);

/// The image at `path`, or one with no samples (and a test failure) when it cannot be read.
SImageFile ReadImageFile(const std::filesystem::path& path);

}  // namespace crandle_test
