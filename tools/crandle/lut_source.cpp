#include "lut_source.h"

#include "crandle/crandle.h"
#include "foundation/file.h"
#include "foundation/path_title.h"
#include "foundation/utf16.h"

namespace crandle_tool {
namespace {

// The detector's name for the ASC CDL reader.
constexpr const char* kCorrectionReader = "colour transformation";

std::string FileProblem(Tincta::EFileReadResult result) {
  switch (result) {
    case Tincta::EFileReadResult::Ok:
      return {};
    case Tincta::EFileReadResult::NotFound:
      return "no such file";
    case Tincta::EFileReadResult::NotRegular:
      return "not a regular file";
    case Tincta::EFileReadResult::TooLarge:
      return "the file is larger than 200 MiB";
    case Tincta::EFileReadResult::OutOfMemory:
      return "not enough memory to read the file";
    case Tincta::EFileReadResult::ReadError:
      break;
  }
  return "the file cannot be read";
}

}  // namespace

void AddCorrectionIdOption(CLI::App* command, std::string& correctionId) {
  command
      ->add_option("--cc-id", correctionId,
                   "Take the ASC CDL correction of this id from a file that holds several")
      ->type_name("ID");
}

SLUTFileCheck CheckLUTFile(const std::string& path, const std::string& correctionId) {
  SLUTFileCheck check;
  Tincta::SFileContents contents;
  check.fileProblem = FileProblem(Tincta::ReadWholeFile(path, Tincta::kMaxLUTFileBytes, contents));
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
  if (correctionId.empty()) return CRANDLE::ParseLUT(Tincta::Utf8ToUtf16(path), lut);
  SLUTFileCheck check = CheckLUTFile(path, correctionId);
  if (!check.lut) return CRANDLE::kResultLUTFailed;
  lut = std::move(check.lut);
  return CRANDLE::kResultOK;
}

std::string FailureText(const SLUTFileCheck& check) {
  if (!check.fileProblem.empty()) return check.fileProblem;
  const Tincta::SLUTReadDiagnostics& diagnostics = check.diagnostics;
  const std::string reason =
      diagnostics.failure ? diagnostics.failure->Text() : std::string("no reason given");
  if (diagnostics.reader.empty()) return reason;
  return diagnostics.reader + ": " + reason;
}

}  // namespace crandle_tool
