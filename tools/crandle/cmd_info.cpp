// crandle info: parse LUT files through the exported interface and describe them.
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "crandle/crandle.h"
#include "engine/convert/convert_kernels.h"
#include "engine/cpu/cpu_kernels.h"
#include "foundation/file.h"
#include "foundation/simd_tier.h"
#include "gpu_report.h"
#include "host/pixel_convert.h"
#include "lut_report.h"
#include "lut_source.h"

namespace crandle_tool {
namespace {

struct SInfoOptions {
  std::vector<std::string> paths;
  std::string correctionId;
  bool json = false;
  bool fromBytes = false;
  bool system = false;
};

// The module counts only the low 32 bits of a byte count, so a larger file cannot be handed over
// whole; it is refused before any memory is spent on it.
constexpr uint64_t kMaxBytesPassed = UINT32_MAX;

// The reason the file could not be read into memory, or empty when it was.
std::string ReadForBytes(const std::string& path, Tincta::SFileContents& contents) {
  return FileReadProblem(Tincta::ReadWholeFile(path, kMaxBytesPassed, contents), "4 GiB");
}

int ParseFile(const std::string& path, bool fromBytes, const std::string& correctionId,
              std::shared_ptr<void>& lut, std::string& readError) {
  if (!fromBytes || !correctionId.empty()) return ParseLUTFile(path, correctionId, lut);
  Tincta::SFileContents contents;
  readError = ReadForBytes(path, contents);
  if (!readError.empty()) return CRANDLE::kResultLUTFailed;
  return CRANDLE::ParseLUT(contents.bytes.get(), contents.size, lut);
}

void PrintText(const std::string& path, const SLUTReport& report) {
  std::printf("%s\n", path.c_str());
  std::printf("  kind          %s\n", report.kind.c_str());
  std::printf("  size          %u\n", report.size);
  std::printf("  shaper size   %u\n", report.shaperSize);
  std::printf("  domain        [%g %g %g] .. [%g %g %g]\n", report.domainMin[0],
              report.domainMin[1], report.domainMin[2], report.domainMax[0], report.domainMax[1],
              report.domainMax[2]);
  std::printf("  title         %s\n", report.title.c_str());
  std::printf("  display name  %s\n", report.displayName.c_str());
  std::printf("  identifier    %s\n", report.identifier.c_str());
  std::printf("  blob          %llu bytes\n", static_cast<unsigned long long>(report.blobBytes));
}

void PrintJson(const std::string& path, const SLUTReport& report) {
  const nlohmann::ordered_json line = {
      {"path", path},
      {"kind", report.kind},
      {"size", report.size},
      {"shaperSize", report.shaperSize},
      {"domainMin", report.domainMin},
      {"domainMax", report.domainMax},
      {"title", report.title},
      {"displayName", report.displayName},
      {"identifier", report.identifier},
      {"blobBytes", report.blobBytes},
  };
  std::cout << line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

void PrintSystem() {
  std::printf("version       crandle %s\n", CRANDLE_VERSION);
  const Tincta::SProcessorFeatures& features = Tincta::ProcessorFeatures();
  std::printf(
      "simd tier     %s%s\n", Tincta::SimdTierName(Tincta::ActiveSimdTier()),
      features.wideVectorsSwitchedOff ? " (256-bit kernels switched off by CRANDLE_CPU_ISA)" : "");
  std::printf("  engine      %s\n", Tincta::ActiveCPUKernels().name);
  std::printf("  converters  %s\n", Tincta::SelectedConvertKernelsName());
  std::printf("  host pixels %s\n", host::IR_ConvertInstructionSet());
  std::printf("processor     sse4.1 %s, sse4.2 %s, avx %s, avx2 %s, fma %s, os ymm state %s\n",
              features.sse41 ? "yes" : "no", features.sse42 ? "yes" : "no",
              features.avx ? "yes" : "no", features.avx2 ? "yes" : "no",
              features.fma ? "yes" : "no", features.osSavesYmm ? "yes" : "no");
  PrintGPUSystem();
}

int RunInfo(const SInfoOptions& options) {
  if (options.system) PrintSystem();
  int status = 0;
  for (const std::string& path : options.paths) {
    std::shared_ptr<void> lut;
    std::string readError;
    const int result = ParseFile(path, options.fromBytes, options.correctionId, lut, readError);
    if (!readError.empty()) {
      std::fprintf(stderr, "%s: %s\n", path.c_str(), readError.c_str());
      status = 1;
      continue;
    }
    if (result != CRANDLE::kResultOK) {
      std::fprintf(stderr, "%s: %s: %s\n", path.c_str(), ResultCodeText(result).c_str(),
                   ParseFailureReason(path, result, options.correctionId).c_str());
      status = 1;
      continue;
    }
    const SLUTReport report = DescribeLUT(lut);
    if (options.json) {
      PrintJson(path, report);
    } else {
      PrintText(path, report);
    }
    std::fflush(stdout);
  }
  return status;
}

}  // namespace

void AddInfoCommand(CLI::App& app) {
  auto options = std::make_shared<SInfoOptions>();
  CLI::App* command = app.add_subcommand("info", "Parse LUT files and describe them");
  command->add_option("LUT", options->paths, "LUT files of any supported format");
  AddCorrectionIdOption(command, options->correctionId);
  command->add_flag("--json", options->json, "One JSON object per file, each on its own line");
  command->add_flag(
      "--from-bytes", options->fromBytes,
      "Read each file into memory and parse the bytes (as a host does for embedded LUTs)");
  command->add_flag("--system", options->system,
                    "Also print the processor features, the SIMD tier of each kernel family and "
                    "the GPU devices");
  command->callback([options] {
    if (options->paths.empty() && !options->system) throw CLI::CallForHelp();
    const int status = RunInfo(*options);
    if (status != 0) throw CLI::RuntimeError(status);
  });
}

}  // namespace crandle_tool
