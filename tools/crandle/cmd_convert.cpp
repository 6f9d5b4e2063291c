// crandle convert: a LUT to any format the library writes, as it stands or baked; several LUTs
// composed into one bake.
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "api/lut_handle.h"
#include "commands.h"
#include "crandle/crandle.h"
#include "lut/lut3d.h"
#include "lut/lut_evaluate.h"
#include "lut/lut_writers.h"
#include "lut/mesh_writer.h"
#include "lut_bake.h"
#include "lut_report.h"
#include "lut_source.h"

namespace crandle_tool {
namespace {

struct SConvertOptions {
  // The LUTs in order, then the output.
  std::vector<std::string> paths;
  std::string correctionId;
  uint32_t size = 0;
  std::string format;
  uint32_t bits = 0;
};

constexpr int kFailed = 1;
constexpr int kUsage = 2;

class CConvertError : public std::runtime_error {
 public:
  CConvertError(int status, const std::string& message)
      : std::runtime_error(message), status_(status) {}
  int Status() const { return status_; }

 private:
  int status_;
};

// Written under a temporary name beside the target and renamed when complete.
void WriteFileAtomically(const std::string& path, const std::string& bytes) {
  const std::filesystem::path target(path);
  std::string partialName(".");
  partialName += target.filename().string();
  partialName += ".partial-";
  partialName += std::to_string(::getpid());
  const std::filesystem::path partial = target.parent_path() / partialName;
  {
    std::ofstream out(partial, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), std::streamsize(bytes.size()));
    out.close();
    if (!out) {
      std::error_code ignored;
      std::filesystem::remove(partial, ignored);
      throw CConvertError(kFailed, "cannot write " + path);
    }
  }
  std::error_code error;
  std::filesystem::rename(partial, target, error);
  if (error) {
    std::filesystem::remove(partial, error);
    throw CConvertError(kFailed, "cannot move the written file into place at " + path);
  }
}

std::string FormatNames() {
  std::string names;
  for (const Tincta::SLUTFileFormat& format : Tincta::WrittenLUTFormats()) {
    if (!names.empty()) names += ", ";
    names += format.name;
  }
  return names;
}

Tincta::ELUTFileFormat ChooseFormat(const SConvertOptions& options, const std::string& output) {
  if (!options.format.empty()) {
    if (auto format = Tincta::LUTFormatNamed(options.format)) return *format;
    throw CConvertError(kUsage, "unknown format '" + options.format + "': use " + FormatNames());
  }
  const std::string extension = std::filesystem::path(output).extension().string();
  if (auto format = Tincta::LUTFormatNamed(extension); format && !extension.empty()) return *format;
  throw CConvertError(kUsage, "unknown output type '" + extension + "': use an extension of " +
                                  FormatNames() + ", or --format");
}

std::string_view NameOf(Tincta::ELUTFileFormat format) {
  for (const Tincta::SLUTFileFormat& written : Tincta::WrittenLUTFormats()) {
    if (written.format == format) return written.name;
  }
  return "?";
}

// The title a cube file gave the LUT; a title that is only the file's name is not written.
std::string ContentTitle(const Tincta::COv3DLUT& lut, const std::string& path) {
  if (lut.Title() == std::filesystem::path(path).stem().string()) return {};
  return lut.Title();
}

int RunConvert(const SConvertOptions& options) {
  try {
    if (options.paths.size() < 2) throw CConvertError(kUsage, "give a LUT and an output file");
    const std::vector<std::string> inputs(options.paths.begin(), options.paths.end() - 1);
    const std::string& output = options.paths.back();
    if (inputs.size() > 1 && options.size == 0) {
      throw CConvertError(kUsage, "composing " + std::to_string(inputs.size()) +
                                      " LUTs needs --size N, the points per axis of the bake");
    }
    const Tincta::ELUTFileFormat format = ChooseFormat(options, output);
    if (options.bits != 0 && format != Tincta::ELUTFileFormat::Mesh)
      throw CConvertError(kUsage, "--bits applies to .3dl meshes only");

    std::vector<std::shared_ptr<void>> handles;
    std::vector<const Tincta::COv3DLUT*> luts;
    for (const std::string& input : inputs) {
      std::shared_ptr<void> handle;
      const int parsed = ParseLUTFile(input, options.correctionId, handle);
      if (parsed != CRANDLE::kResultOK) {
        throw CConvertError(kFailed, input + ": " + ResultCodeText(parsed) + ": " +
                                         ParseFailureReason(input, parsed, options.correctionId));
      }
      luts.push_back(CRANDLE::detail::LUTOf(handle));
      handles.push_back(std::move(handle));
    }

    Tincta::SLUTWriteOptions write;
    write.meshOutputBits = options.bits;
    if (luts.size() == 1) write.title = ContentTitle(*luts.front(), inputs.front());
    Tincta::COv3DLUT baked;
    const Tincta::COv3DLUT* table = luts.front();
    if (options.size != 0) {
      if (!BakeLUTs(luts, options.size, baked))
        throw CConvertError(kFailed, "not enough memory to bake the LUT");
      table = &baked;
    }
    std::string bytes, why;
    if (!Tincta::bWriteLUTFile(*table, format, write, bytes, why)) {
      std::string message =
          output + ": the " + std::string(NameOf(format)) + " format cannot hold this LUT: " + why;
      // A bake makes a plain 3-D table over the same input domain.
      Tincta::Rgb64 min, max;
      Tincta::InputDomainOf(*table, min, max);
      const bool unitDomain = min == Tincta::Rgb64{0, 0, 0} && max == Tincta::Rgb64{1, 1, 1};
      const bool domainFree =
          format == Tincta::ELUTFileFormat::Cube || format == Tincta::ELUTFileFormat::Otx3;
      if (table != &baked && (table->InputShaper() || !table->Is3D()) &&
          (unitDomain || domainFree)) {
        message += "; give --size N to bake it into a 3-D table of N points per axis";
      }
      throw CConvertError(kFailed, message);
    }
    WriteFileAtomically(output, bytes);
    return 0;
  } catch (const CConvertError& error) {
    std::fprintf(stderr, "crandle convert: %s\n", error.what());
    return error.Status();
  }
}

}  // namespace

void AddConvertCommand(CLI::App& app) {
  auto options = std::make_shared<SConvertOptions>();
  CLI::App* command = app.add_subcommand(
      "convert",
      "Write a LUT in another format (chosen by OUT's extension: .cube, .3dl, .cub, .otx3), as "
      "it stands or baked; several LUTs are composed, in order, into one bake");
  command
      ->add_option(
          "FILES", options->paths,
          "LUT... OUT: one or more LUT files of any supported format, then the output file")
      ->required()
      ->expected(2, -1);
  AddCorrectionIdOption(command, options->correctionId);
  command
      ->add_option("--size", options->size,
                   "Bake into a 3-D table of N points per axis over the first LUT's input domain: "
                   "each node is the LUTs' exact value, applied in order")
      ->check(CLI::Range(2u, 256u));
  command->add_option("--format", options->format,
                      "Output format, whatever the extension: cube, 3dl, cub or otx3");
  command
      ->add_option("--bits", options->bits,
                   "Output depth of a .3dl mesh: 1 to 32 (default 12; 10 for grids other than "
                   "2^k + 1 points, which have no header to name it)")
      ->check(CLI::Range(Tincta::kMinMeshOutputBits, Tincta::kMaxMeshOutputBits));
  command->callback([options] {
    if (const int status = RunConvert(*options); status != 0) throw CLI::RuntimeError(status);
  });
}

}  // namespace crandle_tool
