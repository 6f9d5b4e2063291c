// Runs the crandle tool as a user would and captures what it prints.
#pragma once

#include <string>

namespace crandle_test {

struct SToolRun {
  int status = -1;
  std::string out;
  std::string err;
};

/// Runs `crandle <arguments>` through the shell (arguments are passed as written, so quote paths),
/// with `input` on standard input.
SToolRun RunTool(const std::string& arguments, const std::string& input = "");

/// A path in single quotes, as one shell word (the tests' paths hold no quote).
inline std::string Quote(const std::string& path) {
  return "'" + path + "'";
}

}  // namespace crandle_test
