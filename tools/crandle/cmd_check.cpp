// crandle check: says, per LUT file, which reader took it and why a read failed, with the line
// and what was expected, and warns of what a reader accepts but its author likely did not mean.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "lut_source.h"

namespace crandle_tool {
namespace {

// Exit codes: a failure outweighs warnings.
constexpr int kCheckClean = 0;
constexpr int kCheckFailed = 1;
constexpr int kCheckWarnings = 3;

struct SCheckOptions {
  std::vector<std::string> paths;
  std::string correctionId;
};

std::string ShapeText(const Tincta::COv3DLUT& lut) {
  const std::string size = std::to_string(lut.Size());
  if (!lut.Is3D()) return "1-D, " + size + " entries";
  std::string text = "3-D, " + size + " points per axis";
  if (const Tincta::COv3DLUT* shaper = lut.InputShaper()) {
    text += ", input shaper of " + std::to_string(shaper->Size()) + " entries";
  }
  return text;
}

int CheckOne(const std::string& path, const std::string& correctionId) {
  const SLUTFileCheck check = CheckLUTFile(path, correctionId);
  const Tincta::SLUTReadDiagnostics& diagnostics = check.diagnostics;
  for (const Tincta::SReadNote& warning : diagnostics.warnings) {
    std::printf("%s: warning: %s\n", path.c_str(), warning.Text().c_str());
  }
  if (!check.lut) {
    std::printf("%s: failed: %s\n", path.c_str(), FailureText(check).c_str());
    return kCheckFailed;
  }
  std::printf("%s: %s (%s)%s\n", path.c_str(), diagnostics.reader.c_str(),
              ShapeText(*check.lut).c_str(), diagnostics.warnings.empty() ? "" : " with warnings");
  return diagnostics.warnings.empty() ? kCheckClean : kCheckWarnings;
}

int RunCheck(const SCheckOptions& options) {
  int status = kCheckClean;
  for (const std::string& path : options.paths) {
    const int result = CheckOne(path, options.correctionId);
    if (result == kCheckFailed || (result == kCheckWarnings && status == kCheckClean)) {
      status = result;
    }
    std::fflush(stdout);
  }
  return status;
}

}  // namespace

void AddCheckCommand(CLI::App& app) {
  auto options = std::make_shared<SCheckOptions>();
  CLI::App* command = app.add_subcommand(
      "check", "Say which reader takes each LUT file and why a read fails, with the line");
  command->add_option("LUT", options->paths, "LUT files of any supported format")->required();
  AddCorrectionIdOption(command, options->correctionId);
  command->footer(
      "Warnings: NaN or infinite entries, an inverted or empty domain, data lines after a full "
      "table, an input shaper that falls.\n"
      "Exit status: 0 every file reads cleanly; 1 a file cannot be read; 3 every file reads, "
      "some with warnings.");
  command->callback([options] {
    const int status = RunCheck(*options);
    if (status != kCheckClean) throw CLI::RuntimeError(status);
  });
}

}  // namespace crandle_tool
