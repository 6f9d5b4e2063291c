#include "lut_source.h"

#include <filesystem>
#include <string_view>
#include <system_error>

#include "crandle/crandle.h"
#include "foundation/file.h"
#include "foundation/path_title.h"
#include "foundation/utf16.h"
#include "host/settings.h"

namespace crandle_tool {
namespace {

// The detector's name for the ASC CDL reader.
constexpr const char* kCorrectionReader = "colour transformation";

// True when `text` is well-formed UTF-8: the conversion to UTF-16 replaces anything else, so the
// way back differs.
bool IsValidUtf8(std::string_view text) {
  return Tincta::Utf16ToUtf8(Tincta::Utf8ToUtf16(text)) == text;
}

}  // namespace

std::string FileReadProblem(Tincta::EFileReadResult result, const std::string& limit) {
  switch (result) {
    case Tincta::EFileReadResult::Ok:
      return {};
    case Tincta::EFileReadResult::NotFound:
      return "no such file";
    case Tincta::EFileReadResult::NotRegular:
      return "not a regular file";
    case Tincta::EFileReadResult::TooLarge:
      return "the file is larger than " + limit;
    case Tincta::EFileReadResult::OutOfMemory:
      return "not enough memory to read the file";
    case Tincta::EFileReadResult::ReadError:
      break;
  }
  return "the file cannot be read";
}

std::string LUTPathAsTheModuleOpensIt(const std::string& path) {
  const bool relative = path.empty() || path.front() != '/' || path.find("..") != std::string::npos;
  if (!relative) return path;
  const std::string resolved = host::Settings::Instance().ResolveLUTPath(path);
  std::error_code error;
  return std::filesystem::exists(resolved, error) ? resolved : path;
}

void AddCorrectionIdOption(CLI::App* command, std::string& correctionId) {
  command
      ->add_option("--cc-id", correctionId,
                   "Take the ASC CDL correction of this id from a file that holds several")
      ->type_name("ID");
}

SLUTFileCheck CheckLUTFile(const std::string& path, const std::string& correctionId) {
  SLUTFileCheck check;
  Tincta::SFileContents contents;
  const Tincta::EFileReadResult read =
      Tincta::ReadWholeFile(LUTPathAsTheModuleOpensIt(path), Tincta::kMaxLUTFileBytes, contents);
  check.fileProblem = FileReadProblem(read, "200 MiB");
  if (!check.fileProblem.empty()) return check;
  auto lut = std::make_shared<Tincta::COv3DLUT>();
  // The module's arguments for a path: no upsampling asked, any kind, text corrections allowed.
  const bool loaded =
      lut->LoadFromMemory(contents.bytes.get(), static_cast<uint32_t>(contents.size), false,
                          Tincta::ELUTKindFilter::Any, true, &check.diagnostics, correctionId);
  if (!loaded) return check;
  // An option that would do nothing is refused rather than ignored.
  if (!correctionId.empty() && check.diagnostics.reader != kCorrectionReader) {
    check.diagnostics.Fail(0,
                           "--cc-id picks a correction of an ASC CDL file, and this is read as " +
                               check.diagnostics.reader);
    return check;
  }
  lut->SetTitle(Tincta::PathTitleUtf8(path));
  lut->SetSourcePath(path);
  check.lut = std::move(lut);
  return check;
}

int ParseLUTFile(const std::string& path, const std::string& correctionId,
                 std::shared_ptr<void>& lut) {
  if (correctionId.empty()) {
    if (IsValidUtf8(path)) return CRANDLE::ParseLUT(Tincta::Utf8ToUtf16(path), lut);
    // A name the module's UTF-16 paths cannot carry: read here, parsed from its bytes.
    Tincta::SFileContents contents;
    if (Tincta::ReadWholeFile(path, Tincta::kMaxLUTFileBytes, contents) !=
        Tincta::EFileReadResult::Ok) {
      return CRANDLE::kResultLUTFailed;
    }
    return CRANDLE::ParseLUT(contents.bytes.get(), contents.size, lut);
  }
  SLUTFileCheck check = CheckLUTFile(path, correctionId);
  if (!check.lut) return CRANDLE::kResultLUTFailed;
  lut = std::move(check.lut);
  return CRANDLE::kResultOK;
}

std::string FailureText(const SLUTFileCheck& check) {
  if (!check.fileProblem.empty()) return check.fileProblem;
  const Tincta::SLUTReadDiagnostics& diagnostics = check.diagnostics;
  std::string reason =
      diagnostics.failure ? diagnostics.failure->Text() : std::string("no reason given");
  // The library names a correction by its id; the tool knows the option that does it.
  if (diagnostics.reader == kCorrectionReader && reason.ends_with("name one by its id")) {
    reason += " with --cc-id";
  }
  if (diagnostics.reader.empty()) return reason;
  return diagnostics.reader + ": " + reason;
}

}  // namespace crandle_tool
