// crandle convert: any LUT to an "OTX3" image or to cube text, baking it where cube text cannot
// hold it as it is.
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
#include "foundation/utf16.h"
#include "lut/cube_writer.h"
#include "lut/lut3d.h"
#include "lut/otx3_writer.h"
#include "lut_bake.h"
#include "lut_report.h"
#include "lut_source.h"

namespace crandle_tool {
namespace {

struct SConvertOptions {
  std::string input;
  std::string correctionId;
  std::string output;
  uint32_t size = 0;
};

class CConvertError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

std::string Lower(std::string text) {
  for (char& c : text)
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// Written under a temporary name beside the target and renamed when complete.
void WriteFileAtomically(const std::string& path, const void* bytes, size_t count) {
  const std::filesystem::path target(path);
  std::string partialName(".");
  partialName += target.filename().string();
  partialName += ".partial-";
  partialName += std::to_string(::getpid());
  const std::filesystem::path partial = target.parent_path() / partialName;
  {
    std::ofstream out(partial, std::ios::binary | std::ios::trunc);
    out.write(static_cast<const char*>(bytes), std::streamsize(count));
    out.close();
    if (!out) {
      std::error_code ignored;
      std::filesystem::remove(partial, ignored);
      throw CConvertError("cannot write " + path);
    }
  }
  std::error_code error;
  std::filesystem::rename(partial, target, error);
  if (error) {
    std::filesystem::remove(partial, error);
    throw CConvertError("cannot move the written file into place at " + path);
  }
}

// Why cube text cannot hold the LUT as it stands, or empty when it can.
std::string WhyNotPlainCube(const Tincta::COv3DLUT& lut) {
  if (!lut.Is3D()) return "it is a 1-D table";
  if (lut.InputShaper()) return "it has an input shaper";
  for (int c = 0; c < 3; ++c) {
    if (lut.DomainMin()[c] != 0.0f || lut.DomainMax()[c] != 1.0f) return "its domain is not 0..1";
  }
  return {};
}

int RunConvert(const SConvertOptions& options) {
  try {
    std::shared_ptr<void> handle;
    const int parsed = ParseLUTFile(options.input, options.correctionId, handle);
    if (parsed != CRANDLE::kResultOK) {
      throw CConvertError(options.input + ": " + ResultCodeText(parsed) + ": " +
                          ParseFailureReason(options.input, parsed, options.correctionId));
    }
    const Tincta::COv3DLUT& lut = *CRANDLE::detail::LUTOf(handle);
    Tincta::COv3DLUT baked;
    const Tincta::COv3DLUT* table = &lut;
    if (options.size != 0) {
      const int result = BakeLUT(handle, options.size, baked);
      if (result != CRANDLE::kResultOK)
        throw CConvertError("baking the LUT failed: " + ResultCodeText(result));
      table = &baked;
    }
    const std::string extension = Lower(std::filesystem::path(options.output).extension().string());
    if (extension == ".otx3") {
      // The image holds one table and its domain; a shaper would be dropped without a word.
      if (table->InputShaper()) {
        throw CConvertError(
            "an OTX3 image cannot hold this LUT as it is (it has an input shaper); give --size N "
            "to bake it into a 3-D cube of N points");
      }
      if (table == &lut) {
        const host::BinaryData blob = CRANDLE::GetLUTBlob(handle);
        if (blob.Empty()) throw CConvertError("not enough memory for the image of the LUT");
        WriteFileAtomically(options.output, blob.Data(), blob.Size());
      } else {
        std::vector<uint8_t> image(Tincta::Otx3ImageBytes(baked));
        Tincta::WriteOtx3Image(baked, image.data());
        WriteFileAtomically(options.output, image.data(), image.size());
      }
      return 0;
    }
    if (extension == ".cube") {
      if (const std::string why = WhyNotPlainCube(*table); !why.empty()) {
        throw CConvertError("cube text cannot hold this LUT as it is (" + why +
                            "); give --size N to bake it into a 3-D cube of N points");
      }
      std::string text;
      Tincta::WriteCubeText(*table, text);
      if (text.empty()) throw CConvertError("cube text cannot hold this LUT");
      WriteFileAtomically(options.output, text.data(), text.size());
      return 0;
    }
    throw CConvertError("unknown output type '" + extension + "': use .cube or .otx3");
  } catch (const CConvertError& error) {
    std::fprintf(stderr, "crandle convert: %s\n", error.what());
    return 1;
  }
}

}  // namespace

void AddConvertCommand(CLI::App& app) {
  auto options = std::make_shared<SConvertOptions>();
  CLI::App* command = app.add_subcommand(
      "convert", "Write a LUT as an OTX3 float image (.otx3) or as cube text (.cube)");
  command->add_option("IN", options->input, "LUT file of any supported format")->required();
  AddCorrectionIdOption(command, options->correctionId);
  command->add_option("OUT", options->output, "Output file: .otx3 or .cube")->required();
  command
      ->add_option(
          "--size", options->size,
          "Bake the LUT (any kind, shaper and domain included) into a 3-D table of N points "
          "per axis through the CPU apply path")
      ->check(CLI::Range(2u, 256u));
  command->callback([options] {
    if (const int status = RunConvert(*options); status != 0) throw CLI::RuntimeError(status);
  });
}

}  // namespace crandle_tool
